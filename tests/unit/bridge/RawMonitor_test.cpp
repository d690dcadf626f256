#include "bridge/RawMonitor.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace bridge {
namespace {

// A Java thread as the monitors see it: an address, and whether the VM holds it.
struct FakeJavaThread {
    std::atomic<bool> inVm{false};
};
thread_local FakeJavaThread* selfAsJavaThread = nullptr;

class RawMonitorTest : public testing::Test {
protected:
    RawMonitorTest() {
        setMonitorVm(
            {[]() -> void* { return selfAsJavaThread; },
             [](void* thread) { return static_cast<FakeJavaThread*>(thread)->inVm.load(); }});
    }
    ~RawMonitorTest() override {
        for (RawMonitor* monitor : monitors) RawMonitor::destroy(monitor);
        setMonitorVm({});
    }
    RawMonitor& make() {
        monitors.push_back(RawMonitor::create("test"));
        return *monitors.back();
    }
    // Whether another thread could have the monitor now.
    static bool isFree(RawMonitor& monitor) {
        // The thread may come to the monitor long after this has returned.
        const auto got = std::make_shared<std::atomic<bool>>(false);
        std::thread other([&monitor, got] {
            monitor.enter();
            *got = true;
            monitor.exit();
        });
        for (int i = 0; i < 20 && !*got; i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const bool free = *got;
        waiting.push_back(std::move(other));
        return free;
    }
    static void joinWaiting() {
        for (std::thread& thread : waiting) thread.join();
        waiting.clear();
    }

    std::vector<RawMonitor*> monitors;
    static inline std::vector<std::thread> waiting;
};

// A Java thread that a test leads by the hand.
class Actor {
public:
    Actor() : thread_([this] { live(); }) {}
    ~Actor() {
        begin(nullptr);
        thread_.join();
    }
    // Runs the work on the actor's thread and waits for its end.
    void does(std::function<void()> work) {
        begin(std::move(work));
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [&] { return idle_; });
    }
    // The same without waiting.
    void begin(std::function<void()> work) {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [&] { return idle_; });
        work_ = std::move(work);
        idle_ = false;
        changed_.notify_all();
    }
    FakeJavaThread java;

private:
    void live() {
        selfAsJavaThread = &java;
        for (;;) {
            std::function<void()> work;
            {
                std::unique_lock<std::mutex> guard(mutex_);
                changed_.wait(guard, [&] { return !idle_; });
                work = work_;
            }
            if (!work) return;
            work();
            std::lock_guard<std::mutex> guard(mutex_);
            idle_ = true;
            changed_.notify_all();
        }
    }
    std::mutex mutex_;
    std::condition_variable changed_;
    bool idle_ = true;
    std::function<void()> work_;
    std::thread thread_;
};

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
    std::vector<std::unique_ptr<FakeJavaThread>> javaThreads;
    for (int i = 0; i < 3; i++) javaThreads.push_back(std::make_unique<FakeJavaThread>());

    const auto vmCall = [&](FakeJavaThread& java) {
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
    for (int i = 0; i < 2000; i++) {
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
