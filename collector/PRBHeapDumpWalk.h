// The matching of a level-0 dump with the object table: a dump may name tens of millions of
// objects, so it is done in batches, with the tables taken once for each.
#ifndef PRB_COLLECTOR_PRBHEAPDUMPWALK_H
#define PRB_COLLECTOR_PRBHEAPDUMPWALK_H

#include "collector/PRBHeapDumpReplay.h"
#include "collector/PRBPointerRows.h"
#include "core/PRBMonitorHashTable.h"
#include "jvmpi/jvmpi.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaObjectAllocated.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

// Lives for one dump on the walking thread. Each batch takes the class, arena and object tables,
// counts the objects that are known, and gives the tables back; asks the VM about the others,
// with nothing held and no collection between the question and the record; then takes the tables
// again for what the VM told. A collection may thus come between two batches: what was counted
// stays counted.
class PRBHeapDumpWalk {
public:
    // The generation marks the objects that the dump names. REQUIRES: not 0. `asked`: the number
    // in PRBObjectRecords that the dump's request began.
    PRBHeapDumpWalk(PRBMonitorHashTable& classes, PRBMonitorHashTable& arenas,
                    PRBMonitorHashTable& objects, unsigned generation, std::uint32_t asked);
    // All of the dump. Bytes at the end that are no whole record are not looked at.
    void records(const char* at, const char* end);

    // Bounds the table: objects of a dump beyond it are counted without a record. It is what a
    // table of 8 million cells holds (4 million on 32 bit), with which it and its records take
    // some 480 MB (160 MB).
    static constexpr std::size_t kMostRecords = sizeof(void*) == 8 ? 5242880 : 2621440;
    // The bound in force; set by nobody but tests.
    inline static std::atomic<std::size_t> mostRecords{kMostRecords};

private:
    static constexpr std::ptrdiff_t kRecord = 5; // a type and an id of 4 bytes
    static constexpr std::ptrdiff_t kBatch = PRBHeapDumpReplay::kMost;

    // What was counted of a class since the tables were taken; added to the class before they
    // are given back.
    struct Tally {
        PRBJavaClass* key;
        bool monitored;
        long long objects;
        long long bytes;
    };
    // A class by its id, while the tables are held.
    struct Known {
        jobjectID key;
        PRBJavaClass* cls;
    };

    static jobjectID toId(std::uint32_t id) {
        // Never followed.
        return reinterpret_cast<jobjectID>(static_cast<std::uintptr_t>(id));
    }
    static std::uint32_t hashOf(std::uint32_t id) {
        return PRBJavaObjectAllocated::hashOf(toId(id));
    }
    void beginFigures();
    void endFigures();
    void countKnown(const char* at, const char* end);
    void countOne(std::uint32_t id, PRBCollectable* candidate);
    void askForUnknown();
    void learnClasses();
    void recordTold();
    void record(const PRBHeapDumpReplay::Object& told);
    void count(PRBJavaObjectAllocated& object);
    void tally(PRBJavaClass* cls, int size);
    void settle();
    const PRBArena* arenaOf(jint id);
    PRBJavaClass* classOf(jobjectID id);
    void sweep();

    PRBMonitorHashTable& classes_;
    PRBMonitorHashTable& arenas_;
    PRBMonitorHashTable& objects_;
    const unsigned generation_;
    const std::uint32_t asked_;
    int count_ = 0;          // records of the dump
    std::size_t marked_ = 0; // objects of the table that carry the generation
    std::vector<std::uint32_t> unknown_;
    std::vector<PRBHeapDumpReplay::Object> told_;
    PRBPointerRows<Tally, kBatch> tallies_;
    PRBPointerRows<Known, kBatch> known_;
    jint lastArenaId_ = 0; // while the tables are held
    const PRBArena* lastArena_ = nullptr;
    bool hasLastArena_ = false;
};

#endif
