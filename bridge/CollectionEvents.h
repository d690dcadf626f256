// GC_START and GC_FINISH, on the collecting thread (HotSpot's "VM Thread") inside the safepoint.
//
// One pair comes for each stop of the world that the VM reports as a collection: each collection
// of Serial and Parallel; each pause of G1, those of its concurrent cycle (remark, cleanup)
// included; the short pauses of Shenandoah and ZGC, several in a cycle, whose real work goes on
// beside the program. A finish comes whenever its start was delivered, even if it was not
// enabled, the events were switched off or the VM began to die meanwhile: the profiler holds its
// registries in between. Collections that the VM tells inside one another (it does when the
// metaspace reaches its threshold) are one pair.
//
// Both events carry the restricted environment (RestrictedEnv). The raw monitors are taken in a
// CollectionScope that is open from the start to the finish.
#ifndef PRB_BRIDGE_COLLECTIONEVENTS_H
#define PRB_BRIDGE_COLLECTIONEVENTS_H

#include <cstdint>

namespace bridge {

class CollectionEvents {
public:
    // The VM's callbacks; no exception comes out.
    static void started() noexcept;
    static void finished() noexcept;

    // Another number after every start and every finish that the VM has told: objects stay where
    // they are while it is the same, with collectors that stop the world to move them. Counts
    // while one of the events of collections, or OBJECT_ALLOC or OBJECT_FREE, is enabled.
    static uint32_t epoch();
    // Counts one up: nobody has counted for a while.
    static void newEpoch();
};

} // namespace bridge

#endif
