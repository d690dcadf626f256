#include "bridge/TransientIds.h"

namespace bridge {
namespace {

std::atomic<uint32_t> lastEpoch{0};

uint32_t newEpoch() { return lastEpoch.fetch_add(1, std::memory_order_relaxed) + 1; }

// The calling thread's stock; without a constructor, so that it is usable at any time of a
// thread's life.
struct Stock {
    uint32_t epoch;
    uint32_t next;
    uint32_t left;
};
__attribute__((tls_model("initial-exec"))) constinit thread_local Stock stock{0, 0, 0};

} // namespace

TransientIds::TransientIds(uint32_t first, uint32_t end)
    : first_(first), size_(end - first), epoch_(newEpoch()) {}

uint32_t TransientIds::take() {
    // Read before ids are taken, so that a stock is at most taken for older than it is.
    const uint32_t epoch = epoch_.load(std::memory_order_acquire);
    Stock& mine = stock;
    if (mine.left == 0 || mine.epoch != epoch) {
        mine.left = 0;
        uint32_t count = kStock;
        uint32_t id = take(count);
        while (id == 0 && count > 1) id = take(count /= 2); // the last ones
        if (id == 0) return 0;
        mine = {epoch, id, count};
    }
    mine.left--;
    return mine.next++;
}

uint32_t TransientIds::take(uint32_t count) {
    if (count == 0 || count > size_) return 0;
    uint64_t given = given_.load(std::memory_order_relaxed);
    for (;;) {
        const auto offset = static_cast<uint32_t>(given % size_);
        // A run does not go over the end of the range; the ids up to there go unused this round.
        const bool wraps = count > size_ - offset;
        const uint64_t start = wraps ? given + (size_ - offset) : given;
        if (start + count - forgotten_.load(std::memory_order_acquire) > size_) return 0;
        if (given_.compare_exchange_weak(given, start + count, std::memory_order_relaxed))
            return first_ + (wraps ? 0 : offset);
    }
}

void TransientIds::forget() {
    epoch_.store(newEpoch(), std::memory_order_release);
    forgotten_.store(given_.load(std::memory_order_relaxed), std::memory_order_release);
}

TransientIds& transientIds() {
    static TransientIds& ids = *new TransientIds;
    return ids;
}

} // namespace bridge
