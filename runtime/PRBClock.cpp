#include "runtime/PRBClock.h"

#include <cerrno>
#include <ctime>

std::atomic<timeval (*)()> PRBClock::source{nullptr};
std::atomic<void (*)(int)> PRBClock::sleeper{nullptr};

void PRBClock::sleepFor(int ms) {
    if (void (*scripted)(int) = sleeper.load(std::memory_order_relaxed)) return scripted(ms);
    timespec left{};
    left.tv_sec = ms / 1000;
    left.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}
