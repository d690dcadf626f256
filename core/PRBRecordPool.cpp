#include "core/PRBRecordPool.h"

#include <new>
#include <sys/mman.h>

// Under the address sanitizer a record that was given back may not be touched.
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(address, size) static_cast<void>(0)
#endif

PRBRecordPool::Chunk* PRBRecordPool::map() noexcept {
    // Twice the size holds an aligned chunk; the rest goes back. Only touched pages cost memory.
    void* area =
        mmap(nullptr, 2 * kChunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (area == MAP_FAILED) return nullptr;
    char* begin = static_cast<char*>(area);
    const std::size_t before = -reinterpret_cast<std::uintptr_t>(begin) & (kChunk - 1);
    if (before != 0) munmap(begin, before);
    if (before != kChunk) munmap(begin + before + kChunk, kChunk - before);
    ++chunks_;
    return new (begin + before) Chunk{nullptr, nullptr, nullptr, 0, recordsPerChunk()};
}

void PRBRecordPool::unmap(Chunk* chunk) noexcept {
    ASAN_UNPOISON_MEMORY_REGION(chunk, kChunk); // others may get the addresses
    munmap(static_cast<void*>(chunk), kChunk);
    --chunks_;
}

void PRBRecordPool::link(Chunk* chunk) {
    chunk->previous = nullptr;
    chunk->next = roomy_;
    if (roomy_ != nullptr) roomy_->previous = chunk;
    roomy_ = chunk;
}

void PRBRecordPool::unlink(Chunk* chunk) {
    (chunk->previous != nullptr ? chunk->previous->next : roomy_) = chunk->next;
    if (chunk->next != nullptr) chunk->next->previous = chunk->previous;
}

void* PRBRecordPool::take() noexcept {
    if (roomy_ == nullptr) {
        Chunk* fresh = map();
        if (fresh == nullptr) return nullptr;
        link(fresh);
    }
    Chunk* chunk = roomy_;
    if (chunk == spare_) spare_ = nullptr;
    void* record;
    if (chunk->free != nullptr) {
        record = chunk->free;
        ASAN_UNPOISON_MEMORY_REGION(record, stride_);
        chunk->free = chunk->free->next;
        // The one to be taken next was last touched long ago: it comes while others work.
        __builtin_prefetch(chunk->free, 1);
    } else {
        --chunk->fresh;
        record = reinterpret_cast<char*>(chunk) + kHeader +
                 (recordsPerChunk() - 1 - chunk->fresh) * stride_;
    }
    ++chunk->used;
    if (!hasRoom(*chunk)) unlink(chunk);
    return record;
}

void PRBRecordPool::give(void* record) noexcept {
    Chunk* chunk = chunkOf(record);
    if (!hasRoom(*chunk)) link(chunk);
    chunk->free = new (record) Free{chunk->free};
    ASAN_POISON_MEMORY_REGION(record, stride_);
    if (--chunk->used != 0) return;
    if (spare_ == nullptr) {
        spare_ = chunk;
        return;
    }
    unlink(chunk);
    unmap(chunk);
}
