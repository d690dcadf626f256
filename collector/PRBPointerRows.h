// Rows found by a pointer: what a batch of a walk notes per class.
#ifndef PRB_COLLECTOR_PRBPOINTERROWS_H
#define PRB_COLLECTOR_PRBPOINTERROWS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

// At most kMost rows, in the order in which they were added; cleared in time that does not
// depend on how many there are. Row begins with the member `key`, a pointer. Not locked.
template <typename Row, std::size_t kMost> class PRBPointerRows {
public:
    PRBPointerRows() : slots_(kSlots, 0) { rows_.reserve(kMost); }

    Row* find(const void* key) {
        for (std::size_t at = slotOf(key);; at = (at + 1) % kSlots) {
            if (slots_[at] == 0) return nullptr;
            Row& row = rows_[slots_[at] - 1U];
            if (row.key == key) return &row;
        }
    }
    // REQUIRES: no row of that key, and fewer than kMost rows.
    Row& add(const Row& row) {
        std::size_t at = slotOf(row.key);
        while (slots_[at] != 0) at = (at + 1) % kSlots;
        rows_.push_back(row);
        slots_[at] = static_cast<std::uint16_t>(rows_.size());
        return rows_.back();
    }
    void clear() {
        if (rows_.empty()) return;
        rows_.clear();
        std::fill(slots_.begin(), slots_.end(), std::uint16_t{0});
    }
    const std::vector<Row>& rows() const { return rows_; }

private:
    static constexpr std::size_t kSlots = 2 * kMost; // half of them stay free
    static_assert((kSlots & (kSlots - 1)) == 0 && kMost < 65535);

    // Fibonacci hashing: the high bits of the product depend on all bits of the pointer.
    static std::size_t slotOf(const void* key) {
        const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key));
        return static_cast<std::size_t>(bits * 0x9E3779B97F4A7C15U >> 32) % kSlots;
    }

    std::vector<std::uint16_t> slots_; // the number of a row, counted from 1; 0: free
    std::vector<Row> rows_;
};

#endif
