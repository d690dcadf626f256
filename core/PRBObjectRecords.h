// How many allocated objects have a record of their own.
#ifndef PRB_CORE_PRBOBJECTRECORDS_H
#define PRB_CORE_PRBOBJECTRECORDS_H

#include <atomic>
#include <cstddef>

struct PRBObjectRecords {
    // Records live until the next collection, which may be tens of millions of allocations away.
    // At about 80 bytes each this many take 320 MB, what a 32-bit server can spare; further
    // allocations are counted for their class and thread only.
    static constexpr std::size_t kMost = 4000000;
    // The bound in force; read by the allocation handler, set by nobody but tests.
    inline static std::atomic<std::size_t> most{kMost};
};

#endif
