// The hash set of collectables that the registries are built on.
#ifndef PRB_CORE_PRBHASHSET_H
#define PRB_CORE_PRBHASHSET_H

#include "core/PRBCollectable.h"

#include <cstddef>
#include <cstdint>

// Open addressing; each cell keeps the element and its hash side by side, so isEqual is called
// only on equal hashes. No allocation per insert beyond growth. Not locked.
class PRBHashSet {
public:
    static constexpr std::size_t kInitialBuckets = 1951; // rounded up to a power of two

    explicit PRBHashSet(std::size_t buckets = kInitialBuckets);
    ~PRBHashSet(); // forgets the elements
    PRBHashSet(const PRBHashSet&) = delete;
    PRBHashSet& operator=(const PRBHashSet&) = delete;

    // What an insertion answers: the element that the set holds now, null when it holds none,
    // and whether it is a new one.
    struct Inserted {
        PRBCollectable* element;
        bool isNew;
    };

    // Set semantics: an equal element that is stored already is answered and the item is not
    // stored (it stays the caller's); otherwise the item itself is stored and answered. Null
    // when the set is full and there is no memory to grow.
    PRBCollectable* insert(PRBCollectable* item);
    PRBCollectable* find(const PRBCollectable* key) const;
    PRBCollectable* remove(const PRBCollectable* key); // the element, not deleted; null if absent
    // The same for callers that know more about the elements than that they are collectables, and
    // so spare the set the calls of hash and isEqual: `matches` tells whether an element, whose
    // hash is that of the key, is the one looked for.
    template <typename Matches>
    PRBCollectable* findWith(std::uint32_t hash, const Matches& matches) const {
        const Cell* cell = locateWith(hash, matches);
        return cell == nullptr ? nullptr : cell->element;
    }
    template <typename Matches>
    PRBCollectable* removeWith(std::uint32_t hash, const Matches& matches) {
        Cell* cell = locateWith(hash, matches);
        return cell == nullptr ? nullptr : take(cell);
    }
    // Null from `make`, which makes an element of that hash, stores nothing.
    template <typename Matches, typename Make>
    Inserted insertWith(std::uint32_t hash, const Matches& matches, const Make& make);
    std::size_t entries() const { return entries_; }
    // The most cells that a search looks at, less one.
    std::size_t farthest() const { return farthest_; }
    // For walks that know which elements they will look for next: brings the first cells of a
    // hash into the cache, and, once they have come, tells the first element of that hash without
    // touching it; null when there is none.
    void prefetchCells(std::uint32_t hash) const {
        if (cells_ == nullptr) return;
        const std::size_t first = home(hash);
        __builtin_prefetch(&cells_[first]);
        // One element in three lies a line of the cache further on.
        __builtin_prefetch(&cells_[(first + 4) & (capacity_ - 1)]);
    }
    PRBCollectable* firstOfHash(std::uint32_t hash) const {
        return findWith(hash, [](const PRBCollectable*) { return true; });
    }
    void clear();           // forgets the elements
    void clearAndDestroy(); // deletes the elements

    // Answers each element once, then null. Removing the element last answered is allowed while
    // iterating; inserting is not.
    class Iterator {
    public:
        explicit Iterator(const PRBHashSet& set) : set_(&set) {}
        PRBCollectable* operator()() {
            while (next_ < set_->capacity_) {
                PRBCollectable* element = set_->cells_[next_++].element;
                if (isElement(element)) return element;
            }
            return nullptr;
        }

    private:
        const PRBHashSet* set_;
        std::size_t next_ = 0;
    };

protected:
    struct Cell {
        PRBCollectable* element; // null: free; 1: removed
        std::uint32_t hash;
    };
    // In front of the cells, so that a whole array can be put aside without an allocation.
    struct Array {
        Array* next;
        std::size_t capacity;
        std::size_t entries;     // elements not yet deleted
        std::size_t scanned;     // cells already looked at
        std::size_t elementSize; // bytes
        Cell* cells() { return reinterpret_cast<Cell*>(this + 1); }
    };
    static bool isElement(const PRBCollectable* p) {
        return reinterpret_cast<std::uintptr_t>(p) > 1;
    }
    // Takes the array with its elements out; the set is empty. Null when there was none.
    Array* detachArray();
    static void freeArray(Array* array);

private:
    static Array* allocateArray(std::size_t capacity);
    std::size_t home(std::uint32_t hash) const {
        if (scattered_)
            return std::size_t{((hash >> 2) * kGolden) >> scatterShift_} << 2 | (hash & 3);
        return (hash ^ (hash >> firstFold_) ^ (hash >> secondFold_)) & (capacity_ - 1);
    }
    // Never dereferenced.
    static PRBCollectable* tombstone() { return reinterpret_cast<PRBCollectable*>(kTombstone); }
    static constexpr std::uintptr_t kTombstone = 1;
    // An element further than this from its first cell shows that two runs of identifiers lie on
    // one another.
    static constexpr std::size_t kFarthest = 128;
    static constexpr std::uint32_t kGolden = 0x9E3779B1; // 2^32 / golden ratio

    template <typename Matches> Cell* locateWith(std::uint32_t hash, const Matches& matches) const {
        if (entries_ == 0) return nullptr;
        std::size_t i = home(hash);
        for (std::size_t away = 0; away <= farthest_; ++away, i = (i + 1) & (capacity_ - 1)) {
            Cell& cell = cells_[i];
            if (cell.element == nullptr) return nullptr;
            if (cell.hash == hash && isElement(cell.element) && matches(cell.element)) return &cell;
        }
        return nullptr;
    }
    PRBCollectable* take(Cell* cell); // out of the set
    bool hasRoom() { return (used_ + 1) * 8 <= capacity_ * 5 || grow(); }
    bool grow();
    bool rebuild(std::size_t capacity); // false when memory is short: all is as it was
    bool scatter();                     // likewise

    Cell* cells_ = nullptr;
    std::size_t capacity_ = 0; // a power of two, or 0 before the first insert
    std::size_t initial_;
    std::size_t entries_ = 0;
    std::size_t used_ = 0;     // entries and tombstones
    std::size_t farthest_ = 0; // no element lies further from its first cell
    bool scattered_ = false;
    unsigned scatterShift_ = 31;
    unsigned firstFold_ = 31, secondFold_ = 31;
};

template <typename Matches, typename Make>
PRBHashSet::Inserted PRBHashSet::insertWith(std::uint32_t hash, const Matches& matches,
                                            const Make& make) {
    if (!hasRoom()) return {nullptr, false};
    Cell* free = nullptr;
    std::size_t freeAway = 0;
    std::size_t i = home(hash);
    for (std::size_t away = 0;; ++away, i = (i + 1) & (capacity_ - 1)) {
        Cell& cell = cells_[i];
        if (!isElement(cell.element)) {
            if (free == nullptr) {
                free = &cell;
                freeAway = away;
            }
            if (cell.element == nullptr) break;
        } else if (cell.hash == hash && matches(cell.element)) {
            return {cell.element, false};
        }
        if (away >= farthest_ && free != nullptr) break;
    }
    if (freeAway > kFarthest && !scattered_ && scatter()) return insertWith(hash, matches, make);
    PRBCollectable* made = make();
    if (made == nullptr) return {nullptr, false};
    if (free->element == nullptr) ++used_;
    if (freeAway > farthest_) farthest_ = freeAway;
    *free = Cell{made, hash};
    ++entries_;
    return {made, true};
}

#endif
