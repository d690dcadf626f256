// Heap data: how many objects of each class are alive, and how many bytes they take, from a
// heap dump of level 0.
#ifndef PRB_COLLECTOR_PRBHEAPDATA_H
#define PRB_COLLECTOR_PRBHEAPDATA_H

#include "collector/PRBSampleList.h"
#include "core/PRBReturnCode.h"
#include "jvmpi/jvmpi.h"

#include <cstdint>

class PRBHeapDumpHandler;

// Used by the data return, on the polling thread, one pass at a time.
class PRBHeapData {
public:
    // Forces a collection, requests a dump (delivered to the handler, which calls handleHeapDump
    // below) and saves one sample per monitored class into the list. The sampler rests
    // meanwhile. A refused request gives no samples and no bad code.
    PRBReturnCode returnHeapData(PRBHeapDumpHandler& handler, long long processId,
                                 PRBSampleList& list);

    // Walks the records of a level-0 dump: makes its live figures those of every class, and takes
    // objects that it does not name out of the object table. Bytes that are no whole record end
    // the walk. Asks the VM about objects it does not know, with no lock held.
    void handleHeapDump(const JVMPI_Event* event);

    std::uint32_t getGeneration() const { return generation_; } // 0 before the first dump
    // 0 marks objects that no dump has named, so it is passed over.
    static constexpr std::uint32_t generationAfter(std::uint32_t generation) {
        return generation == 0xFFFFFFFF ? 1 : generation + 1;
    }

private:
    PRBReturnCode saveClasses(long long processId, PRBSampleList& list);

    std::uint32_t asked_ = 0;      // the number of the request in progress; 0: none
    std::uint32_t generation_ = 0; // of dumps; objects that a dump names carry it
};

#endif
