// Method frequency records and the samples made of them.
#include "data/PRBMethodUsageSample.h"
#include "runtime/PRBReclaimer.h"
#include "tests/vm/runtime/RuntimeTest.h"

namespace {

using Record = PRBJavaThread::MethodFrequency;

class Frequency : public RuntimeTest {
protected:
    void SetUp() override {
        RuntimeTest::SetUp();
        collect(PRBCollect::kMethods);
        cls = &makeClass("com/x/A", {"a", "b", "c"});
        worker = &startThread("worker").model;
        scripted = vm.findThread("worker");
    }
    jmethodID id(const char* name) const { return cls->methodId(name); }
    void call(const char* name, long long us) {
        vm.send.methodEntry(*scripted, id(name));
        compute(*scripted, us);
        vm.send.methodExit(*scripted, id(name));
    }
    static int keep(void* context, Record* record, long long) {
        static_cast<std::vector<Record*>*>(context)->push_back(record);
        return 1;
    }
    static int keepOne(void* context, Record* record, long long) {
        static_cast<std::vector<Record*>*>(context)->push_back(record);
        return 0;
    }
    std::vector<Record*> poll(jmethodID only = nullptr,
                              PRBJavaThread::MethodUsageCallback callback = keep) {
        std::vector<Record*> records;
        worker->getMethodUsageSamples(callback, &records, only);
        return records;
    }

    ScriptedClass* cls = nullptr;
    PRBJavaThread* worker = nullptr;
    ScriptedThread* scripted = nullptr;
};

TEST_F(Frequency, countsAnExitOnceAndNotesTheSequenceOfAnEmptyOne) {
    Record record(id("a"));
    record.sampleCPU(1, 5, 7);
    record.sampleCPU(2, 5, 7); // the same exit
    EXPECT_EQ(record.getCalleeCPU(), 5);
    record.sampleCPU(1, 0, 8); // nothing to add, but the exit is noted
    record.sampleCPU(1, 5, 8);
    EXPECT_EQ(record.getCalleeCPU(), 5);
    record.sampleCPU(0, 3, 0);
    record.sampleCPU(0, 3, 0); // no sequence: each counts
    EXPECT_EQ(record.getOwnCPU(), 6);
    record.sampleCPU(9, 2, 9);
    EXPECT_EQ(record.getCalleeCPU(), 7);
}

TEST_F(Frequency, isUpdatedByCpuAndContentionButNotByAllocation) {
    Record record(id("a"));
    record.sampleCPU(0, 0, 0);
    record.heapAllocationEvent(100);
    EXPECT_FALSE(record.isUpdated());
    EXPECT_EQ(record.getAllocationCount(), 1);
    EXPECT_EQ(record.getAllocatedBytes(), 100);
    record.contentionEvent(10, kContendedEnter);
    EXPECT_TRUE(record.isUpdated());
    record.contentionEvent(20, kMonitorWait);
    record.contentionEvent(5, kMonitorWait);
    EXPECT_EQ(record.getContentionCount(), 1);
    EXPECT_EQ(record.getContentionTime(), 10);
    EXPECT_EQ(record.getWaitCount(), 2);
    EXPECT_EQ(record.getWaitTime(), 25);
    Record cpu(id("b"));
    cpu.sampleCPU(3, 1, 0);
    EXPECT_TRUE(cpu.isUpdated());
}

TEST_F(Frequency, isIdentifiedByItsMethod) {
    Record one(id("a")), same(id("a")), other(id("b"));
    EXPECT_EQ(one.isA(), 32735);
    EXPECT_TRUE(one.isEqual(&same));
    EXPECT_EQ(one.hash(), same.hash());
    EXPECT_FALSE(one.isEqual(&other));
    PRBJavaMethod method(id("a"));
    EXPECT_FALSE(one.isEqual(&method));
    EXPECT_FALSE(one.isEqual(nullptr));
}

TEST_F(Frequency, aTraceChargesItsTopFrameAndTheCallersBelow) {
    setSamplerIdle(0);
    const JVMPI_CallFrame frames[] = {{1, id("c")}, {2, id("b")}, {3, id("a")}, {4, id("b")}};
    worker->saveMethodFrequency(frames, 4);
    worker->saveMethodFrequency(frames + 1, 3);
    EXPECT_EQ(recordOf(*worker, id("c"))->getOwnCPU(), 1);
    EXPECT_EQ(recordOf(*worker, id("c"))->getCalleeCPU(), 0);
    EXPECT_EQ(recordOf(*worker, id("b"))->getOwnCPU(), 1);
    EXPECT_EQ(recordOf(*worker, id("b"))->getCalleeCPU(), 3); // each frame counts
    EXPECT_EQ(recordOf(*worker, id("a"))->getCalleeCPU(), 2);
}

TEST_F(Frequency, aTraceChargesNoRecordThatIsNotReported) {
    call("a", 5000);
    PRBMethodUsageSample sample;
    auto* record = recordOf(*worker, id("a"));
    EXPECT_EQ(record->createSample(sample, 0, 0, 0), 1); // the class is known from now on
    PRBMaskLists::setClassMask("none");
    const JVMPI_CallFrame frames[] = {{1, id("a")}, {1, id("b")}};
    worker->saveMethodFrequency(frames, 2);
    EXPECT_EQ(record->getOwnCPU(), 0);
    EXPECT_EQ(recordOf(*worker, id("b"))->getCalleeCPU(), 1); // its class is not known yet
    PRBMaskLists::setClassMask("*");
    worker->saveMethodFrequency(frames, 1);
    EXPECT_EQ(record->getOwnCPU(), 1);
}

TEST_F(Frequency, isReportedUntilItsClassIsKnownToBeIgnored) {
    Record unknown(id("a"));
    EXPECT_TRUE(unknown.reportForThisMethod());
    call("a", 1000);
    auto* record = recordOf(*worker, id("a"));
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 0, 0, 0), 1);
    vm.recorder().clear();
    EXPECT_TRUE(record->reportForThisMethod());
    EXPECT_EQ(vm.monitorCalls(),
              (Texts{"RawMonitorEnter(_ClassTable)", "RawMonitorEnter(_MethodTable)",
                     "RawMonitorExit(_MethodTable)", "RawMonitorExit(_ClassTable)"}));
    PRBMaskLists::setClassMask("none");
    EXPECT_FALSE(record->reportForThisMethod());
}

TEST_F(Frequency, aRecordWithoutNewsAnswersZeroAndStaysAsItIs) {
    auto* record = worker->findMethodFrequency(id("a"));
    record->heapAllocationEvent(10);
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 0);
    EXPECT_EQ(sample.getNumericValueForStream(314), -1);
    EXPECT_EQ(record->getAllocationCount(), 1);
}

TEST_F(Frequency, withADivisorOfZeroNothingIsWrittenAndTheCountersAreReset) {
    call("a", 5000);
    PRBContext::setCPUSamplingInterval(0);
    auto* record = recordOf(*worker, id("a"));
    record->contentionEvent(1, kMonitorWait);
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 0);
    EXPECT_EQ(sample.getStringData(10), "");
    EXPECT_FALSE(record->isUpdated());
    EXPECT_EQ(record->getOwnCPU(), 0);
    EXPECT_EQ(record->getWaitCount(), 0);
}

TEST_F(Frequency, cpuBelowOneSimulatedSampleIsDropped) {
    call("a", 999);
    auto* record = recordOf(*worker, id("a"));
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 0);
    EXPECT_EQ(record->getOwnCPU(), 0);
    EXPECT_FALSE(record->isUpdated());
}

TEST_F(Frequency, aSampleCarriesNamesSamplesAndTheGivenValues) {
    collect(PRBCollect::kMethods | PRBCollect::kContention);
    vm.send.methodEntry(*scripted, id("a"));
    compute(*scripted, 3500);
    call("b", 7000);
    vm.send.methodExit(*scripted, id("a"));
    auto* record = recordOf(*worker, id("a"));
    record->contentionEvent(4999999, kContendedEnter);
    record->contentionEvent(6000000, kMonitorWait);
    record->heapAllocationEvent(64);
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1234, 56, 78), 1);
    EXPECT_EQ(sample.getStringData(10), "com/x/A");
    EXPECT_EQ(sample.getStringData(11), "a");
    EXPECT_EQ(sample.getStringData(320), "()V");
    const std::pair<int, long long> numbers[] = {{314, 1234}, {321, 3},  {322, 7}, {304, 1},
                                                 {305, 4},    {306, 1},  {307, 6}, {310, 56},
                                                 {315, 78},   {308, -1}, {309, -1}};
    for (auto [key, value] : numbers)
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), value) << key;
    EXPECT_FALSE(record->isUpdated());
    EXPECT_EQ(record->getOwnCPU() + record->getCalleeCPU() + record->getContentionCount() +
                  record->getContentionTime() + record->getWaitCount() + record->getWaitTime(),
              0);
    EXPECT_EQ(record->getAllocationCount(), 1); // allocations are never reset
    EXPECT_EQ(record->getAllocatedBytes(), 64);
}

TEST_F(Frequency, contentionAloneIsReportedWithoutSamples) {
    auto* record = worker->findMethodFrequency(id("a"));
    record->contentionEvent(4000000, kContendedEnter);
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 1);
    EXPECT_EQ(sample.getNumericValueForStream(321), 0);
    EXPECT_EQ(sample.getNumericValueForStream(322), 0);
    EXPECT_EQ(sample.getNumericValueForStream(304), -1); // contention data is not collected
}

TEST_F(Frequency, aMethodThatCannotBeFoundIsNeverReportedAgain) {
    const auto unknown = reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x4440));
    auto* record = worker->findMethodFrequency(unknown);
    record->sampleCPU(0, 5000000, 0);
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 0);
    EXPECT_TRUE(record->isNotReportable());
    EXPECT_FALSE(record->reportForThisMethod());
    EXPECT_EQ(record->getOwnCPU(), 0);
}

TEST_F(Frequency, aMethodWithoutClassIsNotReportable) {
    const auto unknown = reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x4440));
    PRBContext::getMethodTable()->insert(new PRBJavaMethod(unknown));
    auto* record = worker->findMethodFrequency(unknown);
    record->sampleCPU(0, 5000000, 0);
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 0);
    EXPECT_TRUE(record->isNotReportable());
}

TEST_F(Frequency, namesAreLearnedFromTheVmWithNoRegistryHeld) {
    ScriptedClass& late = makeClass("com/x/Late", {"m"}, false);
    PRBContext::getMethodTable()->insert(new PRBJavaMethod(late.methodId("m")));
    auto* record = worker->findMethodFrequency(late.methodId("m"));
    record->sampleCPU(0, 5000000, 0);
    vm.monitors().forbidVmCallsHolding(
        {"_ClassTable", "_MethodTable", "Thread Method Frequency Table"});
    PRBMethodUsageSample sample;
    EXPECT_EQ(record->createSample(sample, 1, 2, 3), 1);
    EXPECT_EQ(sample.getStringData(10), "com/x/Late");
    EXPECT_EQ(sample.getStringData(11), "m");
}

TEST_F(Frequency, aMethodThatBecameUnmonitoredKeepsItsCountersUnreported) {
    call("a", 5000);
    PRBMethodUsageSample first, second, third;
    auto* record = recordOf(*worker, id("a"));
    EXPECT_EQ(record->createSample(first, 1, 2, 3), 1);
    call("a", 6000);
    PRBMaskLists::setClassMask("com/y/*");
    EXPECT_EQ(record->createSample(second, 1, 2, 3), 0);
    EXPECT_EQ(record->getOwnCPU(), 6000000);
    EXPECT_TRUE(record->isUpdated());
    PRBMaskLists::setClassMask("*");
    EXPECT_EQ(record->createSample(third, 1, 2, 3), 1);
    EXPECT_EQ(third.getNumericValueForStream(321), 6);
}

TEST_F(Frequency, aRemovedMethodGoesAtTheNextPollNotBefore) {
    call("a", 5000);
    call("b", 5000);
    vm.send.classUnload(vm.mainThread(), cls->id());
    EXPECT_EQ(worker->getMethodFrequencyTable()->entries(), 2u);
    EXPECT_TRUE(poll().empty());
    EXPECT_EQ(worker->getMethodFrequencyTable()->entries(), 0u);
}

TEST_F(Frequency, aRemovedRecordServesTheStackUntilItIsEmpty) {
    vm.send.methodEntry(*scripted, id("a"));
    call("b", 3000); // a's record is cached in its stack entry
    auto* record = recordOf(*worker, id("a"));
    worker->removeMethod(id("a"));
    poll();
    EXPECT_EQ(recordOf(*worker, id("a")), nullptr);
    PRBReclaimer::reclaim();
    PRBReclaimer::reclaim();
    call("b", 2000);
    EXPECT_EQ(record->getCalleeCPU(), 5000000); // still there, still charged
    vm.send.methodExit(*scripted, id("a"));
    EXPECT_EQ(PRBReclaimer::pending(), 1u);
    PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

TEST_F(Frequency, removalsOfAThreadThatNobodyPollsAreCarriedOutInTheEnd) {
    for (const char* name : {"a", "b"}) call(name, 10);
    vm.recorder().setRecording(false);
    worker->removeMethod(id("a"));
    for (int i = 0; i < 1001; ++i)
        worker->removeMethod(reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(i * 16 + 16)));
    EXPECT_EQ(recordOf(*worker, id("a")), nullptr);
    EXPECT_NE(recordOf(*worker, id("b")), nullptr);
}

TEST_F(Frequency, onlyOneMethodIsCalledBackAndNoneIsMade) {
    call("a", 5000);
    call("b", 5000);
    const auto records = poll(id("b"));
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0]->getMethodId(), id("b"));
    EXPECT_TRUE(poll(id("c")).empty());
    EXPECT_EQ(recordOf(*worker, id("c")), nullptr);
}

TEST_F(Frequency, theWalkStopsAtTheFirstZeroAndItsTimeIsKept) {
    for (const char* name : {"a", "b", "c"}) call(name, 5000);
    passWall(777000);
    EXPECT_EQ(poll().size(), 3u);
    EXPECT_EQ(PRBClock::toMicros(worker->getLastMethodDataTime()), wallUs.load());
    EXPECT_EQ(poll(nullptr, keepOne).size(), 1u);
}

TEST_F(Frequency, theCallbacksTimeIsInMilliseconds) {
    call("a", 5000);
    long long seen = 0;
    worker->getMethodUsageSamples(
        [](void* context, Record*, long long nowMs) {
            *static_cast<long long*>(context) = nowMs;
            return 1;
        },
        &seen, nullptr);
    EXPECT_EQ(seen, wallUs.load() / 1000);
}

TEST_F(Frequency, aRecordIsMadeOnce) {
    auto* record = worker->findMethodFrequency(id("a"));
    EXPECT_EQ(worker->findMethodFrequency(id("a")), record);
    EXPECT_EQ(worker->getMethodFrequencyTable()->entries(), 1u);
}

} // namespace
