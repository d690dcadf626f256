#include "bridge/VmCallbacks.h"

#include "bridge/AgentLibrary.h"
#include "bridge/AllocationEvents.h"
#include "bridge/BridgeLink.h"
#include "bridge/ClassEvents.h"
#include "bridge/CollectionEvents.h"
#include "bridge/Context.h"
#include "bridge/DebugInformation.h"
#include "bridge/ExactMethods.h"
#include "bridge/HeapDump.h"
#include "bridge/HeapFigures.h"
#include "bridge/HeapFork.h"
#include "bridge/Interface.h"
#include "bridge/JavaDriver.h"
#include "bridge/MonitorEvents.h"
#include "bridge/ObjectIds.h"
#include "bridge/RawMonitor.h"
#include "bridge/Reaper.h"
#include "bridge/Report.h"
#include "bridge/SystemThreads.h"
#include "bridge/ThreadEvents.h"
#include "bridge/VmEvents.h"
#include "bridge/VmFlags.h"

namespace bridge {
namespace {

void deliverPlain(jint type, JNIEnv* jni) {
    if (!events().isEnabled(type)) return;
    JVMPI_Event event{};
    event.event_type = type;
    event.env_id = jni;
    events().deliver(event);
}

void* currentJavaThread() {
    JNIEnv* env = currentEnv();
    return env ? context().vmStructs.javaThreadOf(env) : nullptr;
}

bool isStuckInVm(void* javaThread) {
    return context().vmStructs.threadState(javaThread) != VmStructs::kInNative;
}

// ---- Callbacks ------------------------------------------------------------------------------

void JNICALL vmInit(jvmtiEnv*, JNIEnv* jni, jthread) {
    try {
        beginLive(jni);
    } catch (...) {
        report("memory is short; the program runs unprofiled");
    }
}

// The order matters: the last poll needs everything alive, and the profiler must hear of the
// shutdown before the functions cease to answer.
void JNICALL vmDeath(jvmtiEnv*, JNIEnv* jni) {
    if (!isLive()) return;
    try {
        Reaper::look(jni);
        JavaDriver::stop(jni);
        deliverPlain(JVMPI_EVENT_JVM_SHUT_DOWN, jni);
        SystemThreads::sleepForGood();
    } catch (...) {
        report("memory is short; the capture lacks its end");
    }
    context().phase.store(Phase::kDead, std::memory_order_release);
}

// Events that come before the live phase concern what it finds when it begins.
template <class Work> void whileLive(Work work) noexcept {
    if (!isLive()) return;
    try {
        work();
    } catch (...) {
        // Out of memory: this thread or class stays unknown to the profile.
    }
}

void JNICALL threadStart(jvmtiEnv*, JNIEnv* jni, jthread thread) {
    whileLive([&] { ThreadEvents::started(jni, thread); });
}

void JNICALL threadEnd(jvmtiEnv*, JNIEnv* jni, jthread) {
    whileLive([&] {
        ThreadEvents::ended(jni);
        HeapDump::sweep(jni);
    });
}

void JNICALL classPrepare(jvmtiEnv*, JNIEnv* jni, jthread, jclass mirror) {
    whileLive([&] { ClassEvents::prepared(jni, mirror); });
}

// Call traces are had only while this event is on.
void JNICALL classLoad(jvmtiEnv*, JNIEnv*, jthread, jclass) {}

// Listened to for what the VM does meanwhile (DebugInformation).
void JNICALL compiledMethodLoad(jvmtiEnv*, jmethodID, jint, const void*, jint,
                                const jvmtiAddrLocationMap*, const void*) {}

void JNICALL collectionStart(jvmtiEnv*) { CollectionEvents::started(); }
void JNICALL collectionFinish(jvmtiEnv*) { CollectionEvents::finished(); }

void JNICALL contendedEnter(jvmtiEnv*, JNIEnv* jni, jthread thread, jobject object) {
    MonitorEvents::contendedEnter(jni, thread, object);
}

void JNICALL contendedEntered(jvmtiEnv*, JNIEnv* jni, jthread thread, jobject object) {
    MonitorEvents::contendedEntered(jni, thread, object);
}

void JNICALL monitorWait(jvmtiEnv*, JNIEnv* jni, jthread thread, jobject object, jlong timeout) {
    MonitorEvents::wait(jni, thread, object, timeout);
}

void JNICALL monitorWaited(jvmtiEnv*, JNIEnv* jni, jthread thread, jobject object, jboolean) {
    MonitorEvents::waited(jni, thread, object);
}

void JNICALL sampledObjectAlloc(jvmtiEnv*, JNIEnv* jni, jthread, jobject object, jclass type,
                                jlong size) {
    AllocationEvents::allocated(jni, object, type, size);
}

void JNICALL methodEntry(jvmtiEnv*, JNIEnv* jni, jthread thread, jmethodID method) {
    ExactMethods::entered(jni, thread, method);
}

void JNICALL methodExit(jvmtiEnv*, JNIEnv* jni, jthread thread, jmethodID method, jboolean,
                        jvalue) {
    ExactMethods::left(jni, thread, method);
}

struct EventSwitch {
    jvmtiEvent event;
    const char* name;
};
constexpr EventSwitch kEvents[] = {
    {JVMTI_EVENT_VM_INIT, "VMInit"},           {JVMTI_EVENT_VM_DEATH, "VMDeath"},
    {JVMTI_EVENT_THREAD_START, "ThreadStart"}, {JVMTI_EVENT_THREAD_END, "ThreadEnd"},
    {JVMTI_EVENT_CLASS_LOAD, "ClassLoad"},     {JVMTI_EVENT_CLASS_PREPARE, "ClassPrepare"},
};

DebugInformation debugInformation;

// The flags are found anew each time: some ten microseconds.
bool keepDebugInformation() {
    VmFlags flags;
    flags.resolve(context().vmStructs);
    return debugInformation.begin(context().jvmti, flags);
}

} // namespace

std::string installCallbacks(jvmtiEnv* jvmti) {
    jvmtiCapabilities needed{};
    needed.can_tag_objects = 1;
    needed.can_get_source_file_name = 1;
    needed.can_generate_compiled_method_load_events = 1;
    if (jvmti->AddCapabilities(&needed) != JVMTI_ERROR_NONE)
        return "this JVM does not let agents tag objects or see compiled methods: use HotSpot "
               "17 or newer";
    jvmtiEventCallbacks callbacks{};
    callbacks.VMInit = vmInit;
    callbacks.VMDeath = vmDeath;
    callbacks.ThreadStart = threadStart;
    callbacks.ThreadEnd = threadEnd;
    callbacks.ClassLoad = classLoad;
    callbacks.ClassPrepare = classPrepare;
    callbacks.CompiledMethodLoad = compiledMethodLoad;
    callbacks.GarbageCollectionStart = collectionStart;
    callbacks.GarbageCollectionFinish = collectionFinish;
    callbacks.MonitorContendedEnter = contendedEnter;
    callbacks.MonitorContendedEntered = contendedEntered;
    callbacks.MonitorWait = monitorWait;
    callbacks.MonitorWaited = monitorWaited;
    callbacks.MethodEntry = methodEntry;
    callbacks.MethodExit = methodExit;
    callbacks.SampledObjectAlloc = sampledObjectAlloc;
    if (jvmti->SetEventCallbacks(&callbacks, sizeof callbacks) != JVMTI_ERROR_NONE)
        return "this JVM takes no event callbacks: use HotSpot 17 or newer";
    for (const EventSwitch& row : kEvents)
        if (jvmti->SetEventNotificationMode(JVMTI_ENABLE, row.event, nullptr) != JVMTI_ERROR_NONE)
            return std::string("this JVM does not give the event ") + row.name +
                   ": use HotSpot 17 or newer";
    if (!keepDebugInformation())
        return "this JVM does not give the event CompiledMethodLoad: use HotSpot 17 or newer";
    VmEvents::begin(jvmti);
    if (context().options.data() & Options::kAlloc) VmEvents::take(VmEventGroup::kAllocations);
    if (context().options.exact().empty()) return {};
    if (VmEvents::take(VmEventGroup::kMethods))
        ExactMethods::choose(context().options.exact());
    else
        report("methods are timed exactly only in a JVM that was started so (prb run --exact); the "
               "rest goes on");
    return {};
}

void dropDebugInformation() {
    VmFlags flags;
    flags.resolve(context().vmStructs);
    debugInformation.end(context().jvmti, flags);
}

std::string wake() {
    Context& the = context();
    std::string problem;
    if (!the.sampler->start(problem)) return problem;
    keepDebugInformation();
    if (!the.sampler->searchesStacks())
        noteLimit("samples in native code that Java code called without a frame have no stack");
    if (the.options.protectForks() && !protectHeapFromFork(the.vmStructs))
        noteLimit("the heap is shared with forked children");
    return {};
}

void rest() {
    Context& the = context();
    dropDebugInformation();
    the.sampler->stop();
    ExactMethods::end();
    unprotectHeapFromFork();
}

void beginLive(JNIEnv* jni) {
    Context& the = context();
    std::string problem;
    if (!ThreadEvents::start(jni))
        problem = the.vmStructs.problem().empty() ? "this JVM hides its threads"
                                                  : the.vmStructs.problem();
    else if (!objectIds().start(jni))
        problem = "this JVM gives no weak references";
    else if (!MonitorEvents::start(jni) || !AllocationEvents::start(jni) ||
             !ExactMethods::start(jni))
        problem = "this JVM hides the fields of its threads";
    else
        problem = wake();
    if (!problem.empty()) {
        the.phase.store(Phase::kOff, std::memory_order_release);
        dropDebugInformation();
        report("%s; the program runs unprofiled", problem.c_str());
        return;
    }
    setMonitorVm({currentJavaThread, isStuckInVm});
    startHeapFigures(jni);
    VmEvents::live();
    // What was enabled while the VM took no switches.
    for (const VmEventGroup group : {VmEventGroup::kCollections, VmEventGroup::kMonitors,
                                     VmEventGroup::kAllocations, VmEventGroup::kMethods})
        VmEvents::follow(group);
    // Threads and classes that come from now on arrive by callback, all others are found below.
    the.phase.store(Phase::kLive, std::memory_order_release);
    ThreadEvents::addExisting(jni);
    ClassEvents::addExisting(jni);
    SystemThreads::startQueued(jni);
    Reaper::start();
    deliverPlain(JVMPI_EVENT_JVM_INIT_DONE, jni);
    if (events().isEnabled(JVMPI_EVENT_THREAD_START)) ThreadEvents::announceAll();
    AllocationEvents::takeEffect(jni);
    if (!the.options.driver()) {
        ExactMethods::announce();
        ExactMethods::begin();
        return;
    }
    void* library = AgentLibrary::handle();
    if (!library) {
        report("-Xrunprbprof did not load libprbprof.so; the program runs unprofiled");
        return;
    }
    ExactMethods::announce();
    JavaDriver::start(jni, library);
    if (JavaDriver::capture(jni).empty())
        ExactMethods::end();
    else
        ExactMethods::begin();
}

} // namespace bridge
