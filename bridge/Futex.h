// The kernel's wait-on-a-word call. Async-signal-safe; touches no thread-local storage but errno.
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace bridge {

// Waits while `word` holds `value`, at most `nanoseconds` (below 0: without limit). May return
// early; the caller looks at the word again.
inline void futexWait(std::atomic<std::uint32_t>& word, std::uint32_t value,
                      std::int64_t nanoseconds) {
    // Both fields are the kernel's 32-bit longs on i386, which SYS_futex there expects.
    timespec limit{};
    if (nanoseconds >= 0) {
        limit.tv_sec = static_cast<time_t>(nanoseconds / 1'000'000'000);
        limit.tv_nsec = static_cast<long>(nanoseconds % 1'000'000'000);
    }
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, value,
            nanoseconds < 0 ? nullptr : &limit, nullptr, 0);
}

inline void futexWake(std::atomic<std::uint32_t>& word, int waiters = INT_MAX) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, waiters,
            nullptr, nullptr, 0);
}

} // namespace bridge
