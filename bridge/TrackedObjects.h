// The objects allocated since the last collection, each with its id and a weak reference, so
// that the collection can tell which of them it has freed. After it none is tracked any more:
// the profiler has emptied its registry, and nobody would know the ids.
//
// Objects stand in blocks. A thread adds to a block of its own without a lock; the collecting
// thread reads all blocks without one too, and allocates nothing. What it has looked at stays in
// its block until a Java thread needs the block again and deletes the references first.
#ifndef PRB_BRIDGE_TRACKEDOBJECTS_H
#define PRB_BRIDGE_TRACKEDOBJECTS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include <jni.h>

namespace bridge {

class TrackedObjects {
public:
    // Objects of a block.
    static constexpr uint32_t kBlock = 1024;

    // Deletes a weak reference that is not used any more.
    using DeleteFn = void (*)(void* context, jweak reference);
    // Whether the object behind a reference has died. Called inside a collection.
    using IsDeadFn = bool (*)(jweak reference);
    // Told of a dead object. Called inside a collection.
    using DeadFn = void (*)(uint32_t id);

    // `most`: objects between two collections at most. Each costs 16 bytes (8 on 32 bit) here, 10
    // to 18 in the VM, and time of the pause: a look, and for a dead one an event.
    explicit TrackedObjects(size_t most);
    // REQUIRES: nobody uses it any more. References are not deleted.
    ~TrackedObjects();
    TrackedObjects(const TrackedObjects&) = delete;
    TrackedObjects& operator=(const TrackedObjects&) = delete;

    // Makes room for one object on the calling thread, so that its next add() works; false if the
    // most are tracked already, or memory is short. Deletes references that are due.
    bool reserve(DeleteFn remove, void* context);
    // REQUIRES: reserve() was true on this thread since its last add(). Takes the reference over.
    void add(uint32_t id, jweak reference);

    // Tells the objects that have died and stops tracking all. Only on the collecting thread.
    void collect(IsDeadFn isDead, DeadFn dead);

    // Deletes all references and tracks nothing. REQUIRES: called on a Java thread; those that
    // add at the same time may leave an object behind.
    void clear(DeleteFn remove, void* context);

    // Objects that reserve() refused.
    uint64_t refused() const { return refused_.load(std::memory_order_relaxed); }
    // References that exist.
    size_t references() const;
    size_t bytes() const;

private:
    struct Entry {
        jweak reference;
        uint32_t id;
    };
    // In `filled`, the low half is the number of entries, which the owner raises; the high half
    // is how many of them collections have looked at. A block is used again when both are kBlock.
    struct Block {
        std::atomic<uint32_t> filled{0};
        std::atomic<bool> owned{true}; // only the owner adds
        std::atomic<bool> busy{false}; // somebody adds or deletes
        Block* next = nullptr;         // of all blocks; constant
        Entry entries[kBlock];
    };
    class Turn;
    struct Owner;
    static thread_local Owner owner;

    static uint32_t countOf(uint32_t filled) { return filled & 0xFFFF; }
    static uint32_t seenOf(uint32_t filled) { return filled >> 16; }
    static bool hasRoom(Block& block, DeleteFn remove, void* context);
    Block* another();
    Block* made();

    const uint32_t serial_; // tells one TrackedObjects from the next
    const size_t mostBlocks_;
    std::atomic<size_t> blocks_{0};
    std::atomic<Block*> first_{nullptr};
    std::atomic<Block*> cursor_{nullptr}; // where the next search for a block begins
    std::atomic<uint64_t> refused_{0};
    // Held by clear(), and by collect() if it can be had at once.
    std::mutex clearing_;
};

} // namespace bridge

#endif
