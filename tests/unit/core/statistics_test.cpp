#include "core/PRBErrorQueue.h"
#include "core/PRBEventMetrics.h"
#include "core/PRBGarbageCollectionStats.h"
#include "core/PRBJavaRawMonitor.h"
#include "core/PRBLockRank.h"
#include "core/PRBVm.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBProfilerError.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using Saved = std::vector<std::pair<int, long long>>;

// Writes down what is saved, in order.
struct Spy : PRBGarbageCollectionSample {
    void saveNumericData(int key, long long value) override { saved.emplace_back(key, value); }
    Saved saved;
};

Saved sampleOf(PRBGarbageCollectionStats& stats) {
    Spy spy;
    stats.createSample(spy);
    return spy.saved;
}

} // namespace

TEST(GarbageCollectionStats, withoutACollectionTellOnlyTotals) {
    PRBGarbageCollectionStats stats;
    EXPECT_EQ(sampleOf(stats), (Saved{{350, 0}, {352, 0}, {341, 0}, {342, 0}, {353, 0}, {356, 0}}));
}

TEST(GarbageCollectionStats, tellTimesAndBytesOnceAndCountsForEver) {
    PRBGarbageCollectionStats stats;
    stats.noteWallClockStart(1000);
    stats.noteBytesFreeAtStart(300);
    stats.start(5000000);
    stats.objectFreed();
    stats.objectFreed();
    stats.objectMoved();
    stats.finish(12000000);
    EXPECT_EQ(stats.noteSpace(400, 1000, 1025), 300);
    EXPECT_EQ(sampleOf(stats), (Saved{{350, 7},
                                      {352, 1},
                                      {341, 2},
                                      {342, 1},
                                      {353, 300},
                                      {356, 25},
                                      {355, 600},
                                      {354, 400},
                                      {357, 400}}));
    EXPECT_EQ(sampleOf(stats), (Saved{{350, 0}, {352, 1}, {341, 2}, {342, 1}, {353, 0}, {356, 0}}));
    EXPECT_EQ(stats.getGCCPUTime(), 7000000);

    stats.start(20000000);
    stats.objectMoved();
    stats.finish(19000000);                         // a clock that went backwards adds nothing
    EXPECT_EQ(stats.noteSpace(350, 1000, 2000), 0); // neither start nor free bytes were noted
    EXPECT_EQ(sampleOf(stats), (Saved{{350, 0},
                                      {352, 2},
                                      {341, 2},
                                      {342, 2},
                                      {353, 0},
                                      {356, 0},
                                      {355, 650},
                                      {354, 350},
                                      {357, -50}}));
    EXPECT_EQ(stats.getGCCPUTime(), 7000000);
}

TEST(GarbageCollectionStats, freesBetweenCollectionsAreForgotten) {
    PRBGarbageCollectionStats stats;
    stats.objectFreed();
    stats.objectMoved();
    stats.start(0);
    stats.finish(0);
    const Saved saved = sampleOf(stats);
    EXPECT_EQ(saved[2], (std::pair<int, long long>{341, 0}));
    EXPECT_EQ(saved[3], (std::pair<int, long long>{342, 0}));
}

TEST(GarbageCollectionStats, aCollectionThatLeavesLessFreeFreesNothing) {
    PRBGarbageCollectionStats stats;
    stats.noteBytesFreeAtStart(700);
    stats.start(0);
    stats.finish(0);
    EXPECT_EQ(stats.noteSpace(400, 1000, 0), 0);
    EXPECT_EQ(stats.getBytesFreeAtStart(), -1);
}

TEST(EventMetrics, areCountedAndZeroed) {
    PRBEventMetrics metrics;
    metrics.count(0);
    metrics.count(PRBEventMetrics::kOther);
    metrics.count(PRBEventMetrics::kOther);
    auto taken = metrics.take();
    EXPECT_EQ(sizeof taken, 84u);
    EXPECT_EQ(taken[0], 1u);
    EXPECT_EQ(taken[1], 0u);
    EXPECT_EQ(taken[20], 2u);
    for (std::uint32_t counter : metrics.take()) EXPECT_EQ(counter, 0u);
}

TEST(ErrorQueue, isFirstInFirstOut) {
    PRBErrorQueue queue(nullptr);
    EXPECT_EQ(queue.next(), nullptr);
    auto* a = new PRBProfilerError(PRBReturnCode(43u), "a");
    auto* b = new PRBProfilerError(PRBReturnCode(44u), "b");
    queue.add(a);
    queue.add(b);
    std::unique_ptr<PRBProfilerError> first(queue.next()), second(queue.next());
    EXPECT_EQ(first.get(), a);
    EXPECT_EQ(second.get(), b);
    EXPECT_EQ(queue.next(), nullptr);
}

TEST(ErrorQueue, dropsTheOldestWhenNobodyCollects) {
    PRBErrorQueue queue(nullptr);
    for (unsigned i = 0; i < PRBErrorQueue::kMost + 5; ++i)
        queue.add(new PRBProfilerError(PRBReturnCode(i), nullptr));
    std::unique_ptr<PRBProfilerError> first(queue.next());
    EXPECT_EQ(first->getNumericData(360), 5);
    std::size_t left = 0;
    while (std::unique_ptr<PRBProfilerError>(queue.next()) != nullptr) ++left;
    EXPECT_EQ(left, PRBErrorQueue::kMost - 1);
}

TEST(ErrorQueue, reportsAreLostBeforeInitialisation) {
    PRBErrorQueue::report(43, "lost");
    PRBErrorQueue queue(nullptr);
    PRBErrorQueue::installed.store(&queue);
    PRBErrorQueue::report(43, "kept");
    PRBErrorQueue::installed.store(nullptr);
    std::unique_ptr<PRBProfilerError> error(queue.next());
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->getNumericData(360), 43);
    EXPECT_EQ(error->getSampleType(), 17);
    EXPECT_EQ(queue.next(), nullptr);
}

TEST(LockRank, ordersEveryNamedMonitor) {
    std::size_t rows = 0;
    const PRBLockRank::Row* table = PRBLockRank::table(rows);
    for (std::size_t i = 1; i < rows; ++i) EXPECT_LE(table[i - 1].rank, table[i].rank);
    EXPECT_LT(PRBLockRank::rankOf("_ClassTable"), PRBLockRank::rankOf("_MethodTable"));
    EXPECT_LT(PRBLockRank::rankOf("_MethodTable"), PRBLockRank::rankOf("_ArenaTable"));
    EXPECT_LT(PRBLockRank::rankOf("_ArenaTable"), PRBLockRank::rankOf("_ObjectTable"));
    EXPECT_LT(PRBLockRank::rankOf("_ThreadTable"), PRBLockRank::rankOf("_ClassTable"));
    EXPECT_EQ(PRBLockRank::rankOf("of nobody"), 0);
}

#if defined(PRB_CHECK_LOCK_ORDER)
TEST(LockRankDeathTest, aWrongOrderEndsTheProgram) {
    int a = 0, b = 0;
    PRBLockRank::acquired(&a, "_ObjectTable");
    PRBLockRank::acquired(&a, "_ObjectTable"); // again is fine
    EXPECT_DEATH(PRBLockRank::acquired(&b, "_ClassTable"), "\"_ClassTable\".*\"_ObjectTable\"");
    EXPECT_DEATH(PRBLockRank::checkVmCall("RequestEvent"), "RequestEvent.*\"_ObjectTable\"");
    PRBLockRank::released(&a);
    PRBLockRank::released(&a);
    PRBLockRank::acquired(&b, "_ClassTable");
    PRBLockRank::released(&b);
    PRBLockRank::checkVmCall("RequestEvent");
}

TEST(LockRankDeathTest, everyMonitorIsKeptInItsPlace) {
    std::size_t rows = 0;
    const PRBLockRank::Row* table = PRBLockRank::table(rows);
    for (std::size_t i = 0; i < rows; ++i) {
        // Behind itself in rank comes everything before it in the table, and itself for
        // another object of the same rank.
        const std::size_t before = i == 0 ? 0 : i - 1;
        int one = 0, other = 0;
        PRBLockRank::acquired(&one, table[i].monitor);
        EXPECT_DEATH(PRBLockRank::acquired(&other, table[before].monitor),
                     std::string("\"") + table[before].monitor + "\".*\"" + table[i].monitor)
            << table[i].monitor;
        if (table[i].heldAcrossVmCalls)
            PRBLockRank::checkVmCall("DisableGC");
        else
            EXPECT_DEATH(PRBLockRank::checkVmCall("DisableGC"), table[i].monitor);
        PRBLockRank::released(&one);
    }
}

TEST(LockRank, theWholeOrderMayBeHeldAtOnce) {
    std::size_t rows = 0;
    const PRBLockRank::Row* table = PRBLockRank::table(rows);
    std::vector<const PRBLockRank::Row*> held;
    for (std::size_t i = 0; i < rows; ++i) {
        if (i > 0 && table[i].rank == table[i - 1].rank) continue;
        PRBLockRank::acquired(&table[i], table[i].monitor);
        held.push_back(&table[i]);
    }
    int unnamed = 0;
    PRBLockRank::acquired(&unnamed, "of nobody"); // has no place, and is never wrong
    PRBLockRank::released(&unnamed);
    // In any order; nothing is left behind.
    for (const PRBLockRank::Row* row : held) PRBLockRank::released(row);
    PRBLockRank::checkVmCall("RequestEvent");
    PRBLockRank::acquired(&unnamed, "_ClassTable");
    PRBLockRank::released(&unnamed);
}

TEST(LockRankDeathTest, realMonitorsAreChecked) {
    PRBJavaRawMonitor objects("_ObjectTable", nullptr), classes("_ClassTable", nullptr);
    PRBMonitorGuard guard(objects);
    EXPECT_DEATH(PRBMonitorGuard inner(classes), "\"_ClassTable\".*\"_ObjectTable\"");
    EXPECT_DEATH(PRBVm::requestEvent(JVMPI_EVENT_CLASS_LOAD, nullptr),
                 "RequestEvent.*\"_ObjectTable\"");
    EXPECT_DEATH(PRBVm::getMethodClass(nullptr), "GetMethodClass");
    EXPECT_DEATH(PRBVm::getThreadObject(nullptr), "GetThreadObject");
    EXPECT_DEATH(PRBVm::GcDisabled disabled, "DisableGC");
    guard.release();
    PRBVm::requestEvent(JVMPI_EVENT_CLASS_LOAD, nullptr);
}
#endif
