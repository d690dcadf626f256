// The trace table that the Java side makes for itself and writes into: a ring of entries of one
// size in one block.
#ifndef PRB_COLLECTOR_NATIVETRACETABLE_H
#define PRB_COLLECTOR_NATIVETRACETABLE_H

#include "core/PRBMemoryManager.h"

#include <atomic>
#include <cstdint>

// Made by a native method and never freed, neither the table nor its block; found again by its
// address. Written without a lock by any number of threads: two writers take different entries
// until the ring has gone round, and may mix their bytes in one entry then.
class NativeTraceTable : public PRBMemoryManager {
public:
    // Null for sizes that are not positive, an area above 2 GB, or without memory.
    static NativeTraceTable* create(std::int32_t entrySize, std::int32_t entries);
    // Null for anything but the address of a table.
    static NativeTraceTable* fromHandle(std::int64_t handle);
    std::int64_t toHandle() const;

    // Takes the next entry, clears it and copies the text, cut at the entry's size, without its
    // terminator.
    void write(const char* text);

    std::int32_t entrySize() const { return entrySize_; }
    std::int32_t entries() const { return entries_; }
    const char* start() const { return start_; }
    const char* end() const { return end_; }
    const char* next() const { return next_.load(std::memory_order_relaxed); }

private:
    NativeTraceTable(std::int32_t entrySize, std::int32_t entries, char* start);

    static std::atomic<NativeTraceTable*> newest; // the live tables, linked through older_

    const std::int32_t entrySize_; // bytes
    const std::int32_t entries_;
    char* const start_;
    char* const end_;
    std::atomic<char*> next_; // where the next text goes
    NativeTraceTable* older_ = nullptr;
};

#endif
