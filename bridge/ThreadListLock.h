// The thread-list lock: guards the thread table's writers and every look into a JavaThread, which
// the VM frees soon after ThreadEnd. The sampler takes it before it signals the first thread of a
// cycle and gives it back with the last resume, possibly in another call and on another thread, so
// it has no owner. Holders call nothing of the VM and wait for no other lock of the bridge.
#pragma once

#include <atomic>
#include <cstdint>

namespace bridge {

class ThreadListLock {
public:
    constexpr ThreadListLock() = default;
    ThreadListLock(const ThreadListLock&) = delete;
    ThreadListLock& operator=(const ThreadListLock&) = delete;

    void lock();
    // Gives up after `milliseconds`. Answers whether the lock was taken.
    bool tryLockFor(int milliseconds);
    // REQUIRES: the lock is held, by whichever thread.
    void unlock();

private:
    std::atomic<std::uint32_t> word_{0}; // 0 free, 1 held, 2 held and somebody may wait
};

} // namespace bridge
