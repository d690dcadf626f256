#include "core/PRBMonitorGlobal.h"

#include "core/InternalTraceTable.h"
#include "core/PRBErrorQueue.h"
#include "core/PRBEventDispatcher.h"
#include "core/PRBFormat.h"
#include "core/PRBGarbageCollectionStats.h"
#include "core/PRBHeapDumpRegistration.h"
#include "core/PRBJavaProperty.h"
#include "core/PRBKillRequest.h"
#include "core/PRBLogFile.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBStartupOptions.h"
#include "core/PRBThreadRegistry.h"
#include "core/PRB_Profiler_Log.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBProfilerError.h"
#include "data/SnapHex.h"
#include "runtime/PRBProfilerCPUSampler.h"

#include <mutex>

const int PRBMonitorGlobal::CurrentBuildLevel = 1204019;

namespace {

constexpr int kMain = PRBTraceClass::kMain;
constexpr int kMember = PRBTraceClass::kMember;
constexpr const char* kName = PRBComponent::kMonitorGlobal;
constexpr unsigned kInternalTraceEntries = 500;
constexpr int kInternalTraceLevel = 0x1E00;

std::atomic<PRBMonitorGlobal*> pMonitorGlobal{nullptr};

// Enabled at start-up, in this order; collections enable and disable the others.
constexpr jint kStartupEvents[] = {
    JVMPI_EVENT_JVM_SHUT_DOWN, JVMPI_EVENT_GC_START,     JVMPI_EVENT_GC_FINISH,
    JVMPI_EVENT_OBJECT_MOVE,   JVMPI_EVENT_CLASS_LOAD,   JVMPI_EVENT_CLASS_UNLOAD,
    JVMPI_EVENT_THREAD_END,    JVMPI_EVENT_THREAD_START,
};

} // namespace

struct PRBMonitorGlobal::Parts {
    explicit Parts(JVMPI_Interface* jvmpi)
        : logFile(jvmpi),
          classes("_ClassTable", jvmpi),
          methods("_MethodTable", jvmpi),
          objects("_ObjectTable", jvmpi),
          arenas("_ArenaTable", jvmpi),
          threads("_ThreadTable", jvmpi),
          activeThreads("_ActiveThreadTable", jvmpi),
          masks(jvmpi),
          errors(jvmpi),
          heapDumps(jvmpi),
          secondErrorMonitor("_ProfilerError", jvmpi) {}

    struct Masks {
        explicit Masks(JVMPI_Interface* jvmpi) { PRBMaskLists::initialize(jvmpi); }
    };

    PRBSlist* debugFilter = nullptr;
    PRBLogFile logFile;
    PRBMonitorHashTable classes, methods, objects, arenas, threads, activeThreads;
    std::atomic<PRBWorkloadCollector*> collector{nullptr};
    Masks masks;
    std::once_flag samplerBuilt;
    std::atomic<PRBProfilerCPUSampler*> sampler{nullptr};
    std::unique_ptr<InternalTraceTable> traceTable;
    PRBErrorQueue errors;
    std::uint16_t port = 65535;
    struct Version {
        std::string text;
        const Version* before;
    };
    // Null until first asked for. One that is replaced stays, as readers take no lock; it is
    // replaced only by a different text.
    std::atomic<const Version*> javaVersion{nullptr};
    PRB_Profiler_Log operatorLog;
    std::string configFile;
    PRBHeapDumpRegistration heapDumps;
    PRBJavaRawMonitor secondErrorMonitor; // guards nothing
};

PRBMonitorGlobal* PRBMonitorGlobal::getMonitorGlobal() {
    return pMonitorGlobal.load(std::memory_order_acquire);
}

PRBMonitorGlobal* PRBMonitorGlobal::getMonitorGlobal(JVMPI_Interface* jvmpi, const char* options,
                                                     JavaVM* vm) {
    if (PRBMonitorGlobal* built = getMonitorGlobal()) return built;
    // A second class loader may initialise at the same time. There is no monitor yet.
    static std::once_flag built;
    std::call_once(built, [&] { new PRBMonitorGlobal(jvmpi, options, vm); }); // publishes itself
    return getMonitorGlobal();
}

bool PRBMonitorGlobal::isProfilerActive() { return getMonitorGlobal() != nullptr; }

PRBMonitorGlobal::PRBMonitorGlobal(JVMPI_Interface* jvmpi, const char* options, JavaVM* vm)
    : parts_(std::make_unique<Parts>(jvmpi)) {
    PRBContext::jvmpi.store(jvmpi, std::memory_order_release);
    if (vm != nullptr) PRBContext::javaVm.store(vm, std::memory_order_release);
    PRBContext::classTable.store(&parts_->classes, std::memory_order_release);
    PRBContext::methodTable.store(&parts_->methods, std::memory_order_release);
    PRBContext::objectTable.store(&parts_->objects, std::memory_order_release);
    PRBContext::arenaTable.store(&parts_->arenas, std::memory_order_release);
    PRBContext::threadTable.store(&parts_->threads, std::memory_order_release);
    PRBContext::activeThreadTable.store(&parts_->activeThreads, std::memory_order_release);
    PRBErrorQueue::installed.store(&parts_->errors, std::memory_order_release);
    PRBHeapDumpRegistration::installed.store(&parts_->heapDumps, std::memory_order_release);
    PRBTrace::logFile.store(&parts_->logFile, std::memory_order_release);
    // Before the options are parsed, as the parse writes to the log.
    pMonitorGlobal.store(this, std::memory_order_release);

    int level = 0;
    try {
        if (options != nullptr) level = applyOptions(options);
    } catch (...) {
        // Others may hold the published pointer by now: the agent goes on without the options.
        PRBTrace::writeToLog("Storage allocation failed");
    }
    if (PRBTrace::isDebugEnabled(kName)) {
        PRBTrace::writeToLog("PRBPROF Initialization");
        if (options != nullptr) PRBTrace::log("Startup Options: %s", options);
        PRBTrace::log("Settings: Port %i Trace Level 0x%X", static_cast<int>(parts_->port),
                      static_cast<unsigned>(level));
    }
    if (PRBTrace::isTraceEnabled(kMain, kName)) PRBTrace::exitLine("PRBMonitorGlobal constructor");
}

PRBMonitorGlobal::~PRBMonitorGlobal() = default;

// Answers the trace level in force.
int PRBMonitorGlobal::applyOptions(const char* options) {
    int level = 0;
    PRBReturnCode rc = PRBStartupOptions::parse(
        options, {&parts_->port, &level, &parts_->debugFilter, &parts_->configFile});
    // The parse that sets the level is itself traced by it, from its exit on.
    PRBTrace::filter.store(parts_->debugFilter, std::memory_order_release);
    PRBTrace::level.store(level, std::memory_order_relaxed);
    traceParseExit(rc);
    if (rc.bad()) PRBTrace::writeToLog(rc.getDescription());
    if (level != PRBStartupOptions::kInternalTrace) return level;
    PRBTrace::level.store(kInternalTraceLevel, std::memory_order_relaxed);
    parts_->traceTable =
        std::make_unique<InternalTraceTable>(kInternalTraceEntries, PRBContext::getInterface());
    PRBTrace::log("Internal trace table is at " PRB_PTR, prbPtr(parts_->traceTable.get()));
    // From here on nothing goes to the file.
    PRBTrace::table.store(parts_->traceTable.get(), std::memory_order_release);
    return kInternalTraceLevel;
}

void PRBMonitorGlobal::traceParseExit(const PRBReturnCode& rc) {
    if (PRBTrace::isTraceEnabled(kMain, kName))
        PRBTrace::exitLine("PRBMonitorGlobal::parseStartupOptions",
                           static_cast<int>(static_cast<unsigned>(rc)));
}

void PRBMonitorGlobal::setStartupOptions(const char* options) { PRBStartupOptions::keep(options); }

PRBReturnCode PRBMonitorGlobal::parseStartupOptions(const char* options, std::uint16_t* port,
                                                    int* traceLevel, PRBSlist** filter,
                                                    std::string* configFile) {
    if (PRBTrace::isTraceEnabled(kMain, kName))
        PRBTrace::entryLine("PRBMonitorGlobal::parseStartupOptions");
    PRBReturnCode rc = PRBStartupOptions::parse(options, {port, traceLevel, filter, configFile});
    traceParseExit(rc);
    return rc;
}

std::string PRBMonitorGlobal::getConfigFileFromStartupParms() {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::getConfigFileFromStartupParms");
    return PRBStartupOptions::keptConfigFile();
}

void PRBMonitorGlobal::completeInit() {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::completeInit");
    JVMPI_Interface* vm = PRBContext::getInterface();
    std::call_once(parts_->samplerBuilt, [this, vm] {
        PRBProfilerCPUSampler::errorSink.store(PRBErrorQueue::report);
        parts_->sampler.store(PRBProfilerCPUSampler::createBackgroundThread(vm, 0));
    });
    if (vm == nullptr || vm->EnableEvent == nullptr) return;
    for (jint event : kStartupEvents) vm->EnableEvent(event, nullptr);
}

void PRBMonitorGlobal::setPRBWorkloadCollector(PRBWorkloadCollector* collector) {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::setPRBWorkloadCollector");
    parts_->collector.store(collector, std::memory_order_release);
}

PRBWorkloadCollector* PRBMonitorGlobal::getPRBWorkloadCollector() const {
    return parts_->collector.load(std::memory_order_acquire);
}

PRBProfilerCPUSampler* PRBMonitorGlobal::getCPUSampler() const {
    return parts_->sampler.load(std::memory_order_acquire);
}

void PRBMonitorGlobal::notify(JVMPI_Event* event) {
    // The VM calls this from C: nothing may come out of it.
    try {
        PRBTraceScope trace(kMember, kName, "PRBMonitorGlobal::notify");
        if (getMonitorGlobal() != nullptr) PRBEventDispatcher::dispatch(event);
    } catch (...) {
        // Out of memory: this event's data is lost, guards have released what was held.
    }
}

bool PRBMonitorGlobal::doesDebugFilterMatch(const char* component) const {
    return PRBTrace::doesDebugFilterMatch(component);
}

void PRBMonitorGlobal::dumpMonitorStats() {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::dumpMonitorStats");
    const auto counters = PRBEventDispatcher::metrics().take();
    static_assert(sizeof counters == 84);
    if (PRBTrace::isTraceEnabled(PRBTraceClass::kInternal, kName))
        SnapHex(reinterpret_cast<const unsigned char*>(counters.data()), sizeof counters,
                "Event metrics follow", nullptr);
}

void PRBMonitorGlobal::purgeEndedThreads() { PRBThreadRegistry::purgeEnded(); }

PRBJavaThread* PRBMonitorGlobal::resolveThreadHandle(JNIEnv* env, jlong handle) {
    return PRBThreadRegistry::resolveHandle(env, handle);
}

jlong PRBMonitorGlobal::registerThreadHandle(JNIEnv* env) {
    return PRBThreadRegistry::noteHandle(env);
}

PRBReturnCode PRBMonitorGlobal::createSample(PRBGarbageCollectionSample& sample, long long) {
    PRBTraceScope trace(kMember, kName, "PRBMonitorGlobal::createSample");
    PRBGarbageCollectionStats::instance().createSample(sample);
    return trace.returns(PRBReturnCode());
}

long long PRBMonitorGlobal::getGCCPUTime() const {
    return PRBGarbageCollectionStats::instance().getGCCPUTime();
}

void PRBMonitorGlobal::newProfilerErrorSample(PRBProfilerError* error) {
    PRBTraceScope trace(kMember, kName, "PRBMonitorGlobal::newProfilerErrorSample");
    parts_->errors.add(error);
}

PRBProfilerError* PRBMonitorGlobal::getNextProfilerErrorSample() {
    PRBTraceScope trace(kMember, kName, "PRBMonitorGlobal::getNextProfilerErrorSample");
    return parts_->errors.next();
}

PRBHeapDumpHandler* PRBMonitorGlobal::registerHeapDumpHandler(PRBHeapDumpHandler* handler) {
    PRBTraceScope trace(kMember, kName, "PRBMonitorGlobal::registerHeapDumpHandler");
    return parts_->heapDumps.set(handler);
}

void PRBMonitorGlobal::deregisterHeapDumpHandler() {
    PRBTraceScope trace(kMember, kName, "PRBMonitorGlobal::deregisterHeapDumpHandler");
    parts_->heapDumps.set(nullptr);
}

PRBJavaRawMonitor& PRBMonitorGlobal::getHeapDumpRequestMonitor() {
    return parts_->heapDumps.requestMonitor;
}

unsigned PRBMonitorGlobal::requestKillThread(jobjectID threadId) {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::requestKillThread");
    return trace.returns(PRBKillRequest::request(threadId));
}

std::string PRBMonitorGlobal::getJavaProperty(JNIEnv* env, const char* name, PRBReturnCode& rc) {
    return PRBJavaProperty(env, name, rc);
}

PRBReturnCode PRBMonitorGlobal::determineJavaVersion(JNIEnv* env) {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::determineJavaVersion");
    return trace.returns(findJavaVersion(env));
}

// A failed look-up leaves a single blank, so that it is not repeated.
PRBReturnCode PRBMonitorGlobal::findJavaVersion(JNIEnv* env) const {
    PRBReturnCode rc;
    std::string version = PRBJavaProperty(env, "java.vm.version", rc);
    if (rc.bad()) version.assign(1, ' ');
    if (PRBTrace::isDebugEnabled(kName))
        PRBTrace::log("Detected Java version is %s", version.c_str());
    const Parts::Version* before = parts_->javaVersion.load(std::memory_order_acquire);
    if (before == nullptr || before->text != version) {
        std::unique_ptr<const Parts::Version> now(new Parts::Version{std::move(version), before});
        // Whoever asked at the same time has the same answer.
        if (parts_->javaVersion.compare_exchange_strong(before, now.get(),
                                                        std::memory_order_acq_rel))
            static_cast<void>(now.release());
    }
    return rc;
}

std::string PRBMonitorGlobal::getJavaVersion(JNIEnv* env) const {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName, "PRBMonitorGlobal::getJavaVersion");
    const auto known = [this] {
        const Parts::Version* version = parts_->javaVersion.load(std::memory_order_acquire);
        return version == nullptr ? std::string() : version->text;
    };
    std::string version = known();
    if (version.empty()) {
        findJavaVersion(env);
        version = known();
    }
    return version.empty() ? "unknown" : version;
}
