#include "collector/PRBWorkloadCollector.h"
#include "core/PRBGarbageCollectionStats.h"
#include "data/PRBGarbageCollectionSample.h"
#include "runtime/PRBClock.h"
#include "tests/vm/core/CoreTest.h"

#include <map>

using namespace scripted;

namespace {

std::atomic<long long> nowMs{1000000};

timeval scriptedNow() {
    const long long ms = nowMs.load();
    return {static_cast<time_t>(ms / 1000), static_cast<suseconds_t>(ms % 1000 * 1000)};
}

// What is saved, by key; -1 for the rest.
struct Spy : PRBGarbageCollectionSample {
    void saveNumericData(int key, long long value) override { saved[key] = value; }
    long long getNumericData(int key) const override {
        auto at = saved.find(key);
        return at == saved.end() ? -1 : at->second;
    }
    std::map<int, long long> saved;
};

class Collections : public CoreTest {
protected:
    Collections() { PRBClock::source.store(scriptedNow); }

    void withCollector() {
        javaCollector = makeCollector(vm);
        vm.callNative([&] {
            jobject ref = vm.newLocalRef(vm.mainThread(), javaCollector.object);
            PRBWorkloadCollector* collector =
                PRBWorkloadCollector::getWorkloadCollector(vm.env(), ref, 1);
            collector->setJVMPIInterface(vm.jvmpi());
            monitor.setPRBWorkloadCollector(collector);
        });
        vm.recorder().clear();
    }
    Spy sample() {
        Spy s;
        EXPECT_TRUE(monitor.createSample(s, 0).OK());
        return s;
    }

    PRBMonitorGlobal& monitor = start();
    JavaCollector javaCollector;
};

} // namespace

TEST_F(Collections, holdTheRegistriesInOrderFromStartToFinish) {
    vm.send.gcStart();
    EXPECT_EQ(vm.monitorCalls(),
              (Texts{"RawMonitorEnter(_ClassTable)", "RawMonitorEnter(_MethodTable)",
                     "RawMonitorEnter(_ArenaTable)", "RawMonitorEnter(_ObjectTable)"}));
    vm.recorder().clear();
    vm.send.gcFinish(0, 0, 0);
    const Texts calls = vm.monitorCalls();
    ASSERT_GE(calls.size(), 4u);
    EXPECT_EQ(Texts(calls.end() - 4, calls.end()),
              (Texts{"RawMonitorExit(_ObjectTable)", "RawMonitorExit(_ArenaTable)",
                     "RawMonitorExit(_MethodTable)", "RawMonitorExit(_ClassTable)"}));
}

TEST_F(Collections, leaveNoObjectBehind) {
    vm.send.objectAlloc(vm.mainThread(), 1, nullptr, JVMPI_INT, 16, objectId(5));
    vm.send.gcStart();
    vm.send.gcFinish(0, 0, 0);
    EXPECT_EQ(findObject(objectId(5)), nullptr);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 0u);
    vm.send.objectAlloc(vm.mainThread(), 1, nullptr, JVMPI_INT, 16, objectId(5));
    EXPECT_NE(findObject(objectId(5)), nullptr);
}

TEST_F(Collections, moveAndFreeOnTheCollectingThread) {
    auto& cls = vm.addClass({.name = "com/x/A"});
    vm.setEnabled(JVMPI_EVENT_OBJECT_ALLOC, true);
    vm.setEnabled(JVMPI_EVENT_OBJECT_FREE, true);
    vm.setEnabled(JVMPI_EVENT_OBJECT_MOVE, true);
    auto& worker = vm.startThread({.name = "worker"});
    auto& freed = vm.allocate(worker, cls, 32);
    auto& moved = vm.allocate(worker, cls, 48);
    vm.recorder().clear();
    GcPlan plan;
    plan.frees = {&freed};
    plan.moves = {&moved};
    vm.collect(plan);
    EXPECT_EQ(findClass(cls.id())->getNumFree(), 1);
    EXPECT_EQ(findClass(cls.id())->getNumMove(), 1);
    EXPECT_EQ(threadOf(worker)->getCounters().liveBytes, 48);
    const Spy s = sample();
    EXPECT_EQ(s.getNumericData(341), 1);
    EXPECT_EQ(s.getNumericData(342), 1);
    EXPECT_EQ(s.getNumericData(352), 1);
}

TEST_F(Collections, addTheirCpuTimeToBothTotals) {
    vm.vmThread().scriptCpuTimes({5000000, 12000000, 20000000, 19000000});
    vm.send.gcStart();
    vm.send.gcFinish(0, 0, 0);
    EXPECT_EQ(monitor.getGCCPUTime(), 7000000);
    EXPECT_EQ(sample().getNumericData(350), 7);
    EXPECT_EQ(sample().getNumericData(350), 0);
    vm.send.gcStart();
    vm.send.gcFinish(0, 0, 0); // a clock that went backwards
    EXPECT_EQ(monitor.getGCCPUTime(), 7000000);
}

TEST_F(Collections, withoutAnEnvironmentAskJavaNothing) {
    withCollector();
    monitor.setDataBeingCollected(PRBCollect::kGarbageCollection);
    vm.useNullGcEnv();
    vm.send.gcStart();
    nowMs += 25;
    vm.send.gcFinish(10, 400, 1000);
    EXPECT_EQ(vm.jniCalls(), Texts{});
    const Spy s = sample();
    EXPECT_EQ(s.getNumericData(353), 0);
    EXPECT_EQ(s.getNumericData(356), 25);
    EXPECT_EQ(s.getNumericData(355), 600);
    EXPECT_EQ(s.getNumericData(354), 400);
    EXPECT_EQ(s.getNumericData(357), 400);
}

TEST_F(Collections, withARestrictedEnvironmentAskForTheFreeBytes) {
    withCollector();
    monitor.setDataBeingCollected(PRBCollect::kGarbageCollection);
    vm.useRestrictedEnv(200);
    vm.send.gcStart();
    vm.send.gcFinish(10, 400, 1000);
    EXPECT_EQ(sample().getNumericData(353), 400);
    EXPECT_EQ(sample().getNumericData(353), 0);
    vm.send.gcStart();
    vm.send.gcFinish(10, 900, 1000); // less free than at the start
    EXPECT_EQ(sample().getNumericData(353), 0);
}

TEST_F(Collections, thatAreNotReportedTellNeitherTimeNorSpace) {
    withCollector();
    vm.useRestrictedEnv(200);
    vm.send.gcStart();
    nowMs += 25;
    vm.send.gcFinish(10, 400, 1000);
    EXPECT_EQ(vm.jniCalls(), Texts{});
    const Spy s = sample();
    EXPECT_EQ(s.getNumericData(352), 1);
    EXPECT_EQ(s.getNumericData(353), 0);
    EXPECT_EQ(s.getNumericData(356), 0);
    EXPECT_EQ(s.getNumericData(355), -1);
    EXPECT_EQ(s.getNumericData(354), -1);
    EXPECT_EQ(s.getNumericData(357), -1);
}

TEST_F(Collections, neverShowTheCollectorsOwnFigures) {
    withCollector();
    monitor.setDataBeingCollected(PRBCollect::kGarbageCollection);
    vm.useRestrictedEnv(200);
    vm.send.gcStart();
    vm.send.gcFinish(10, 400, 1000);
    PRBWorkloadCollector* collector = monitor.getPRBWorkloadCollector();
    EXPECT_EQ(collector->getNumBytesFreedAtLastGC(), -1);
    EXPECT_EQ(collector->getNumBytesCurrentlyFreeAtLastGC(), -1);
    EXPECT_EQ(collector->getNumBytesTotalAtLastGC(), -1);
}

TEST_F(Collections, areToldWhenDebugIsOn) {
    monitor.setDataBeingCollected(PRBCollect::kGarbageCollection);
    PRBTrace::level.store(0x400); // debug lines, and no entry or exit of these operations
    vm.useNullGcEnv();
    vm.send.gcStart();
    nowMs += 7;
    vm.send.gcFinish(10, 400, 1000);
    sample();
    PRBTrace::level.store(0);
    Texts lines;
    for (const std::string& line : logTexts())
        if (line.rfind("Garbage collection", 0) == 0) lines.push_back(line);
    EXPECT_EQ(lines, (Texts{"Garbage collection running on thread 0",
                            "Garbage collection finished running on thread 0",
                            "Garbage collection freed 0 bytes, 60% free (600/1000)",
                            "Garbage collection num_run 1, tot_cpu 0, num_free 0, num_move 0, "
                            "byte_free 0, real_time 7",
                            "Garbage collection in_use 400, in_use_d 400, numb_free 600"}));
}

TEST_F(Collections, ofAnEmptyHeapDivideByNothing) {
    monitor.setDataBeingCollected(PRBCollect::kGarbageCollection);
    PRBTrace::level.store(0x400);
    vm.useNullGcEnv();
    vm.send.gcStart();
    vm.send.gcFinish(0, 0, 0);
    PRBTrace::level.store(0);
    EXPECT_TRUE(logged("Garbage collection freed 0 bytes, 0% free (0/0)"));
}

TEST_F(Collections, aFinishWithoutAStartReleasesNothing) {
    vm.send.gcFinish(0, 0, 0);
    EXPECT_EQ(vm.monitors().heldNow(), Texts{});
    EXPECT_EQ(sample().getNumericData(352), 1);
}

TEST_F(Collections, otherThreadsWaitForTheirEnd) {
    vm.setCheckLocalCapacity(false);
    vm.recorder().setRecording(false);
    auto& worker = vm.startThread({.name = "worker"});
    worker.startReal();
    std::atomic<bool> stop{false};
    std::atomic<std::uintptr_t> allocated{0};
    worker.post([&] {
        while (!stop) vm.send.objectAlloc(worker, 1, nullptr, JVMPI_INT, 16, objectId(++allocated));
    });
    for (int i = 0; i < 200; ++i) {
        vm.send.gcStart();
        vm.send.gcFinish(0, 0, 0);
    }
    stop = true;
    worker.waitIdle();
    worker.stopReal();
    vm.send.gcStart();
    vm.send.gcFinish(0, 0, 0);
    EXPECT_EQ(PRBContext::getObjectTable()->entries(), 0u);
    EXPECT_EQ(sample().getNumericData(352), 201);
}
