#include "collector/PRBWorkloadCollector.h"

#include "collector/PRBJni.h"
#include "collector/ReferenceFinderHeapDumpHandler.h"
#include "core/PRBFormat.h"
#include "core/PRBMonitorGlobal.h"
#include "data/SnapHex.h"
#include "runtime/PRBGlobalReferences.h"
#include "runtime/PRBProfilerCPUSampler.h"

#include <algorithm>
#include <unistd.h>

namespace {

constexpr int kDefaultSamplingInterval = 5; // ms
constexpr jint kCallbackFrame = 16;
constexpr std::size_t kDirectoryBuffer = 512;

// Masks name packages with full stops, the VM names them with slashes.
std::string maskList(const char* masks, const char* whenNone) {
    std::string text = masks == nullptr ? whenNone : masks;
    std::replace(text.begin(), text.end(), '.', '/');
    return text;
}

bool debugging() { return PRBTrace::isDebugEnabled(PRBComponent::kCollector); }

} // namespace

std::atomic<PRBWorkloadCollector*> PRBWorkloadCollector::singleton{nullptr};
std::atomic<int> PRBWorkloadCollector::InitializedOK{0};

class PRBWorkloadCollector::Exclusive {
public:
    explicit Exclusive(const PRBWorkloadCollector& collector)
        : monitor_(collector.passMonitor_.load(std::memory_order_acquire)) {
        if (monitor_ != nullptr) monitor_->enter(1);
    }
    ~Exclusive() {
        if (monitor_ != nullptr) monitor_->exit(1);
    }
    Exclusive(const Exclusive&) = delete;
    Exclusive& operator=(const Exclusive&) = delete;

private:
    PRBJavaRawMonitor* monitor_;
};

PRBWorkloadCollector* PRBWorkloadCollector::getWorkloadCollector(JNIEnv* env, jobject javaCollector,
                                                                 int create) {
    PRBWorkloadCollector* existing = singleton.load(std::memory_order_acquire);
    if (existing != nullptr || create == 0) return existing;
    // Building calls Java, so no lock is held; of two at once the later one is dropped.
    auto* made = new PRBWorkloadCollector(env, javaCollector);
    if (made == nullptr) return nullptr;
    if (singleton.compare_exchange_strong(existing, made, std::memory_order_acq_rel)) return made;
    made->java_.release(env);
    delete made;
    return existing;
}

PRBWorkloadCollector* PRBWorkloadCollector::fromHandle(jlong handle) {
    PRBWorkloadCollector* collector = singleton.load(std::memory_order_acquire);
    return collector != nullptr && collector->toHandle() == handle ? collector : nullptr;
}

jlong PRBWorkloadCollector::toHandle() const { return reinterpret_cast<std::intptr_t>(this); }

PRBWorkloadCollector::PRBWorkloadCollector(JNIEnv* env, jobject javaCollector)
    : java_(env, javaCollector), dataReturn_(*this) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::PRBWorkloadCollector");
    Init();
    constructed_ = 1;
}

void PRBWorkloadCollector::Init() {
    int notYet = 0;
    InitializedOK.compare_exchange_strong(notYet, 1);
}

void PRBWorkloadCollector::setJVMPIInterface(JVMPI_Interface* jvmpi) {
    jvmpi_.store(jvmpi, std::memory_order_release);
    if (passMonitor_.load(std::memory_order_acquire) != nullptr) return;
    auto* made = new PRBJavaRawMonitor("_DataReturn", jvmpi);
    PRBJavaRawMonitor* none = nullptr;
    if (!passMonitor_.compare_exchange_strong(none, made, std::memory_order_acq_rel)) delete made;
}

// ---- Collections ----

unsigned PRBWorkloadCollector::processInitiateCollection(JNIEnv*, int collectionType,
                                                         int pollingFrequency,
                                                         int cpuSamplingInterval,
                                                         const char* classMasks,
                                                         const char* methodMasks) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::processInitiateCollection");
    Exclusive exclusive(*this);
    PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    const auto type = static_cast<std::uint32_t>(collectionType);
    collectionType_.store(type, std::memory_order_relaxed);
    cpuSamplingInterval_ = cpuSamplingInterval > 0 ? cpuSamplingInterval : kDefaultSamplingInterval;
    pollingFrequency_ = pollingFrequency;

    const bool anyClass = classMasks == nullptr || *classMasks == '\0';
    const std::string classes = maskList(anyClass ? "*" : classMasks, "*");
    const std::string methods = maskList(methodMasks, "");
    if (monitor != nullptr) {
        monitor->setClassMask(classes.c_str());
        monitor->setMethodMask(methods.c_str());
    }
    if (debugging()) {
        PRBTrace::log("Data collection initiated.  Collection Type = 0x%X CPUSamplingInterval = %i "
                      "PollingFrequency = %i ClassMasks = %s MethodMasks = %s",
                      type, cpuSamplingInterval_, pollingFrequency_, classes.c_str(),
                      methods.c_str());
    }

    events_.changeTo(type, getJVMPIInterface());
    if ((type & PRBCollect::kThreads) != 0) startSampling(cpuSamplingInterval_);
    if (monitor != nullptr) monitor->setDataBeingCollected(type);
    return trace.returns(0U);
}

void PRBWorkloadCollector::startSampling(int interval) {
    const auto ms = static_cast<unsigned>(interval);
    if (PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal()) {
        if (PRBProfilerCPUSampler* sampler = monitor->getCPUSampler()) {
            const bool isIdle = sampler->getCurrentState() != 0;
            if (isIdle) sampler->activateSampler(ms);
            if (!isIdle || sampler->isInactive() != 0) {
                sampler->interruptSampler();
                sampler->resumeSampler(ms);
                // The thread may not have noticed yet that the last collection was stopped, or
                // have noticed it since its state was looked at.
                sampler->withdrawDeactivation();
                if (sampler->isInactive() != 0) sampler->activateSampler(ms);
            }
        }
        monitor->setCPUSamplingInterval(ms);
    }
    dataReturn_.noteStart();
}

unsigned PRBWorkloadCollector::processStopCollection(JNIEnv*) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::processStopCollection");
    Exclusive exclusive(*this);
    if (PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal())
        if (PRBProfilerCPUSampler* sampler = monitor->getCPUSampler()) sampler->deactivateSampler();
    events_.disableAll(getJVMPIInterface());
    return trace.returns(0U);
}

// ---- Gathering ----

jbyteArray PRBWorkloadCollector::sendBackData(JNIEnv* env, int extra, jobject request) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::sendBackData");
    if (env == nullptr) return nullptr;
    PRBGlobalReferences::drain(env);
    Exclusive exclusive(*this);
    return dataReturn_.sendBackData(env, extra, request);
}

void PRBWorkloadCollector::handleHeapDump(JVMPI_Event* event) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::handleHeapDump");
    heapData_.handleHeapDump(event);
}

// ---- Calls to the Java side ----

bool PRBWorkloadCollector::isGCCollectionActiveInWorkloadAnalysis(JNIEnv* env) const {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::isGCCollectionActiveInWorkloadAnalysis");
    return trace.returns(java_.isGCCollectionActive(env));
}

long long PRBWorkloadCollector::getNumBytesFree(JNIEnv* env) const {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::getNumBytesFree");
    if (env != nullptr && debugging()) {
        PRBTrace::log("PRBWorkloadCollector::getNumBytesFree called with _pJNIEnv = " PRB_PTR,
                      prbPtr(env));
        SnapHex(reinterpret_cast<const unsigned char*>(env), 4, "JNIEnv follows:", nullptr);
        PRBTrace::log(
            "PRBWorkloadCollector::getNumBytesFree called with getFreeBytesMethodId = " PRB_PTR,
            prbPtr(java_.getFreeBytesMethodId()));
    }
    return trace.returns(static_cast<long long>(java_.getFreeBytes(env)));
}

long long PRBWorkloadCollector::getTotalNumBytes(JNIEnv* env) const {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::getTotalNumBytes");
    return trace.returns(static_cast<long long>(java_.getTotalBytes(env)));
}

void PRBWorkloadCollector::writeToWorkloadAnalysisLog(JNIEnv* env, const char* text) const {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::writeToWorkloadAnalysisLog");
    PRBJni::LocalFrame frame(env, kCallbackFrame);
    if (frame.isOpen()) java_.writeToLog(env, text);
}

std::string PRBWorkloadCollector::getNameOfClassForObject(JNIEnv* env, jobject object) {
    PRBTraceScope trace(PRBTraceClass::kDetail, PRBComponent::kCollector,
                        "PRBWorkloadCollector::getNameOfClassForObject");
    if (object == nullptr) return {};
    PRBJni::LocalFrame frame(env, kCallbackFrame);
    if (!frame.isOpen()) return {};
    jclass cls = env->GetObjectClass(object);
    if (cls == nullptr) return {};
    jmethodID getName =
        PRBJni::findMethod(env, env->GetObjectClass(cls), "getName", "()Ljava/lang/String;");
    if (getName == nullptr) return {};
    auto name = static_cast<jstring>(env->CallObjectMethod(cls, getName));
    return PRBJni::clearException(env) ? std::string() : createString(env, name);
}

// ---- Small queries ----

std::string PRBWorkloadCollector::getCurrentWorkingDirectory() {
    char path[kDirectoryBuffer];
    return getcwd(path, sizeof path) == nullptr ? std::string() : std::string(path);
}

std::string PRBWorkloadCollector::createString(JNIEnv* env, jstring text) {
    return PRBJni::toString(env, text);
}

void PRBWorkloadCollector::showProfilerGCStats(JNIEnv*, long long freed, long long currentlyFree,
                                               long long total) {
    bytesFreed_.store(freed, std::memory_order_relaxed);
    bytesCurrentlyFree_.store(currentlyFree, std::memory_order_relaxed);
    bytesTotal_.store(total, std::memory_order_relaxed);
}

long long PRBWorkloadCollector::getGCCPUTime() const {
    const PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal();
    return monitor == nullptr ? -1 : monitor->getGCCPUTime();
}

void PRBWorkloadCollector::setNumCpuSamplesMethod(const char* name, const char* signature) {
    numCpuSamplesName_ = name == nullptr ? "" : name;
    numCpuSamplesSignature_ = signature == nullptr ? "" : signature;
}
