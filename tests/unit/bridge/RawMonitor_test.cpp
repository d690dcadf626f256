#include "RawMonitorTest.h"

namespace bridge {
namespace {

TEST_F(RawMonitorTest, isEnteredAgainByItsOwnerAndLeftAsOften) {
    RawMonitor& monitor = make();
    for (int i = 0; i < 3; i++) monitor.enter();
    monitor.exit();
    monitor.exit();
    EXPECT_TRUE(monitor.ownedBySelf());
    EXPECT_FALSE(isFree(monitor));
    monitor.exit();
    joinWaiting();
    EXPECT_FALSE(monitor.ownedBySelf());
    EXPECT_TRUE(isFree(monitor));
    joinWaiting();
}

TEST_F(RawMonitorTest, aThreadKnowsWhetherItOwnsAny) {
    RawMonitor& one = make();
    RawMonitor& other = make();
    EXPECT_FALSE(RawMonitor::anyOwnedBySelf());
    one.enter();
    one.enter();
    other.enter();
    std::thread([] { EXPECT_FALSE(RawMonitor::anyOwnedBySelf()); }).join();
    one.exit();
    other.exit();
    EXPECT_TRUE(RawMonitor::anyOwnedBySelf());
    one.wait(1);
    EXPECT_TRUE(RawMonitor::anyOwnedBySelf());
    one.exit();
    EXPECT_FALSE(RawMonitor::anyOwnedBySelf());
    one.exit(); // not owned any more
    EXPECT_FALSE(RawMonitor::anyOwnedBySelf());
    RawMonitor* destroyed = RawMonitor::create("destroyed");
    destroyed->enter();
    RawMonitor::destroy(destroyed);
    EXPECT_FALSE(RawMonitor::anyOwnedBySelf());
}

TEST_F(RawMonitorTest, onlyTheOwnerLeavesOrWaits) {
    RawMonitor& monitor = make();
    monitor.exit();
    monitor.wait(0);
    monitor.enter();
    std::thread([&] {
        monitor.exit();
        monitor.wait(0);
    }).join();
    EXPECT_TRUE(monitor.ownedBySelf());
    monitor.exit();
}

TEST_F(RawMonitorTest, oneThreadAtATimeUnderLoad) {
    RawMonitor& monitor = make();
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    int inside = 0; // guarded by the monitor alone
    int64_t rounds = 0;
    std::atomic<int> violations{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; i++)
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; round++) {
                monitor.enter();
                if (++inside != 1) violations++;
                monitor.enter();
                rounds++;
                monitor.exit();
                inside--;
                monitor.exit();
            }
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, violations);
    EXPECT_EQ(int64_t{kThreads} * kRounds, rounds);
}

TEST_F(RawMonitorTest, waitGivesUpEveryLevelAndComesBackToIt) {
    RawMonitor& monitor = make();
    std::atomic<bool> waits{false};
    std::thread waiter([&] {
        monitor.enter();
        monitor.enter();
        waits = true;
        monitor.wait(0);
        EXPECT_TRUE(monitor.ownedBySelf());
        monitor.exit();
        EXPECT_TRUE(monitor.ownedBySelf());
        monitor.exit();
        EXPECT_FALSE(monitor.ownedBySelf());
    });
    while (!waits) std::this_thread::yield();
    monitor.enter(); // had only once the waiter has given it up
    monitor.notifyAll();
    monitor.exit();
    waiter.join();
}

TEST_F(RawMonitorTest, everyWaiterIsWoken) {
    RawMonitor& monitor = make();
    int asleep = 0;
    bool go = false;
    std::vector<std::thread> waiters;
    for (int i = 0; i < 5; i++)
        waiters.emplace_back([&] {
            monitor.enter();
            asleep++;
            while (!go) monitor.wait(-1);
            monitor.exit();
        });
    for (bool all = false; !all;) {
        monitor.enter();
        all = asleep == 5;
        go = all;
        if (all) monitor.notifyAll();
        monitor.exit();
    }
    for (std::thread& waiter : waiters) waiter.join();
}

TEST_F(RawMonitorTest, aWaitWithATimeEndsByItself) {
    RawMonitor& monitor = make();
    monitor.enter();
    monitor.enter();
    monitor.wait(5);
    EXPECT_TRUE(monitor.ownedBySelf());
    monitor.exit();
    EXPECT_TRUE(monitor.ownedBySelf());
    monitor.exit();
}

TEST_F(RawMonitorTest, aVeryLongWaitIsNotAShortOne) {
    RawMonitor& monitor = make();
    bool go = false;
    std::thread waiter([&] {
        monitor.enter();
        while (!go) monitor.wait(INT64_MAX);
        monitor.exit();
    });
    monitor.enter();
    go = true;
    monitor.notifyAll();
    monitor.exit();
    waiter.join();
}

TEST_F(RawMonitorTest, aDestroyedMonitorDoesNothing) {
    RawMonitor* monitor = RawMonitor::create("short-lived");
    monitor->enter();
    RawMonitor::destroy(monitor);
    EXPECT_FALSE(monitor->ownedBySelf());
    monitor->enter();
    EXPECT_FALSE(monitor->ownedBySelf());
    monitor->exit();
    monitor->wait(0);
    monitor->notifyAll();
    RawMonitor::destroy(monitor);
    RawMonitor::destroy(nullptr);
}

TEST_F(RawMonitorTest, aMonitorOfAnotherThreadIsNotDestroyed) {
    RawMonitor& monitor = make();
    monitor.enter();
    std::thread([&] { RawMonitor::destroy(&monitor); }).join();
    EXPECT_TRUE(monitor.ownedBySelf());
    monitor.exit();
    monitor.enter();
    EXPECT_TRUE(monitor.ownedBySelf());
    monitor.exit();
}

TEST_F(RawMonitorTest, memoryOfDestroyedMonitorsServesNewOnes) {
    RawMonitor* first = RawMonitor::create("one");
    RawMonitor::destroy(first);
    RawMonitor* second = RawMonitor::create("a name of more than thirty-one characters");
    EXPECT_EQ(first, second);
    EXPECT_STREQ("a name of more than thirty-one ", second->name());
    RawMonitor::destroy(second);
}

// Threads come and go; their records are used again, and no monitor takes one for another.
TEST_F(RawMonitorTest, manyShortThreadsShareFewRecords) {
    RawMonitor& monitor = make();
    std::vector<MonitorThread*> seen;
    for (int i = 0; i < 100; i++)
        std::thread([&] {
            monitor.enter();
            seen.push_back(&MonitorThread::current());
            monitor.exit();
        }).join();
    std::sort(seen.begin(), seen.end());
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_LE(seen.size(), 3u);
}

} // namespace
} // namespace bridge
