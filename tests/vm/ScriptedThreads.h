// Threads of the scripted VM.
//
// A scripted thread is an identity: an environment, a name, a status, a stack, a CPU clock. It
// need not be an operating-system thread: run() makes the calling one play its part for the time
// of a function, which keeps tests deterministic. startReal() gives it a pthread of its own;
// run() and events for it then happen there.
#ifndef PRB_TESTS_VM_SCRIPTEDTHREADS_H
#define PRB_TESTS_VM_SCRIPTEDTHREADS_H

#include "jvmpi/jvmpi.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace scripted {

class ScriptedVm;
class ScriptedThread;
class ScriptedMonitor;
struct ScriptedObject;
struct Env;
struct RealThread;

struct ThreadSpec {
    std::string name = "thread";
    std::string group = "main";
    std::string parent = "system";
    ScriptedThread* reuseEnvOf = nullptr; // an ended thread whose environment comes to new use
    bool nullNames = false;               // THREAD_START carries null texts
};

class ScriptedThread {
public:
    ScriptedThread(ScriptedVm& vm, ThreadSpec spec);
    ~ScriptedThread();
    ScriptedThread(const ScriptedThread&) = delete;
    ScriptedThread& operator=(const ScriptedThread&) = delete;

    ScriptedVm& vm() const { return vm_; }
    const std::string& name() const { return spec_.name; }
    const ThreadSpec& spec() const { return spec_; }
    JNIEnv* env() const; // null for a thread that is not attached
    jobjectID id() const;
    ScriptedObject* object() const { return object_; }
    bool alive() const { return alive_.load(); }

    // ---- script ----
    void setStatus(jint status) { status_.store(status); } // JVMPI_THREAD_..., default runnable
    void setHasRun(bool hasRun) { hasRun_.store(hasRun); } // default true
    // Top frame first; GetCallTrace gives at most the depth asked for.
    void setFrames(std::vector<JVMPI_CallFrame> frames);
    // The CPU clock of this thread, nanoseconds.
    void setCpuTime(jlong ns) { cpuTime_.store(ns); }
    void advanceCpuTime(jlong ns) { cpuTime_.fetch_add(ns); }
    // The next readings of the clock; after the last of them the clock stands there.
    void scriptCpuTimes(std::vector<jlong> readings);

    // ---- running ----
    // Runs the function as this thread, and returns when it is done: on its pthread when it has
    // one, else on the calling one. May be nested.
    void run(const std::function<void()>& function);
    // Gives the thread a pthread of its own. stopReal() (and the destructor) ends it.
    void startReal();
    void stopReal();
    bool real() const;
    // REQUIRES: real(). Starts the function without waiting; waitIdle() waits for all of them.
    void post(std::function<void()> function);
    void waitIdle();

    // ---- what the agent did ----
    int suspendCount() const { return suspended_.load(); }
    unsigned timesSuspended() const { return timesSuspended_.load(); }
    unsigned timesResumed() const { return timesResumed_.load(); }
    void* localStorage() const { return storage_.load(); }
    std::vector<std::string> heldMonitors() const;
    std::size_t localReferences() const; // live ones, in all frames

    // ---- for the VM's own files ----
    jint statusNow() const;
    jlong readCpuTime();
    jint copyFrames(JVMPI_CallFrame* out, jint depth) const;
    RealThread* realThread() const { return real_.get(); }
    void setHost(std::thread::id host) { host_.store(host); }
    void setCollecting(bool on) { collecting_.store(on); }

private:
    friend class ScriptedVm;
    friend class MonitorWorld;
    friend class ScriptedMonitor;
    friend struct TableAccess;
    friend struct World;

    ScriptedVm& vm_;
    ThreadSpec spec_;
    Env* env_ = nullptr;
    ScriptedObject* object_ = nullptr;
    std::atomic<bool> alive_{true};
    std::atomic<jint> status_{JVMPI_THREAD_RUNNABLE};
    std::atomic<bool> hasRun_{true};
    std::atomic<jlong> cpuTime_{0};
    std::atomic<bool> collecting_{false}; // between GC_START and GC_FINISH
    std::atomic<int> suspended_{0};
    std::atomic<unsigned> timesSuspended_{0};
    std::atomic<unsigned> timesResumed_{0};
    std::atomic<void*> storage_{nullptr};
    std::atomic<std::thread::id> host_{}; // the pthread that plays this thread now
    mutable std::mutex mutex_;            // guards what follows
    std::vector<JVMPI_CallFrame> frames_;
    std::deque<jlong> cpuReadings_;
    std::atomic<bool> cpuScripted_{false};
    std::vector<ScriptedMonitor*> held_; // changed by this thread only
    std::unique_ptr<RealThread> real_;
};

// What is known of the calling pthread. For the VM's own files and the allocation hook.
struct HostState {
    ScriptedThread* thread = nullptr;   // who it plays now
    int insideVm = 0;                   // > 0 while the VM's own code runs
    int suspending = 0;                 // scripted threads that this one holds suspended
    bool stopAtExit = false;            // a real suspension waits until the VM's code is left
    unsigned long long allocations = 0; // outside the VM's own code; needs the allocation hook
};
HostState& hostState();

// Called by the allocation hook (AllocationHook.h) for every allocation and release.
void noteAllocation();

// Marks code of the VM itself, so that its allocations are not taken for the agent's.
class InsideVm {
public:
    InsideVm() { ++hostState().insideVm; }
    ~InsideVm() { leave(); }
    // Leaves the VM's code; a suspension that came meanwhile takes place now.
    static void leave();
    InsideVm(const InsideVm&) = delete;
    InsideVm& operator=(const InsideVm&) = delete;
};

// Code of the agent that the VM calls.
class OutsideVm {
public:
    OutsideVm() : inside_(hostState().insideVm) { hostState().insideVm = 0; }
    ~OutsideVm() { hostState().insideVm = inside_; }
    OutsideVm(const OutsideVm&) = delete;
    OutsideVm& operator=(const OutsideVm&) = delete;

private:
    int inside_;
};

} // namespace scripted

#endif
