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

    // Set semantics: an equal element that is stored already is answered and the item is not
    // stored (it stays the caller's); otherwise the item itself is stored and answered. Null
    // when the set is full and there is no memory to grow.
    PRBCollectable* insert(PRBCollectable* item);
    PRBCollectable* find(const PRBCollectable* key) const;
    PRBCollectable* remove(const PRBCollectable* key); // the element, not deleted; null if absent
    std::size_t entries() const { return entries_; }
    // For walks that know which elements they will look for next: brings the first cell of a
    // hash, and, once that has come, the element in it, into the cache.
    void prefetchCell(std::uint32_t hash) const {
        if (cells_ != nullptr) __builtin_prefetch(&cells_[home(hash)]);
    }
    void prefetchElement(std::uint32_t hash) const {
        if (cells_ != nullptr) __builtin_prefetch(cells_[home(hash)].element);
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
        return (hash ^ (hash >> firstFold_) ^ (hash >> secondFold_)) & (capacity_ - 1);
    }
    Cell* locate(const PRBCollectable* key) const;
    bool grow();

    Cell* cells_ = nullptr;
    std::size_t capacity_ = 0; // a power of two, or 0 before the first insert
    std::size_t initial_;
    std::size_t entries_ = 0;
    std::size_t used_ = 0; // entries and tombstones
    unsigned firstFold_ = 31, secondFold_ = 31;
};

#endif
