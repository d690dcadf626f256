// How many allocated objects have a record of their own.
#ifndef PRB_CORE_PRBOBJECTRECORDS_H
#define PRB_CORE_PRBOBJECTRECORDS_H

#include <atomic>
#include <cstddef>
#include <cstdint>

struct PRBObjectRecords {
    // Records live until the next collection, which may be tens of millions of allocations away.
    // At about 80 bytes each this many take 320 MB, what a 32-bit server can spare; further
    // allocations are counted for their class and thread only.
    static constexpr std::size_t kMost = 4000000;
    // The bound in force; read by the allocation handler, set by nobody but tests.
    inline static std::atomic<std::size_t> most{kMost};

    // Counts the dumps of the heap that were asked for. A record carries the number in force at
    // its allocation: one that is not older than a dump's request may be missing from that dump
    // because the object did not exist yet.
    inline static std::atomic<std::uint32_t> dumpsAsked{0};
    static std::uint32_t now() { return dumpsAsked.load(std::memory_order_relaxed); }
    // To be called before the request; answers the new number.
    static std::uint32_t askForDump() {
        return dumpsAsked.fetch_add(1, std::memory_order_relaxed) + 1;
    }
};

#endif
