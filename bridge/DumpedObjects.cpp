#include "bridge/DumpedObjects.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

namespace bridge {
namespace {

// Without a constructor: read for every object that the profiler asks about.
__attribute__((tls_model(
    "initial-exec"))) constinit thread_local const DumpedObjects::Delivery* delivery = nullptr;

} // namespace

const HeapCells::Cell* DumpedHeap::find(uint32_t id) const {
    const uint32_t index = id - first;
    if (index < count) return cells[index].classId ? &cells[index] : nullptr;
    const auto at = std::lower_bound(known.begin(), known.end(), id,
                                     [](const Known& row, uint32_t key) { return row.id < key; });
    return at != known.end() && at->id == id ? &at->cell : nullptr;
}

DumpedObjects::Delivery::Delivery(const DumpedHeap& heap, JNIEnv* env)
    : heap_(heap), env_(env), before_(delivery) {
    delivery = this;
}

DumpedObjects::Delivery::~Delivery() { delivery = before_; }

const DumpedObjects::Delivery* DumpedObjects::Delivery::current() { return delivery; }

void DumpedObjects::add(Pointer heap) {
    std::vector<Kept> stale; // given back after the lock
    std::lock_guard<std::mutex> guard(mutex_);
    stale = takeStale();
    if (kept_.size() == kMost) {
        stale.push_back(std::move(kept_.front()));
        kept_.erase(kept_.begin());
    }
    kept_.push_back({std::move(heap), epoch_.load(std::memory_order_acquire)});
}

bool DumpedObjects::find(uint32_t id, HeapCells::Cell& cell) const {
    std::lock_guard<std::mutex> guard(mutex_);
    const uint32_t epoch = epoch_.load(std::memory_order_acquire);
    // The newest knows best what has an id for life.
    for (auto kept = kept_.rbegin(); kept != kept_.rend(); ++kept) {
        if (kept->epoch != epoch) continue;
        if (const HeapCells::Cell* found = kept->heap->find(id)) {
            cell = *found;
            return true;
        }
    }
    return false;
}

std::vector<DumpedObjects::Kept> DumpedObjects::takeStale() {
    const uint32_t epoch = epoch_.load(std::memory_order_acquire);
    const auto isStale = [epoch](const Kept& kept) { return kept.epoch != epoch; };
    const auto from = std::stable_partition(kept_.begin(), kept_.end(), std::not_fn(isStale));
    std::vector<Kept> stale(std::make_move_iterator(from), std::make_move_iterator(kept_.end()));
    kept_.erase(from, kept_.end());
    return stale;
}

void DumpedObjects::sweep() {
    std::vector<Kept> stale;
    std::lock_guard<std::mutex> guard(mutex_);
    if (!kept_.empty()) stale = takeStale();
}

DumpedObjects& dumpedObjects() {
    static DumpedObjects& all = *new DumpedObjects;
    return all;
}

} // namespace bridge
