// A fixed set of 32-bit object ids that is asked once for every reference of a heap.
#ifndef PRB_COLLECTOR_PRBIDSET_H
#define PRB_COLLECTOR_PRBIDSET_H

#include <cstddef>
#include <cstdint>
#include <vector>

// Immutable once built. Up to four ids are compared one by one; more lie in an open-addressing
// table that is at most a quarter full, so that an id outside is told from one look as a rule.
class PRBIdSet {
public:
    PRBIdSet() = default;
    template <typename Range> explicit PRBIdSet(const Range& ids) {
        std::vector<std::uint32_t> all(ids.begin(), ids.end());
        build(all);
    }

    bool contains(std::uint32_t id) const {
        if (slots_.empty()) {
            return size_ != 0 && (id == few_[0] || id == few_[1] || id == few_[2] || id == few_[3]);
        }
        if (id == 0) return hasZero_;
        for (std::size_t at = slotOf(id);; at = (at + 1) & mask_) {
            if (slots_[at] == id) return true;
            if (slots_[at] == 0) return false;
        }
    }

private:
    static constexpr std::size_t kFew = 4;

    void build(const std::vector<std::uint32_t>& ids) {
        size_ = ids.size();
        if (size_ <= kFew) {
            for (std::size_t i = 0; i < kFew && size_ != 0; ++i) few_[i] = ids[i < size_ ? i : 0];
            return;
        }
        std::size_t capacity = 16;
        shift_ = 28;
        while (capacity < 4 * size_) {
            capacity *= 2;
            --shift_;
        }
        slots_.assign(capacity, 0);
        mask_ = capacity - 1;
        for (std::uint32_t id : ids) {
            if (id == 0) {
                hasZero_ = true;
                continue;
            }
            std::size_t at = slotOf(id);
            while (slots_[at] != 0 && slots_[at] != id) at = (at + 1) & mask_;
            slots_[at] = id;
        }
    }
    // Fibonacci hashing: the high bits of the product depend on all bits of the id.
    std::size_t slotOf(std::uint32_t id) const { return (id * 2654435769U) >> shift_; }

    std::uint32_t few_[kFew] = {};
    std::size_t size_ = 0;
    std::vector<std::uint32_t> slots_; // 0: free
    std::size_t mask_ = 0;
    unsigned shift_ = 0;
    bool hasZero_ = false;
};

#endif
