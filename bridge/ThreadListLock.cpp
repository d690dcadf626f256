#include "bridge/ThreadListLock.h"

#include "bridge/Clocks.h"
#include "bridge/Futex.h"

namespace bridge {

namespace {
constexpr std::uint32_t kFree = 0;
constexpr std::uint32_t kHeld = 1;
constexpr std::uint32_t kContended = 2;
} // namespace

void ThreadListLock::lock() {
    std::uint32_t expected = kFree;
    if (word_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire)) return;
    while (word_.exchange(kContended, std::memory_order_acquire) != kFree) {
        futexWait(word_, kContended, -1);
    }
}

bool ThreadListLock::tryLockFor(int milliseconds) {
    std::uint32_t expected = kFree;
    if (word_.compare_exchange_strong(expected, kHeld, std::memory_order_acquire)) return true;
    const std::int64_t until = monotonicNs() + std::int64_t{milliseconds} * 1'000'000;
    while (word_.exchange(kContended, std::memory_order_acquire) != kFree) {
        const std::int64_t left = until - monotonicNs();
        if (left <= 0) return false; // leaves the word "contended": one needless wake, no harm
        futexWait(word_, kContended, left);
    }
    return true;
}

void ThreadListLock::unlock() {
    if (word_.exchange(kFree, std::memory_order_release) == kContended) futexWake(word_, 1);
}

} // namespace bridge
