// Memory for records of one size that come and go in millions, such as one per allocated object.
#ifndef PRB_CORE_PRBRECORDPOOL_H
#define PRB_CORE_PRBRECORDPOOL_H

#include <cstddef>
#include <cstdint>

// Records are cut from chunks that are mapped from the system and given back to it as soon as
// they are empty, one spare excepted: a heap of millions of records leaves nothing behind, and
// neither taking nor giving ever waits for the allocator, in which a stopped thread may be.
//
// No lock of its own. REQUIRES: the caller serialises take and give, by holding the registry
// that the records live in. Nothing is counted by PRBMemoryManager; that is the record's part.
class PRBRecordPool {
public:
    // `recordSize`: bytes, at most a thousandth of a chunk.
    constexpr explicit PRBRecordPool(std::size_t recordSize)
        : stride_((recordSize + kAlignment - 1) / kAlignment * kAlignment) {}
    PRBRecordPool(const PRBRecordPool&) = delete;
    PRBRecordPool& operator=(const PRBRecordPool&) = delete;

    void* take() noexcept; // uninitialised; null when the system has no memory left
    void give(void* record) noexcept;

    std::size_t chunks() const { return chunks_; } // mapped at present
    std::size_t recordsPerChunk() const { return (kChunk - kHeader) / stride_; }

private:
    static constexpr std::size_t kChunk = 256 * 1024; // bytes; also its alignment
    static constexpr std::size_t kHeader = 64;
    static constexpr std::size_t kAlignment = 8; // 64-bit atomics, on i386 too

    struct Free {
        Free* next;
    };
    // At the start of each chunk, so that a record's address tells its chunk.
    struct Chunk {
        Chunk *next, *previous; // among those with room
        Free* free;             // records given back
        std::size_t used;       // records taken and not given back
        std::size_t fresh;      // records never taken
    };
    static_assert(sizeof(Chunk) <= kHeader);

    static Chunk* chunkOf(void* record) {
        const std::size_t offset = reinterpret_cast<std::uintptr_t>(record) & (kChunk - 1);
        return reinterpret_cast<Chunk*>(static_cast<char*>(record) - offset);
    }
    bool hasRoom(const Chunk& chunk) const { return chunk.free != nullptr || chunk.fresh != 0; }
    Chunk* map() noexcept;
    void unmap(Chunk* chunk) noexcept;
    void link(Chunk* chunk);
    void unlink(Chunk* chunk);

    const std::size_t stride_;
    Chunk* roomy_ = nullptr;
    Chunk* spare_ = nullptr; // empty, among the roomy ones
    std::size_t chunks_ = 0;
};

#endif
