// What one cycle of the sampler does.
#include "tests/vm/AllocationHook.h"
#include "tests/vm/runtime/SamplerTest.h"

#include "core/PRBMemoryManager.h"

#include <cstdio>

SCRIPTED_VM_ALLOCATION_HOOK

namespace {

using testing::Contains;
using testing::IsSupersetOf;
using testing::Not;

class SamplerCycle : public SamplerTest {};

TEST_F(SamplerCycle, stopsLooksAndResumesInThisOrder) {
    startRunning("one");
    startRunning("two").vm.setHasRun(false);
    cycle();
    const Texts calls = sampling();
    ASSERT_EQ(calls.size(), 9u);
    // The order of the threads is the registry's.
    const bool oneFirst = calls[0] == "GetThreadStatus(one)";
    const std::string a = oneFirst ? "one" : "two";
    const std::string b = oneFirst ? "two" : "one";
    Texts expected = {"GetThreadStatus(" + a + ")", "SuspendThread(" + a + ")",
                      "GetThreadStatus(" + b + ")", "SuspendThread(" + b + ")"};
    for (const std::string& name : {a, b}) {
        expected.push_back("ThreadHasRun(" + name + ")");
        if (name == "one") expected.push_back("GetCallTrace(one, 50)");
    }
    expected.push_back("ResumeThread(" + a + ")");
    expected.push_back("ResumeThread(" + b + ")");
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(sampler->getAndResetCycleCount(), 1);
    EXPECT_EQ(sampler->getAndResetCycleCount(), 0);
}

TEST_F(SamplerCycle, chargesTheThreadTheTopMethodAndItsCallers) {
    auto [scripted, model] = startRunning("one");
    cycle();
    cycle();
    EXPECT_EQ(model.getCounters().cpuTime, 2);
    EXPECT_EQ(recordOf(model, cls->methodId("run"))->getOwnCPU(), 2);
    EXPECT_EQ(recordOf(model, cls->methodId("main"))->getCalleeCPU(), 2);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 2);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 0);
}

TEST_F(SamplerCycle, aThreadThatHasNotRunIsResumedWithoutASample) {
    auto [scripted, model] = startRunning("one");
    scripted.setHasRun(false);
    cycle();
    EXPECT_EQ(scripted.timesSuspended(), 1u);
    EXPECT_EQ(scripted.timesResumed(), 1u);
    EXPECT_EQ(vm.recorder().count("GetCallTrace"), 0u);
    EXPECT_EQ(model.getCounters().cpuTime, 0);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 0);
}

struct StatusRow {
    jint status;
    bool stopped;
    long long contention, wait;
    int entryWait, entryContention;
};
TEST_F(SamplerCycle, statusesAreMaskedAndCountedWithTheEntrysCountersCrossed) {
    const StatusRow rows[] = {
        {1, true, 0, 0, 0, 0},       {2, false, 1, 0, 1, 0},      {3, false, 0, 1, 0, 1},
        {0x4001, true, 0, 0, 0, 0},  {0x4002, false, 1, 0, 1, 0}, {0x4003, false, 0, 1, 0, 1},
        {0x8001, false, 0, 0, 0, 0}, {0x8002, false, 0, 0, 0, 0}, {0, false, 0, 0, 0, 0},
        {4, false, 0, 0, 0, 0},
    };
    for (const StatusRow& row : rows) {
        auto [scripted, model] = startRunning("status" + std::to_string(row.status));
        scripted.setStatus(row.status);
        model.workloadRunning();
        model.createNewInstrumentedProfilingEntry(scripted.env(), nullptr, nullptr);
        cycle();
        auto* entry = model.getTopMethodEntry();
        EXPECT_EQ(scripted.timesSuspended(), row.stopped ? 1u : 0u) << row.status;
        EXPECT_EQ(scripted.timesResumed(), row.stopped ? 1u : 0u) << row.status;
        EXPECT_EQ(model.getCounters().unsampledContention, row.contention) << row.status;
        EXPECT_EQ(model.getCounters().unsampledWait, row.wait) << row.status;
        EXPECT_EQ(entry->getNumSamples(), 1) << row.status; // whatever the status
        EXPECT_EQ(entry->getNumSamplesWait(), row.entryWait) << row.status;
        EXPECT_EQ(entry->getNumSamplesContention(), row.entryContention) << row.status;
        EXPECT_EQ(entry->getNumSamplesActive(), row.stopped ? 1 : 0) << row.status;
        vm.send.threadEnd(scripted);
    }
}

TEST_F(SamplerCycle, entriesAreCountedIntoDuringAWorkloadOnly) {
    auto [scripted, model] = startRunning("one");
    model.createNewInstrumentedProfilingEntry(scripted.env(), nullptr, nullptr);
    auto* entry = model.getTopMethodEntry();
    cycle();
    model.workloadDone(); // below zero is no workload either
    cycle();
    EXPECT_EQ(entry->getNumSamples(), 0);
    EXPECT_EQ(entry->getNumSamplesActive(), 0);
    model.workloadRunning();
    model.workloadRunning();
    cycle();
    EXPECT_EQ(entry->getNumSamples(), 1);
}

TEST_F(SamplerCycle, endedAndBackgroundThreadsAndItselfAreNeverStopped) {
    auto ended = startRunning("ended");
    startRunning("PRB_CPUSampler_Thread");
    vm.send.threadEnd(ended.vm);
    cycle();
    EXPECT_EQ(sampling(), Texts{});
    auto [self, model] = startRunning("self");
    vm.recorder().clear();
    self.run([&] { sampler->runCycle(); });
    EXPECT_EQ(self.timesSuspended(), 0u);
}

TEST_F(SamplerCycle, withoutMethodDataNoTraceIsTakenAndNothingCharged) {
    auto [scripted, model] = startRunning("one");
    collect(PRBCollect::kThreads);
    cycle();
    EXPECT_EQ(vm.recorder().count("ThreadHasRun"), 1u);
    EXPECT_EQ(vm.recorder().count("GetCallTrace"), 0u);
    EXPECT_EQ(model.getCounters().cpuTime, 0);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 0);
}

TEST_F(SamplerCycle, atMostFiftyFramesAreTaken) {
    auto [scripted, model] = startRunning("one");
    std::vector<JVMPI_CallFrame> frames;
    std::vector<std::string> names;
    for (int i = 0; i < 60; ++i) names.push_back("m" + std::to_string(i));
    ScriptedClass& deep = makeClass("com/x/Deep", names);
    for (const std::string& name : names) frames.push_back({1, deep.methodId(name)});
    scripted.setFrames(frames);
    cycle();
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 50u);
    EXPECT_NE(recordOf(model, deep.methodId("m49")), nullptr);
    EXPECT_EQ(recordOf(model, deep.methodId("m50")), nullptr);
}

TEST_F(SamplerCycle, aFailedTraceGivesNoSample) {
    auto [scripted, model] = startRunning("one");
    scripted.setFrames({});
    cycle();
    EXPECT_EQ(scripted.timesResumed(), 1u);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 0);
}

TEST_F(SamplerCycle, anUnknownOrUnmonitoredTopMethodCountsNothing) {
    auto [scripted, model] = startRunning("one");
    scripted.setFrames({{1, reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x440))},
                        {1, cls->methodId("main")}});
    cycle();
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 0u);
    scripted.setFrames({{1, cls->methodId("run")}});
    PRBMaskLists::setMethodMask("*.main");
    cycle();
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 0u);
    EXPECT_EQ(model.getCounters().cpuTime, 0);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 0);
    EXPECT_EQ(sampler->getAndResetCycleCount(), 2);
}

TEST_F(SamplerCycle, buffersGrowByHalfAgainAndNoCycleAllocatesAfterThat) {
    vm.systemThread(0).run([] {});
    for (int i = 0; i < 10; ++i) startRunning("t" + std::to_string(i));
    cycle();
    const int threads = static_cast<int>(PRBContext::getThreadTable()->entries());
    const int capacity = sampler->getTraceCapacity();
    EXPECT_EQ(capacity, threads + threads / 2);
    vm.recorder().setRecording(false);
    vm.systemThread(0).run([&] {
        scripted::AllocationCount allocations;
        sampler->runCycle();
        EXPECT_EQ(allocations.now(), 0u);
    });
    vm.recorder().setRecording(true);
    while (static_cast<int>(PRBContext::getThreadTable()->entries()) < capacity)
        startRunning("more");
    cycle();
    EXPECT_EQ(sampler->getTraceCapacity(), capacity);
    startRunning("one more");
    cycle();
    EXPECT_EQ(sampler->getTraceCapacity(), capacity + 1 + (capacity + 1) / 2);
}

TEST_F(SamplerCycle, theThreadTableAloneIsHeldInTheWindow) {
    startRunning("one");
    cycle();
    ASSERT_EQ(sampling().size(), 5u);
    for (const scripted::Call& call : vm.recorder().calls(scripted::kJvmpi))
        EXPECT_EQ(call.held, Texts{"_ThreadTable"}) << call.text;
}

TEST_F(SamplerCycle, twoThousandThreadsAreSampledWithoutAllocation) {
    vm.recorder().setRecording(false);
    constexpr int kThreads = 2000;
    std::vector<PRBJavaThread*> models;
    for (int i = 0; i < kThreads; ++i) models.push_back(&startRunning("t").model);
    cycle();
    vm.systemThread(0).run([&] {
        scripted::AllocationCount allocations;
        sampler->runCycle();
        EXPECT_EQ(allocations.now(), 0u);
    });
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 2 * kThreads);
    for (PRBJavaThread* model : models) ASSERT_EQ(model->getCounters().cpuTime, 2);
}

struct FrameCountRow {
    jint answered;
    std::size_t records;
};
TEST_F(SamplerCycle, aTraceOfAbsurdLengthIsCutToItsBuffer) {
    static jint answered = 0;
    static jmethodID methods[2];
    methods[0] = cls->methodId("run");
    methods[1] = cls->methodId("main");
    vm.jvmpi()->GetCallTrace = [](JVMPI_CallTrace* trace, jint depth) {
        for (jint i = 0; i < depth; ++i) trace->frames[i] = {i, methods[i % 2]};
        trace->num_frames = answered;
    };
    const FrameCountRow rows[] = {{-1, 0}, {0, 0}, {1, 1}, {-2147483647, 0}, {51, 2}, {100000, 2}};
    for (const FrameCountRow& row : rows) {
        answered = row.answered;
        auto [scripted, model] = startRunning("t" + std::to_string(row.answered));
        cycle();
        EXPECT_EQ(model.getMethodFrequencyTable()->entries(), row.records) << row.answered;
        if (row.records == 2) { // each in 25 of the 50 frames
            EXPECT_EQ(recordOf(model, methods[1])->getCalleeCPU(), 25) << row.answered;
        }
        vm.send.threadEnd(scripted);
    }
}

TEST_F(SamplerCycle, aVmWithoutTheNeededCallsIsNotSampled) {
    startRunning("one");
    vm.jvmpi()->ThreadHasRun = nullptr;
    cycle();
    EXPECT_EQ(sampling(), Texts{});
    EXPECT_EQ(sampler->getAndResetCycleCount(), 1);
}

class SamplerCycleDebug : public SamplerTest {
    void SetUp() override {
        startAgent("debug=PUBLIC,filter=PRBCCPUS");
        prepare();
    }
};

TEST_F(SamplerCycleDebug, tellsEachStep) {
    auto [one, model] = startRunning("one");
    auto [two, modelTwo] = startRunning("two");
    two.setFrames({{1, reinterpret_cast<jmethodID>(static_cast<std::uintptr_t>(0x440))}});
    startRunning("three").vm.setHasRun(false);
    cycle();
    const auto hex = [](const void* value) {
        char digits[24];
        std::snprintf(digits, sizeof digits, "%lX",
                      static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(value)));
        return std::string(digits);
    };
    EXPECT_THAT(logTexts(),
                IsSupersetOf({std::string("Scanning threads"),
                              std::string("The number of threads that were suspended and resumed "
                                          "was 3 - the number of active threads was 2"),
                              "Got stack data for thread " + hex(one.id()),
                              "Recorded thread busy for thread " + hex(one.env()),
                              "Got stack data for thread " + hex(two.id()),
                              "Thread busy for thread " + hex(two.env()) + " was ignored"}));
}

TEST_F(SamplerCycleDebug, isSilentAboutAWindowThatStoppedNobody) {
    cycle();
    EXPECT_THAT(logTexts(), Contains("Scanning threads"));
    EXPECT_THAT(readLog(), Not(testing::HasSubstr("The number of threads")));
}

} // namespace
