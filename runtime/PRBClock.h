// The wall clock and the sleep of the runtime model, in one place so that tests can script them.
#ifndef PRB_RUNTIME_PRBCLOCK_H
#define PRB_RUNTIME_PRBCLOCK_H

#include <atomic>
#include <sys/time.h>

namespace PRBClock {

// Null: the time of day of the system.
extern std::atomic<timeval (*)()> source;

inline timeval now() {
    if (timeval(*scripted)() = source.load(std::memory_order_relaxed)) return scripted();
    timeval t;
    gettimeofday(&t, nullptr);
    return t;
}

// Null: sleeps on the monotonic clock.
extern std::atomic<void (*)(int ms)> sleeper;
void sleepFor(int ms); // however often it is interrupted

inline long long toMillis(const timeval& t) {
    return static_cast<long long>(t.tv_sec) * 1000 + t.tv_usec / 1000;
}
inline long long toMicros(const timeval& t) {
    return static_cast<long long>(t.tv_sec) * 1000000 + t.tv_usec;
}

} // namespace PRBClock

#endif
