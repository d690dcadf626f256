// The thread model's identity, counters and samples.
#include "data/PRBCThreadSample.h"
#include "runtime/PRBThreadSnapshot.h"
#include "tests/vm/runtime/RuntimeTest.h"

#include "core/PRBMemoryManager.h"

#include <atomic>
#include <climits>
#include <thread>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class Thread : public RuntimeTest {};

TEST_F(Thread, keepsWhatTheStartEventTold) {
    auto [scripted, model] = startThread("worker");
    EXPECT_EQ(model.getName(), "worker");
    EXPECT_EQ(model.getGroupName(), "workers");
    EXPECT_EQ(model.getParentName(), "boss");
    EXPECT_EQ(model.getThreadId(), scripted.id());
    EXPECT_EQ(model.getEnvId(), scripted.env());
    EXPECT_EQ(model.isThisBackgroundThread(), 0);
    EXPECT_EQ(model.getThreadState(), kThreadRunning);
    EXPECT_EQ(model.getStackDepth(), 0);
    EXPECT_EQ(model.getStackCapacity(), 500);
    EXPECT_EQ(model.getStackEntry(0), nullptr);
    EXPECT_EQ(model.getContentionTable(), nullptr);
    EXPECT_EQ(model.getTopMethodEntry(), nullptr);
    EXPECT_EQ(model.getNumWorkloadsRunning(), 0);
    EXPECT_EQ(model.isA(), 32740);
}

TEST_F(Thread, nullNamesAreEmpty) {
    PRBJavaThread thread(nullptr, nullptr, nullptr, nullptr, vm.env(), 0);
    EXPECT_EQ(thread.getName(), "");
    EXPECT_EQ(thread.getGroupName(), "");
    EXPECT_EQ(thread.getParentName(), "");
}

TEST_F(Thread, takesFiveHundredStackEntriesAndNamesItsLocks) {
    const auto before = PRBMemoryManager::getCurrentAllocation();
    const std::size_t created = vm.monitors().created().size();
    auto* thread = new PRBJavaThread("a", "b", "c", nullptr, vm.env(), 0);
    const auto after = PRBMemoryManager::getCurrentAllocation();
    EXPECT_GE(after - before, 500 * sizeof(PRBJavaThread::StackEntry));
    const Texts names = vm.monitors().created();
    EXPECT_THAT(Texts(names.begin() + static_cast<std::ptrdiff_t>(created), names.end()),
                ElementsAre("Thread Method Frequency Table", "PendingMethodRemoveQueueLock"));
    delete thread;
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
    if (sizeof(void*) == 4) {
        EXPECT_EQ(500 * sizeof(PRBJavaThread::StackEntry), 22000u);
    }
}

TEST_F(Thread, onlyTheSamplersThreadIsABackgroundThread) {
    EXPECT_EQ(startThread("PRB_CPUSampler_Thread").model.isThisBackgroundThread(), 1);
    EXPECT_EQ(startThread("PRB_CPUSampler_Thread2").model.isThisBackgroundThread(), 0);
}

TEST_F(Thread, isIdentifiedByItsEnvironmentAlone) {
    auto [scripted, model] = startThread("worker");
    PRBJavaThread key(scripted.env());
    EXPECT_TRUE(model.isEqual(&key));
    EXPECT_EQ(model.hash(), key.hash());
    PRBJavaThread other(vm.env());
    EXPECT_FALSE(model.isEqual(&other));
    PRBCollectable plain;
    EXPECT_FALSE(model.isEqual(&plain));
    EXPECT_FALSE(model.isEqual(nullptr));
}

TEST_F(Thread, aKeyWithoutEnvironmentTakesTheCallersAndKeepsIt) {
    auto [scripted, model] = startThread("worker");
    PRBJavaThread key(static_cast<JNIEnv*>(nullptr));
    scripted.run([&, m = &model] {
        EXPECT_EQ(key.getThreadEnvId(), m->getEnvId());
        EXPECT_TRUE(m->isEqual(&key));
    });
    EXPECT_EQ(key.getThreadEnvId(), scripted.env()); // although another thread asks now
    scripted.run([&] { EXPECT_EQ(PRBJavaThread::getEnvIdForCurrentThread(), scripted.env()); });
    EXPECT_EQ(vm.recorder().count("GetEnv"), 2u);
}

TEST_F(Thread, aRetiredThreadIsItsOwnIdentity) {
    auto [scripted, model] = startThread("worker");
    PRBJavaThread ended("x", "x", "x", nullptr, scripted.env(), 0);
    EXPECT_TRUE(ended.isEqual(&model));
    ended.retire();
    EXPECT_FALSE(ended.isEqual(&model));
    EXPECT_FALSE(model.isEqual(&ended));
    EXPECT_TRUE(ended.isEqual(&ended));
    EXPECT_EQ(ended.getEnvId(), scripted.env());
}

struct SpanRow {
    timeval start, end;
    long long ns;
};
TEST_F(Thread, spansAreNanosecondsWithABorrowedSecond) {
    const SpanRow rows[] = {
        {{10, 0}, {10, 1}, 1000},
        {{10, 999999}, {11, 0}, 1000},
        {{10, 500000}, {12, 400000}, 1900000000LL},
        {{10, 0}, {9, 999999}, -1000},
        {{0, 0}, {2147483647, 999999}, 2147483647999999000LL},
        {{-2147483647, 0}, {2147483647, 0}, 4294967294LL * 1000000000},
    };
    for (const SpanRow& row : rows) EXPECT_EQ(PRBJavaThread::TimeSpan(row.start, row.end), row.ns);
}

TEST_F(Thread, allocationsAndFreesStopAtZero) {
    auto [scripted, model] = startThread("worker");
    model.heapAllocation(100);
    model.heapAllocation(50);
    model.heapFree(120);
    auto counters = model.getCounters();
    EXPECT_EQ(counters.bytesAllocated, 150);
    EXPECT_EQ(counters.allocationCount, 2);
    EXPECT_EQ(counters.netObjects, 1);
    EXPECT_EQ(counters.liveBytes, 30);
    model.heapFree(31); // more than is live
    model.heapFree(30);
    counters = model.getCounters();
    EXPECT_EQ(counters.netObjects, 0);
    EXPECT_EQ(counters.liveBytes, 0);
}

TEST_F(Thread, allocationsThatAnotherThreadReportsCountLikeItsOwn) {
    auto [scripted, model] = startThread("worker");
    model.heapAllocation(100); // this thread, then the worker
    scripted.run([m = &model] { m->heapAllocation(50); });
    model.heapAllocation(1);
    const auto counters = model.getCounters();
    EXPECT_EQ(counters.bytesAllocated, 151);
    EXPECT_EQ(counters.allocationCount, 3);
    EXPECT_EQ(counters.netObjects, 3);
    EXPECT_EQ(counters.liveBytes, 151);
}

TEST_F(Thread, samplesTakenWhileItAllocatesAddUpToWhatItAllocated) {
    auto [scripted, model] = startThread("worker");
    collect(PRBCollect::kHeapAllocation);
    constexpr int kEach = 20000;
    std::atomic<bool> done{false};
    long long objects = 0, bytes = 0, net = 0;
    std::thread poller([&, m = &model] {
        for (bool last = false; !last;) {
            last = done.load();
            PRBCThreadSample sample;
            m->createSample(sample, 0, 0);
            objects += sample.getNumericValueForStream(308);
            bytes += sample.getNumericValueForStream(309);
            net += sample.getNumericValueForStream(340);
        }
    });
    std::thread other([m = &model] {
        for (int i = 0; i < kEach; ++i) m->heapAllocation(3);
    });
    for (int i = 0; i < kEach; ++i) model.heapAllocation(5);
    other.join();
    done = true;
    poller.join();
    EXPECT_EQ(objects, 2 * kEach);
    EXPECT_EQ(bytes, 8LL * kEach);
    EXPECT_EQ(net, 2 * kEach);
    EXPECT_EQ(model.getCounters().liveBytes, 8LL * kEach);
}

TEST_F(Thread, aFreeAfterASampleDoesNotMakeTheNetCountNegative) {
    auto [scripted, model] = startThread("worker");
    collect(PRBCollect::kHeapAllocation);
    model.heapAllocation(10);
    PRBCThreadSample sample;
    model.createSample(sample, 0, 0);
    model.heapFree(10);
    EXPECT_EQ(model.getCounters().netObjects, 0);
    EXPECT_EQ(model.getCounters().liveBytes, 0);
    model.heapAllocation(10);
    EXPECT_EQ(model.getCounters().netObjects, 1);
}

// Beside its method stack, that is: servers have thousands of threads.
TEST_F(Thread, aThreadThatWasSeenInOneMethodCostsLittle) {
    auto [scripted, model] = startThread("worker");
    ScriptedClass& cls = makeClass("com/x/A", {"run"});
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    model.findMethodFrequency(cls.methodId("run"));
    EXPECT_LT(PRBMemoryManager::getCurrentAllocation() - before, 1500u);
}

TEST_F(Thread, anAllocationIsChargedToAnExistingRecordOnly) {
    auto [scripted, model] = startThread("worker");
    ScriptedClass& cls = makeClass("com/x/A", {"run", "other"});
    scripted.setFrames({{1, cls.methodId("run")}});
    auto* run = model.findMethodFrequency(cls.methodId("run"));
    scripted.run([&, m = &model] { m->heapAllocation(10); }); // methods are not collected
    EXPECT_EQ(run->getAllocationCount(), 0);
    collect(PRBCollect::kMethods);
    scripted.run([&, m = &model] { m->heapAllocation(10); });
    EXPECT_EQ(run->getAllocationCount(), 1);
    EXPECT_EQ(run->getAllocatedBytes(), 10);
    scripted.setFrames({{1, cls.methodId("other")}});
    scripted.run([&, m = &model] { m->heapAllocation(10); });
    EXPECT_EQ(recordOf(model, cls.methodId("other")), nullptr);
}

TEST_F(Thread, aSampleAlwaysCarriesTimeNamesIdAndSamples) {
    auto [scripted, model] = startThread("worker");
    passWall(5432);
    PRBCThreadSample sample;
    EXPECT_EQ(model.createSample(sample, 77, 99), 1);
    EXPECT_EQ(sample.getNumericValueForStream(314), 1000000000005LL);
    EXPECT_EQ(sample.getStringData(301), "worker");
    EXPECT_EQ(sample.getStringData(302), "workers");
    EXPECT_EQ(sample.getStringData(303), "boss");
    EXPECT_EQ(sample.getNumericValueForStream(2),
              static_cast<long long>(reinterpret_cast<std::uintptr_t>(scripted.id())));
    EXPECT_EQ(sample.getNumericValueForStream(310), 77);
    EXPECT_EQ(sample.getNumericValueForStream(315), 99);
    for (int key : {311, 312, 313}) EXPECT_EQ(sample.getNumericValueForStream(key), 0) << key;
    for (int key : {304, 305, 306, 307, 308, 309, 340})
        EXPECT_EQ(sample.getNumericValueForStream(key), -1) << key;
    const timeval last = model.getLastSampleTime();
    EXPECT_EQ(PRBClock::toMicros(last), wallUs.load());
}

TEST_F(Thread, contentionKeysComeWithTheirBitAndAreThenZero) {
    auto [scripted, model] = startThread("worker");
    for (int i = 0; i < 2; ++i) {
        vm.send.monitorContendedEnter(scripted, nullptr);
        passWall(3000);
        vm.send.monitorContendedEntered(scripted, nullptr);
    }
    vm.send.monitorWait(scripted, nullptr, 0);
    passWall(8000);
    vm.send.monitorWaited(scripted, nullptr, 0);

    PRBCThreadSample without;
    model.createSample(without, 0, 0);
    EXPECT_EQ(without.getNumericValueForStream(304), -1);
    collect(PRBCollect::kContention);
    PRBCThreadSample first;
    model.createSample(first, 0, 0);
    EXPECT_EQ(first.getNumericValueForStream(304), 2);
    EXPECT_EQ(first.getNumericValueForStream(305), 6);
    EXPECT_EQ(first.getNumericValueForStream(306), 1);
    EXPECT_EQ(first.getNumericValueForStream(307), 8);
    PRBCThreadSample second;
    model.createSample(second, 0, 0);
    for (int key : {304, 305, 306, 307}) EXPECT_EQ(second.getNumericValueForStream(key), 0) << key;
}

TEST_F(Thread, heapKeysComeWithTheirBitAndLiveBytesAreKept) {
    auto [scripted, model] = startThread("worker");
    model.heapAllocation(100);
    model.heapAllocation(20);
    model.heapFree(20);
    collect(PRBCollect::kHeapAllocation);
    PRBCThreadSample first;
    model.createSample(first, 0, 0);
    EXPECT_EQ(first.getNumericValueForStream(308), 2);
    EXPECT_EQ(first.getNumericValueForStream(309), 120);
    EXPECT_EQ(first.getNumericValueForStream(340), 1);
    PRBCThreadSample second;
    model.createSample(second, 0, 0);
    for (int key : {308, 309, 340}) EXPECT_EQ(second.getNumericValueForStream(key), 0) << key;
    EXPECT_EQ(model.getCounters().liveBytes, 100);
}

TEST_F(Thread, timesAreDividedByTheSimulatedSampleAndThenZero) {
    auto [scripted, model] = startThread("worker");
    ScriptedClass& cls = makeClass("com/x/A", {"run"});
    collect(PRBCollect::kMethods);
    vm.send.methodEntry(scripted, cls.methodId("run"));
    compute(scripted, 5999);
    vm.send.methodExit(scripted, cls.methodId("run"));
    vm.send.monitorContendedEnter(scripted, nullptr);
    passWall(3000);
    vm.send.monitorContendedEntered(scripted, nullptr);
    vm.send.monitorWait(scripted, nullptr, 0);
    passWall(8000);
    vm.send.monitorWaited(scripted, nullptr, 0);
    PRBCThreadSample first;
    model.createSample(first, 0, 0);
    EXPECT_EQ(first.getNumericValueForStream(311), 5);
    EXPECT_EQ(first.getNumericValueForStream(312), 3);
    EXPECT_EQ(first.getNumericValueForStream(313), 8);
    PRBCThreadSample second;
    model.createSample(second, 0, 0);
    for (int key : {311, 312, 313}) EXPECT_EQ(second.getNumericValueForStream(key), 0) << key;
}

TEST_F(Thread, withoutAnIntervalTheDivisorCountsAsOne) {
    auto [scripted, model] = startThread("worker");
    PRBContext::setCPUSamplingInterval(0);
    model.countSampledContention();
    PRBCThreadSample sample;
    model.createSample(sample, 0, 0);
    EXPECT_EQ(sample.getNumericValueForStream(312), 1);
}

TEST_F(Thread, aSampleDuringABlockReportsThePartAndRestartsTheMeasurement) {
    collect(PRBCollect::kContention);
    struct Row {
        int key;
        bool wait;
    };
    for (const Row row : {Row{305, false}, Row{307, true}}) {
        auto [scripted, model] = startThread("worker");
        const auto begin = [&, s = &scripted] {
            row.wait ? vm.send.monitorWait(*s, nullptr, 0)
                     : vm.send.monitorContendedEnter(*s, nullptr);
        };
        begin();
        passWall(4000);
        PRBCThreadSample during;
        model.createSample(during, 0, 0);
        EXPECT_EQ(during.getNumericValueForStream(row.key), 4);
        EXPECT_EQ(during.getNumericValueForStream(row.wait ? 306 : 304), 0);
        passWall(7000);
        row.wait ? vm.send.monitorWaited(scripted, nullptr, 0)
                 : vm.send.monitorContendedEntered(scripted, nullptr);
        PRBCThreadSample after;
        model.createSample(after, 0, 0);
        EXPECT_EQ(after.getNumericValueForStream(row.key), 7);
        EXPECT_EQ(after.getNumericValueForStream(row.wait ? 306 : 304), 1);
    }
}

TEST_F(Thread, clearingKeepsNetCountAndLiveBytesAndEmptiesTheTables) {
    auto [scripted, model] = startThread("worker");
    model.clearCounters(); // there is no contention table yet
    ScriptedClass& cls = makeClass("com/x/A", {"run"});
    scripted.setFrames({{1, cls.methodId("run")}});
    auto& object = vm.allocate(scripted, cls, 16);
    vm.send.objectAlloc(scripted, object);
    vm.send.monitorContendedEnter(scripted, object.id);
    passWall(1000);
    vm.send.monitorContendedEntered(scripted, object.id);
    model.countSampledCpu();
    model.findMethodFrequency(cls.methodId("run"));
    ASSERT_NE(model.getContentionTable(), nullptr);
    ASSERT_EQ(model.getContentionTable()->entries(), 1u);
    model.clearCounters();
    EXPECT_EQ(model.getContentionTable()->entries(), 0u);
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 0u);
    const auto counters = model.getCounters();
    EXPECT_EQ(counters.contentionTime + counters.waitTime + counters.unsampledContention +
                  counters.unsampledWait + counters.cpuTime + counters.bytesAllocated +
                  counters.contentionCount + counters.waitCount + counters.allocationCount,
              0);
    EXPECT_EQ(counters.netObjects, 1);
    EXPECT_EQ(counters.liveBytes, 16);
}

TEST_F(Thread, workloadsAnswerTheNewCountAndMayGoBelowZero) {
    auto [scripted, model] = startThread("worker");
    EXPECT_EQ(model.workloadRunning(), 1);
    EXPECT_EQ(model.workloadRunning(), 2);
    EXPECT_EQ(model.workloadDone(), 1);
    EXPECT_EQ(model.workloadDone(), 0);
    EXPECT_EQ(model.workloadDone(), -1);
    EXPECT_EQ(model.getNumWorkloadsRunning(), -1);
}

TEST_F(Thread, statesAreOneToFour) {
    auto [scripted, model] = startThread("worker");
    for (int state = 1; state <= 4; ++state) {
        model.setThreadState(static_cast<_ThreadState>(state));
        EXPECT_EQ(static_cast<int>(model.getThreadState()), state);
    }
}

TEST_F(Thread, sampledCpuCountsInTheLowWordWithoutCarry) {
    auto [scripted, model] = startThread("worker");
    setSamplerIdle(0);
    for (int i = 0; i < 3; ++i) model.countSampledCpu();
    PRBCThreadSample sample;
    model.createSample(sample, 0, 0);
    EXPECT_EQ(sample.getNumericValueForStream(311), 3); // counts, not nanoseconds

    ScriptedClass& cls = makeClass("com/x/A", {"run"});
    collect(PRBCollect::kMethods);
    vm.send.methodEntry(scripted, cls.methodId("run"));
    scripted.advanceCpuTime(0xFFFFFFFFLL / 1000 * 1000);
    passWall(10000000);
    vm.send.methodExit(scripted, cls.methodId("run"));
    const long long rest = 0xFFFFFFFFLL - 0xFFFFFFFFLL / 1000 * 1000;
    for (long long i = 0; i < rest; ++i) model.countSampledCpu();
    EXPECT_EQ(model.getCounters().cpuTime, 0xFFFFFFFFLL);
    model.countSampledCpu();
    EXPECT_EQ(model.getCounters().cpuTime, 0);
}

class ThreadDebug : public RuntimeTest {
    void SetUp() override { startAgent("debug=PUBLIC"); }
};

TEST_F(ThreadDebug, constructionDumpsTheNamesAndTellsTheIds) {
    auto [scripted, model] = startThread("alpha");
    const std::string log = readLog();
    const auto name = log.find("New thread name follows");
    const auto dump = log.find("alpha");
    const auto group = log.find("New group name follows");
    const auto groupDump = log.find("workers");
    const auto parent = log.find("New parent name follows");
    const auto parentDump = log.find("boss");
    EXPECT_LT(name, dump);
    EXPECT_LT(dump, group);
    EXPECT_LT(group, groupDump);
    EXPECT_LT(groupDump, parent);
    EXPECT_LT(parent, parentDump);
    EXPECT_NE(parentDump, std::string::npos);
    char text[200];
    std::snprintf(text, sizeof text,
                  "New thread %lX discovered. ThreadEnvId = %lX   ThreadId = %lX",
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(&model)),
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(scripted.env())),
                  static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(scripted.id())));
    EXPECT_EQ(logCount(text), 1u);
}

TEST_F(Thread, aSnapshotFindsLiveThreadsByEnvironmentAndEndedOnesByAddress) {
    auto [one, modelOne] = startThread("one");
    auto [two, modelTwo] = startThread("two");
    PRBThreadSnapshot::Reader before;
    EXPECT_EQ(before.findLive(one.env()), &modelOne);
    EXPECT_TRUE(PRBThreadSnapshot::isLive(&modelTwo));
    EXPECT_FALSE(PRBThreadSnapshot::isLive(reinterpret_cast<PRBJavaThread*>(&before)));
    vm.send.threadEnd(two);
    PRBThreadSnapshot::Reader after;
    EXPECT_EQ(after.findLive(two.env()), nullptr);
    EXPECT_EQ(before.findLive(two.env()), nullptr); // the state counts, not the time of the view
    EXPECT_TRUE(PRBThreadSnapshot::isLive(&modelTwo));
    PRBMonitorGlobal::getMonitorGlobal()->purgeEndedThreads();
    EXPECT_FALSE(PRBThreadSnapshot::isLive(&modelTwo));
    EXPECT_EQ(modelTwo.getName(), "two"); // the readers still hold it
    EXPECT_EQ(PRBThreadSnapshot::Reader().size() + 1, after.size());
}

TEST_F(Thread, aPurgedThreadIsDeletedWhenTheLastReaderHasGone) {
    auto [two, model] = startThread("two");
    const auto destroyed = [&] {
        return vm.recorder().count("RawMonitorDestroy(PendingMethodRemoveQueueLock)");
    };
    const auto before = destroyed();
    {
        PRBThreadSnapshot::Reader reader;
        vm.send.threadEnd(two);
        PRBMonitorGlobal::getMonitorGlobal()->purgeEndedThreads();
        PRBReclaimer::reclaim();
        EXPECT_EQ(destroyed(), before);
    }
    PRBReclaimer::reclaim();
    PRBReclaimer::reclaim();
    EXPECT_EQ(destroyed(), before + 1);
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

} // namespace
