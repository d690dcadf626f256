// What a walk over the heap finds, one cell for each object, in blocks of memory of its own:
// nothing moves while it grows, and it goes back to the system as soon as it is not needed.
//
// add() is called from inside the VM's walk, while the program stands still: it takes no lock and
// calls nothing but mmap, once for each block.
#ifndef PRB_BRIDGE_HEAPCELLS_H
#define PRB_BRIDGE_HEAPCELLS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "jvmpi/jvmpi.h"

namespace bridge {

class HeapCells {
public:
    // Objects are aligned to 8 bytes, so a size fits beside the type; one beyond the interface's
    // 31 bits is told as the largest.
    static constexpr uint32_t kUnit = 8;
    static constexpr uint32_t kTypeBits = 4; // JVMPI_NORMAL_OBJECT to JVMPI_LONG
    static constexpr uint32_t kTypeMask = (1U << kTypeBits) - 1;
    static constexpr int64_t kMostUnits = (int64_t{1} << 28) - 1;
    static_assert(JVMPI_LONG <= static_cast<jint>(kTypeMask));
    static constexpr size_t kBlockCells = 131072; // 1 MiB

    struct Cell {
        uint32_t classId; // 0: the class had no id when the walk came by
        uint32_t packed;  // the size in units, and the type

        jint type() const { return static_cast<jint>(packed & kTypeMask); }
        jint size() const { return static_cast<jint>((packed >> kTypeBits) * kUnit); }
        void setType(jint type) {
            packed = (packed & ~kTypeMask) | (static_cast<uint32_t>(type) & kTypeMask);
        }
    };
    static Cell pack(uint32_t classId, jlong bytes, jint type) {
        const auto units =
            static_cast<uint32_t>(std::min<int64_t>((bytes + kUnit - 1) / kUnit, kMostUnits));
        return {classId, units << kTypeBits | static_cast<uint32_t>(type)};
    }
    HeapCells() = default;
    ~HeapCells();
    HeapCells(const HeapCells&) = delete;
    HeapCells& operator=(const HeapCells&) = delete;

    // False if the system has no more memory.
    bool add(const Cell& cell) {
        if (next_ == end_ && !grow()) return false;
        *next_++ = cell;
        return true;
    }

    size_t size() const {
        return blocks_.empty() ? 0
                               : blocks_.size() * kBlockCells - static_cast<size_t>(end_ - next_);
    }
    size_t bytes() const { return blocks_.size() * kBlockCells * sizeof(Cell); }
    Cell& operator[](size_t index) { return blocks_[index / kBlockCells][index % kBlockCells]; }
    const Cell& operator[](size_t index) const {
        return blocks_[index / kBlockCells][index % kBlockCells];
    }
    void clear();

private:
    bool grow();

    Cell* next_ = nullptr;
    Cell* end_ = nullptr;
    std::vector<Cell*> blocks_;
};

} // namespace bridge

#endif
