// Raw monitors of the scripted VM: real locks, re-entrant, that check how they are used.
//
// Violations are recorded for: exit, wait or notify without ownership; destroying a held
// monitor; using a destroyed one; entering while the caller holds threads suspended; two
// monitors taken in both orders (by name, anywhere in the run); an order against the given
// ranks; and an entering that could never succeed, because the owner is played by the same
// pthread. An entering that blocks for 60 s ends the process with the owner's name.
#ifndef PRB_TESTS_VM_SCRIPTEDMONITORS_H
#define PRB_TESTS_VM_SCRIPTEDMONITORS_H

#include "jvmpi/jvmpi.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace scripted {

class ScriptedVm;
class ScriptedThread;

class ScriptedMonitor {
public:
    explicit ScriptedMonitor(std::string name) : name_(std::move(name)) {}
    const std::string& name() const { return name_; }
    bool destroyed() const { return destroyed_.load(); }
    const ScriptedThread* owner() const { return owner_.load(); }
    int waiters() const { return waiters_.load(); } // threads inside RawMonitorWait

private:
    friend class MonitorWorld;
    const std::string name_;
    std::mutex mutex_;
    std::condition_variable entry_;
    std::condition_variable notified_;
    std::atomic<ScriptedThread*> owner_{nullptr};
    int depth_ = 0;
    std::vector<ScriptedThread*> lenders_; // owners passed over by a recorded self-deadlock
    unsigned long long generation_ = 0;    // of notifications
    std::atomic<int> waiters_{0};
    std::atomic<bool> destroyed_{false};
};

class MonitorWorld {
public:
    explicit MonitorWorld(ScriptedVm& vm) : vm_(vm) {}

    // ---- for tests ----
    // Names of the monitors that were created, in order, destroyed ones included.
    std::vector<std::string> created() const;
    // The first live monitor of that name, or null.
    ScriptedMonitor* find(const std::string& name) const;
    // Monitors that some thread holds now: "name by thread".
    std::vector<std::string> heldNow() const;
    // The allowed order, outermost first; entering a monitor that stands before one that is
    // held is a violation. Monitors that are not named are checked for cycles only.
    void setRanks(const std::vector<std::string>& outermostFirst);
    // Calls of the VM (JNI, and JVMPI other than raw monitors and the CPU clock) made while one
    // of these is held become violations.
    void forbidVmCallsHolding(const std::vector<std::string>& names);
    // Off: neither order nor forbidden calls are checked (for benchmarks).
    void setChecking(bool on) { checking_.store(on); }
    // Asked at every RawMonitorWait before it waits; true makes the wait end at once, as if its
    // time had passed. May be called from any thread.
    using WaitHook = std::function<bool(const std::string& name, jlong milliseconds)>;
    void setWaitHook(WaitHook hook);
    // Wakes the waiters of all monitors of that name although nobody notified them.
    void wakeSpuriously(const std::string& name);

    // Forgets that destroyed monitors are held.
    void forgetOwners();

    // ---- the table's functions ----
    JVMPI_RawMonitor create(const char* name);
    void enter(JVMPI_RawMonitor handle);
    void exit(JVMPI_RawMonitor handle);
    void wait(JVMPI_RawMonitor handle, jlong milliseconds);
    void notifyAll(JVMPI_RawMonitor handle);
    void destroy(JVMPI_RawMonitor handle);

    // For the VM: the violation text of a call made by this thread, or an empty string.
    std::string checkVmCall(const ScriptedThread& thread, const std::string& call) const;

private:
    ScriptedMonitor* usable(JVMPI_RawMonitor handle, const char* function);
    bool recordCall(const char* function, ScriptedMonitor* monitor, const std::string& detail = "");
    void acquire(ScriptedMonitor& monitor, ScriptedThread& self);
    void checkOrder(const ScriptedMonitor& monitor, const ScriptedThread& self);
    bool reaches(const std::string& from, const std::string& to, std::set<std::string>& seen,
                 std::string& path) const;

    ScriptedVm& vm_;
    std::atomic<bool> checking_{true};
    mutable std::mutex mutex_;
    std::vector<std::unique_ptr<ScriptedMonitor>> monitors_;
    std::set<const ScriptedMonitor*> known_;
    std::map<std::string, std::set<std::string>> after_; // held -> entered while held
    std::map<std::string, std::size_t> ranks_;
    std::set<std::string> forbidden_;
    WaitHook waitHook_;
};

} // namespace scripted

#endif
