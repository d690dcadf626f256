// Monitors whose owner the VM holds while a collection wants them.
#include "RawMonitorTest.h"

namespace bridge {
namespace {

TEST_F(RawMonitorTest, theCollectorBorrowsFromAnOwnerThatTheVmHolds) {
    RawMonitor& monitor = make();
    Actor owner;
    owner.does([&] {
        monitor.enter();
        monitor.enter();
    });
    owner.java.inVm = true;
    const uint64_t before = RawMonitor::borrowed();
    {
        CollectionScope collection;
        monitor.enter();
        EXPECT_TRUE(monitor.ownedBySelf());
        monitor.enter();
        monitor.exit();
        EXPECT_TRUE(monitor.ownedBySelf());
        EXPECT_TRUE(RawMonitor::anyOwnedBySelf());
        monitor.wait(0); // must not give away what is borrowed
        monitor.exit();
        EXPECT_FALSE(monitor.ownedBySelf());
        EXPECT_FALSE(RawMonitor::anyOwnedBySelf());
    }
    EXPECT_EQ(before + 1, RawMonitor::borrowed());
    owner.java.inVm = false;
    // The owner finds its two levels as it left them.
    owner.does([&] {
        EXPECT_TRUE(monitor.ownedBySelf());
        monitor.exit();
        EXPECT_TRUE(monitor.ownedBySelf());
        monitor.exit();
        EXPECT_FALSE(monitor.ownedBySelf());
    });
    EXPECT_TRUE(isFree(monitor));
    joinWaiting();
}

TEST_F(RawMonitorTest, aFreeMonitorIsNotBorrowed) {
    RawMonitor& monitor = make();
    const uint64_t before = RawMonitor::borrowed();
    CollectionScope collection;
    monitor.enter();
    EXPECT_TRUE(monitor.ownedBySelf());
    monitor.exit();
    EXPECT_EQ(before, RawMonitor::borrowed());
}

TEST_F(RawMonitorTest, theCollectorWaitsForAnOwnerInNativeCode) {
    RawMonitor& monitor = make();
    Actor owner;
    owner.does([&] { monitor.enter(); });
    std::atomic<bool> got{false};
    std::atomic<bool> begun{false};
    const uint64_t before = RawMonitor::borrowed();
    std::thread collector([&] {
        CollectionScope collection;
        begun = true;
        monitor.enter();
        got = true;
        monitor.exit();
    });
    while (!begun) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(got);
    owner.does([&] { monitor.exit(); });
    collector.join();
    EXPECT_TRUE(got);
    EXPECT_EQ(before, RawMonitor::borrowed());
}

TEST_F(RawMonitorTest, anOwnerThatGoesIntoTheVmWhileTheCollectorWaitsIsBorrowedFrom) {
    RawMonitor& monitor = make();
    Actor owner;
    owner.does([&] { monitor.enter(); });
    std::thread collector([&] {
        CollectionScope collection;
        monitor.enter();
        monitor.exit();
    });
    owner.java.inVm = true;
    collector.join();
    owner.java.inVm = false;
    owner.does([&] {
        EXPECT_TRUE(monitor.ownedBySelf());
        monitor.exit();
    });
}

TEST_F(RawMonitorTest, anOwnerThatIsNoJavaThreadIsOnlyWaitedFor) {
    RawMonitor& monitor = make();
    monitor.enter(); // this thread has no JavaThread
    std::atomic<bool> got{false};
    std::thread collector([&] {
        CollectionScope collection;
        monitor.enter();
        got = true;
        monitor.exit();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(got);
    monitor.exit();
    collector.join();
}

TEST_F(RawMonitorTest, withoutACollectionNothingIsBorrowed) {
    RawMonitor& monitor = make();
    Actor owner;
    owner.does([&] { monitor.enter(); });
    owner.java.inVm = true;
    EXPECT_FALSE(isFree(monitor));
    owner.java.inVm = false;
    owner.does([&] { monitor.exit(); });
    joinWaiting();
}

// T owns A and waits, in native code, for B, whose owner the VM holds.
TEST_F(RawMonitorTest, anOwnerAtTheHeadOfAChainThatEndsInTheVmIsBorrowedFrom) {
    for (bool borrowInnerFirst : {false, true}) {
        RawMonitor& a = make();
        RawMonitor& b = make();
        Actor stuck;
        Actor chained;
        stuck.does([&] { b.enter(); });
        chained.does([&] { a.enter(); });
        std::atomic<bool> hasBoth{false};
        chained.begin([&] {
            b.enter();
            hasBoth = true;
        });
        stuck.java.inVm = true;
        const uint64_t before = RawMonitor::borrowed();
        {
            CollectionScope collection;
            RawMonitor& first = borrowInnerFirst ? b : a;
            RawMonitor& second = borrowInnerFirst ? a : b;
            first.enter(); // waits until `chained` has come to B
            second.enter();
            EXPECT_TRUE(a.ownedBySelf());
            EXPECT_TRUE(b.ownedBySelf());
            EXPECT_FALSE(hasBoth);
            second.exit();
            first.exit();
        }
        EXPECT_EQ(before + 2, RawMonitor::borrowed());
        EXPECT_FALSE(hasBoth);
        stuck.java.inVm = false;
        stuck.does([&] {
            EXPECT_TRUE(b.ownedBySelf());
            b.exit();
        });
        chained.does([&] {
            EXPECT_TRUE(a.ownedBySelf());
            EXPECT_TRUE(b.ownedBySelf());
            b.exit();
            a.exit();
        });
        EXPECT_TRUE(hasBoth);
    }
}

// Threads own monitors across "VM calls", during which collections borrow; a counter that only
// the owner or the collector may touch shows any overlap.
TEST_F(RawMonitorTest, exclusionHoldsWhileCollectionsBorrow) {
    RawMonitor& a = make();
    RawMonitor& b = make();
    // The safepoint: mutators pass it before and after a VM call, and while it is closed nobody
    // leaves the VM.
    std::mutex safepoint;
    std::condition_variable opened;
    bool closed = false;
    std::atomic<bool> stop{false};
    std::atomic<int> violations{0};
    std::atomic<int> insideA{0};
    std::atomic<int> insideB{0};
    std::vector<std::unique_ptr<LedThread>> javaThreads;
    for (int i = 0; i < 3; i++) javaThreads.push_back(std::make_unique<LedThread>());

    const auto vmCall = [&](LedThread& java) {
        // Into the VM: at a safepoint the thread stays there.
        java.inVm = true;
        std::unique_lock<std::mutex> guard(safepoint);
        opened.wait(guard, [&] { return !closed; });
        java.inVm = false;
    };
    std::vector<std::thread> mutators;
    for (auto& java : javaThreads)
        mutators.emplace_back([&, java = java.get()] {
            selfAsJavaThread = java;
            while (!stop) {
                a.enter();
                if (insideA.fetch_add(1) != 0) violations++;
                insideA--;
                vmCall(*java);
                b.enter();
                if (insideB.fetch_add(1) != 0) violations++;
                insideB--;
                vmCall(*java);
                b.exit();
                a.exit();
            }
        });
    const uint64_t before = RawMonitor::borrowed();
    // Until one has met a mutator at work, however late the system lets them run.
    for (int i = 0; i < 2000 || (RawMonitor::borrowed() == before && i < 1000000); i++) {
        {
            std::lock_guard<std::mutex> guard(safepoint);
            closed = true;
        }
        {
            CollectionScope collection;
            a.enter();
            b.enter();
            if (insideA.fetch_add(1) != 0) violations++;
            if (insideB.fetch_add(1) != 0) violations++;
            insideB--;
            insideA--;
            b.exit();
            a.exit();
        }
        {
            std::lock_guard<std::mutex> guard(safepoint);
            closed = false;
        }
        opened.notify_all();
        std::this_thread::yield();
    }
    stop = true;
    for (std::thread& mutator : mutators) mutator.join();
    EXPECT_EQ(0, violations);
    EXPECT_GT(RawMonitor::borrowed(), before);
}

} // namespace
} // namespace bridge
