#include "bridge/HeapFork.h"

#include <atomic>
#include <cstdint>

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

namespace bridge {
namespace {

void* heapStart = nullptr; // set once, before the handler is in place
size_t heapBytes = 0;

std::atomic<bool> marking{false};
bool handlerInPlace = false; // a handler cannot be taken back

void mark() {
    if (marking.load(std::memory_order_acquire)) madvise(heapStart, heapBytes, MADV_DONTFORK);
}

} // namespace

bool protectHeapFromFork(const VmStructs& vm) {
    const auto reserved = vm.fieldOffset("CollectedHeap", "_reserved");
    const auto start = vm.fieldOffset("MemRegion", "_start");
    const auto words = vm.fieldOffset("MemRegion", "_word_size");
    void* heapAddress = vm.staticAddress("Universe", "_collectedHeap");
    if (!reserved || !start || !words || !heapAddress) return false;
    const char* heap = *static_cast<const char* const*>(heapAddress);
    if (!heap) return false;
    const char* region = heap + *reserved;
    const auto from = *reinterpret_cast<const uintptr_t*>(region + *start);
    const auto bytes = *reinterpret_cast<const size_t*>(region + *words) * sizeof(void*);
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    // ZGC names no range: its heap is shared memory, which no fork copies.
    if (from == 0 || bytes == 0) return true;
    if (from % page != 0) return false;
    heapStart = reinterpret_cast<void*>(from);
    heapBytes = bytes;
    if (madvise(heapStart, heapBytes, MADV_DONTFORK) != 0) return false;
    if (!handlerInPlace && pthread_atfork(mark, nullptr, nullptr) != 0) return false;
    handlerInPlace = true;
    marking.store(true, std::memory_order_release);
    return true;
}

void unprotectHeapFromFork() {
    if (marking.exchange(false, std::memory_order_acq_rel))
        madvise(heapStart, heapBytes, MADV_DOFORK);
}

} // namespace bridge
