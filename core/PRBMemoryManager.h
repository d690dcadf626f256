// The accounting allocator: every object of the agent is allocated through it, so that the
// agent can report its own memory use (keys 401 and 402 of the resource usage sample).
#ifndef PRB_CORE_PRBMEMORYMANAGER_H
#define PRB_CORE_PRBMEMORYMANAGER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

// A base without data. Both counters are bytes, 32 bits wide as they are sent; on 64 bit they
// stop at 0xFFFFFFFF instead of wrapping. They are updated by any thread without a lock.
class PRBMemoryManager {
public:
    // Null when the system has no memory left (logged); a new-expression is then null as well.
    static void* operator new(std::size_t size) noexcept;
    static void* operator new[](std::size_t size) noexcept;
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* p, std::size_t size) noexcept;
    static void operator delete[](void* p, std::size_t size) noexcept;

    // Raw blocks, counted the same way. `size` of a release is that of its allocation.
    static void* allocate(std::size_t size) noexcept;
    static void release(void* p, std::size_t size) noexcept;

    // Counts without allocating or freeing: for pools, and for registries that are emptied in
    // one step and give their memory back later.
    static void count(std::size_t size) noexcept;
    static void uncount(std::size_t size) noexcept;
    // Counts again what was uncounted ahead of its deletion, so that the deletion itself leaves
    // the counter alone. Does not raise the high-water mark.
    static void recount(std::size_t size) noexcept;

    static std::uint32_t getCurrentAllocation() noexcept;
    static std::uint32_t getHighWaterMark() noexcept; // never decreases

    static void displayMemoryUse(); // two lines in the log
    static void heapWalk() {}

private:
    static std::atomic<std::uint32_t> CurrentAllocation;
    static std::atomic<std::uint32_t> HighWaterMark;
};

#endif
