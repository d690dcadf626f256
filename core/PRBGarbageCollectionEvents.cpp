#include "collector/PRBWorkloadCollector.h"
#include "core/PRBEventHandlers.h"
#include "core/PRBFormat.h"
#include "core/PRBGarbageCollectionStats.h"
#include "core/PRBRegistryLocks.h"
#include "core/PRBTrace.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBUnloadedRecords.h"

namespace {

constexpr int kTrace = PRBTraceClass::kMain;
constexpr const char* kName = PRBComponent::kMonitorGlobal;

// Collections whose start has been seen and whose finish has not; collecting threads only.
std::atomic<int> openCollections{0};

bool isReported() {
    return (PRBContext::getDataBeingCollected() & PRBCollect::kGarbageCollection) != 0;
}

long long cpuNanoseconds() { return PRBContext::getThreadCPUTimeInMicroSeconds() * 1000; }

// The free bytes are asked of Java: only with an environment. The space in the event of a start
// is undefined and not looked at.
void noteBytesFree(PRBGarbageCollectionStats& stats, JNIEnv* env) {
    if (env == nullptr) return;
    PRBWorkloadCollector* collector = PRBWorkloadCollector::getWorkloadCollector(env, nullptr, 0);
    if (collector != nullptr && collector->isGood())
        stats.noteBytesFreeAtStart(collector->getNumBytesFree(env));
}

} // namespace

// The registries stay held until the finish: the model does not change while objects move.
void PRBEventHandlers::HandleGCStart(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleGCStart");
    PRBGarbageCollectionStats& stats = PRBGarbageCollectionStats::instance();
    if (isReported()) {
        stats.noteWallClockStart(PRBClock::toMillis(PRBClock::now()));
        noteBytesFree(stats, event->env_id);
    }
    PRBRegistryLocks::lockAll(PRBRegistryLocks::kAll);
    openCollections.fetch_add(1, std::memory_order_relaxed);
    if (PRBMonitorHashTable* objects = PRBContext::getObjectTable()) objects->beginPause();
    stats.start(cpuNanoseconds());
    if (PRBTrace::isDebugEnabled(kName))
        PRBTrace::log("Garbage collection running on thread " PRB_PTR, prbPtr(event->env_id));
}

void PRBEventHandlers::HandleGCFinish(JVMPI_Event* event) {
    PRBTraceScope trace(kTrace, kName, "PRBMonitorGlobal::HandleGCFinish");
    PRBGarbageCollectionStats& stats = PRBGarbageCollectionStats::instance();
    // A finish without a start holds nothing.
    const bool held = openCollections.load(std::memory_order_relaxed) > 0;
    if (PRBTrace::isDebugEnabled(kName))
        PRBTrace::log("Garbage collection finished running on thread " PRB_PTR,
                      prbPtr(event->env_id));
    stats.finish(cpuNanoseconds());
    PRBMonitorHashTable* objects = PRBContext::getObjectTable();
    if (objects != nullptr) objects->detachAll(sizeof(PRBJavaObjectAllocated));
    if (isReported()) {
        const long long used = event->u.gc_info.used_object_space;
        const long long total = event->u.gc_info.total_object_space;
        const long long freed = stats.noteSpace(used, total, PRBClock::toMillis(PRBClock::now()));
        if (PRBTrace::isDebugEnabled(kName)) {
            const long long free = total - used;
            PRBTrace::log("Garbage collection freed %i bytes, %i%% free (%i/%i)",
                          static_cast<int>(freed),
                          static_cast<int>(total == 0 ? 0 : 100 * free / total),
                          static_cast<int>(free), static_cast<int>(total));
        }
        // The collector's own figures are shown only while the bytes free at the start are
        // known, and they have just been forgotten: they never are.
        if (stats.getBytesFreeAtStart() >= 0) {
            PRBWorkloadCollector* collector =
                PRBWorkloadCollector::getWorkloadCollector(event->env_id, nullptr, 0);
            if (collector != nullptr && collector->isGood())
                collector->showProfilerGCStats(event->env_id, freed, total - used, total);
        }
    }
    if (!held) return;
    PRBUnloadedRecords::objectsEmptied();
    if (objects != nullptr) objects->endPause();
    openCollections.fetch_sub(1, std::memory_order_relaxed);
    PRBRegistryLocks::releaseAll(PRBRegistryLocks::kAll);
}
