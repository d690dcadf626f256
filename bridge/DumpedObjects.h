// The objects that dumps of level 0 named, so that the profiler's questions about them are
// answered without asking the VM: a dump may name tens of millions.
//
// Objects have ids in a row, whose cells stand in the order of the ids; those that had an id
// already stand in a list beside them. A dump answers until the profiler empties its registry at
// the end of a collection, and on the thread that it is delivered on until the delivery is over.
#ifndef PRB_BRIDGE_DUMPEDOBJECTS_H
#define PRB_BRIDGE_DUMPEDOBJECTS_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <jni.h>

#include "bridge/HeapCells.h"

namespace bridge {

// One dump; immutable once it is published.
struct DumpedHeap {
    struct Known {
        uint32_t id;
        HeapCells::Cell cell;
    };

    uint32_t first = 0; // the id of the first cell
    uint32_t count = 0; // of cells
    HeapCells cells;
    std::vector<Known> known; // by id

    // Null if the dump does not name the object.
    const HeapCells::Cell* find(uint32_t id) const;
};

class DumpedObjects {
public:
    using Pointer = std::shared_ptr<const DumpedHeap>;

    // While one exists, the calling thread asks this dump first, with no lock. Deliveries
    // of one thread may nest.
    class Delivery {
    public:
        Delivery(const DumpedHeap& heap, JNIEnv* env);
        ~Delivery();
        Delivery(const Delivery&) = delete;
        Delivery& operator=(const Delivery&) = delete;
        // That of the calling thread, or null.
        static const Delivery* current();
        const DumpedHeap& heap() const { return heap_; }
        JNIEnv* env() const { return env_; }

    private:
        const DumpedHeap& heap_;
        JNIEnv* env_;
        const Delivery* before_;
    };

    // Keeps a dump until forget(). Only the last few are kept, as each is megabytes.
    void add(Pointer heap);
    // What a kept dump says about an object. False if none names it.
    bool find(uint32_t id, HeapCells::Cell& cell) const;
    // The profiler knows none of the ids any more. May be called inside a collection: the memory
    // is given back by the next add() or sweep().
    void forget() { epoch_.fetch_add(1, std::memory_order_acq_rel); }
    void sweep();

    static constexpr size_t kMost = 4;

private:
    struct Kept {
        Pointer heap;
        uint32_t epoch;
    };
    std::vector<Kept> takeStale(); // REQUIRES: the mutex

    mutable std::mutex mutex_;
    std::atomic<uint32_t> epoch_{0};
    std::vector<Kept> kept_;
};

// The process's dumps.
DumpedObjects& dumpedObjects();

} // namespace bridge

#endif
