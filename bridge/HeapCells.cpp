#include "bridge/HeapCells.h"

#include <sys/mman.h>

namespace bridge {

HeapCells::~HeapCells() { clear(); }

void HeapCells::clear() {
    for (Cell* block : blocks_) munmap(block, kBlockCells * sizeof(Cell));
    blocks_.clear();
    next_ = end_ = nullptr;
}

bool HeapCells::grow() try {
    blocks_.reserve(blocks_.size() + 1);
    void* block = mmap(nullptr, kBlockCells * sizeof(Cell), PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) return false;
    next_ = static_cast<Cell*>(block);
    end_ = next_ + kBlockCells;
    blocks_.push_back(next_);
    return true;
} catch (...) {
    return false;
}

} // namespace bridge
