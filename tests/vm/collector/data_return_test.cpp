// Polls: what is gathered, in which order, under which conditions, and how it is framed.
#include "collector/PRBSampleList.h"
#include "data/PRBMethodUsageSample.h"
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBUnloadedRecords.h"
#include "tests/vm/collector/DataReturnTest.h"

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

namespace {

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

// ---- the memory of passes ----

TEST_F(DataReturn, memoryIsKeptFromPassToPassAndGivenBackAfterEightMuchSmallerOnes) {
    PRBSampleList::Kept kept;
    PRBMethodUsageSample sample;
    sample.saveStringData(10, std::string(2000, 'c').c_str());
    std::size_t large = 0;
    {
        PRBSampleList list(kept);
        EXPECT_EQ(kept.capacity(), 0U) << "a pass that began inside this one has its own";
        for (int i = 0; i < 2000; ++i) list.save(sample);
        EXPECT_GT(list.size(), 4000000U);
        large = list.size();
    }
    ASSERT_GE(kept.capacity(), large);
    const std::size_t capacity = kept.capacity();
    const std::uint32_t memory = PRBMemoryManager::getCurrentAllocation();
    for (unsigned i = 0; i < PRBSampleList::kSmallPasses - 1; ++i) {
        PRBSampleList list(kept);
        EXPECT_EQ(list.size(), 0U);
        list.save(sample);
    }
    {
        PRBSampleList list(kept); // a large one again: the count begins anew
        for (int i = 0; i < 2000; ++i) list.save(sample);
    }
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), memory);
    for (unsigned i = 0; i < PRBSampleList::kSmallPasses; ++i) {
        EXPECT_EQ(kept.capacity(), capacity) << i;
        PRBSampleList list(kept);
        list.save(sample);
    }
    EXPECT_EQ(kept.capacity(), 0U);
    EXPECT_LE(PRBMemoryManager::getCurrentAllocation(), memory - capacity);
    for (unsigned i = 0; i < 2 * PRBSampleList::kSmallPasses; ++i) {
        PRBSampleList list(kept);
        list.save(sample);
    }
    EXPECT_GT(kept.capacity(), 0U) << "little stays";
}

TEST_F(DataReturn, ofTwoPassesOneInsideTheOtherTheLargerMemoryIsKept) {
    PRBSampleList::Kept kept;
    PRBMethodUsageSample sample;
    sample.saveStringData(10, std::string(2000, 'c').c_str());
    std::size_t inner = 0;
    {
        PRBSampleList outer(kept);
        outer.save(sample);
        const std::size_t size = outer.size();
        {
            PRBSampleList list(kept);
            for (int i = 0; i < 100; ++i) list.save(sample);
            inner = list.size();
        }
        EXPECT_EQ(outer.size(), size);
    }
    EXPECT_GE(kept.capacity(), inner);
    PRBSampleList next(kept);
    EXPECT_EQ(next.size(), 0U);
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

TEST_F(DataReturn, theSamplerRestsWhileTheHeapIsDumpedAndRunsOn) {
    startSampling(0x1200);
    std::vector<std::string> held;
    vm.setDumpHook([&] { held = vm.mainThread().heldMonitors(); });
    EXPECT_THAT(typesOf(poll()), Contains(kHeap));
    EXPECT_THAT(held, Contains(HasSubstr("_InterruptSamplerRawMonitor")));
    EXPECT_THAT(vm.mainThread().heldMonitors(), IsEmpty());
    EXPECT_EQ(sampler().getInterval(), 20000U);
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

TEST_F(DataReturn, aRequestForOneThreadsContentionAnswersThatThreadOnly) {
    ASSERT_NE(init(), 0);
    scripted::ScriptedThread& worker = startWorker("worker", order.methodId("price"));
    scripted::ScriptedThread& other = startWorker("other", order.methodId("ship"));
    vm.send.classLoad(worker, order);
    start(0x800);
    block(worker, 20);
    block(other, 20);
    EXPECT_FALSE(pollBytes(&scripted::makeRequest(vm, 0x800, 0x7000000)).has_value());
    const auto one = poll(&scripted::makeRequest(vm, 0x800, static_cast<jint>(idOf(other))));
    ASSERT_EQ(typesOf(one), (std::vector<int>{kContention}));
    EXPECT_EQ(one[0].number(2), idOf(other));
    EXPECT_EQ(ofThread(worker, poll()).size(), 1U) << "kept for the poll that asks for it";
}

TEST_F(DataReturn, aPassThatARequestBeginsInsideAnotherLeavesBothWhole) {
    ASSERT_NE(init(), 0);
    start(0xC0000);
    queueError(74, "text");
    std::vector<int> inner;
    auto& cls = vm.addClass(
        {.name = "com/x/PollingRequest",
         .methods = {{.name = "getType",
                      .signature = "()J",
                      .body =
                          [&](scripted::JavaCall& call) {
                              jbyteArray array = NATIVE(Profiler, getProfilerData)(
                                  call.thread.env(), nullptr, handle, 0, nullptr);
                              const std::vector<jbyte> bytes = vm.resolve(array)->bytes;
                              inner = typesOf(PollReader(bytes).records());
                              return scripted::JavaValue(0x80000L);
                          }},
                     {.name = "getThreadId", .signature = "()I", .body = [](scripted::JavaCall&) {
                          return scripted::JavaValue(0);
                      }}}});
    EXPECT_EQ(typesOf(poll(&vm.newObject(cls))), (std::vector<int>{kResource}));
    EXPECT_EQ(inner, (std::vector<int>{kError, kResource}));
    EXPECT_THAT(vm.monitors().heldNow(), IsEmpty());
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

TEST_F(DataReturn, everyPassDeletesTheMethodsOfUnloadedClasses) {
    ASSERT_NE(init(), 0);
    start(PRBCollect::kHeap); // neither a sampler nor a purge of threads does it
    vm.send.classLoad(vm.mainThread(), order);
    vm.send.classUnload(vm.mainThread(), order.id());
    EXPECT_GE(PRBReclaimer::pending(), 2u);
    for (int i = 0; i < 3; ++i) poll();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

TEST_F(DataReturn, everyPassReleasesUnloadedClassesWhoseObjectsAreGone) {
    ASSERT_NE(init(), 0);
    start(PRBCollect::kProfilerErrors); // no heap request, whose collections would do it as well
    vm.send.classLoad(vm.mainThread(), order);
    vm.send.objectAlloc(vm.mainThread(), vm.allocate(vm.mainThread(), order, 48));
    vm.send.classUnload(vm.mainThread(), order.id());
    poll();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 1u);
    vm.send.gcStart();
    vm.send.gcFinish(-1, 100, 200);
    for (int i = 0; i < 3; ++i) poll();
    EXPECT_EQ(PRBUnloadedRecords::waitingClasses(), 0u);
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
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
