// Blocks on monitors: the thread's figures, the records and the samples.
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "tests/vm/runtime/RuntimeTest.h"

namespace {

using Event = PRBJavaThread::MonitorContentionEvent;

class Contention : public RuntimeTest {
protected:
    void SetUp() override {
        RuntimeTest::SetUp();
        prepare();
    }
    void prepare() {
        collect(PRBCollect::kContention);
        cls = &makeClass("com/x/A", {"a", "b"});
        lock = &makeClass("com/x/Lock", {"l"});
        worker = &startThread("worker").model;
        scripted = vm.findThread("worker");
        runIn("a");
        object = &vm.allocate(*scripted, *lock, 16);
        vm.send.objectAlloc(*scripted, *object);
    }
    jmethodID id(const char* name) const { return cls->methodId(name); }
    void runIn(const char* name) { scripted->setFrames({{1, id(name)}}); }
    void enter() { vm.send.monitorContendedEnter(*scripted, object->id); }
    void entered() { vm.send.monitorContendedEntered(*scripted, object->id); }
    void wait() { vm.send.monitorWait(*scripted, object->id, 0); }
    void waited() { vm.send.monitorWaited(*scripted, object->id, 0); }
    void block(long long us) {
        enter();
        passWall(us);
        entered();
    }
    Event* event(const char* method = "a") {
        if (worker->getContentionTable() == nullptr) return nullptr;
        Event key(lock->id(), id(method));
        return static_cast<Event*>(worker->getContentionTable()->find(&key));
    }
    static long long sent(const PRBContentionSample& sample, unsigned key) {
        return sample.getNumericValueForStream(key);
    }

    ScriptedClass* cls = nullptr;
    ScriptedClass* lock = nullptr;
    scripted::ScriptedObject* object = nullptr;
    PRBJavaThread* worker = nullptr;
    ScriptedThread* scripted = nullptr;
};

TEST_F(Contention, aBlockSetsStateClassAndMethod) {
    enter();
    EXPECT_EQ(worker->getThreadState(), kThreadContended);
    EXPECT_EQ(worker->getContendedClassId(), lock->id());
    EXPECT_EQ(worker->getContendedMethod(), id("a"));
    entered();
    EXPECT_EQ(worker->getThreadState(), kThreadRunning);
    EXPECT_EQ(worker->getContendedClassId(), nullptr);
    EXPECT_EQ(worker->getContendedMethod(), nullptr);
    wait();
    EXPECT_EQ(worker->getThreadState(), kThreadWaiting);
    EXPECT_EQ(worker->getContendedClassId(), lock->id());
    waited();
    EXPECT_EQ(worker->getThreadState(), kThreadRunning);
}

TEST_F(Contention, aRecordNeedsBothClassAndMethod) {
    vm.send.monitorContendedEnter(*scripted, nullptr);
    entered();
    EXPECT_EQ(worker->getContentionTable(), nullptr);
    scripted->setFrames({});
    block(1000);
    EXPECT_EQ(worker->getContentionTable(), nullptr);
    EXPECT_EQ(worker->getCounters().contentionCount, 2); // the thread's figures count them all
}

TEST_F(Contention, theTableIsMadeAtTheFirstRecord) {
    const auto made = [&] {
        const Texts names = vm.monitors().created();
        return std::count(names.begin(), names.end(), "_Contention_Table");
    };
    EXPECT_EQ(made(), 0);
    block(1000);
    block(1000);
    EXPECT_EQ(made(), 1);
    EXPECT_EQ(worker->getContentionTable()->entries(), 1u);
}

TEST_F(Contention, blocksOfOneClassInOneMethodShareARecord) {
    auto& second = vm.allocate(*scripted, *lock, 16);
    vm.send.objectAlloc(*scripted, second);
    block(2000);
    vm.send.monitorContendedEnter(*scripted, second.id);
    passWall(3000);
    vm.send.monitorContendedEntered(*scripted, second.id);
    EXPECT_EQ(event()->getContentionCount(), 2);
    EXPECT_EQ(event()->getContentionTime(), 5000000);
    runIn("b");
    block(4000);
    EXPECT_EQ(worker->getContentionTable()->entries(), 2u);
    EXPECT_EQ(event("b")->getContentionTime(), 4000000);
    EXPECT_EQ(event("a")->getContentionTime(), 5000000);
}

TEST_F(Contention, anEndWithoutItsBeginningChangesNoCounter) {
    entered();
    waited();
    enter();
    passWall(1000);
    waited(); // of another kind
    EXPECT_EQ(worker->getCounters().contentionCount, 0);
    EXPECT_EQ(worker->getCounters().waitCount, 0);
    EXPECT_EQ(worker->getContendedClassId(), nullptr);
    EXPECT_EQ(worker->getContendedMethod(), nullptr);
    EXPECT_EQ(worker->getThreadState(), kThreadContended);
    EXPECT_TRUE(event()->isClockRunning());
}

TEST_F(Contention, countsAndTimesAreAdded) {
    block(2000);
    block(3000);
    wait();
    passWall(7000);
    waited();
    const auto counters = worker->getCounters();
    EXPECT_EQ(counters.contentionCount, 2);
    EXPECT_EQ(counters.contentionTime, 5000000);
    EXPECT_EQ(counters.waitCount, 1);
    EXPECT_EQ(counters.waitTime, 7000000);
    EXPECT_EQ(event()->getContentionCount(), 2);
    EXPECT_EQ(event()->getContentionTime(), 5000000);
    EXPECT_EQ(event()->getWaitCount(), 1);
    EXPECT_EQ(event()->getWaitTime(), 7000000);
    EXPECT_FALSE(event()->isClockRunning());
}

TEST_F(Contention, whileTheSamplerIsActiveItAloneCountsUnsampledTime) {
    worker->createNewInstrumentedProfilingEntry(vm.env(), nullptr, nullptr);
    worker->workloadRunning();
    setSamplerIdle(0);
    block(2000);
    EXPECT_EQ(worker->getCounters().unsampledContention, 0);
    EXPECT_EQ(worker->getTopMethodEntry()->getNumSamplesContention(), 0);
    EXPECT_EQ(worker->getTopMethodEntry()->getContentionEvents(), 1);
    EXPECT_EQ(worker->getTopMethodEntry()->getContentionTime(), 2000000);
}

// A block may end while the sampler goes active: having seen it off, the thread adds its
// nanoseconds after the sampler has forgotten those of all threads.
TEST_F(Contention, nanosecondsThatComeAfterTheSamplerWentActiveAreNotSamples) {
    block(2000);
    wait();
    passWall(3000);
    waited();
    setSamplerIdle(0);
    for (int i = 0; i < 2; ++i) worker->countSampledContention();
    worker->countSampledWait();
    PRBCThreadSample active;
    worker->createSample(active, 0, 0);
    EXPECT_EQ(active.getNumericValueForStream(312), 2);
    EXPECT_EQ(active.getNumericValueForStream(313), 1);
    setSamplerIdle(1);
    PRBCThreadSample after;
    worker->createSample(after, 0, 0);
    EXPECT_EQ(after.getNumericValueForStream(312), 0);
    EXPECT_EQ(after.getNumericValueForStream(313), 0);
}

TEST_F(Contention, aWaitOnNothingCountsAsAWaitWithoutARecord) {
    scripted->setFrames({{1, id("a")}});
    vm.recorder().clear();
    vm.send.monitorWait(*scripted, nullptr, 0);
    passWall(3000);
    vm.send.monitorWaited(*scripted, nullptr, 0);
    EXPECT_EQ(worker->getCounters().waitCount, 1);
    EXPECT_EQ(worker->getCounters().waitTime, 3000000);
    EXPECT_EQ(worker->getContentionTable(), nullptr);
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u); // nobody is asked for the class of null
}

TEST_F(Contention, withoutTheSamplerTheTopEntryGetsTheLowWordDuringAWorkload) {
    worker->createNewInstrumentedProfilingEntry(vm.env(), nullptr, nullptr);
    auto* top = worker->getTopMethodEntry();
    block(2000);
    EXPECT_EQ(worker->getCounters().unsampledContention, 2000000);
    EXPECT_EQ(top->getNumSamplesContention(), 0); // no workload
    worker->workloadRunning();
    block(5000000); // 5e9 ns: more than 32 bits
    EXPECT_EQ(top->getNumSamplesContention(), static_cast<int>(5000000000LL & 0xFFFFFFFF));
    wait();
    passWall(3000);
    waited();
    EXPECT_EQ(top->getNumSamplesWait(), 3000000);
    EXPECT_EQ(worker->getCounters().unsampledWait, 3000000);
    EXPECT_EQ(top->getContentionEvents(), 2);
    EXPECT_EQ(top->getContentionTime(), 5002000000LL);
    EXPECT_EQ(top->getWaitEvents(), 1);
    EXPECT_EQ(top->getWaitTime(), 3000000);
}

TEST_F(Contention, aRecordMeasuresFromItsOwnStart) {
    enter();
    passWall(4000);
    PRBContentionSample sample;
    event()->createSample(sample, 1);
    passWall(1500);
    entered();
    EXPECT_EQ(event()->getContentionTime(), 1500000);
    EXPECT_EQ(worker->getCounters().contentionTime, 5500000); // the thread's own span
}

TEST_F(Contention, theMethodsRecordIsChargedWithTheThreadsSpanIfThereIsOne) {
    collect(PRBCollect::kContention | PRBCollect::kMethods);
    block(2000);
    EXPECT_EQ(recordOf(*worker, id("a")), nullptr);
    auto* record = worker->findMethodFrequency(id("a"));
    enter();
    passWall(4000);
    PRBContentionSample sample;
    event()->createSample(sample, 1);
    passWall(1000);
    entered();
    EXPECT_EQ(record->getContentionCount(), 1);
    EXPECT_EQ(record->getContentionTime(), 5000000);
    wait();
    passWall(2000);
    waited();
    EXPECT_EQ(record->getWaitTime(), 2000000);
    collect(PRBCollect::kContention);
    block(1000);
    EXPECT_EQ(record->getContentionCount(), 1);
}

TEST_F(Contention, aSampleDuringABlockReportsThePartAndTheNextTheRest) {
    wait();
    passWall(6000);
    PRBContentionSample first;
    EXPECT_EQ(event()->createSample(first, 1), 1);
    EXPECT_EQ(sent(first, 307), 6);
    EXPECT_EQ(sent(first, 306), 0);
    EXPECT_EQ(sent(first, 305), 0);
    passWall(9000);
    waited();
    PRBContentionSample second;
    EXPECT_EQ(event()->createSample(second, 1), 1);
    EXPECT_EQ(sent(second, 307), 9);
    EXPECT_EQ(sent(second, 306), 1);
}

TEST_F(Contention, aSampleCarriesNamesAndFiguresAndZeroesThem) {
    block(2000);
    wait();
    passWall(3000);
    waited();
    PRBContentionSample sample;
    EXPECT_EQ(event()->createSample(sample, 4711), 1);
    EXPECT_EQ(sample.getStringData(10), "com/x/A");
    EXPECT_EQ(sample.getStringData(11), "a");
    EXPECT_EQ(sample.getStringData(320), "()V");
    EXPECT_EQ(sample.getStringData(330), "com/x/Lock");
    EXPECT_EQ(sent(sample, 314), 4711);
    EXPECT_EQ(sent(sample, 304), 1);
    EXPECT_EQ(sent(sample, 305), 2);
    EXPECT_EQ(sent(sample, 306), 1);
    EXPECT_EQ(sent(sample, 307), 3);
    PRBContentionSample again;
    EXPECT_EQ(event()->createSample(again, 1), 1);
    for (unsigned key : {304, 305, 306, 307}) EXPECT_EQ(sent(again, key), 0) << key;
}

TEST_F(Contention, aMonitorOfTheMethodsOwnClassNeedsNoLookUp) {
    Event own(cls->id(), id("a"));
    timeval now = PRBClock::now();
    own.startTheClock(kContendedEnter, now);
    own.stopTheClock(kContendedEnter, now);
    PRBContentionSample sample;
    vm.recorder().clear();
    EXPECT_EQ(own.createSample(sample, 1), 1);
    EXPECT_EQ(sample.getStringData(330), "com/x/A");
    EXPECT_EQ(vm.jvmpiCalls(), Texts{});
}

TEST_F(Contention, anUnknownMonitorClassIsRequestedWithCollectionsDisabled) {
    ScriptedClass& late = makeClass("com/x/Late", {"l"}, false);
    Event event(late.id(), id("a"));
    vm.monitors().forbidVmCallsHolding({"_ClassTable", "_MethodTable", "_Contention_Table"});
    PRBContentionSample sample;
    vm.recorder().clear();
    EXPECT_EQ(event.createSample(sample, 1), 1);
    EXPECT_EQ(vm.recorder().textsOf({"DisableGC", "EnableGC"}),
              (Texts{"DisableGC()", "EnableGC()"}));
    const auto calls = vm.recorder().calls(scripted::kJvmpi);
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].name, "DisableGC");
    EXPECT_EQ(calls[1].name, "RequestEvent");
    EXPECT_EQ(calls[2].name, "EnableGC");
    EXPECT_EQ(sample.getStringData(330), "com/x/Late");
    vm.recorder().clear();
    event.createSample(sample, 1); // known now
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 0u);
}

TEST_F(Contention, aRefusedRequestLeavesTheMonitorUnnamedAndIsRepeated) {
    Event event(vm.unknownId(), id("a"));
    for (int i = 1; i <= 2; ++i) {
        PRBContentionSample sample;
        EXPECT_EQ(event.createSample(sample, 1), 1);
        EXPECT_EQ(sample.getStringData(330), "");
        EXPECT_EQ(vm.recorder().count("RequestEvent"), static_cast<std::size_t>(i));
    }
    EXPECT_EQ(vm.recorder().count("DisableGC()"), vm.recorder().count("EnableGC()"));
}

TEST_F(Contention, anUnknownOrUnmonitoredMethodKeepsItsCounters) {
    block(2000);
    PRBMaskLists::setClassMask("com/y/*");
    PRBContentionSample sample;
    EXPECT_EQ(event()->createSample(sample, 1), 0);
    EXPECT_EQ(sample.getStringData(10), "");
    EXPECT_EQ(sent(sample, 314), -1);
    EXPECT_EQ(event()->getContentionCount(), 1);
    EXPECT_EQ(event()->getContentionTime(), 2000000);
    Event unknown(lock->id(), reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x440)));
    timeval now = PRBClock::now();
    unknown.startTheClock(kContendedEnter, now);
    passWall(10);
    now = PRBClock::now();
    unknown.stopTheClock(kContendedEnter, now);
    EXPECT_EQ(unknown.createSample(sample, 1), 0);
    EXPECT_EQ(unknown.getContentionCount(), 1);
}

TEST_F(Contention, theWalkStopsAtZeroAndItsTimeIsKept) {
    const auto walk = [&](PRBJavaThread::ContentionCallback callback) {
        int calls = 0;
        worker->getContentionSamples(callback, &calls);
        return calls;
    };
    const auto go = [](void* context, Event*, long long nowMs) {
        EXPECT_EQ(nowMs, wallUs.load() / 1000);
        ++*static_cast<int*>(context);
        return 1;
    };
    const auto stop = [](void* context, Event*, long long) {
        ++*static_cast<int*>(context);
        return 0;
    };
    EXPECT_EQ(walk(go), 0); // no table yet
    block(1000);
    runIn("b");
    block(1000);
    passWall(5000);
    EXPECT_EQ(walk(go), 2);
    EXPECT_EQ(PRBClock::toMicros(worker->getLastContentionDataTime()), wallUs.load());
    EXPECT_EQ(walk(stop), 1);
}

TEST_F(Contention, aRecordIsIdentifiedByMonitorClassAndMethod) {
    Event one(lock->id(), id("a")), same(lock->id(), id("a"));
    Event method(lock->id(), id("b")), monitor(cls->id(), id("a"));
    EXPECT_EQ(one.isA(), 32739);
    EXPECT_TRUE(one.isEqual(&same));
    EXPECT_FALSE(one.isEqual(&method));
    EXPECT_FALSE(one.isEqual(&monitor));
    EXPECT_EQ(one.hash(), method.hash()); // by the monitor's class
    EXPECT_FALSE(one.isEqual(worker));
    EXPECT_EQ(Event().getMethodId(), nullptr);
}

TEST_F(Contention, aClockThatDoesNotRunStopsWithoutEffect) {
    Event event(lock->id(), id("a"));
    timeval now = PRBClock::now();
    event.stopTheClock(kContendedEnter, now);
    EXPECT_EQ(event.getContentionCount(), 0);
}

TEST_F(Contention, aClockThatJumpedBackIsAddedAsItIs) {
    enter();
    passWall(-3000);
    entered();
    EXPECT_EQ(worker->getCounters().contentionTime, -3000000);
    EXPECT_EQ(worker->getCounters().contentionCount, 1);
}

// A trace class that no start-up text sets.
class ContentionInternalTrace : public Contention {};
TEST_F(ContentionInternalTrace, aRefusedRequestIsToldByItsResult) {
    PRBTrace::level = PRBTraceClass::kInternal;
    Event event(vm.unknownId(), id("a"));
    PRBContentionSample sample;
    const std::pair<int, const char*> rows[] = {
        {-1, "createSample RequestEvent JVMPI_EVENT_CLASS_LOAD returned JVMPI_FAIL"},
        {1, "createSample RequestEvent JVMPI_EVENT_CLASS_LOAD returned JVMPI_NOT_AVAILABLE"},
        {5, "createSample RequestEvent JVMPI_EVENT_CLASS_LOAD returned Unknown Error"},
    };
    for (auto [result, text] : rows) {
        vm.recorder().failNext("RequestEvent", result);
        EXPECT_EQ(event.createSample(sample, 1), 1);
        EXPECT_EQ(logCount(text), 1u) << text;
    }
    PRBTrace::level = PRBTraceClass::kMain;
    vm.recorder().failNext("RequestEvent", -1);
    event.createSample(sample, 1);
    EXPECT_EQ(logCount(rows[0].second), 1u); // silent without that class
    PRBTrace::level = 0;
}

} // namespace
