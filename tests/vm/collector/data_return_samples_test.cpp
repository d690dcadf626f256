// Polls: what each kind of sample carries, and what the collector asks of Java.
#include "tests/vm/collector/DataReturnTest.h"

#include <unistd.h>

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

namespace {

// ---- thread, method and contention samples ----

TEST_F(DataReturn, threadSamplesCarryProcessAndProcessCpu) {
    scripted::ScriptedThread& worker = startSampling(0x600);
    const auto records = ofThread(worker, pollOf(kThread));
    ASSERT_EQ(typesOf(records), (std::vector<int>{kThread}));
    EXPECT_EQ(records[0].number(2), idOf(worker));
    EXPECT_EQ(records[0].number(4), getpid());
    EXPECT_EQ(records[0].number(316), collector().getDataReturn().getProcessCPUAtLastReturn());
    EXPECT_GE(records[0].number(316), 0);
    EXPECT_EQ(records[0].number(310), 1) << "busy samples of all threads";
    EXPECT_EQ(records[0].number(315), 1) << "cycles";
    EXPECT_EQ(records[0].number(311), 1) << "busy samples of the thread";
    EXPECT_EQ(records[0].text(301), "worker");
}

TEST_F(DataReturn, methodSamplesCarryThreadAndProcess) {
    scripted::ScriptedThread& worker = startSampling(0x600);
    const auto records = pollOf(kMethod);
    ASSERT_EQ(typesOf(records), (std::vector<int>{kMethod}));
    EXPECT_EQ(records[0].number(2), idOf(worker));
    EXPECT_EQ(records[0].number(4), getpid());
    EXPECT_EQ(records[0].text(10), "com/x/Order");
    EXPECT_EQ(records[0].text(11), "price");
    EXPECT_EQ(records[0].text(320), "()V");
    EXPECT_EQ(records[0].number(310), 1);
    EXPECT_EQ(records[0].number(315), 1);
    EXPECT_EQ(records[0].number(321), 1);
}

TEST_F(DataReturn, contentionSamplesCarryThreadAndProcess) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& worker = startWorker("worker", order.methodId("price"));
    vm.send.classLoad(worker, order);
    start(0x800);
    block(worker, 20);
    const auto records = poll();
    ASSERT_EQ(typesOf(records), (std::vector<int>{kContention}));
    EXPECT_EQ(records[0].number(2), idOf(worker));
    EXPECT_EQ(records[0].number(4), getpid());
    EXPECT_EQ(records[0].text(10), "com/x/Order");
    EXPECT_EQ(records[0].text(11), "price");
    EXPECT_EQ(records[0].text(330), "com/x/Order");
}

TEST_F(DataReturn, theAgentsOwnThreadIsLeftOutOfEverything) {
    startSampling(0x600);
    scripted::ScriptedThread& own = vm.startThread({.name = "PRB_CPUSampler_Thread"});
    own.setFrames({{1, order.methodId("ship")}});
    runCycle();
    const auto records = poll();
    EXPECT_THAT(records, ::testing::Not(IsEmpty()));
    EXPECT_THAT(ofThread(own, records), IsEmpty());
    runCycle();
    auto& request = scripted::makeRequest(vm, 0x600, static_cast<jint>(idOf(own)));
    EXPECT_FALSE(pollBytes(&request).has_value());
}

TEST_F(DataReturn, theSnapshotOfThreadsTakesNoMonitorAndSkipsTheAgentsOwn) {
    ASSERT_NE(init(), 0);
    vm.startThread({.name = "one"});
    vm.startThread({.name = "PRB_CPUSampler_Thread"});
    scripted::ScriptedThread& two = vm.startThread({.name = "two"});
    vm.recorder().clear();
    const auto threads = collector().getDataReturn().getAllThreads();
    EXPECT_THAT(vm.monitorCalls(), IsEmpty());
    std::vector<std::string> names;
    for (PRBJavaThread* thread : *threads) names.push_back(thread->getName());
    EXPECT_THAT(names, ::testing::UnorderedElementsAre("main", "one", "two"));
    EXPECT_EQ(threads->entries(), 3U);
    ASSERT_NE(threads->findThread(two.id()), nullptr);
    EXPECT_EQ(threads->findThread(two.id())->getName(), "two");
    EXPECT_EQ(threads->findThread(nullptr), nullptr);
}

// ---- process CPU ----

TEST_F(DataReturn, theFirstPassKnowsNoProcessCpuSinceTheLast) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    PRBDataReturn& passes = collector().getDataReturn();
    EXPECT_EQ(passes.getProcessCPUAtLastReturn(), -1);
    poll();
    EXPECT_EQ(passes.getProcessCPUSinceLastReturn(), -1);
    const long long first = passes.getProcessCPUAtLastReturn();
    EXPECT_GE(first, 0);
    // Burn until the system's clock of ticks has moved.
    volatile unsigned sink = 0;
    while (passes.getProcessCPUAtLastReturn() == first) {
        for (unsigned i = 0; i < 1000000; ++i) sink = sink + i;
        poll();
        EXPECT_EQ(passes.getProcessCPUSinceLastReturn(),
                  passes.getProcessCPUAtLastReturn() - first);
    }
}

TEST_F(DataReturn, withoutAProcessIdProcessCpuIsNotSent) {
    startSampling(0x200);
    collector().setProcessId(0);
    const auto records = poll();
    ASSERT_THAT(records, ::testing::Not(IsEmpty()));
    for (const Record& r : records) {
        EXPECT_EQ(r.number(4), 0);
        EXPECT_FALSE(r.has(316));
    }
}

// ---- garbage collection and errors ----

TEST_F(DataReturn, collectionDataHasProcessAndTime) {
    ASSERT_NE(init(), 0);
    start(0x2000);
    wallClock = {1700000000, 999999};
    const auto records = poll();
    ASSERT_EQ(typesOf(records), (std::vector<int>{kGc}));
    EXPECT_EQ(records[0].number(4), getpid());
    EXPECT_EQ(records[0].number(314), 1700000000999LL);
}

TEST_F(DataReturn, everyPassAsksJavaOnceWhetherItCollectsTheDataItself) {
    ASSERT_NE(init(), 0);
    for (int type : {0, 0x2000, 0x80000}) {
        start(type);
        vm.recorder().clear();
        pollBytes();
        EXPECT_THAT(vm.javaCalls(), ElementsAre(HasSubstr("isGCCollectionActive"))) << type;
    }
}

TEST_F(DataReturn, collectionDataIsLeftToJavaWhenJavaCollectsIt) {
    ASSERT_NE(init(), 0);
    start(0x2000);
    java.script->gcCollectionActive = true;
    EXPECT_FALSE(pollBytes().has_value());
    java.script->gcCollectionActive = false;
    EXPECT_EQ(typesOf(poll()), (std::vector<int>{kGc}));
}

TEST_F(DataReturn, errorsAreDrainedInOrderOnlyWhenAskedFor) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    queueError(1, "first");
    queueError(2, "second");
    EXPECT_EQ(typesOf(poll()), (std::vector<int>{kResource}));
    start(0x40000);
    const auto records = poll();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].text(361), "first");
    EXPECT_EQ(records[1].text(361), "second");
    EXPECT_FALSE(pollBytes().has_value());
}

// ---- calls to Java ----

TEST_F(DataReturn, freeAndTotalBytesComeFromJava) {
    ASSERT_NE(init(), 0);
    vm.callNative([&] {
        EXPECT_EQ(collector().getNumBytesFree(vm.env()), 1000000);
        EXPECT_EQ(collector().getTotalNumBytes(vm.env()), 4000000);
        java.script->throws = "java/lang/RuntimeException";
        EXPECT_EQ(collector().getNumBytesFree(vm.env()), -1);
        EXPECT_EQ(collector().getTotalNumBytes(vm.env()), -1);
    });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(DataReturn, askingForFreeBytesIsLogged) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    vm.callNative([&] { collector().getNumBytesFree(vm.env()); });
    Texts lines;
    for (const std::string& line : logTexts())
        if (!line.empty()) lines.push_back(line);
    const auto first = std::find_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("PRBWorkloadCollector::getNumBytesFree called with _pJNIEnv = ") == 0;
    });
    ASSERT_GE(lines.end() - first, 4);
    EXPECT_THAT(first[1], HasSubstr("JNIEnv follows:   @"));
    EXPECT_THAT(first[2], HasSubstr("0000-"));
    EXPECT_THAT(first[3], ::testing::StartsWith("PRBWorkloadCollector::getNumBytesFree called "
                                                "with getFreeBytesMethodId = "));
}

TEST_F(DataReturn, linesForTheJavaLogAreWrittenInAFrame) {
    ASSERT_NE(init(), 0);
    vm.callNative([&] {
        vm.recorder().clear();
        collector().writeToWorkloadAnalysisLog(vm.env(), "hello");
        EXPECT_EQ(vm.recorder().count("PushLocalFrame(16)"), 1U);
        java.script->throws = "java/lang/RuntimeException";
        collector().writeToWorkloadAnalysisLog(vm.env(), "lost");
        collector().writeToWorkloadAnalysisLog(vm.env(), nullptr);
    });
    EXPECT_EQ(java.script->log, (std::vector<std::string>{"hello"}));
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(DataReturn, theNameOfAnObjectsClassIsTheJavaName) {
    ASSERT_NE(init(), 0);
    vm.callNative([&] {
        jobject object = vm.newLocalRef(vm.mainThread(), &vm.newObject(order));
        EXPECT_EQ(PRBWorkloadCollector::getNameOfClassForObject(vm.env(), object), "com.x.Order");
        EXPECT_EQ(PRBWorkloadCollector::getNameOfClassForObject(vm.env(), nullptr), "");
        vm.recorder().failNext("CallObjectMethod");
        EXPECT_EQ(PRBWorkloadCollector::getNameOfClassForObject(vm.env(), object), "");
        vm.recorder().failNext("GetMethodID");
        EXPECT_EQ(PRBWorkloadCollector::getNameOfClassForObject(vm.env(), object), "");
    });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(DataReturn, figuresOfTheLastCollectionAreKept) {
    ASSERT_NE(init(), 0);
    collector().showProfilerGCStats(nullptr, 1, 2, 3);
    EXPECT_EQ(collector().getNumBytesFreedAtLastGC(), 1);
    EXPECT_EQ(collector().getNumBytesCurrentlyFreeAtLastGC(), 2);
    EXPECT_EQ(collector().getNumBytesTotalAtLastGC(), 3);
    EXPECT_EQ(collector().getGCCPUTime(), monitor().getGCCPUTime());
}

// ---- without a sampler ----

TEST_F(DataReturn, withoutASamplerCountsComeFromCpuAndElapsedTimeOverTheInterval) {
    // The steps of an initialisation up to the one that makes the sampler.
    JNI_OnLoad(vm.javaVM(), nullptr);
    vm.callNative([&] {
        auto* built = PRBWorkloadCollector::getWorkloadCollector(
            vm.env(), vm.newLocalRef(vm.mainThread(), java.object), 1);
        built->setJVMPIInterface(vm.jvmpi());
        handle = built->toHandle();
    });
    PRBMonitorGlobal::getMonitorGlobal(vm.jvmpi(), "", vm.javaVM());
    monitor().setPRBWorkloadCollector(&collector());
    vm.jvmpi()->NotifyEvent = PRBMonitorGlobal::notify;
    vm.setEnabled(JVMPI_EVENT_THREAD_START, true);
    ASSERT_EQ(monitor().getCPUSampler(), nullptr);

    scripted::ScriptedThread& worker = startWorker("worker", order.methodId("price"));
    vm.send.classLoad(worker, order);
    ASSERT_EQ(start(0x600, "*", "*", 10), 0);
    // 120 ms of processor time in a timed method, 1 s of elapsed time.
    vm.send.methodEntry(worker, order.methodId("price"));
    worker.advanceCpuTime(120000000);
    advanceClock(1000);
    vm.send.methodExit(worker, order.methodId("price"));
    const auto records = ofThread(worker, poll());
    ASSERT_EQ(typesOf(records), (std::vector<int>{kThread, kMethod}));
    for (const Record& r : records) {
        EXPECT_EQ(r.number(310), 12);
        EXPECT_EQ(r.number(315), 100);
    }
    EXPECT_FALSE(pollBytes().has_value()) << "no time has passed since";
}

} // namespace
