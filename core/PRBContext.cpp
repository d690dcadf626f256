#include "core/PRBContext.h"

#include <ctime>

std::atomic<JVMPI_Interface*> PRBContext::jvmpi{nullptr};
std::atomic<JavaVM*> PRBContext::javaVm{nullptr};
std::atomic<PRBMonitorHashTable*> PRBContext::classTable{nullptr};
std::atomic<PRBMonitorHashTable*> PRBContext::methodTable{nullptr};
std::atomic<PRBMonitorHashTable*> PRBContext::objectTable{nullptr};
std::atomic<PRBMonitorHashTable*> PRBContext::arenaTable{nullptr};
std::atomic<PRBMonitorHashTable*> PRBContext::threadTable{nullptr};
std::atomic<PRBMonitorHashTable*> PRBContext::activeThreadTable{nullptr};
std::atomic<const std::atomic<int>*> PRBContext::samplerIdle{nullptr};
std::atomic<unsigned> PRBContext::dataBeingCollected{0};
std::atomic<unsigned> PRBContext::cpuSamplingIntervalMs{0};

namespace {

using Clock = jlong (*)(); // nanoseconds

jlong systemThreadClock() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<jlong>(t.tv_sec) * 1000000000 + t.tv_nsec;
}

std::atomic<Clock> threadClock{nullptr};

Clock chooseThreadClock() {
    JVMPI_Interface* interface = PRBContext::getInterface();
    Clock chosen = interface != nullptr && interface->GetCurrentThreadCpuTime != nullptr
                       ? interface->GetCurrentThreadCpuTime
                       : systemThreadClock;
    Clock before = nullptr;
    return threadClock.compare_exchange_strong(before, chosen) ? chosen : before;
}

} // namespace

long long PRBContext::getThreadCPUTimeInMicroSeconds(long long) {
    Clock clock = threadClock.load(std::memory_order_relaxed);
    if (clock == nullptr) clock = chooseThreadClock();
    return clock() / 1000;
}
