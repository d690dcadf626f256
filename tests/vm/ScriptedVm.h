// A fake Java VM for tests: JavaVM, JNI environments, the JVMPI table, threads, classes, heap.
//
//     class Sampler : public scripted::ScriptedVmTest {};
//
//     TEST_F(Sampler, countsARunnableThread) {
//         auto& order = vm.addClass({.name = "com/x/Order",
//                                    .methods = {{.name = "price", .signature = "()V"}}});
//         auto& worker = vm.startThread({.name = "worker"});      // THREAD_START if enabled
//         worker.setFrames({{10, order.methodId("price")}});
//         vm.recorder().clear();
//         ... call the agent with vm.jvmpi(), vm.javaVM(), vm.env() ...
//         worker.run([&] { ... this code runs as the worker ... });
//         vm.send.methodEntry(worker, order.methodId("price"));   // an event, always delivered
//         EXPECT_EQ(vm.jvmpiCalls(), (Texts{"SuspendThread(worker)", "ResumeThread(worker)"}));
//         vm.recorder().failNext("RequestEvent");                 // answers JVMPI_FAIL once
//     }                                                           // violations fail the test
//
// Everything is deterministic: nothing happens but by a call of the test or of the agent, clocks
// stand still unless moved. Two kinds of senders exist: vm.send.x delivers its event whether
// enabled or not; what the VM does by itself (startThread, loadClass, allocate, collect, RunGC,
// CreateSystemThread) delivers only enabled events. The VM is thread-safe.
//
// The VM checks its caller. These are violations, which ScriptedVmTest fails on: a JNI call with
// the environment of another thread, with an exception pending, with a dead, foreign or garbage
// reference or a wrong type; local references or frames left by an event, a native call or a
// system thread's body, more locals than a frame was made for; monitors used against their rules
// (ScriptedMonitors.h); while threads are suspended: any call but those of the stop window,
// entering a monitor, and, with the allocation hook, allocating; during a collection: any JVMPI
// call but raw monitors and the CPU clock, and any JNI call that the collecting thread's
// environment does not offer; use of an ended thread's environment; EnableGC without DisableGC.
//
// One VM is current at a time: the last one constructed. A VM made by create() lives until the
// process ends, so that an agent's singletons and threads that outlive a test do no harm.
#ifndef PRB_TESTS_VM_SCRIPTEDVM_H
#define PRB_TESTS_VM_SCRIPTEDVM_H

#include "tests/vm/Recorder.h"
#include "tests/vm/ScriptedHeap.h"
#include "tests/vm/ScriptedJava.h"
#include "tests/vm/ScriptedMonitors.h"
#include "tests/vm/ScriptedThreads.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace scripted {

struct World; // the VM's own state, in ScriptedWorld.h

using Texts = std::vector<std::string>;

// Borrows a function that makes a text, which is called only if somebody wants the text.
class TextRef {
public:
    template <class F>
    TextRef(const F& f)
        : object_(&f),
          call_([](const void* o) -> std::string { return (*static_cast<const F*>(o))(); }) {}
    std::string operator()() const { return call_(object_); }

private:
    const void* object_;
    std::string (*call_)(const void*);
};

// Sends single events: to NotifyEvent, on the thread in question, whether enabled or not.
// `requested` sets the bit of an event that answers a request. Each answers whether the agent
// has a NotifyEvent.
class EventSender {
public:
    explicit EventSender(ScriptedVm& vm) : vm_(vm) {}

    bool methodEntry(ScriptedThread& on, jmethodID method);
    bool methodEntry2(ScriptedThread& on, jmethodID method, const ScriptedObject* object);
    bool methodExit(ScriptedThread& on, jmethodID method);
    bool objectAlloc(ScriptedThread& on, const ScriptedObject& object, bool requested = false);
    // Any values, also impossible ones.
    bool objectAlloc(ScriptedThread& on, jint arena, jobjectID cls, jint isArray, jint size,
                     jobjectID object);
    bool objectFree(ScriptedThread& on, jobjectID object);
    bool objectMove(ScriptedThread& on, jint arena, jobjectID object, jint newArena,
                    jobjectID newObject);
    // `on` is the thread that the event arrives on; null: the started thread itself.
    bool threadStart(ScriptedThread& started, bool requested = false, ScriptedThread* on = nullptr);
    bool threadEnd(ScriptedThread& ended);
    bool classLoad(ScriptedThread& on, const ScriptedClass& cls, bool requested = false);
    bool classUnload(ScriptedThread& on, jobjectID cls);
    bool arenaNew(ScriptedThread& on, jint arena, const char* name);
    bool arenaDelete(ScriptedThread& on, jint arena);
    bool monitorContendedEnter(ScriptedThread& on, jobjectID object);
    bool monitorContendedEntered(ScriptedThread& on, jobjectID object);
    bool monitorContendedExit(ScriptedThread& on, jobjectID object);
    bool monitorWait(ScriptedThread& on, jobjectID object, jlong timeout);
    bool monitorWaited(ScriptedThread& on, jobjectID object, jlong timeout);
    // On the VM thread, with its environment (null unless the VM was told otherwise). Between
    // the two that thread counts as collecting.
    bool gcStart();
    bool gcFinish(jlong usedObjects, jlong usedSpace, jlong totalSpace);
    // The bytes lie in a block of exactly their size.
    bool heapDump(ScriptedThread& on, jint level, const std::vector<char>& bytes,
                  bool requested = true);
    bool jvmInitDone(ScriptedThread& on);
    bool jvmShutDown(ScriptedThread& on);
    // An event without data, of any type; env null sends a null environment.
    bool bare(ScriptedThread& on, jint type, bool nullEnv = false);

private:
    bool deliver(ScriptedThread& on, JVMPI_Event& event);
    bool monitorEvent(ScriptedThread& on, jint type, jobjectID object, jlong timeout);
    ScriptedVm& vm_;
};

struct SystemThread {
    std::string name;
    jint priority = 0;
    void (*body)(void*) = nullptr;
    ScriptedThread* thread = nullptr; // plays the body
    bool ran = false;
};

enum class SystemThreads {
    kRun,   // a pthread runs the body: THREAD_START first, THREAD_END after, if enabled
    kRecord // only written down; the test may call runSystemThread
};

class ScriptedVm {
public:
    ScriptedVm();
    ~ScriptedVm();
    ScriptedVm(const ScriptedVm&) = delete;
    ScriptedVm& operator=(const ScriptedVm&) = delete;
    static ScriptedVm& create();  // one that is never destroyed
    static ScriptedVm& current(); // REQUIRES: a VM exists
    void stopRealThreads();       // that startReal() began

    // ---- what the agent is given ----
    JavaVM* javaVM();
    JVMPI_Interface* jvmpi();        // a partial VM: set members to null
    JNIEnv* env();                   // of the main thread
    JNINativeInterface_& jniTable(); // of every environment of this VM; members may be replaced
    // What GetEnv answers for the profiler interface instead of it, for example JNI_EVERSION.
    void refuseJvmpi(jint result);

    // ---- what was seen ----
    Recorder& recorder();
    Texts jvmpiCalls() const { return recorder_.texts(kJvmpi); }
    Texts jniCalls() const { return recorder_.texts(kJni); }
    Texts monitorCalls() const { return recorder_.texts(kMonitor); }
    Texts javaCalls() const { return recorder_.texts(kJava); } // "com/x/A.set(1, 2)"
    MonitorWorld& monitors();

    // ---- events ----
    bool enabled(jint type) const;
    void setEnabled(jint type, bool on); // as if the agent had done so; not logged
    void setUnsupported(jint type);      // Enable and Request answer JVMPI_NOT_AVAILABLE
    EventSender send{*this};

    // ---- threads ----
    ScriptedThread& mainThread(); // played by the pthread that made the VM
    ScriptedThread& vmThread();   // collects; has no environment
    ScriptedThread& currentThread();
    std::vector<ScriptedThread*> threads() const;              // that are alive and attached
    ScriptedThread* findThread(const std::string& name) const; // the latest of that name, or null
    ScriptedThread& addThread(ThreadSpec spec);                // without an event
    ScriptedThread& startThread(ThreadSpec spec, bool real = false);
    void endThread(ScriptedThread& thread);
    void setSystemThreads(SystemThreads mode); // default kRun
    std::vector<SystemThread> systemThreads() const;
    // Plays a recorded system thread on the calling pthread: events, body, events.
    void runSystemThread(std::size_t index);
    // Waits until every system thread that kRun began has ended.
    void waitSystemThreads();
    // The scripted thread that plays a recorded system thread, made on the first call.
    ScriptedThread& systemThread(std::size_t index);
    // SuspendThread of a real thread stops its pthread wherever it is, by a signal (SIGUSR2).
    // Calls between a suspend and its resume are then not logged. Not under the thread
    // sanitizer, which delays signals.
    void setRealSuspension(bool on);
    void setRealCpuClock(bool on); // GetCurrentThreadCpuTime reads the pthread's own clock

    // ---- native methods ----
    // Runs the function as the thread, as the VM runs a native method: in a local frame of 16
    // that is discarded afterwards. Violations: frames left pushed. An exception that is left
    // pending is described in exceptionLeft() and cleared.
    void callNative(ScriptedThread& thread, const std::function<void()>& native);
    void callNative(const std::function<void()>& native) { callNative(currentThread(), native); }
    std::string exceptionLeft() const; // of the last native call: "java/lang/Error: text" or ""

    // ---- classes and objects ----
    ScriptedClass& addClass(ClassSpec spec); // known to FindClass and to requests; no event
    ScriptedClass* findClass(const std::string& name) const; // or null
    void hideClass(const std::string& name);                 // FindClass no longer finds it
    void loadClass(const ScriptedClass& cls);                // CLASS_LOAD if enabled
    void unloadClass(ScriptedClass& cls); // CLASS_UNLOAD if enabled; requests are then refused
    ScriptedObject& newObject(ScriptedClass& cls);
    ScriptedObject& newObject(const std::string& className);
    ScriptedObject& newString(const std::string& modifiedUtf8);
    ScriptedObject& newBytes(const std::vector<jbyte>& bytes);
    ScriptedObject& newObjectArray(const std::vector<ScriptedObject*>& elements,
                                   const std::string& arrayClass = "[Ljava/lang/Object;");
    std::map<std::string, std::string>& systemProperties(); // "java.vm.version" is set
    // Makes an exception pending on a thread, or takes it away (null when there is none).
    void throwOn(ScriptedThread& thread, const std::string& cls, const std::string& message = "");
    const ScriptedObject* pendingException(ScriptedThread& thread) const;
    void clearException(ScriptedThread& thread);

    // ---- references ----
    jobject newLocalRef(ScriptedThread& thread, ScriptedObject* object); // null for null
    ScriptedObject* resolve(jobject ref); // null, with a violation, for what is none
    template <class T> T local(ScriptedThread& thread, ScriptedObject* object) {
        return static_cast<T>(newLocalRef(thread, object));
    }
    // Global references that are alive: "java/lang/Class com/x/Collector", in order of making.
    Texts globalReferences() const;
    void setCheckLocalCapacity(bool on); // default on
    // Characters and array elements that were got and not yet released.
    Texts unreleased() const;
    int monitorDepth(const ScriptedObject& object) const; // of JNI MonitorEnter

    // ---- heap ----
    // An object on the heap; OBJECT_ALLOC on the thread if enabled.
    ScriptedObject& allocate(ScriptedThread& on, ScriptedClass& cls, jint size, jint arena = 1);
    ScriptedObject& allocateArray(ScriptedThread& on, jint type, jint length, jint size,
                                  ScriptedClass* elementClass = nullptr, jint arena = 1);
    ScriptedObject* findObject(jobjectID id) const; // by its present id, or null
    jobjectID unknownId();                          // an id that names nothing
    void setHeapSize(jlong bytes);                  // total space of GC_FINISH; default 64 MiB
    // The next RunGC does this; without a plan it frees nothing.
    void planCollection(GcPlan plan);
    void collect(const GcPlan& plan = {}); // at once
    int gcDisableDepth() const;
    // Events of the collecting thread carry an environment in which the static calls that answer
    // a long answer this value, and everything else is a violation that answers 0.
    void useRestrictedEnv(jlong answer);
    void useNullGcEnv();
    // The dump of a level that a request delivers; without one it is built from the heap:
    // level 0 every live object, level 1 classes, objects and arrays.
    void setDump(jint level, std::vector<char> bytes);
    std::vector<char> buildDump(jint level) const;
    // Runs just before a requested dump is delivered, on the requesting thread.
    void setDumpHook(std::function<void()> hook);

    // ---- for the VM's own files ----
    World& world() { return *world_; }
    // Checks the call (suspended threads, collection, monitors), logs it, asks for a fault.
    Verdict call(CallKind kind, const char* name, TextRef text, bool failable);
    bool notify(ScriptedThread& on, JVMPI_Event& event); // on that thread; null NotifyEvent: false

private:
    Recorder recorder_;
    std::unique_ptr<MonitorWorld> monitors_;
    std::unique_ptr<World> world_;
};

} // namespace scripted

#endif
