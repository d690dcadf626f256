// What the scripted VM saw: the ordered log of calls, the violations, and the faults to inject.
//
// Used by the scripted VM (which records) and by tests (which read, and script faults). Every
// operation may be called from any thread.
#ifndef PRB_TESTS_VM_RECORDER_H
#define PRB_TESTS_VM_RECORDER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace scripted {

// Bits, so that a test can choose which kinds it reads.
enum CallKind : unsigned {
    kJvmpi = 1,   // functions of the JVMPI table other than the next two kinds
    kMonitor = 2, // RawMonitor...
    kClock = 4,   // GetCurrentThreadCpuTime
    kJni = 8,     // JNI environment and JavaVM functions
    kEvent = 16,  // an event handed to NotifyEvent: "Event(33)", requested: "RequestedEvent(33)"
    kJava = 32,   // a scripted Java method that ran: "java/lang/Thread.stop()"
    kAllKinds = 63,
};

struct Call {
    CallKind kind = kJvmpi;
    std::string name;              // "EnableEvent"; JNI calls without the V or A of their form
    std::string text;              // "EnableEvent(54)"
    std::string thread;            // name of the calling scripted thread
    std::vector<std::string> held; // raw monitors that thread held, in the order of entering
    bool failed = false;           // by an injected fault
};

// What the caller of Recorder::record is to do.
struct Verdict {
    bool fail = false;
    std::optional<std::intptr_t> result; // the scripted answer of a failing integer function
};

class Recorder {
public:
    // ---- the log ----
    std::vector<Call> calls(unsigned kinds = kAllKinds) const;
    std::vector<std::string> texts(unsigned kinds) const;
    // Texts of the calls whose name is one of the given ones, in order.
    std::vector<std::string> textsOf(const std::vector<std::string>& names) const;
    // The number of calls whose name or text equals the argument.
    std::size_t count(const std::string& nameOrText) const;
    // Texts of VM calls (JVMPI and JNI, not monitors and clock) made while the monitor was held.
    std::vector<std::string> callsHolding(const std::string& monitor) const;
    void clear();
    // Off makes the VM cheap enough for benchmarks; violations are recorded all the same.
    void setRecording(bool on) { recording_.store(on, std::memory_order_relaxed); }
    bool recording() const { return recording_.load(std::memory_order_relaxed); }

    // ---- violations: what no correct agent does ----
    void violation(const std::string& text);
    std::vector<std::string> violations() const;
    std::vector<std::string> takeViolations(); // and forget them

    // ---- faults ----
    // The next call of that name (after letting `skip` of them pass) fails. An integer function
    // answers `result` (its own failure value when absent); a function that answers a reference
    // answers null, with the exception pending that a VM would throw.
    void failNext(const std::string& name, std::optional<std::intptr_t> result = std::nullopt,
                  unsigned skip = 0);
    // The n-th call (from 1, counted from now) of any function that can fail does so. 0: none.
    void failNth(std::size_t n);
    // Every n-th call of any function that can fail does so, until clearFaults.
    void failEvery(std::size_t n);
    // How many calls that can fail were made since failNth, failEvery or clearFaults.
    std::size_t failableCalls() const;
    bool faultFired() const; // since failNth, failEvery or clearFaults
    void clearFaults();

    // During the next call of that name, `action` happens: what another thread would do just then,
    // done by the calling one.
    void duringNext(const std::string& name, std::function<void()> action);

    // For the VM: takes the action that duringNext left for a call, if any.
    std::function<void()> takeAction(const char* name);
    // For the VM: writes the call into the log and says whether it is to fail.
    Verdict record(Call call, bool failable);
    // The same without a log entry.
    Verdict judge(const char* name);

private:
    struct Scripted {
        unsigned skip;
        std::optional<std::intptr_t> result;
    };
    Verdict judgeLocked(const std::string& name);

    mutable std::mutex mutex_;
    std::atomic<bool> recording_{true};
    std::vector<Call> calls_;
    std::vector<std::string> violations_;
    std::map<std::string, std::vector<Scripted>> scripted_;
    std::map<std::string, std::function<void()>> actions_;
    std::atomic<bool> hasActions_{false};
    std::size_t failAt_ = 0;
    std::size_t failEvery_ = 0;
    std::size_t failable_ = 0;
    bool fired_ = false;
};

} // namespace scripted

#endif
