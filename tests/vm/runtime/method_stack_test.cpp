// Exact timing by method entry and exit.
#include "data/PRBCThreadSample.h"
#include "runtime/PRBReclaimer.h"
#include "tests/vm/runtime/RuntimeTest.h"

#include <climits>

namespace {

class MethodStack : public RuntimeTest {
protected:
    void SetUp() override {
        RuntimeTest::SetUp();
        prepare();
    }
    void prepare() {
        collect(PRBCollect::kMethods);
        cls = &makeClass("com/x/A", {"a", "b", "c", "skipped"});
        for (const char* name : {"a", "b", "c", "skipped"}) findMethod(id(name));
        PRBJavaThread* made = &startThread("worker").model;
        worker = made;
        scripted = vm.findThread("worker");
    }
    jmethodID id(const char* name) const { return cls->methodId(name); }
    void enter(const char* name) { vm.send.methodEntry(*scripted, id(name)); }
    void leave(const char* name) { vm.send.methodExit(*scripted, id(name)); }
    void work(long long us) { compute(*scripted, us); }
    long long own(const char* name) {
        auto* record = recordOf(*worker, id(name));
        return record == nullptr ? -1 : record->getOwnCPU();
    }
    long long callee(const char* name) {
        auto* record = recordOf(*worker, id(name));
        return record == nullptr ? -1 : record->getCalleeCPU();
    }
    const PRBJavaThread::StackEntry* entry(int n) {
        const PRBJavaThread::StackEntry* found = nullptr;
        scripted->run([&] { found = worker->getStackEntry(n); });
        return found;
    }

    ScriptedClass* cls = nullptr;
    PRBJavaThread* worker = nullptr;
    ScriptedThread* scripted = nullptr;
};

TEST_F(MethodStack, withoutMethodDataAnEntryOnlySetsTheState) {
    collect(0);
    worker->setThreadState(kThreadWaiting);
    enter("a");
    EXPECT_EQ(worker->getStackDepth(), 0);
    EXPECT_EQ(worker->getThreadState(), kThreadRunning);
}

TEST_F(MethodStack, anUnknownMethodGetsARecord) {
    ScriptedClass& late = makeClass("com/x/Late", {"m"}, false);
    EXPECT_EQ(findMethod(late.methodId("m")), nullptr);
    vm.send.methodEntry(*scripted, late.methodId("m"));
    EXPECT_NE(findMethod(late.methodId("m")), nullptr);
    EXPECT_EQ(entry(0)->isTimed, 1);
    const auto unknown = reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x12340));
    vm.send.methodEntry(*scripted, unknown); // the VM does not know its class
    EXPECT_NE(findMethod(unknown), nullptr);
    EXPECT_EQ(entry(0)->isTimed, 1); // monitored while nothing else is known
}

TEST_F(MethodStack, onlyMonitoredMethodsAreTimed) {
    PRBMaskLists::setMethodMask("*.a");
    scripted->advanceCpuTime(7000);
    enter("a");
    EXPECT_EQ(entry(0)->isTimed, 1);
    EXPECT_EQ(entry(0)->StartCPUTime, 7000);
    EXPECT_EQ(PRBClock::toMicros(entry(0)->StartRealTime), wallUs.load());
    enter("b");
    EXPECT_EQ(entry(0)->isTimed, 0);
    EXPECT_EQ(entry(0)->StartCPUTime, 0);
    PRBMaskLists::setMethodMask("*.b"); // a decision is not remembered past a new mask
    enter("a");
    EXPECT_EQ(entry(0)->isTimed, 0);
    enter("b");
    EXPECT_EQ(entry(0)->isTimed, 1);
}

TEST_F(MethodStack, theStackDoublesAndKeepsItsEntries) {
    const int capacities[] = {500, 1000, 2000};
    int depth = 0;
    for (int capacity : capacities) {
        while (depth < capacity) {
            enter(depth % 2 == 0 ? "a" : "b");
            scripted->advanceCpuTime(1000);
            ++depth;
        }
        EXPECT_EQ(worker->getStackCapacity(), capacity);
    }
    for (int n = 0; n < depth; ++n) {
        ASSERT_EQ(entry(n)->method, id((depth - 1 - n) % 2 == 0 ? "a" : "b"));
        ASSERT_EQ(entry(n)->StartCPUTime, 1000LL * (depth - 1 - n));
    }
    EXPECT_EQ(entry(depth), nullptr);
    EXPECT_EQ(entry(-1), nullptr);
}

TEST_F(MethodStack, aHundredThousandFramesAreKeptAndDroppedByOneExit) {
    vm.recorder().setRecording(false);
    enter("c");
    for (int i = 0; i < 100000; ++i) enter("a");
    EXPECT_EQ(worker->getStackDepth(), 100001);
    work(10);
    leave("c");
    EXPECT_EQ(worker->getStackDepth(), 0);
    EXPECT_EQ(own("c"), 10000);
}

TEST_F(MethodStack, anExitWithoutEntryEmptiesTheStackAndMeasuresNothing) {
    enter("a");
    enter("b");
    work(10);
    leave("c");
    EXPECT_EQ(worker->getStackDepth(), 0);
    EXPECT_EQ(worker->getCounters().cpuTime, 0);
    EXPECT_EQ(worker->getMethodFrequencyTable()->entries(), 0u);
    worker->setThreadState(kThreadWaiting);
    leave("a"); // on an empty stack
    EXPECT_EQ(worker->getThreadState(), kThreadRunning);
}

TEST_F(MethodStack, anExitDropsTheFramesThatAnExceptionLeft) {
    enter("a");
    work(5);
    enter("b");
    enter("c");
    work(7);
    leave("a");
    EXPECT_EQ(worker->getStackDepth(), 0);
    EXPECT_EQ(own("a"), 12000); // nothing was measured for b and c
    EXPECT_EQ(own("b"), -1);
    EXPECT_EQ(own("c"), -1);
}

TEST_F(MethodStack, aCalleesTimeIsTakenFromItsNearestTimedCallerOnly) {
    enter("a");
    work(10);
    enter("b");
    work(20);
    enter("c");
    work(30);
    leave("c");
    EXPECT_EQ(entry(0)->ChildCPUTime, 30000);
    EXPECT_EQ(entry(0)->ChildRealTime, 30000);
    EXPECT_EQ(entry(1)->ChildCPUTime, 0);
    work(2);
    leave("b");
    EXPECT_EQ(entry(0)->ChildCPUTime, 52000);
    work(1);
    leave("a");
    EXPECT_EQ(own("a"), 11000);
    EXPECT_EQ(own("b"), 22000);
    EXPECT_EQ(own("c"), 30000);
    EXPECT_EQ(callee("a"), 52000);
    EXPECT_EQ(callee("b"), 30000);
    EXPECT_EQ(callee("c"), 0);
    EXPECT_EQ(worker->getCounters().cpuTime, 63000);
}

TEST_F(MethodStack, untimedFramesAreSkippedOnTheWayDown) {
    PRBMaskLists::setMethodMask("*.a, *.c");
    enter("a");
    enter("b");
    enter("c");
    work(30);
    leave("c");
    EXPECT_EQ(entry(0)->ChildCPUTime, 0); // b is not timed
    EXPECT_EQ(entry(1)->ChildCPUTime, 30000);
    EXPECT_EQ(callee("a"), 30000);
    EXPECT_EQ(own("b"), -1);
}

TEST_F(MethodStack, anUntimedExitMeasuresNothing) {
    PRBMaskLists::setMethodMask("*.a");
    enter("a");
    enter("b");
    work(30);
    leave("b");
    EXPECT_EQ(worker->getCounters().cpuTime, 0);
    EXPECT_EQ(worker->getExitSequence(), 0);
    EXPECT_EQ(entry(0)->ChildCPUTime, 0);
}

TEST_F(MethodStack, aMethodWithoutTimeOfItsOwnUpdatesOnlyItsNearestCaller) {
    enter("a");
    enter("b");
    enter("c");
    work(30);
    leave("c");
    const long long sequence = worker->getExitSequence();
    leave("b"); // all its time is c's
    EXPECT_EQ(worker->getExitSequence(), sequence + 1);
    EXPECT_EQ(entry(0)->ChildCPUTime, 30000);
    EXPECT_EQ(own("b"), 0);
    EXPECT_EQ(callee("a"), 30000); // from c's exit alone
}

TEST_F(MethodStack, theExitSequenceCountsExitsWithCpuTimeOnly) {
    enter("a");
    passWall(10);
    leave("a");
    EXPECT_EQ(worker->getExitSequence(), 0);
    EXPECT_EQ(own("a"), -1); // a record is not even made
    enter("a");
    work(1);
    leave("a");
    EXPECT_EQ(worker->getExitSequence(), 1);
}

TEST_F(MethodStack, theExitSequenceLeavesOutZero) {
    EXPECT_EQ(PRBJavaThread::nextExitSequence(0), 1);
    EXPECT_EQ(PRBJavaThread::nextExitSequence(-2), -1);
    EXPECT_EQ(PRBJavaThread::nextExitSequence(-1), 1);
    EXPECT_EQ(PRBJavaThread::nextExitSequence(LLONG_MAX), LLONG_MIN);
}

TEST_F(MethodStack, aRecordSurvivesRemovalWhileTheStackIsInUseAndIsNotFoundAfterwards) {
    enter("a");
    enter("b");
    work(10);
    leave("b"); // its record is known from here on
    auto* record = recordOf(*worker, id("b"));
    worker->removeMethod(id("b"));
    worker->purgeMethodFrequencyObjects();
    EXPECT_EQ(recordOf(*worker, id("b")), nullptr);
    enter("b");
    work(5);
    leave("b"); // may still charge the removed one
    EXPECT_EQ(recordOf(*worker, id("b")), nullptr);
    EXPECT_EQ(record->getOwnCPU(), 15000);
    leave("a"); // the stack is empty: whatever was remembered is forgotten
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
    enter("b");
    work(7);
    leave("b");
    EXPECT_EQ(own("b"), 7000);
}

TEST_F(MethodStack, aWallClockThatJumpsBackDropsTheMeasurementAndNoMore) {
    enter("a");
    enter("b");
    scripted->advanceCpuTime(10000);
    passWall(-3600LL * 1000000);
    leave("b");
    EXPECT_EQ(own("b"), -1);
    EXPECT_EQ(entry(0)->ChildCPUTime, 0);
    passWall(2 * 3600LL * 1000000);
    leave("a");
    EXPECT_EQ(own("a"), 10000);
}

TEST_F(MethodStack, aRecursiveMethodGetsACalleesTimeOncePerExit) {
    enter("a");
    enter("a");
    enter("a");
    enter("b");
    work(10);
    leave("b");
    EXPECT_EQ(callee("a"), 10000);
    work(4);
    leave("a");
    EXPECT_EQ(own("a"), 4000);
    EXPECT_EQ(callee("a"), 14000);
}

TEST_F(MethodStack, theTimeOfAllThreadsIsSummedAndTaken) {
    PRBJavaThread::getAndResetCPUTime();
    auto [second, model] = startThread("second");
    enter("a");
    work(10);
    leave("a");
    vm.send.methodEntry(second, id("b"));
    compute(second, 5);
    vm.send.methodExit(second, id("b"));
    EXPECT_EQ(PRBJavaThread::getAndResetCPUTime(), 15000);
    EXPECT_EQ(PRBJavaThread::getAndResetCPUTime(), 0);
}

TEST_F(MethodStack, anExitAfterCollectionWasSwitchedOffIsStillMeasured) {
    enter("a");
    work(10);
    collect(0);
    leave("a");
    EXPECT_EQ(own("a"), 10000);
    collect(0);
    enter("b");
    collect(PRBCollect::kMethods);
    work(10);
    leave("b"); // it finds no entry
    EXPECT_EQ(own("b"), -1);
}

TEST_F(MethodStack, theCurrentMethodIsTheTopElseTheVmsFrameElseNone) {
    scripted->setFrames({{1, id("c")}, {1, id("a")}});
    scripted->run([&] { EXPECT_EQ(worker->getCurrentMethod(), id("c")); });
    EXPECT_THAT(vm.jvmpiCalls(), testing::Contains("GetCallTrace(worker, 1)"));
    enter("b");
    scripted->run([&] { EXPECT_EQ(worker->getCurrentMethod(), id("b")); });
    leave("b");
    scripted->setFrames({});
    scripted->run([&] { EXPECT_EQ(worker->getCurrentMethod(), nullptr); });
}

TEST_F(MethodStack, aTraceOfOtherThanOneFrameNamesNoMethod) {
    static jint answered = 0;
    static jmethodID method = nullptr;
    method = id("a");
    vm.jvmpi()->GetCallTrace = [](JVMPI_CallTrace* trace, jint) {
        trace->frames[0].method_id = method;
        trace->num_frames = answered;
    };
    for (jint frames : {-2147483647, -1, 0, 2, 100000}) {
        answered = frames;
        scripted->run([&] { EXPECT_EQ(worker->getCurrentMethod(), nullptr) << frames; });
    }
    answered = 1;
    scripted->run([&] { EXPECT_EQ(worker->getCurrentMethod(), method); });
    vm.jvmpi()->GetCallTrace = nullptr; // a VM without it
    scripted->run([&] { EXPECT_EQ(worker->getCurrentMethod(), nullptr); });
}

class MethodStackDebug : public MethodStack {
    void SetUp() override {
        startAgent("debug=PUBLIC");
        prepare();
    }
};

TEST_F(MethodStackDebug, cpuTimeThatRanBackwardsIsDroppedAndTold) {
    scripted->setCpuTime(5000000);
    enter("a");
    scripted->setCpuTime(4000000);
    passWall(10000);
    leave("a");
    EXPECT_EQ(worker->getStackDepth(), 0);
    EXPECT_EQ(worker->getCounters().cpuTime, 0);
    EXPECT_EQ(logCount("Found TotalCPUTime < pNextEntry->StartCPUTime"), 1u);
    const std::string log = readLog();
    EXPECT_THAT(log, testing::HasSubstr("TotalCPUTime   @"));
    EXPECT_THAT(log, testing::HasSubstr("pNextEntry->StartCPUTime   @"));
    EXPECT_THAT(log, testing::HasSubstr("0000-00093D00 00000000")); // 4000000, little-endian
}

TEST_F(MethodStackDebug, moreCpuThanElapsedTimeIsDroppedAndToldTheOtherWayRound) {
    enter("a");
    scripted->advanceCpuTime(11000);
    passWall(10);
    leave("a");
    EXPECT_EQ(worker->getCounters().cpuTime, 0);
    EXPECT_EQ(worker->getExitSequence(), 0);
    EXPECT_EQ(logCount("Found TotalCPUTime < TotalRealTime"), 1u);
    EXPECT_THAT(readLog(), testing::HasSubstr("TotalRealTime   @"));
    enter("a");
    scripted->advanceCpuTime(10000);
    passWall(10);
    leave("a"); // equal is fine
    EXPECT_EQ(worker->getCounters().cpuTime, 10000);
}

} // namespace
