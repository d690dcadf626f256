#include "bridge/Reaper.h"

#include <algorithm>

#include "bridge/BridgeLink.h"
#include "bridge/ClassEvents.h"
#include "bridge/Clocks.h"
#include "bridge/Context.h"
#include "bridge/HeapDump.h"
#include "bridge/ObjectIds.h"
#include "bridge/RawMonitor.h"
#include "bridge/SystemThreads.h"
#include "jvmpi/jvmpi.h"

namespace bridge {
namespace {

constexpr char kThreadName[] = "PRB_Unload_Thread";
constexpr std::int64_t kPauseNs = 500'000'000;
constexpr std::int64_t kLongestPauseNs = 5'000'000'000;
constexpr std::int64_t kPausePerCpu = 1000;
constexpr std::int64_t kNsPerMs = 1'000'000;

void reap(void*) {
    JNIEnv* jni = currentEnv();
    RawMonitor* bell = RawMonitor::create("prbprof unload"); // rung by SystemThreads alone
    if (!jni || !bell) return;
    for (std::int64_t pause = kPauseNs;;) {
        bell->enter();
        SystemThreads::wait(*bell, pause / kNsPerMs);
        bell->exit();
        if (!isLive()) continue;
        // Not the time of the day: collections that come in between make a look long.
        const std::int64_t before = ownCpuNs();
        Reaper::look(jni);
        pause = Reaper::pauseAfter(ownCpuNs() - before);
    }
}

} // namespace

void Reaper::start() {
    if (SystemThreads::create(kThreadName, JVMPI_MINIMUM_PRIORITY, reap) != JVMPI_SUCCESS)
        noteLimit("unloaded classes are noticed at the end only");
}

void Reaper::look(JNIEnv* jni) try {
    objectIds().reap(jni, [](uint32_t id) {
        if (IdTable::isClass(id)) ClassEvents::unloaded(id);
    });
    HeapDump::sweep(jni);
} catch (...) {
    // Memory is short: the next look finds them.
}

std::int64_t Reaper::pauseAfter(std::int64_t cpuNs) {
    return std::clamp(cpuNs * kPausePerCpu, kPauseNs, kLongestPauseNs);
}

} // namespace bridge
