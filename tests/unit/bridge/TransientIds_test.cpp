#include "bridge/TransientIds.h"

#include <algorithm>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace bridge {
namespace {

constexpr uint32_t kStock = TransientIds::kStock;

template <class Work> void onAnotherThread(Work work) { std::thread(work).join(); }

TEST(TransientIds, noIdIsOneOfThoseThatObjectsKeep) {
    TransientIds ids;
    const uint32_t id = ids.take();
    EXPECT_EQ(0x50000000u, id);
    EXPECT_FALSE(IdTable::isObject(id));
    EXPECT_FALSE(IdTable::isClass(id));
    for (const uint32_t kept : {1u, 0x3fffffffu, 0x40000000u, 0x4fffffffu})
        EXPECT_FALSE(TransientIds::isTransient(kept));
    EXPECT_TRUE(TransientIds::isTransient(0x50000000));
    EXPECT_TRUE(TransientIds::isTransient(0x7ffffffe));
    EXPECT_FALSE(TransientIds::isTransient(0x7fffffff));
    // The last of the other range lies right below.
    IdTable table(1, 0x4fffffff);
    EXPECT_EQ(0x4fffffffu, table.addObject(nullptr));
    EXPECT_EQ(0u, table.addObject(nullptr));
}

TEST(TransientIds, theWholeRangeIsGivenAndThenNothing) {
    TransientIds ids;
    const uint32_t all = 0x7fffffffu - 0x50000000u;
    EXPECT_EQ(0u, ids.take(all + 1));
    EXPECT_EQ(0u, ids.take(0));
    EXPECT_EQ(0x50000000u, ids.take(all));
    EXPECT_EQ(0u, ids.take(1));
    EXPECT_EQ(0u, ids.take());
    ids.forget();
    EXPECT_EQ(0x50000000u, ids.take());
}

TEST(TransientIds, singleIdsAreTakenToTheLast) {
    TransientIds ids(1000, 1000 + 2 * kStock + 3);
    std::set<uint32_t> seen;
    for (uint32_t i = 0; i < 2 * kStock + 3; i++) seen.insert(ids.take());
    EXPECT_EQ(2 * kStock + 3, seen.size());
    EXPECT_EQ(1000u, *seen.begin());
    EXPECT_EQ(1000 + 2 * kStock + 2, *seen.rbegin());
    EXPECT_EQ(0u, ids.take());
}

TEST(TransientIds, anIdComesRoundAgainOnlyAfterAllOthers) {
    TransientIds ids(1, 11);
    EXPECT_EQ(1u, ids.take(4));
    ids.forget();
    EXPECT_EQ(5u, ids.take(4)); // not 1: an event with it may be under way
    ids.forget();
    EXPECT_EQ(1u, ids.take(4)); // 9 and 10 are no row of 4
    EXPECT_EQ(5u, ids.take(4));
    EXPECT_EQ(0u, ids.take(1)); // with the two that were left out, all ten are used
    ids.forget();
    EXPECT_EQ(9u, ids.take(2));
    EXPECT_EQ(1u, ids.take(8));
}

TEST(TransientIds, whatWasInStockWhenTheIdsWereForgottenIsNotGiven) {
    TransientIds ids;
    EXPECT_EQ(0x50000000u, ids.take());
    ids.forget();
    EXPECT_EQ(0x50000000u + kStock, ids.take());
    ids.forget();
    onAnotherThread([&] { EXPECT_EQ(0x50000000u + 2 * kStock, ids.take()); });
    EXPECT_EQ(0x50000000u + 3 * kStock, ids.take());
}

TEST(TransientIds, theStockOfOneRingIsNotAnothers) {
    TransientIds one(100, 10000);
    EXPECT_EQ(100u, one.take());
    TransientIds other(20000, 30000);
    EXPECT_EQ(20000u, other.take());
}

TEST(TransientIds, threadsNeverGetTheSameId) {
    TransientIds ids;
    constexpr size_t kThreads = 4;
    constexpr size_t kEach = 50000;
    std::vector<uint32_t> taken[kThreads];
    std::vector<std::thread> threads;
    for (std::vector<uint32_t>& mine : taken)
        threads.emplace_back([&ids, &mine] {
            for (size_t i = 0; i < kEach; i++) {
                if (i % 1000 != 0) {
                    mine.push_back(ids.take());
                    continue;
                }
                const uint32_t first = ids.take(10);
                for (uint32_t k = 0; k < 10; k++) mine.push_back(first + k);
            }
        });
    for (std::thread& thread : threads) thread.join();
    std::vector<uint32_t> all;
    for (const std::vector<uint32_t>& mine : taken) all.insert(all.end(), mine.begin(), mine.end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(kThreads * (kEach + 9 * kEach / 1000), all.size());
    EXPECT_EQ(all.end(), std::adjacent_find(all.begin(), all.end()));
    EXPECT_GE(all.front(), 0x50000000u);
}

// A forget in the middle must not hand an id out twice before the ring has come round.
TEST(TransientIds, forgettingWhileOthersTakeGivesNoIdTwice) {
    TransientIds ids;
    std::vector<uint32_t> taken[2];
    std::vector<std::thread> threads;
    for (std::vector<uint32_t>& mine : taken)
        threads.emplace_back([&ids, &mine] {
            for (int i = 0; i < 100000; i++) mine.push_back(ids.take());
        });
    for (int i = 0; i < 500; i++) ids.forget();
    for (std::thread& thread : threads) thread.join();
    std::vector<uint32_t> all(taken[0]);
    all.insert(all.end(), taken[1].begin(), taken[1].end());
    std::sort(all.begin(), all.end());
    EXPECT_EQ(all.end(), std::adjacent_find(all.begin(), all.end()));
    EXPECT_NE(0u, all.front());
}

} // namespace
} // namespace bridge
