// The raw monitors that the profiler interface hands out: re-entrant locks with wait and
// notify, usable on every thread, in every phase, Java thread or not, collections included.
//
// They never touch the VM, so entering and leaving costs what a mutex costs and no thread
// state changes. That is what makes the following possible.
//
// Borrowing. A collection's events arrive on the collecting thread inside a safepoint, and the
// profiler enters its monitors there. An owner that is in the middle of a VM call cannot go on
// before the safepoint ends, and the safepoint does not end before the monitor is had: the
// process would stand still for ever. So while a CollectionScope is open on a thread, that
// thread borrows a monitor whose owner is stuck in the VM: it takes over, remembers owner and
// depth, and gives both back with its last exit, still inside the safepoint. The owner cannot
// notice: it runs none of the profiler's code in between. An owner that runs native code, but
// waits to enter a monitor whose owner is stuck, is stuck too (and so on along the chain).
// Every other owner is waited for.
//
// Errors: a monitor that the caller does not own is neither exited nor waited on; monitors that
// were destroyed do nothing. Memory of monitors is recycled and never given back, so that a
// late use of a destroyed one touches a monitor and nothing else.
#ifndef PRB_BRIDGE_RAWMONITOR_H
#define PRB_BRIDGE_RAWMONITOR_H

#include <atomic>
#include <cstdint>

#include <pthread.h>

#include <jni.h>

namespace bridge {

class RawMonitor;

// What the monitors know of a thread. One per thread that ever entered a monitor, recycled when
// the thread ends and never freed: the collecting thread may look at it at any time.
struct MonitorThread {
    // The thread's JavaThread while it has one; looked at by isStuckInVm only.
    std::atomic<void*> javaThread{nullptr};
    // The monitor that the thread is blocked entering (not the one it waits on), or null.
    std::atomic<RawMonitor*> waitsFor{nullptr};
    // A CollectionScope is open. The thread's own.
    bool collecting = false;
    // Monitors that the thread owns or has borrowed. The thread's own.
    uint32_t owned = 0;
    MonitorThread* nextFree = nullptr;

    // The calling thread's record.
    static MonitorThread& current();
    // The calling thread ends as a Java thread (its JavaThread will be freed).
    static void forgetJavaThread() noexcept;
};

// How the monitors learn what is what in the VM; set once, before the first collection event.
// Without it no monitor is ever borrowed. Tests script both.
struct MonitorVm {
    // The JavaThread of the calling thread, or null. No VM transition. May be null itself.
    void* (*currentJavaThread)() = nullptr;
    // Whether the thread sits in the VM, where it stays until the safepoint ends. Called with
    // non-null values on a collecting thread.
    bool (*isStuckInVm)(void* javaThread) = nullptr;
};
void setMonitorVm(const MonitorVm& vm) noexcept;

// Marks the calling thread as the one that runs a collection's events.
// REQUIRES: a safepoint lasts for as long as the scope does, all exits included.
class CollectionScope {
public:
    CollectionScope();
    ~CollectionScope();
    CollectionScope(const CollectionScope&) = delete;
    CollectionScope& operator=(const CollectionScope&) = delete;

private:
    bool before_;
};

class RawMonitor {
public:
    // The name is for debuggers only; it is cut to 31 characters. Null when memory is short.
    static RawMonitor* create(const char* name) noexcept;
    // Recycles a monitor. While a thread owns it or waits for it nothing happens.
    static void destroy(RawMonitor* monitor) noexcept;

    void enter();
    void exit();
    // Gives the monitor up entirely, waits until notifyAll or for `milliseconds` (0 and less:
    // without limit), enters it again at the same depth. REQUIRES: the caller owns the monitor
    // and has not borrowed it; otherwise returns at once.
    void wait(jlong milliseconds);
    void notifyAll();

    const char* name() const { return name_; }
    // Whether the calling thread owns the monitor.
    bool ownedBySelf() const;
    // Whether the calling thread owns any monitor. An event that comes in the middle of the
    // profiler's work must then not be delivered: its monitors have an order.
    static bool anyOwnedBySelf() noexcept;
    // How many monitors were borrowed so far, in the process.
    static uint64_t borrowed() noexcept;

private:
    RawMonitor();
    void enterSlow(MonitorThread& self);
    bool borrow(MonitorThread& self);
    static bool isStuck(const MonitorThread& thread, int depth);
    void release(MonitorThread& self);

    std::atomic<MonitorThread*> owner_{nullptr};
    std::atomic<uint32_t> entering_{0}; // threads in enterSlow
    uint32_t depth_ = 0;                // the owner's or the borrower's
    MonitorThread* lender_ = nullptr;   // while borrowed: the real owner
    uint32_t lenderDepth_ = 0;
    // Guarded by mutex_, together with every sleep on the conditions.
    uint64_t notifications_ = 0;
    uint32_t waiting_ = 0;
    std::atomic<bool> alive_{false};
    RawMonitor* nextFree_ = nullptr;
    pthread_mutex_t mutex_;
    pthread_cond_t freed_;    // the owner has gone
    pthread_cond_t notified_; // notifyAll
    char name_[32] = {};
};

} // namespace bridge

#endif
