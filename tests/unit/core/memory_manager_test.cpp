#include "core/PRBCollectable.h"
#include "core/PRBMemoryManager.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

// The sanitizer would end the program at an allocation that no system can grant.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

namespace {

struct Hundred : PRBMemoryManager {
    char bytes[100];
};

std::uint32_t inUse() { return PRBMemoryManager::getCurrentAllocation(); }

} // namespace

TEST(MemoryManager, countsUpAndDown) {
    const std::uint32_t before = inUse();
    auto* hundred = new Hundred;
    EXPECT_EQ(inUse(), before + 100);
    auto* four = new Hundred[4];
    EXPECT_GE(inUse(), before + 500); // and the array's own count
    delete[] four;
    EXPECT_EQ(inUse(), before + 100);
    delete hundred;
    EXPECT_EQ(inUse(), before);
}

TEST(MemoryManager, releasingMoreThanIsInUseLeavesZero) {
    void* block = PRBMemoryManager::allocate(10);
    PRBMemoryManager::release(block, std::size_t{inUse()} + 1000);
    EXPECT_EQ(inUse(), 0u);
}

TEST(MemoryManager, theHighWaterMarkOnlyRises) {
    const std::uint32_t mark = PRBMemoryManager::getHighWaterMark();
    const std::uint32_t room = mark - inUse();
    PRBMemoryManager::count(room + 10);
    EXPECT_EQ(PRBMemoryManager::getHighWaterMark(), mark + 10);
    PRBMemoryManager::uncount(room + 10);
    PRBMemoryManager::count(1);
    PRBMemoryManager::uncount(1);
    EXPECT_EQ(PRBMemoryManager::getHighWaterMark(), mark + 10);
}

TEST(MemoryManager, recountingDoesNotRaiseTheHighWaterMark) {
    const std::uint32_t mark = PRBMemoryManager::getHighWaterMark(), before = inUse();
    PRBMemoryManager::recount(std::size_t{mark} + 10);
    EXPECT_EQ(inUse(), before + mark + 10);
    EXPECT_EQ(PRBMemoryManager::getHighWaterMark(), mark);
    PRBMemoryManager::uncount(std::size_t{mark} + 10);
}

TEST(MemoryManager, aFailedAllocationIsNullAndCounted) {
    const std::uint32_t before = inUse();
    const std::size_t tooMuch = std::numeric_limits<std::size_t>::max() - 65536;
    volatile std::size_t size = tooMuch;
    EXPECT_EQ(PRBMemoryManager::allocate(size), nullptr);
    EXPECT_GT(inUse(), before);
    PRBMemoryManager::uncount(tooMuch);
}

TEST(MemoryManager, theCounterStopsAtItsLargestValue) {
    PRBMemoryManager::count(std::numeric_limits<std::uint32_t>::max());
    PRBMemoryManager::count(1000);
    EXPECT_EQ(inUse(), std::numeric_limits<std::uint32_t>::max());
}

TEST(MemoryManager, collectablesAreCounted) {
    const std::uint32_t before = inUse();
    auto* plain = new PRBCollectable;
    EXPECT_EQ(inUse(), before + sizeof(PRBCollectable));
    auto* text = new PRBCollectableString("text");
    EXPECT_EQ(inUse(), before + sizeof(PRBCollectable) + sizeof(PRBCollectableString));
    delete plain;
    delete static_cast<PRBCollectable*>(text);
    EXPECT_EQ(inUse(), before);
}
