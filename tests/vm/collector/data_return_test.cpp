// Polls: what is gathered, in which order, under which conditions, and how it is framed.
#include "tests/vm/collector/CollectorTest.h"

#include "data/PRBProfilerError.h"
#include "runtime/PRBJavaThread.h"

#include <unistd.h>

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

namespace {

enum Type : int {
    kThread = 10,
    kMethod = 11,
    kContention = 12,
    kHeap = 13,
    kGc = 14,
    kError = 17,
    kResource = 18
};

class DataReturn : public CollectorTest {
public:
    DataReturn()
        : order(vm.addClass({.name = "com/x/Order",
                             .methods = {{.name = "price", .signature = "()V"},
                                         {.name = "ship", .signature = "(I)I"}}})) {}

    // An agent whose sampler runs, with the worker as its only thread and one cycle of samples.
    scripted::ScriptedThread& startSampling(int type, const char* options = "") {
        runSamplerThread();
        EXPECT_NE(init(options), 0);
        vm.mainThread().setStatus(JVMPI_THREAD_CONDVAR_WAIT);
        EXPECT_EQ(start(type), 0);
        waitForSamplerState(0);
        scripted::ScriptedThread& worker = startWorker("worker", order.methodId("price"));
        vm.send.classLoad(worker, order);
        advanceClock(1000);
        runCycle();
        return worker;
    }
    // Blocks the worker on an object's monitor for a time.
    void block(scripted::ScriptedThread& worker, long ms) {
        worker.run([] {});
        scripted::ScriptedObject& lock = vm.newObject(order);
        vm.send.monitorContendedEnter(worker, lock.id);
        advanceClock(ms);
        vm.send.monitorContendedEntered(worker, lock.id);
    }
    // The records of a thread.
    static std::vector<Record> ofThread(const scripted::ScriptedThread& thread,
                                        std::vector<Record> records) {
        std::erase_if(records, [&](const Record& r) { return r.number(2) != idOf(thread); });
        return records;
    }
    static long long idOf(const scripted::ScriptedThread& thread) {
        return static_cast<long long>(reinterpret_cast<std::intptr_t>(thread.id()));
    }
    void queueError(unsigned code, const char* text) {
        monitor().newProfilerErrorSample(new PRBProfilerError(PRBReturnCode(code), text));
    }

    scripted::ScriptedClass& order;
};

// ---- framing ----

TEST_F(DataReturn, aPollThatHasNothingToTellAnswersNull) {
    ASSERT_NE(init(), 0);
    start(0);
    EXPECT_FALSE(pollBytes().has_value());
    start(0x40000); // no error is queued
    EXPECT_FALSE(pollBytes().has_value());
}

TEST_F(DataReturn, recordsAreLengthPrefixedBigEndianWithNothingAround) {
    ASSERT_NE(init(), 0);
    start(0x40000);
    queueError(74, "A");
    queueError(75, "BC");
    const auto bytes = pollBytes();
    ASSERT_TRUE(bytes.has_value());
    const auto records = PollReader(*bytes).records();
    ASSERT_EQ(typesOf(records), (std::vector<int>{kError, kError}));
    // Identity (8), keys 20, 21 and 360 (16 each), text (12 + its length).
    const std::size_t first = 8 + 3 * 16 + 12 + 1;
    const std::size_t second = first + 1;
    ASSERT_EQ(bytes->size(), 4 + first + 4 + second);
    const std::vector<jbyte> head(bytes->begin(), bytes->begin() + 12);
    EXPECT_EQ(head, (std::vector<jbyte>{0, 0, 0, static_cast<jbyte>(first), 0, 0, 0, 2, 0, 0, 0,
                                        kError}));
    EXPECT_EQ((*bytes)[4 + first + 3], static_cast<jbyte>(second));
    EXPECT_EQ(records[0].keys, (std::vector<int>{20, 21, 360, 361}));
    EXPECT_EQ(records[0].number(360), 74);
    EXPECT_EQ(records[0].text(361), "A");
    EXPECT_EQ(records[1].number(360), 75);
    EXPECT_EQ(records[1].text(361), "BC");
}

TEST_F(DataReturn, theArraySurvivesAFrameOf256) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    vm.recorder().clear();
    EXPECT_TRUE(pollBytes().has_value());
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(256)"), 1U);
    EXPECT_EQ(vm.recorder().count("PopLocalFrame"), 1U);
}

TEST_F(DataReturn, anArrayThatTheVmCannotMakeGivesNullAndLeavesTheErrorForJava) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    pollBytes();
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    vm.recorder().failNext("NewByteArray");
    EXPECT_FALSE(pollBytes().has_value());
    EXPECT_THAT(vm.exceptionLeft(), HasSubstr("java/lang/OutOfMemoryError"));
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
    EXPECT_EQ(poll().size(), 1U);
}

// ---- the resource usage sample ----

TEST_F(DataReturn, resourceUsageAloneIsOneRecordWithTheMemoryOfTheAgent) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    const auto records = poll();
    ASSERT_EQ(typesOf(records), (std::vector<int>{kResource}));
    EXPECT_EQ(records[0].keys, (std::vector<int>{20, 21, 4, 401, 402}));
    EXPECT_EQ(records[0].number(4), getpid());
    EXPECT_GT(records[0].number(401), 0);
    EXPECT_GE(records[0].number(402), records[0].number(401));
    EXPECT_LE(records[0].number(402), PRBMemoryManager::getHighWaterMark());
}

TEST_F(DataReturn, resourceUsageOfARunningSamplerHasItsCpuAndACycleCountThatWasJustTaken) {
    startSampling(0x80200);
    const auto records = pollOf(kResource);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].keys, (std::vector<int>{20, 21, 4, 400, 401, 402, 403}));
    EXPECT_EQ(records[0].number(403), 0);
}

// ---- the order and the conditions of the steps ----

TEST_F(DataReturn, kindsComeInTheOrderThreadMethodContentionHeapCollectionErrorResource) {
    scripted::ScriptedThread& worker = startSampling(0xC3E00);
    block(worker, 20);
    queueError(74, "text");
    std::vector<int> types = typesOf(poll());
    types.erase(std::unique(types.begin(), types.end()), types.end());
    EXPECT_EQ(types,
              (std::vector<int>{kThread, kMethod, kContention, kHeap, kGc, kError, kResource}));
}

TEST_F(DataReturn, threadAndMethodDataNeedACycle) {
    scripted::ScriptedThread& worker = startSampling(0x600);
    EXPECT_THAT(typesOf(poll()), IsSupersetOf({kThread, kMethod}));
    EXPECT_FALSE(pollBytes().has_value()) << "no cycle since the last poll";
    runCycle();
    EXPECT_THAT(typesOf(poll()), Contains(kMethod));
    EXPECT_NE(worker.timesSuspended(), 0U);
}

TEST_F(DataReturn, withAnIdleSamplerContentionAndHeapAreStillSent) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& worker = startWorker("worker", order.methodId("price"));
    vm.send.classLoad(worker, order);
    EXPECT_EQ(start(0x1E00), 0);
    ASSERT_EQ(sampler().getCurrentState(), 1);
    block(worker, 20);
    const std::vector<int> types = typesOf(poll());
    EXPECT_THAT(types, Contains(kContention));
    EXPECT_THAT(types, Contains(kHeap));
    EXPECT_THAT(types, ::testing::Not(Contains(kThread)));
    EXPECT_THAT(types, ::testing::Not(Contains(kMethod)));
}

TEST_F(DataReturn, aRunningSamplerIsHeldOffWhileItsCountersAreReadAndResumed) {
    startSampling(0x600);
    vm.recorder().clear();
    poll();
    Texts own;
    for (const scripted::Call& call : vm.recorder().calls(scripted::kMonitor))
        if (call.thread == vm.mainThread().name() &&
            call.text.find("_InterruptSamplerRawMonitor") != std::string::npos)
            own.push_back(call.name);
    EXPECT_EQ(own, (Texts{"RawMonitorEnter", "RawMonitorExit"}));
    EXPECT_EQ(sampler().getInterval(), 20000U);
    EXPECT_THAT(vm.monitors().heldNow(), IsEmpty());
}

TEST_F(DataReturn, everyPassHoldsTheMonitorOfPasses) {
    ASSERT_NE(init(), 0);
    for (auto pass : {+[](DataReturn* t) { t->poll(); }, +[](DataReturn* t) { t->start(0x800); },
                      +[](DataReturn* t) { t->stop(); }}) {
        vm.recorder().clear();
        pass(this);
        EXPECT_EQ(vm.recorder().count("RawMonitorEnter(_DataReturn)"), 1U);
        EXPECT_EQ(vm.recorder().count("RawMonitorExit(_DataReturn)"), 1U);
    }
}

TEST_F(DataReturn, eventMetricsAreZeroedByEachPass) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    PRBTrace::level.store(0x201); // what no option gives: the diagnostics of the event counters
    start(0);
    poll();
    const std::size_t lines = logTexts().size();
    poll();
    EXPECT_GT(logTexts().size(), lines) << "the counters are dumped by every pass";
}

// ---- requests ----

TEST_F(DataReturn, aRequestsTypeSelectsTheData) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    queueError(74, "text");
    auto& request = scripted::makeRequest(vm, 0x40000, 0);
    EXPECT_EQ(typesOf(poll(&request)), (std::vector<int>{kError}));
    EXPECT_EQ(typesOf(poll()), (std::vector<int>{kResource}));
}

TEST_F(DataReturn, onlyTheLow32BitsOfARequestsTypeCount) {
    ASSERT_NE(init(), 0);
    start(0);
    auto& request = scripted::makeRequest(vm, 0x7700000000080000LL, 0);
    EXPECT_EQ(typesOf(poll(&request)), (std::vector<int>{kResource}));
    auto& nothing = scripted::makeRequest(vm, 0x8000000000000LL, 0);
    EXPECT_FALSE(pollBytes(&nothing).has_value());
}

TEST_F(DataReturn, aRequestForOneThreadAnswersThatThreadOnly) {
    scripted::ScriptedThread& worker = startSampling(0x600);
    scripted::ScriptedThread& other = startWorker("other", order.methodId("ship"));
    runCycle();
    auto& request = scripted::makeRequest(vm, 0x600, static_cast<jint>(idOf(other)));
    const auto records = poll(&request);
    ASSERT_EQ(typesOf(records), (std::vector<int>{kThread, kMethod}));
    EXPECT_EQ(records[0].text(301), "other");
    EXPECT_EQ(records[1].text(11), "ship");
    EXPECT_EQ(records[1].number(2), records[0].number(2));
    EXPECT_NE(worker.id(), other.id());
}

TEST_F(DataReturn, anUnknownThreadIdAnswersNothing) {
    startSampling(0x600);
    auto& request = scripted::makeRequest(vm, 0x600, 0x7000000);
    EXPECT_FALSE(pollBytes(&request).has_value());
}

TEST_F(DataReturn, aRequestThatThrowsOrIsNoRequestCountsAsNone) {
    ASSERT_NE(init(), 0);
    start(0x80000);
    auto& stranger = vm.newObject("java/lang/Object");
    EXPECT_EQ(typesOf(poll(&stranger)), (std::vector<int>{kResource}));
    auto& cls = vm.addClass(
        {.name = "com/x/BadRequest",
         .methods = {
             {.name = "getType",
              .signature = "()J",
              .body =
                  [](scripted::JavaCall& call) {
                      call.throwNew("java/lang/RuntimeException");
                      return scripted::JavaValue(0x40000L);
                  }},
             {.name = "getThreadId", .signature = "()I", .body = [](scripted::JavaCall& call) {
                  call.throwNew("java/lang/RuntimeException");
                  return scripted::JavaValue(77);
              }}}});
    EXPECT_EQ(typesOf(poll(&vm.newObject(cls))), (std::vector<int>{kResource}));
    EXPECT_EQ(vm.exceptionLeft(), "");
}

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
    const auto records = poll();
    ASSERT_EQ(typesOf(records), (std::vector<int>{kGc}));
    EXPECT_EQ(records[0].number(4), getpid());
    EXPECT_EQ(records[0].number(314), wallClock.tv_sec * 1000LL);
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

// ---- purge ----

TEST_F(DataReturn, endedThreadsArePurgedByTheCollectorsOwnTypeOnly) {
    ASSERT_NE(init(), 0);
    PRBMonitorHashTable& all = *PRBContext::getThreadTable();
    start(0);
    const std::size_t before = all.entries();
    vm.endThread(vm.startThread({.name = "gone"}));
    auto& request = scripted::makeRequest(vm, 0x200, 0);
    poll(&request);
    EXPECT_EQ(all.entries(), before + 1);
    start(0x200);
    auto& other = scripted::makeRequest(vm, 0, 0);
    poll(&other);
    EXPECT_EQ(all.entries(), before);
}

// ---- log ----

TEST_F(DataReturn, eachStepIsLoggedWithTheReturnCode) {
    scripted::ScriptedThread& worker = startSampling(0xC3E00, "debug=PUBLIC");
    block(worker, 20);
    queueError(74, "a");
    queueError(74, "b");
    poll();
    Texts sent;
    for (const std::string& line : logTexts())
        if (line.find("Sent ") == 0) sent.push_back(line);
    EXPECT_EQ(
        sent,
        (Texts{"Sent ThreadData sample to agent: RC = 0",
               "Sent MethodFrequency sample to agent: RC = 0",
               "Sent Contention sample to agent: RC = 0", "Sent HeapData sample to agent: RC = 0",
               "Sent GCData sample to agent: RC = 0", "Sent ProfError sample to agent: RC = 0",
               "Sent ProfError sample to agent: RC = 0",
               "Sent ResourceUsage sample to agent: RC = 0"}));
    EXPECT_EQ(logCount("CPU Used by the CPU Sampler is 0"), 1U);
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
        vm.recorder().failNext("NewStringUTF");
    });
}

TEST_F(DataReturn, figuresOfTheLastCollectionAreKept) {
    ASSERT_NE(init(), 0);
    collector().showProfilerGCStats(nullptr, 1, 2, 3);
    EXPECT_EQ(collector().getNumBytesFreedAtLastGC(), 1);
    EXPECT_EQ(collector().getNumBytesCurrentlyFreeAtLastGC(), 2);
    EXPECT_EQ(collector().getNumBytesTotalAtLastGC(), 3);
    EXPECT_EQ(collector().getGCCPUTime(), monitor().getGCCPUTime());
}

TEST_F(DataReturn, pollsFromSeveralThreadsAtOnceSendEverySampleOnce) {
    ASSERT_NE(init(), 0);
    start(0x40000);
    constexpr int kErrors = 400;
    for (int i = 0; i < kErrors; ++i)
        queueError(static_cast<unsigned>(i % 100), std::to_string(i).c_str());
    std::mutex mutex;
    std::vector<std::string> seen;
    std::vector<scripted::ScriptedThread*> pollers;
    for (int i = 0; i < 4; ++i)
        pollers.push_back(&vm.startThread({.name = "poller" + std::to_string(i)}, true));
    for (scripted::ScriptedThread* poller : pollers) {
        poller->post([&, poller] {
            for (int i = 0; i < 20; ++i) {
                vm.callNative(*poller, [&] {
                    jbyteArray array = NATIVE(Profiler, getProfilerData)(poller->env(), nullptr,
                                                                         handle, 0, nullptr);
                    if (array == nullptr) return;
                    const auto bytes = vm.resolve(array)->bytes;
                    std::lock_guard lock(mutex);
                    for (const Record& r : PollReader(bytes).records()) seen.push_back(r.text(361));
                });
            }
        });
    }
    for (scripted::ScriptedThread* poller : pollers) poller->waitIdle();
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(kErrors));
    EXPECT_EQ(std::unique(seen.begin(), seen.end()), seen.end());
    for (scripted::ScriptedThread* poller : pollers) poller->stopReal();
}

} // namespace

// ---- without a sampler ----

namespace {

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
