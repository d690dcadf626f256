#include "bridge/TrackedObjects.h"

#include <new>

#include <sched.h>

namespace bridge {
namespace {

std::atomic<uint32_t> lastSerial{0};

constexpr uint32_t kSeenOne = 1u << 16;
constexpr uint32_t kSpent = TrackedObjects::kBlock * kSeenOne + TrackedObjects::kBlock;

} // namespace

// Excludes an adding thread and one that clears. Held for a few instructions, or while the
// references of one block are deleted; the collecting thread never waits for it.
class TrackedObjects::Turn {
public:
    explicit Turn(Block& block) : block_(block) {
        while (block_.busy.exchange(true, std::memory_order_acquire)) sched_yield();
    }
    ~Turn() { block_.busy.store(false, std::memory_order_release); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

private:
    Block& block_;
};

// The calling thread's block; given up when the thread ends.
struct TrackedObjects::Owner {
    TrackedObjects* set = nullptr;
    uint32_t serial = 0; // the set's: another one may come to lie at its place
    Block* block = nullptr;
    bool ended = false;

    ~Owner() {
        Block* left = block;
        giveUp();
        ended = true;
        // The next thread that wants a block takes it: threads may be many and short.
        if (left) set->cursor_.store(left, std::memory_order_release);
    }
    void giveUp() {
        if (block) block->owned.store(false, std::memory_order_release);
        block = nullptr;
    }
};

thread_local TrackedObjects::Owner TrackedObjects::owner;

TrackedObjects::TrackedObjects(size_t most)
    : serial_(lastSerial.fetch_add(1, std::memory_order_relaxed) + 1),
      mostBlocks_((most + kBlock - 1) / kBlock) {}

TrackedObjects::~TrackedObjects() {
    if (owner.serial == serial_) owner.block = nullptr;
    for (Block* block = first_.load(std::memory_order_acquire); block;) {
        Block* next = block->next;
        delete block;
        block = next;
    }
}

bool TrackedObjects::hasRoom(Block& block, DeleteFn remove, void* context) {
    if (countOf(block.filled.load(std::memory_order_relaxed)) < kBlock) return true;
    const Turn turn(block);
    // Cleared meanwhile, or seen by a collection, which then does not look again.
    if (block.filled.load(std::memory_order_acquire) == kSpent) {
        for (const Entry& entry : block.entries) remove(context, entry.reference);
        block.filled.store(0, std::memory_order_release);
    }
    return countOf(block.filled.load(std::memory_order_relaxed)) < kBlock;
}

bool TrackedObjects::reserve(DeleteFn remove, void* context) {
    Owner& mine = owner;
    if (mine.serial != serial_) {
        if (mine.ended) return false;
        mine.block = nullptr;
        mine.set = this;
        mine.serial = serial_;
    }
    while (!mine.block || !hasRoom(*mine.block, remove, context)) {
        mine.giveUp();
        mine.block = another();
        if (mine.block) continue;
        refused_.fetch_add(1, std::memory_order_relaxed);
        return false;
    }
    return true;
}

// An unowned block that has room or whose entries have been seen, else a new one.
TrackedObjects::Block* TrackedObjects::another() {
    Block* block = cursor_.load(std::memory_order_acquire);
    for (; block; block = block->next) {
        const uint32_t filled = block->filled.load(std::memory_order_acquire);
        if (filled != kSpent && countOf(filled) == kBlock) continue;
        if (block->owned.load(std::memory_order_relaxed) ||
            block->owned.exchange(true, std::memory_order_acq_rel))
            continue;
        break;
    }
    cursor_.store(block ? block->next : nullptr, std::memory_order_release);
    return block ? block : made();
}

TrackedObjects::Block* TrackedObjects::made() {
    if (blocks_.fetch_add(1, std::memory_order_relaxed) >= mostBlocks_) {
        blocks_.fetch_sub(1, std::memory_order_relaxed);
        return nullptr;
    }
    Block* block = new (std::nothrow) Block;
    if (!block) {
        blocks_.fetch_sub(1, std::memory_order_relaxed);
        return nullptr;
    }
    block->next = first_.load(std::memory_order_relaxed);
    while (!first_.compare_exchange_weak(block->next, block, std::memory_order_acq_rel)) {
    }
    return block;
}

void TrackedObjects::add(uint32_t id, jweak reference) {
    Block& block = *owner.block;
    const Turn turn(block);
    const uint32_t at = countOf(block.filled.load(std::memory_order_relaxed));
    block.entries[at] = {reference, id};
    block.filled.fetch_add(1, std::memory_order_release);
}

void TrackedObjects::collect(IsDeadFn isDead, DeadFn dead) {
    const std::unique_lock<std::mutex> guard(clearing_, std::try_to_lock);
    if (!guard.owns_lock()) return;
    for (Block* block = first_.load(std::memory_order_acquire); block; block = block->next) {
        const uint32_t filled = block->filled.load(std::memory_order_acquire);
        const uint32_t seen = seenOf(filled);
        const uint32_t count = countOf(filled);
        for (uint32_t i = seen; i < count; i++)
            if (isDead(block->entries[i].reference)) dead(block->entries[i].id);
        if (count != seen)
            block->filled.fetch_add((count - seen) * kSeenOne, std::memory_order_acq_rel);
    }
    cursor_.store(first_.load(std::memory_order_acquire), std::memory_order_release);
}

void TrackedObjects::clear(DeleteFn remove, void* context) {
    const std::lock_guard<std::mutex> guard(clearing_);
    for (Block* block = first_.load(std::memory_order_acquire); block; block = block->next) {
        const Turn turn(*block);
        const uint32_t count = countOf(block->filled.load(std::memory_order_acquire));
        for (uint32_t i = 0; i < count; i++) remove(context, block->entries[i].reference);
        block->filled.store(0, std::memory_order_release);
    }
    cursor_.store(first_.load(std::memory_order_acquire), std::memory_order_release);
}

size_t TrackedObjects::references() const {
    size_t sum = 0;
    for (const Block* block = first_.load(std::memory_order_acquire); block; block = block->next)
        sum += countOf(block->filled.load(std::memory_order_relaxed));
    return sum;
}

size_t TrackedObjects::bytes() const {
    return blocks_.load(std::memory_order_relaxed) * sizeof(Block);
}

} // namespace bridge
