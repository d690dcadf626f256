#include "core/PRBHashSet.h"

#include "core/PRBTrace.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>

// Linear probing in an array of at most 5/8 used cells. An element's first cell is its hash
// with the bits above the index folded in: identifiers that the VM hands out densely then lie
// side by side, and addresses with a large stride still spread over all cells. Removal leaves a
// tombstone unless the following cell is free, and so never moves an element.

PRBHashSet::PRBHashSet(std::size_t buckets)
    : initial_(std::bit_ceil(std::max<std::size_t>(buckets, 16))) {}

PRBHashSet::~PRBHashSet() { freeArray(detachArray()); }

PRBHashSet::Array* PRBHashSet::allocateArray(std::size_t capacity) {
    std::size_t size = sizeof(Array) + capacity * sizeof(Cell);
    // Cleared pages come from the system as they are first touched.
    auto* array = static_cast<Array*>(std::calloc(1, size));
    if (array == nullptr) {
        PRBTrace::writeToLog("Storage allocation failed");
        return nullptr;
    }
    array->capacity = capacity;
    PRBMemoryManager::count(size);
    return array;
}

void PRBHashSet::freeArray(Array* array) {
    if (array == nullptr) return;
    PRBMemoryManager::uncount(sizeof(Array) + array->capacity * sizeof(Cell));
    std::free(array);
}

PRBHashSet::Array* PRBHashSet::detachArray() {
    if (cells_ == nullptr) return nullptr;
    Array* array = reinterpret_cast<Array*>(cells_) - 1;
    array->entries = entries_;
    cells_ = nullptr;
    capacity_ = entries_ = used_ = farthest_ = 0;
    return array;
}

bool PRBHashSet::grow() {
    std::size_t capacity = capacity_ == 0 ? initial_ : capacity_;
    // Removed elements leave cells behind: then the same size may do again.
    while ((entries_ + 1) * 8 > capacity * 3) capacity *= 2;
    return rebuild(capacity) || used_ + 1 < capacity_;
}

bool PRBHashSet::scatter() {
    scattered_ = true;
    if (rebuild(capacity_)) return true;
    scattered_ = false;
    return false;
}

bool PRBHashSet::rebuild(std::size_t capacity) {
    Array* array = allocateArray(capacity);
    if (array == nullptr) return false;

    const Cell* oldCells = cells_;
    std::size_t oldCapacity = capacity_;
    cells_ = array->cells();
    capacity_ = capacity;
    const auto bits = static_cast<unsigned>(std::bit_width(capacity) - 1);
    firstFold_ = std::min(bits, 31u);
    secondFold_ = std::min(2 * bits, 31u);
    // With more cells than hashes the upper ones stay free.
    scatterShift_ = bits > 34 ? 0 : 34 - bits;
    used_ = entries_;
    farthest_ = 0;
    for (std::size_t i = 0; i < oldCapacity; ++i) {
        if (!isElement(oldCells[i].element)) continue;
        std::size_t away = 0;
        std::size_t at = home(oldCells[i].hash);
        for (; cells_[at].element != nullptr; ++away) at = (at + 1) & (capacity_ - 1);
        cells_[at] = oldCells[i];
        farthest_ = std::max(farthest_, away);
        if (away <= kFarthest || scattered_) continue;
        // The new size lays runs on one another that lay apart: once more from the start.
        scattered_ = true;
        std::memset(static_cast<void*>(cells_), 0, capacity_ * sizeof(Cell));
        farthest_ = 0;
        i = static_cast<std::size_t>(-1);
    }
    if (oldCells != nullptr) freeArray(reinterpret_cast<Array*>(const_cast<Cell*>(oldCells)) - 1);
    return true;
}

PRBCollectable* PRBHashSet::insert(PRBCollectable* item) {
    return insertWith(
               item->hash(),
               [item](const PRBCollectable* element) { return item->isEqual(element); },
               [item] { return item; })
        .element;
}

PRBCollectable* PRBHashSet::find(const PRBCollectable* key) const {
    if (entries_ == 0) return nullptr;
    return findWith(key->hash(),
                    [key](const PRBCollectable* element) { return key->isEqual(element); });
}

PRBCollectable* PRBHashSet::remove(const PRBCollectable* key) {
    if (entries_ == 0) return nullptr;
    return removeWith(key->hash(),
                      [key](const PRBCollectable* element) { return key->isEqual(element); });
}

PRBCollectable* PRBHashSet::take(Cell* cell) {
    PRBCollectable* element = cell->element;
    cell->element = tombstone();
    --entries_;
    // Tombstones before a free cell lead nowhere.
    std::size_t mask = capacity_ - 1, i = static_cast<std::size_t>(cell - cells_);
    if (cells_[(i + 1) & mask].element == nullptr) {
        for (; cells_[i].element == tombstone(); i = (i - 1) & mask) {
            cells_[i].element = nullptr;
            --used_;
        }
    }
    return element;
}

void PRBHashSet::clear() {
    if (cells_ != nullptr) std::memset(static_cast<void*>(cells_), 0, capacity_ * sizeof(Cell));
    entries_ = used_ = farthest_ = 0;
}

void PRBHashSet::clearAndDestroy() {
    for (std::size_t i = 0; i < capacity_; ++i) {
        PRBCollectable* element = cells_[i].element;
        cells_[i].element = nullptr;
        if (isElement(element)) delete element;
    }
    entries_ = used_ = farthest_ = 0;
}
