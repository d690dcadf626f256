// The JVMPI table of the scripted VM.
#include "tests/vm/ScriptedWorld.h"

#include <cstring>
#include <ctime>

namespace scripted {

namespace {

// A pthread that plays a thread belongs to that thread's VM; any other meets the current one.
ScriptedVm& vmOfCaller() {
    const ScriptedThread* playing = hostState().thread;
    return playing != nullptr ? playing->vm() : ScriptedVm::current();
}

constexpr jint kEventTypes[] = {
    JVMPI_EVENT_METHOD_ENTRY,
    JVMPI_EVENT_METHOD_ENTRY2,
    JVMPI_EVENT_METHOD_EXIT,
    JVMPI_EVENT_OBJECT_ALLOC,
    JVMPI_EVENT_OBJECT_FREE,
    JVMPI_EVENT_OBJECT_MOVE,
    JVMPI_EVENT_THREAD_START,
    JVMPI_EVENT_THREAD_END,
    JVMPI_EVENT_HEAP_DUMP,
    JVMPI_EVENT_CLASS_LOAD,
    JVMPI_EVENT_CLASS_UNLOAD,
    JVMPI_EVENT_JVM_INIT_DONE,
    JVMPI_EVENT_JVM_SHUT_DOWN,
    JVMPI_EVENT_ARENA_NEW,
    JVMPI_EVENT_ARENA_DELETE,
    JVMPI_EVENT_MONITOR_CONTENDED_ENTER,
    JVMPI_EVENT_MONITOR_CONTENDED_ENTERED,
    JVMPI_EVENT_MONITOR_CONTENDED_EXIT,
    JVMPI_EVENT_MONITOR_WAIT,
    JVMPI_EVENT_MONITOR_WAITED,
    JVMPI_EVENT_GC_START,
    JVMPI_EVENT_GC_FINISH,
};

bool supported(ScriptedVm& vm, jint type) {
    World& world = vm.world();
    std::lock_guard lock(world.mutex);
    if (world.unsupported.count(type) != 0) return false;
    for (const jint known : kEventTypes)
        if (known == type) return true;
    return false;
}

std::string eventCall(ScriptedVm& vm, const char* name, jint type, const void* arg) {
    std::string text = std::string(name) + "(" + std::to_string(type);
    if (type == JVMPI_EVENT_HEAP_DUMP && arg != nullptr)
        text += ", level " +
                std::to_string(static_cast<const JVMPI_HeapDumpArg*>(arg)->heap_dump_level);
    else if (arg != nullptr)
        text += ", " + vm.world().describe(arg);
    return text + ")";
}

jint enableEvent(jint type, void* arg) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "EnableEvent", [&] { return eventCall(vm, "EnableEvent", type, arg); }, true);
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(JVMPI_FAIL));
    if (!supported(vm, type)) return JVMPI_NOT_AVAILABLE;
    const bool before = vm.enabled(type);
    vm.setEnabled(type, true);
    // Threads that exist already are announced now, on the enabling thread.
    if (type == JVMPI_EVENT_THREAD_START && !before) {
        ScriptedThread& on = vm.currentThread();
        for (ScriptedThread* thread : vm.threads()) vm.send.threadStart(*thread, false, &on);
    }
    return JVMPI_SUCCESS;
}

jint disableEvent(jint type, void* arg) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "DisableEvent", [&] { return eventCall(vm, "DisableEvent", type, arg); }, true);
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(JVMPI_FAIL));
    if (!supported(vm, type)) return JVMPI_NOT_AVAILABLE;
    vm.setEnabled(type, false);
    return JVMPI_SUCCESS;
}

jint requestEvent(jint type, void* arg) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "RequestEvent", [&] { return eventCall(vm, "RequestEvent", type, arg); }, true);
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(JVMPI_FAIL));
    if (!supported(vm, type)) return JVMPI_NOT_AVAILABLE;
    return replayEvent(vm, type, arg);
}

// The thread of an environment that the agent names; null, with a violation, for what names no
// living one.
ScriptedThread* threadOf(ScriptedVm& vm, JNIEnv* env, const char* function) {
    ScriptedThread* thread = TableAccess::thread(vm, env);
    if (thread == nullptr)
        vm.recorder().violation(std::string(function) + " of " + hex(env) +
                                ", which is no environment");
    else if (!thread->alive())
        vm.recorder().violation(std::string(function) + " of the ended thread " + thread->name());
    else
        return thread;
    return nullptr;
}

std::string threadCall(ScriptedVm& vm, const char* name, JNIEnv* env) {
    const ScriptedThread* thread = TableAccess::thread(vm, env);
    return std::string(name) + "(" + (thread != nullptr ? thread->name() : hex(env)) + ")";
}

void getCallTrace(JVMPI_CallTrace* trace, jint depth) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "GetCallTrace",
        [&] {
            std::string text = threadCall(vm, "GetCallTrace", trace->env_id);
            text.pop_back();
            return text + ", " + std::to_string(depth) + ")";
        },
        true);
    trace->num_frames = 0;
    ScriptedThread* thread = threadOf(vm, trace->env_id, "GetCallTrace");
    if (verdict.fail || thread == nullptr) return;
    if (thread != &vm.currentThread() && thread->suspendCount() == 0) return;
    trace->num_frames = thread->copyFrames(trace->frames, depth);
}

void profilerExit(jint code) {
    InsideVm inside;
    vmOfCaller().call(
        kJvmpi, "ProfilerExit", [&] { return "ProfilerExit(" + std::to_string(code) + ")"; },
        false);
}

JVMPI_RawMonitor rawMonitorCreate(char* name) {
    InsideVm inside;
    return vmOfCaller().monitors().create(name);
}
void rawMonitorEnter(JVMPI_RawMonitor monitor) { vmOfCaller().monitors().enter(monitor); }
void rawMonitorExit(JVMPI_RawMonitor monitor) { vmOfCaller().monitors().exit(monitor); }
void rawMonitorWait(JVMPI_RawMonitor monitor, jlong ms) {
    vmOfCaller().monitors().wait(monitor, ms);
}
void rawMonitorNotifyAll(JVMPI_RawMonitor monitor) { vmOfCaller().monitors().notifyAll(monitor); }
void rawMonitorDestroy(JVMPI_RawMonitor monitor) { vmOfCaller().monitors().destroy(monitor); }

jlong getCurrentThreadCpuTime() {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kClock, "GetCurrentThreadCpuTime", [] { return std::string("GetCurrentThreadCpuTime()"); },
        false);
    if (!vm.world().realCpuClock.load(std::memory_order_relaxed))
        return vm.currentThread().readCpuTime();
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<jlong>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

void suspendThread(JNIEnv* env) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "SuspendThread", [&] { return threadCall(vm, "SuspendThread", env); }, false);
    ScriptedThread* thread = threadOf(vm, env, "SuspendThread");
    if (thread == nullptr) return;
    if (thread == &vm.currentThread()) {
        vm.recorder().violation("thread " + thread->name() + " suspends itself");
        return;
    }
    TableAccess::suspend(vm, *thread);
    ++hostState().suspending;
}

void resumeThread(JNIEnv* env) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "ResumeThread", [&] { return threadCall(vm, "ResumeThread", env); }, false);
    ScriptedThread* thread = threadOf(vm, env, "ResumeThread");
    if (thread == nullptr) return;
    if (thread->suspendCount() == 0) {
        vm.recorder().violation("thread " + thread->name() + " is resumed but not suspended");
        return;
    }
    TableAccess::resume(vm, *thread);
    --hostState().suspending;
}

jint getThreadStatus(JNIEnv* env) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "GetThreadStatus", [&] { return threadCall(vm, "GetThreadStatus", env); }, true);
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(0));
    const ScriptedThread* thread = threadOf(vm, env, "GetThreadStatus");
    return thread != nullptr ? thread->statusNow() : 0;
}

jboolean threadHasRun(JNIEnv* env) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "ThreadHasRun", [&] { return threadCall(vm, "ThreadHasRun", env); }, true);
    if (verdict.fail) return static_cast<jboolean>(verdict.result.value_or(JNI_FALSE));
    ScriptedThread* thread = threadOf(vm, env, "ThreadHasRun");
    return thread != nullptr && TableAccess::hasRun(*thread) ? JNI_TRUE : JNI_FALSE;
}

jint createSystemThread(char* name, jint priority, void (*body)(void*)) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "CreateSystemThread",
        [&] {
            return std::string("CreateSystemThread(") + (name != nullptr ? name : "null") + ", " +
                   std::to_string(priority) + ")";
        },
        true);
    if (verdict.fail) return static_cast<jint>(verdict.result.value_or(-1));
    if (name == nullptr || body == nullptr) return -1;
    return beginSystemThread(vm, name, priority, body);
}

void setThreadLocalStorage(JNIEnv* env, void* value) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "SetThreadLocalStorage",
        [&] {
            std::string text = threadCall(vm, "SetThreadLocalStorage", env);
            text.pop_back();
            return text + (value != nullptr ? ", set)" : ", null)");
        },
        false);
    if (ScriptedThread* thread = TableAccess::thread(vm, env); thread != nullptr && thread->alive())
        TableAccess::setStorage(*thread, value);
}

// Unknown and ended environments have none.
void* getThreadLocalStorage(JNIEnv* env) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "GetThreadLocalStorage",
        [&] { return threadCall(vm, "GetThreadLocalStorage", env); }, false);
    ScriptedThread* thread = TableAccess::thread(vm, env);
    return thread != nullptr && thread->alive() ? thread->localStorage() : nullptr;
}

void disableGC() {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "DisableGC", [] { return std::string("DisableGC()"); }, false);
    std::lock_guard lock(vm.world().mutex);
    ++vm.world().gcDisabled;
}

void enableGC() {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "EnableGC", [] { return std::string("EnableGC()"); }, false);
    bool matched = false;
    {
        std::lock_guard lock(vm.world().mutex);
        matched = vm.world().gcDisabled > 0;
        if (matched) --vm.world().gcDisabled;
    }
    if (!matched) vm.recorder().violation("EnableGC without DisableGC");
}

void runGC() {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    vm.call(
        kJvmpi, "RunGC", [] { return std::string("RunGC()"); }, false);
    GcPlan plan;
    {
        World& world = vm.world();
        std::lock_guard lock(world.mutex);
        if (world.gcDisabled > 0) return;
        if (!world.plans.empty()) {
            plan = std::move(world.plans.front());
            world.plans.pop_front();
        }
    }
    runCollection(vm, plan);
}

jobjectID getThreadObject(JNIEnv* env) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "GetThreadObject", [&] { return threadCall(vm, "GetThreadObject", env); }, true);
    const ScriptedThread* thread = threadOf(vm, env, "GetThreadObject");
    return verdict.fail || thread == nullptr ? nullptr : thread->id();
}

jobjectID getMethodClass(jmethodID method) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "GetMethodClass",
        [&] { return "GetMethodClass(" + vm.world().describe(method) + ")"; }, true);
    const ScriptedMethod* found = vm.world().method(method);
    if (verdict.fail || found == nullptr || found->owner->unloaded) return nullptr;
    return found->owner->id();
}

jobject objectIdToReference(jobjectID id) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    const Verdict verdict = vm.call(
        kJvmpi, "jobjectID2jobject",
        [&] { return "jobjectID2jobject(" + vm.world().describe(id) + ")"; }, true);
    ScriptedObject* object = vm.findObject(id);
    if (verdict.fail || object == nullptr) return nullptr;
    return TableAccess::newLocal(vm, object, "jobjectID2jobject");
}

jobjectID referenceToObjectId(jobject handle) {
    InsideVm inside;
    ScriptedVm& vm = vmOfCaller();
    ScriptedObject* object = nullptr;
    std::string problem;
    if (handle != nullptr) {
        std::lock_guard lock(vm.world().mutex);
        if (Ref* ref = vm.world().refLocked(handle, &vm.currentThread(), problem))
            object = ref->object;
    }
    const Verdict verdict = vm.call(
        kJvmpi, "jobject2jobjectID",
        [&] { return "jobject2jobjectID(" + World::describe(object) + ")"; }, true);
    if (!problem.empty()) vm.recorder().violation("jobject2jobjectID: " + problem);
    return verdict.fail || object == nullptr || object->freed ? nullptr : object->id;
}

} // namespace

// ---- what the table needs of the threads' inside ----------------------------------------------

ScriptedThread* TableAccess::thread(ScriptedVm& vm, const JNIEnv* env) {
    World& world = vm.world();
    std::lock_guard lock(world.mutex);
    const Env* found = world.envLocked(env);
    return found != nullptr ? found->thread : nullptr;
}

void TableAccess::suspend(ScriptedVm& vm, ScriptedThread& thread) {
    thread.timesSuspended_.fetch_add(1);
    if (thread.suspended_.fetch_add(1) == 0 && vm.world().realSuspension) stopPthread(thread);
}

void TableAccess::resume(ScriptedVm& vm, ScriptedThread& thread) {
    thread.timesResumed_.fetch_add(1);
    if (thread.suspended_.fetch_sub(1) == 1 && vm.world().realSuspension) continuePthread(thread);
}

bool TableAccess::hasRun(const ScriptedThread& thread) { return thread.hasRun_.load(); }

void TableAccess::setStorage(ScriptedThread& thread, void* value) { thread.storage_.store(value); }

jobject TableAccess::newLocal(ScriptedVm& vm, ScriptedObject* object, const char* function) {
    ScriptedThread& self = vm.currentThread();
    World& world = vm.world();
    if (self.env_ == nullptr || self.env_->restricted) {
        vm.recorder().violation(std::string(function) + " on a thread without environment");
        return nullptr;
    }
    std::string problem;
    jobject handle = nullptr;
    {
        std::lock_guard lock(world.mutex);
        LocalFrame& frame = self.env_->frames.back();
        Ref* ref = world.newRefLocked(Ref::kLocal, object, &self);
        frame.refs.push_back(ref);
        handle = ref->handle();
        jint made = 0;
        for (const Ref* other : frame.refs) made += other->byTest ? 0 : 1;
        if (world.checkCapacity && made == frame.capacity + 1)
            problem = std::string(function) + ": more than " + std::to_string(frame.capacity) +
                      " local references in a frame of thread " + self.name();
    }
    if (!problem.empty()) vm.recorder().violation(problem);
    return handle;
}

// ---- events that are on
// ---------------------------------------------------------------------------

bool ScriptedVm::enabled(jint type) const {
    std::lock_guard lock(world_->mutex);
    return world_->enabled.count(type) != 0;
}

void ScriptedVm::setEnabled(jint type, bool on) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    if (on)
        world_->enabled.insert(type);
    else
        world_->enabled.erase(type);
}

void ScriptedVm::setUnsupported(jint type) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    world_->unsupported.insert(type);
}

void fillJvmpiTable(JVMPI_Interface& table) {
    table.version = JVMPI_VERSION_1;
    table.NotifyEvent = nullptr;
    table.EnableEvent = enableEvent;
    table.DisableEvent = disableEvent;
    table.RequestEvent = requestEvent;
    table.GetCallTrace = getCallTrace;
    table.ProfilerExit = profilerExit;
    table.RawMonitorCreate = rawMonitorCreate;
    table.RawMonitorEnter = rawMonitorEnter;
    table.RawMonitorExit = rawMonitorExit;
    table.RawMonitorWait = rawMonitorWait;
    table.RawMonitorNotifyAll = rawMonitorNotifyAll;
    table.RawMonitorDestroy = rawMonitorDestroy;
    table.GetCurrentThreadCpuTime = getCurrentThreadCpuTime;
    table.SuspendThread = suspendThread;
    table.ResumeThread = resumeThread;
    table.GetThreadStatus = getThreadStatus;
    table.ThreadHasRun = threadHasRun;
    table.CreateSystemThread = createSystemThread;
    table.SetThreadLocalStorage = setThreadLocalStorage;
    table.GetThreadLocalStorage = getThreadLocalStorage;
    table.DisableGC = disableGC;
    table.EnableGC = enableGC;
    table.RunGC = runGC;
    table.GetThreadObject = getThreadObject;
    table.GetMethodClass = getMethodClass;
    table.jobjectID2jobject = objectIdToReference;
    table.jobject2jobjectID = referenceToObjectId;
}

} // namespace scripted
