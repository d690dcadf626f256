#include "bridge/CollectionEvents.h"

#include <atomic>
#include <optional>

#include "bridge/AllocationEvents.h"
#include "bridge/Context.h"
#include "bridge/DumpedObjects.h"
#include "bridge/HeapFigures.h"
#include "bridge/Interface.h"
#include "bridge/RawMonitor.h"
#include "bridge/RestrictedEnv.h"
#include "bridge/TransientIds.h"

namespace bridge {
namespace {

// The collection under way. The collecting thread's own.
struct Collection {
    // Starts without their finish. The VM tells a collection that runs inside another operation
    // that calls itself one twice over (when the metaspace has reached its threshold: the
    // operation, and the pause in it): the profiler hears of the outer one.
    int depth = 0;
    bool finishIsDue = false;
    std::optional<CollectionScope> scope;
};
std::atomic<uint32_t> currentEpoch{1};

Collection& collection() {
    static Collection& the = *new Collection;
    return the;
}

void deliver(jint type, const HeapSpace& space) {
    JVMPI_Event event{};
    event.event_type = type;
    event.env_id = RestrictedEnv::env();
    // Counting objects would be a walk of the heap.
    event.u.gc_info.used_objects = -1;
    event.u.gc_info.used_object_space = space.used;
    event.u.gc_info.total_object_space = space.total;
    events().deliver(event);
}

} // namespace

uint32_t CollectionEvents::epoch() { return currentEpoch.load(std::memory_order_acquire); }

void CollectionEvents::newEpoch() { currentEpoch.fetch_add(1, std::memory_order_acq_rel); }

void CollectionEvents::started() noexcept try {
    newEpoch();
    Collection& the = collection();
    if (the.depth++ != 0 || !isLive()) return;
    const bool start = events().isEnabled(JVMPI_EVENT_GC_START);
    // The profiler enables one after the other: this collection may come in between.
    the.finishIsDue = start || events().isEnabled(JVMPI_EVENT_GC_FINISH);
    if (!the.finishIsDue && !AllocationEvents::tracksFrees()) return;
    the.scope.emplace();
    const HeapSpace space = heapFigures().read();
    RestrictedEnv::setAnswer(space.free());
    if (start) deliver(JVMPI_EVENT_GC_START, space);
} catch (...) {
    collection().finishIsDue = false; // memory is short: this one goes untold
    collection().scope.reset();
}

void CollectionEvents::finished() noexcept try {
    newEpoch();
    Collection& the = collection();
    // Told since the middle of a collection: its start was not heard.
    if (the.depth == 0 || --the.depth != 0) return;
    if (the.scope) AllocationEvents::collect();
    if (the.finishIsDue) {
        the.finishIsDue = false;
        const HeapSpace space = heapFigures().read();
        RestrictedEnv::setAnswer(space.free());
        deliver(JVMPI_EVENT_GC_FINISH, space);
        // With it the profiler has emptied its registry of objects.
        transientIds().forget();
        dumpedObjects().forget();
    }
    the.scope.reset();
} catch (...) {
    collection().scope.reset();
}

} // namespace bridge
