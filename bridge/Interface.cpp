#include "bridge/Interface.h"

#include <cstdlib>
#include <iterator>

#include "bridge/AllocationEvents.h"
#include "bridge/Arenas.h"
#include "bridge/ClassEvents.h"
#include "bridge/Context.h"
#include "bridge/FoundObjects.h"
#include "bridge/GetEnvHook.h"
#include "bridge/HeapDump.h"
#include "bridge/MonitorEvents.h"
#include "bridge/ObjectIds.h"
#include "bridge/RawMonitor.h"
#include "bridge/StackSampler.h"
#include "bridge/SystemThreads.h"
#include "bridge/ThreadEvents.h"
#include "bridge/ThreadTable.h"
#include "bridge/TransientIds.h"
#include "bridge/VmEvents.h"

namespace bridge {
namespace {

// ---- Events -------------------------------------------------------------------------------

constexpr VmEventGroup kCollections = VmEventGroup::kCollections;
constexpr VmEventGroup kMonitors = VmEventGroup::kMonitors;
constexpr VmEventGroup kAllocations = VmEventGroup::kAllocations;
constexpr VmEventGroup kMethods = VmEventGroup::kMethods;

// An event that the VM is asked for when the profiler enables it.
template <VmEventGroup kGroup> constexpr EventRow onDemand(jint type) {
    return {type, VmEvents::enable<kGroup>, VmEvents::disable<kGroup>, nullptr,
            VmEvents::isAvailable<kGroup>};
}

const EventRow kEvents[] = {
    {JVMPI_EVENT_THREAD_START, ThreadEvents::announceAll, ThreadEvents::forgetAnnouncements,
     ThreadEvents::request},
    {JVMPI_EVENT_THREAD_END, nullptr, nullptr, nullptr},
    {JVMPI_EVENT_CLASS_LOAD, nullptr, nullptr, ClassEvents::request},
    {JVMPI_EVENT_CLASS_UNLOAD, nullptr, nullptr, nullptr},
    {JVMPI_EVENT_HEAP_DUMP, nullptr, nullptr, HeapDump::request},
    {JVMPI_EVENT_JVM_INIT_DONE, nullptr, nullptr, nullptr},
    {JVMPI_EVENT_JVM_SHUT_DOWN, nullptr, nullptr, nullptr},
    // With the receiver (METHOD_ENTRY2) they are not to be had.
    onDemand<kMethods>(JVMPI_EVENT_METHOD_ENTRY),
    onDemand<kMethods>(JVMPI_EVENT_METHOD_EXIT),
    onDemand<kCollections>(JVMPI_EVENT_GC_START),
    onDemand<kCollections>(JVMPI_EVENT_GC_FINISH),
    onDemand<kMonitors>(JVMPI_EVENT_MONITOR_CONTENDED_ENTER),
    onDemand<kMonitors>(JVMPI_EVENT_MONITOR_CONTENDED_ENTERED),
    // HotSpot does not tell when a monitor is left: enabled, and never sent.
    {JVMPI_EVENT_MONITOR_CONTENDED_EXIT, nullptr, nullptr, nullptr,
     VmEvents::isAvailable<kMonitors>},
    onDemand<kMonitors>(JVMPI_EVENT_MONITOR_WAIT),
    onDemand<kMonitors>(JVMPI_EVENT_MONITOR_WAITED),
    {JVMPI_EVENT_OBJECT_ALLOC, AllocationEvents::enable, AllocationEvents::disable, nullptr,
     VmEvents::isAvailable<kAllocations>},
    {JVMPI_EVENT_OBJECT_FREE, AllocationEvents::enableFrees, AllocationEvents::disableFrees,
     nullptr, AllocationEvents::freesAvailable},
    // Ids never change, wherever the collector puts an object.
    {JVMPI_EVENT_OBJECT_MOVE, nullptr, nullptr, nullptr},
    {JVMPI_EVENT_ARENA_NEW, Arenas::enable, nullptr, nullptr},
    // The spaces live as long as the VM.
    {JVMPI_EVENT_ARENA_DELETE, nullptr, nullptr, nullptr},
};

jint enableEvent(jint type, void*) try {
    return isDead() ? JVMPI_FAIL : events().enable(type);
} catch (...) {
    return JVMPI_FAIL;
}

jint disableEvent(jint type, void*) try {
    return isDead() ? JVMPI_FAIL : events().disable(type);
} catch (...) {
    return JVMPI_FAIL;
}

jint requestEvent(jint type, void* argument) try {
    if (isDead()) return JVMPI_FAIL;
    // Objects can be asked for whose allocation is not told: those that a dump names, of which its
    // reader asks for millions, and the monitor's in the callbacks of contention.
    if (type == JVMPI_EVENT_OBJECT_ALLOC)
        return HeapDump::answerDelivered(argument) ? jint{JVMPI_SUCCESS}
               : MonitorEvents::inCallback()       ? MonitorEvents::requestAllocation(argument)
               : HeapDump::answerKept(argument)    ? jint{JVMPI_SUCCESS}
                                                   : jint{JVMPI_NOT_AVAILABLE};
    return events().request(type, argument);
} catch (...) {
    return JVMPI_FAIL;
}

// ---- Sampling -------------------------------------------------------------------------------

// Resuming always works: what was stopped before the VM died must not stay stopped.
void suspendThread(JNIEnv* env) try {
    if (env && isLive()) context().sampler->suspend(env);
} catch (...) {
}

void resumeThread(JNIEnv* env) try {
    if (env && context().sampler) context().sampler->resume(env);
} catch (...) {
}

jint getThreadStatus(JNIEnv* env) try {
    return env && isLive() ? context().sampler->status(env) : 0;
} catch (...) {
    return 0;
}

jboolean threadHasRun(JNIEnv* env) try {
    return env && isLive() ? context().sampler->hasRun(env) : jboolean{JNI_FALSE};
} catch (...) {
    return JNI_FALSE;
}

void getCallTrace(JVMPI_CallTrace* trace, jint depth) try {
    if (!trace) return;
    trace->num_frames = 0;
    if (trace->env_id && trace->frames && depth > 0 && isLive())
        context().sampler->callTrace(trace, depth);
} catch (...) {
}

jlong currentThreadCpuTime() { return StackSampler::currentThreadCpuTime(); }

// ---- Threads --------------------------------------------------------------------------------

jint createSystemThread(char* name, jint priority, void (*body)(void*)) try {
    return SystemThreads::create(name, priority, body);
} catch (...) {
    return JVMPI_FAIL;
}

void setThreadLocalStorage(JNIEnv* env, void* value) {
    if (env) threads().setStorage(env, value);
}

void* getThreadLocalStorage(JNIEnv* env) { return env ? threads().storage(env) : nullptr; }

jobjectID getThreadObject(JNIEnv* env) { return env && isLive() ? threads().object(env) : nullptr; }

// ---- Raw monitors -----------------------------------------------------------------------------

RawMonitor* monitor(JVMPI_RawMonitor opaque) { return reinterpret_cast<RawMonitor*>(opaque); }

JVMPI_RawMonitor rawMonitorCreate(char* name) {
    return reinterpret_cast<JVMPI_RawMonitor>(RawMonitor::create(name));
}

void rawMonitorEnter(JVMPI_RawMonitor id) {
    if (id) monitor(id)->enter();
}

void rawMonitorExit(JVMPI_RawMonitor id) {
    if (id) monitor(id)->exit();
}

void rawMonitorWait(JVMPI_RawMonitor id, jlong milliseconds) {
    if (id) SystemThreads::wait(*monitor(id), milliseconds);
}

void rawMonitorNotifyAll(JVMPI_RawMonitor id) {
    if (id) monitor(id)->notifyAll();
}

void rawMonitorDestroy(JVMPI_RawMonitor id) { RawMonitor::destroy(monitor(id)); }

// ---- Heap and objects -------------------------------------------------------------------------

// Ids never change, so a collection need not be held off; and holding it off for a thread that
// then waits for another would stop the program.
void disableGC() {}
void enableGC() {}

void runGC() {
    if (isLive() && currentEnv()) context().jvmti->ForceGarbageCollection();
}

jobjectID getMethodClass(jmethodID method) try {
    return method && isLive() ? ClassEvents::classOf(method) : nullptr;
} catch (...) {
    return nullptr;
}

jobject objectOfId(jobjectID id) try {
    JNIEnv* jni = id && isLive() ? currentEnv() : nullptr;
    if (!jni) return nullptr;
    const uint32_t number = numberOf(id);
    return TransientIds::isTransient(number) ? foundObjects().object(jni, number)
                                             : objectIds().object(jni, number);
} catch (...) {
    return nullptr;
}

jobjectID idOfObject(jobject object) try {
    JNIEnv* jni = object && isLive() ? currentEnv() : nullptr;
    if (!jni) return nullptr;
    HeapDump::sweep(jni);
    return idOf(objectIds().of(jni, object));
} catch (...) {
    return nullptr;
}

// ---- The rest ---------------------------------------------------------------------------------

// Ends the process as System.exit would where that is possible.
void profilerExit(jint code) {
    JNIEnv* jni = isLive() ? currentEnv() : nullptr;
    if (jni) {
        jni->ExceptionClear();
        jclass runtime = jni->FindClass("java/lang/System");
        const jmethodID leave = runtime ? jni->GetStaticMethodID(runtime, "exit", "(I)V") : nullptr;
        if (leave) jni->CallStaticVoidMethod(runtime, leave, code);
    }
    exit(code); // NOLINT(concurrency-mt-unsafe): the process ends
}

JVMPI_Interface table = {
    .version = JVMPI_VERSION_1,
    .NotifyEvent = nullptr,
    .EnableEvent = enableEvent,
    .DisableEvent = disableEvent,
    .RequestEvent = requestEvent,
    .GetCallTrace = getCallTrace,
    .ProfilerExit = profilerExit,
    .RawMonitorCreate = rawMonitorCreate,
    .RawMonitorEnter = rawMonitorEnter,
    .RawMonitorExit = rawMonitorExit,
    .RawMonitorWait = rawMonitorWait,
    .RawMonitorNotifyAll = rawMonitorNotifyAll,
    .RawMonitorDestroy = rawMonitorDestroy,
    .GetCurrentThreadCpuTime = currentThreadCpuTime,
    .SuspendThread = suspendThread,
    .ResumeThread = resumeThread,
    .GetThreadStatus = getThreadStatus,
    .ThreadHasRun = threadHasRun,
    .CreateSystemThread = createSystemThread,
    .SetThreadLocalStorage = setThreadLocalStorage,
    .GetThreadLocalStorage = getThreadLocalStorage,
    .DisableGC = disableGC,
    .EnableGC = enableGC,
    .RunGC = runGC,
    .GetThreadObject = getThreadObject,
    .GetMethodClass = getMethodClass,
    .jobjectID2jobject = objectOfId,
    .jobject2jobjectID = idOfObject,
};

} // namespace

JVMPI_Interface& profilerInterface() { return table; }

EventTable& events() {
    static EventTable& all = *new EventTable(kEvents, std::size(kEvents), table);
    return all;
}

} // namespace bridge
