#include "core/PRBMemoryManager.h"

#include "core/PRBTrace.h"

#include <limits>
#include <new>

std::atomic<std::uint32_t> PRBMemoryManager::CurrentAllocation{0};
std::atomic<std::uint32_t> PRBMemoryManager::HighWaterMark{0};

namespace {

// Adds `size` to a counter that stops at its largest value; answers the new value.
std::uint32_t addTo(std::atomic<std::uint32_t>& counter, std::size_t size) noexcept {
    constexpr std::uint32_t kMost = std::numeric_limits<std::uint32_t>::max();
    std::uint32_t before = counter.load(std::memory_order_relaxed);
    std::uint32_t after;
    do {
        after = size > kMost - before ? kMost : static_cast<std::uint32_t>(before + size);
    } while (!counter.compare_exchange_weak(before, after, std::memory_order_relaxed));
    return after;
}

} // namespace

void* PRBMemoryManager::allocate(std::size_t size) noexcept {
    void* p = ::operator new(size, std::nothrow);
    if (p == nullptr) PRBTrace::writeToLog("Storage allocation failed");
    count(size);
    return p;
}

void PRBMemoryManager::release(void* p, std::size_t size) noexcept {
    ::operator delete(p);
    uncount(size);
}

void* PRBMemoryManager::operator new(std::size_t size) noexcept { return allocate(size); }
void* PRBMemoryManager::operator new[](std::size_t size) noexcept { return allocate(size); }
void PRBMemoryManager::operator delete(void* p, std::size_t size) noexcept { release(p, size); }
void PRBMemoryManager::operator delete[](void* p, std::size_t size) noexcept { release(p, size); }

void PRBMemoryManager::count(std::size_t size) noexcept {
    std::uint32_t now = addTo(CurrentAllocation, size);
    std::uint32_t high = HighWaterMark.load(std::memory_order_relaxed);
    while (now > high &&
           !HighWaterMark.compare_exchange_weak(high, now, std::memory_order_relaxed)) {
    }
}

void PRBMemoryManager::recount(std::size_t size) noexcept { addTo(CurrentAllocation, size); }

void PRBMemoryManager::uncount(std::size_t size) noexcept {
    std::uint32_t before = CurrentAllocation.load(std::memory_order_relaxed);
    std::uint32_t after;
    do {
        after = before > size ? static_cast<std::uint32_t>(before - size) : 0;
    } while (!CurrentAllocation.compare_exchange_weak(before, after, std::memory_order_relaxed));
}

std::uint32_t PRBMemoryManager::getCurrentAllocation() noexcept {
    return CurrentAllocation.load(std::memory_order_relaxed);
}

std::uint32_t PRBMemoryManager::getHighWaterMark() noexcept {
    return HighWaterMark.load(std::memory_order_relaxed);
}

void PRBMemoryManager::displayMemoryUse() {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kMemoryManager,
                        "PRBMemoryManager::displayMemoryUse");
    PRBTrace::log("The current amount of memory in use is %i",
                  static_cast<int>(getCurrentAllocation()));
    PRBTrace::log("The high water amount of memory used is %i",
                  static_cast<int>(getHighWaterMark()));
}
