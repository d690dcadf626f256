// Raw monitors of the scripted VM, and the checks of their use.
#include "tests/vm/AllocationHook.h"
#include "tests/vm/ScriptedVmTest.h"

#include <gmock/gmock.h>

#include <thread>

SCRIPTED_VM_ALLOCATION_HOOK

namespace {

using namespace scripted;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class RawMonitors : public ScriptedVmTest {
protected:
    RawMonitors() : table(*vm.jvmpi()), a(create("a")), b(create("b")), c(create("c")) {}
    JVMPI_RawMonitor create(const char* name) {
        return table.RawMonitorCreate(const_cast<char*>(name));
    }
    JVMPI_Interface& table;
    JVMPI_RawMonitor a;
    JVMPI_RawMonitor b;
    JVMPI_RawMonitor c;
};

TEST_F(RawMonitors, areReentrant) {
    table.RawMonitorEnter(a);
    table.RawMonitorEnter(a);
    table.RawMonitorExit(a);
    EXPECT_THAT(vm.monitors().heldNow(), ElementsAre("a by main"));
    EXPECT_THAT(vm.mainThread().heldMonitors(), ElementsAre("a"));
    table.RawMonitorExit(a);
    EXPECT_THAT(vm.monitors().heldNow(), IsEmpty());
    EXPECT_THAT(vm.monitors().created(), ElementsAre("a", "b", "c"));
}

TEST_F(RawMonitors, excludeOtherThreads) {
    int counter = 0; // guarded by a
    std::vector<ScriptedThread*> workers;
    for (int i = 0; i < 4; ++i) {
        workers.push_back(&vm.addThread({.name = "worker " + std::to_string(i)}));
        workers.back()->startReal();
    }
    for (ScriptedThread* worker : workers)
        worker->post([&] {
            for (int i = 0; i < 500; ++i) {
                table.RawMonitorEnter(a);
                ++counter;
                table.RawMonitorExit(a);
            }
        });
    for (ScriptedThread* worker : workers) worker->waitIdle();
    EXPECT_EQ(counter, 2000);
}

TEST_F(RawMonitors, workOnUnattachedThreads) {
    std::string who;
    std::thread([&] {
        table.RawMonitorEnter(a);
        who = vm.monitors().heldNow().at(0);
        table.RawMonitorExit(a);
    }).join();
    EXPECT_THAT(who, HasSubstr("a by native-"));
}

TEST_F(RawMonitors, aWaitEndsByNotification) {
    ScriptedThread& waiter = vm.addThread({.name = "waiter"});
    waiter.startReal();
    bool woken = false; // guarded by a
    for (const jlong limit : {jlong{0}, jlong{-5}, jlong{1000000}}) {
        waiter.post([&] {
            table.RawMonitorEnter(a);
            table.RawMonitorEnter(a);
            table.RawMonitorWait(a, limit); // gives up both entries
            woken = true;
            table.RawMonitorExit(a);
            table.RawMonitorExit(a);
        });
        while (vm.monitors().find("a")->waiters() == 0) std::this_thread::yield();
        table.RawMonitorEnter(a);
        EXPECT_FALSE(woken);
        table.RawMonitorNotifyAll(a);
        EXPECT_FALSE(woken);
        table.RawMonitorExit(a);
        waiter.waitIdle();
        EXPECT_TRUE(woken);
        woken = false;
    }
}

TEST_F(RawMonitors, aWaitEndsByTime) {
    table.RawMonitorEnter(a);
    table.RawMonitorWait(a, 1);
    EXPECT_THAT(vm.monitors().heldNow(), ElementsAre("a by main"));
    table.RawMonitorExit(a);
    EXPECT_EQ(vm.recorder().count("RawMonitorWait(a, 1)"), 1U);
}

TEST_F(RawMonitors, aWaitMayBeWokenSpuriously) {
    ScriptedThread& waiter = vm.addThread({.name = "waiter"});
    waiter.startReal();
    waiter.post([&] {
        table.RawMonitorEnter(a);
        table.RawMonitorWait(a, 0);
        table.RawMonitorExit(a);
    });
    while (vm.monitors().find("a")->waiters() == 0) std::this_thread::yield();
    vm.monitors().wakeSpuriously("a");
    waiter.waitIdle();
    EXPECT_EQ(vm.monitors().find("a")->waiters(), 0);
}

TEST_F(RawMonitors, theWaitHookEndsAWaitAtOnce) {
    std::vector<std::string> asked;
    vm.monitors().setWaitHook([&](const std::string& name, jlong milliseconds) {
        asked.push_back(name + " " + std::to_string(milliseconds));
        return true;
    });
    table.RawMonitorEnter(a);
    table.RawMonitorWait(a, 999999);
    table.RawMonitorExit(a);
    EXPECT_THAT(asked, ElementsAre("a 999999"));
}

TEST_F(RawMonitors, useWithoutOwnershipIsAViolation) {
    table.RawMonitorExit(a);
    table.RawMonitorWait(a, 1);
    table.RawMonitorNotifyAll(a);
    table.RawMonitorEnter(b);
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.run([&] { table.RawMonitorExit(b); });
    table.RawMonitorExit(b);
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre("RawMonitorExit of a by main, which does not hold it",
                            "RawMonitorWait on a by main, which does not hold it",
                            "RawMonitorNotifyAll on a by main, which does not hold it",
                            "RawMonitorExit of b by worker, which does not hold it"));
}

TEST_F(RawMonitors, destroyedMonitorsAreNotUsedAgain) {
    table.RawMonitorDestroy(a);
    EXPECT_EQ(vm.monitors().find("a"), nullptr);
    table.RawMonitorEnter(a);
    table.RawMonitorEnter(b);
    table.RawMonitorDestroy(b);
    table.RawMonitorEnter(nullptr);
    int garbage = 0;
    table.RawMonitorExit(reinterpret_cast<JVMPI_RawMonitor>(&garbage));
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre("RawMonitorEnter of the destroyed a",
                            "RawMonitorDestroy of b, held by main", "RawMonitorEnter of null",
                            "RawMonitorExit of what is no monitor"));
    const Texts held = vm.monitors().heldNow();
    EXPECT_THAT(held, ElementsAre("b by main"));
    // Nothing can release b any more; the fixture shall not complain of it.
    vm.monitors().forgetOwners();
}

TEST_F(RawMonitors, aCycleOfOrdersIsAViolation) {
    const auto nest = [&](JVMPI_RawMonitor outer, JVMPI_RawMonitor inner) {
        table.RawMonitorEnter(outer);
        table.RawMonitorEnter(inner);
        table.RawMonitorExit(inner);
        table.RawMonitorExit(outer);
    };
    nest(a, b);
    nest(b, c);
    nest(a, c);
    EXPECT_THAT(vm.recorder().violations(), IsEmpty());
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.run([&] { nest(c, a); });
    const Texts found = vm.recorder().takeViolations();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_THAT(found[0], HasSubstr("lock cycle: c -> a -> "));
    EXPECT_THAT(found[0], HasSubstr("(by worker)"));
}

TEST_F(RawMonitors, enteringAgainIsNoNewOrder) {
    table.RawMonitorEnter(a);
    table.RawMonitorEnter(b);
    table.RawMonitorEnter(a);
    table.RawMonitorExit(a);
    table.RawMonitorExit(b);
    table.RawMonitorExit(a);
    EXPECT_THAT(vm.recorder().violations(), IsEmpty());
}

TEST_F(RawMonitors, ranksAreCheckedWhenGiven) {
    vm.monitors().setRanks({"a", "b", "c"});
    table.RawMonitorEnter(b);
    table.RawMonitorEnter(c);
    table.RawMonitorExit(c);
    EXPECT_THAT(vm.recorder().violations(), IsEmpty());
    table.RawMonitorEnter(a);
    table.RawMonitorExit(a);
    table.RawMonitorExit(b);
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre("a entered by main while holding b, which ranks after it"));
}

TEST_F(RawMonitors, forbiddenVmCallsAreViolations) {
    vm.monitors().forbidVmCallsHolding({"a"});
    table.RawMonitorEnter(b);
    table.DisableGC();
    table.RawMonitorExit(b);
    table.RawMonitorEnter(a);
    table.GetCurrentThreadCpuTime();
    EXPECT_THAT(vm.recorder().violations(), IsEmpty());
    table.EnableGC();
    vm.env()->ExceptionCheck();
    table.RawMonitorExit(a);
    EXPECT_THAT(
        vm.recorder().takeViolations(),
        ElementsAre("EnableGC by main while holding a", "ExceptionCheck by main while holding a"));
}

TEST_F(RawMonitors, anEnteringThatCannotSucceedIsReportedAndPassedOver) {
    table.RawMonitorEnter(a);
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.run([&] {
        table.RawMonitorEnter(a);
        table.RawMonitorExit(a);
    });
    table.RawMonitorExit(a);
    EXPECT_THAT(vm.recorder().takeViolations(),
                ElementsAre("deadlock: worker enters a, which main holds on the same pthread"));
}

TEST_F(RawMonitors, aThreadThatEndsHoldingOneIsAViolation) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.run([&] { table.RawMonitorEnter(a); });
    vm.endThread(worker);
    EXPECT_THAT(vm.recorder().takeViolations(), ElementsAre("thread worker ended holding a"));
    worker.run([&] { table.RawMonitorExit(a); });
}

// ---- allocations --------------------------------------------------------------------------------

TEST_F(RawMonitors, allocationsOfTheTestAreCountedAndThoseOfTheVmAreNot) {
    AllocationCount count;
    table.RawMonitorEnter(a);
    table.RawMonitorExit(a);
    EXPECT_EQ(count.now(), 0U);
    char* volatile block = new char[100];
    delete[] block;
    EXPECT_GE(count.now(), 2U);
}

TEST_F(RawMonitors, allocatingWhileThreadsAreSuspendedIsAViolation) {
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    auto* kept = new std::vector<char>();
    table.SuspendThread(worker.env());
    table.ThreadHasRun(worker.env());
    kept->reserve(100);
    table.ResumeThread(worker.env());
    delete kept;
    EXPECT_THAT(
        vm.recorder().takeViolations(),
        ElementsAre("memory allocated or released by main while it holds threads suspended"));
}

#if !defined(__SANITIZE_THREAD__)
TEST_F(RawMonitors, aRealSuspensionStopsThePthreadWhereverItIs) {
    vm.setRealSuspension(true);
    ScriptedThread& worker = vm.addThread({.name = "worker"});
    worker.startReal();
    std::atomic<unsigned long> steps{0};
    std::atomic<bool> stop{false};
    worker.post([&] {
        while (!stop.load()) steps.fetch_add(1);
    });
    while (steps.load() == 0) std::this_thread::yield();
    for (int round = 0; round < 20; ++round) {
        table.SuspendThread(worker.env());
        const unsigned long before = steps.load();
        for (int i = 0; i < 1000; ++i) std::this_thread::yield();
        const unsigned long after = steps.load();
        table.ResumeThread(worker.env());
        EXPECT_EQ(before, after);
        while (steps.load() == after) std::this_thread::yield();
    }
    stop.store(true);
    worker.waitIdle();
}
#endif

} // namespace
