#include "core/PRBMonitorHashTable.h"
#include "core/PRBRecordPool.h"
#include "runtime/PRBJavaObjectAllocated.h"

#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <vector>

namespace {

constexpr std::size_t kSize = 60; // bytes, no multiple of the alignment

std::vector<void*> take(PRBRecordPool& pool, std::size_t n) {
    std::vector<void*> records;
    for (std::size_t i = 0; i < n; ++i) {
        records.push_back(pool.take());
        std::memset(records.back(), static_cast<int>(i), kSize);
    }
    return records;
}

} // namespace

TEST(RecordPool, recordsAreAlignedAndApart) {
    PRBRecordPool pool(kSize);
    const std::size_t n = 2 * pool.recordsPerChunk() + 1;
    const std::vector<void*> records = take(pool, n);
    EXPECT_EQ(pool.chunks(), 3u);
    std::set<std::uintptr_t> addresses;
    for (void* record : records) addresses.insert(reinterpret_cast<std::uintptr_t>(record));
    ASSERT_EQ(addresses.size(), n);
    std::uintptr_t previous = 0;
    for (std::uintptr_t address : addresses) {
        EXPECT_EQ(address % 8, 0u);
        EXPECT_GE(address - previous, kSize);
        previous = address;
    }
    for (std::size_t i = 0; i < n; ++i)
        EXPECT_EQ(static_cast<unsigned char*>(records[i])[kSize - 1],
                  static_cast<unsigned char>(i));
    for (void* record : records) pool.give(record);
}

TEST(RecordPool, usesAgainWhatWasGivenBack) {
    PRBRecordPool pool(kSize);
    const std::vector<void*> records = take(pool, pool.recordsPerChunk());
    pool.give(records[7]);
    pool.give(records[3]);
    EXPECT_EQ(pool.take(), records[3]);
    EXPECT_EQ(pool.take(), records[7]);
    EXPECT_EQ(pool.chunks(), 1u);
    for (void* record : records) pool.give(record);
}

TEST(RecordPool, emptyChunksGoBackToTheSystemButForASpare) {
    PRBRecordPool pool(kSize);
    const std::vector<void*> records = take(pool, 10 * pool.recordsPerChunk());
    EXPECT_EQ(pool.chunks(), 10u);
    for (void* record : records) pool.give(record);
    EXPECT_EQ(pool.chunks(), 1u);
    // The spare is used before anything is mapped, and going to and fro maps nothing either.
    for (int i = 0; i < 100; ++i) {
        void* record = pool.take();
        EXPECT_EQ(pool.chunks(), 1u);
        pool.give(record);
    }
    EXPECT_EQ(pool.chunks(), 1u);
}

TEST(RecordPool, keepsRecordsApartUnderRandomUse) {
    PRBRecordPool pool(kSize);
    std::mt19937 random(5);
    std::vector<std::pair<unsigned char*, unsigned char>> live;
    for (int i = 0; i < 200000; ++i) {
        // Phases of growing and of shrinking, so that chunks fill and empty.
        const bool grow = live.empty() || random() % 10 < (i / 40000 % 2 == 0 ? 7u : 3u);
        if (grow) {
            auto* record = static_cast<unsigned char*>(pool.take());
            ASSERT_NE(record, nullptr);
            const auto mark = static_cast<unsigned char>(random());
            std::memset(record, mark, kSize);
            live.emplace_back(record, mark);
        } else {
            std::swap(live[random() % live.size()], live.back());
            for (std::size_t b = 0; b < kSize; ++b)
                ASSERT_EQ(live.back().first[b], live.back().second);
            pool.give(live.back().first);
            live.pop_back();
        }
    }
    for (auto& [record, mark] : live) pool.give(record);
    EXPECT_EQ(pool.chunks(), 1u);
}

TEST(ObjectRecords, areCountedOneByOne) {
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    auto* one = new PRBJavaObjectAllocated();
    auto* two = new PRBJavaObjectAllocated();
    constexpr auto kEach = static_cast<std::uint32_t>(sizeof(PRBJavaObjectAllocated));
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before + 2 * kEach);
    delete one;
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before + kEach);
    PRBCollectable* base = two;
    delete base;
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
}

TEST(ObjectRecords, derivedOnesHaveMemoryOfTheirOwnSize) {
    struct Larger : PRBJavaObjectAllocated {
        unsigned char more[4000] = {};
    };
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    auto* larger = new Larger;
    std::memset(larger->more, 1, sizeof larger->more);
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before + sizeof(Larger));
    PRBCollectable* base = larger;
    delete base;
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
}

TEST(ObjectRecords, areUncountedWhenTheirRegistryIsEmptied) {
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    {
        PRBMonitorHashTable table("Table", nullptr, kCallerGuarding);
        const std::uint32_t empty = PRBMemoryManager::getCurrentAllocation();
        for (std::uintptr_t i = 1; i <= 1000; ++i)
            table.insert(new PRBJavaObjectAllocated(reinterpret_cast<jobjectID>(i)));
        const std::uint32_t full = PRBMemoryManager::getCurrentAllocation();
        table.detachAll(sizeof(PRBJavaObjectAllocated));
        EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(),
                  full - 1000 * sizeof(PRBJavaObjectAllocated));
        while (table.reclaim(64)) {
        }
        EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), empty);
    }
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
}
