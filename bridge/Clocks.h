// The kernel's clocks in nanoseconds. Async-signal-safe.
#pragma once

#include <cstdint>
#include <ctime>

#include <sys/types.h>

namespace bridge {

// -1 if the clock cannot be read (for a thread's clock: the thread has gone).
inline std::int64_t readClock(clockid_t clock) {
    timespec now;
    if (clock_gettime(clock, &now) != 0) return -1;
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

inline std::int64_t monotonicNs() { return readClock(CLOCK_MONOTONIC); }

// CPU time of the calling thread, user and system.
inline std::int64_t ownCpuNs() { return readClock(CLOCK_THREAD_CPUTIME_ID); }

// CPU time of any thread of this process. The clock's number is the kernel's encoding: the thread
// id's complement, the bit for "per thread" and the kind "scheduler's run time".
inline std::int64_t threadCpuNs(pid_t tid) {
    return readClock(static_cast<clockid_t>((~static_cast<unsigned>(tid) << 3) | 6));
}

} // namespace bridge
