// Ids of objects that were merely allocated or dumped. They hold until the profiler has emptied
// its registry of objects at the end of a collection, and are then used again: a program that
// allocates five million objects a second would use any 32-bit range up within minutes.
//
// The range is a ring: an id comes round again only after every other, so that an event that is
// still under way when the registry is emptied does not meet its own id on another object. Ids
// that objects keep for life (IdTable) are of another range.
//
// Any thread may call. take() works on a stock of the calling thread and shares nothing; the
// rest is one compare-and-swap. No lock, no VM.
#ifndef PRB_BRIDGE_TRANSIENTIDS_H
#define PRB_BRIDGE_TRANSIENTIDS_H

#include <atomic>
#include <cstdint>

#include "bridge/IdTable.h"

namespace bridge {

class TransientIds {
public:
    static constexpr uint32_t kFirst = IdTable::kEndObject;
    static constexpr uint32_t kEnd = IdTable::kEnd;
    // What a thread takes into stock at a time.
    static constexpr uint32_t kStock = 256;

    static bool isTransient(uint32_t id) { return id >= kFirst && id < kEnd; }

    TransientIds() : TransientIds(kFirst, kEnd) {}
    // Another range (tests of its ends). REQUIRES: 0 < first < end.
    TransientIds(uint32_t first, uint32_t end);
    TransientIds(const TransientIds&) = delete;
    TransientIds& operator=(const TransientIds&) = delete;

    // An id that nobody has; 0 while all are in use.
    uint32_t take();
    // `count` ids in a row; answers the first one, or 0 if there are not so many in a row.
    uint32_t take(uint32_t count);

    // The profiler knows none of the ids any more: all may be given again, and what threads
    // still have in stock is not given. May be called inside a collection.
    void forget();

private:
    uint32_t first_;
    uint32_t size_;
    // Ids given so far, of all rounds of the ring, and that number at the last forget().
    std::atomic<uint64_t> given_{0};
    std::atomic<uint64_t> forgotten_{0};
    // No two rings and no two stretches between forget() have the same epoch.
    std::atomic<uint32_t> epoch_;
};

// The process's ids.
TransientIds& transientIds();

} // namespace bridge

#endif
