// Threads, classes and records that come and go under the sampler and the data return. Says
// little by itself; run under the address and the thread sanitizer it finds use after free and
// data races.
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "data/PRBMethodUsageSample.h"
#include "runtime/PRBThreadSnapshot.h"
#include "runtime/PRBUnloadedRecords.h"
#include "tests/vm/runtime/SamplerTest.h"

namespace {

class Churn : public SamplerTest {
protected:
    void SetUp() override {
        SamplerTest::SetUp();
        vm.recorder().setRecording(false);
        collect(PRBCollect::kMethods | PRBCollect::kContention | PRBCollect::kThreads |
                PRBCollect::kHeapAllocation);
        vm.monitors().forbidVmCallsHolding({"_ClassTable", "_MethodTable", "_ArenaTable",
                                            "_ObjectTable", "Thread Method Frequency Table",
                                            "_Contention_Table", "_MaskList"});
        for (int i = 0; i < kClasses; ++i)
            classes.push_back(&makeClass("com/x/C" + std::to_string(i), {"a", "b", "c"}));
    }
    // One thread's work: nested methods of classes that are being unloaded, blocks, allocations.
    void work(ScriptedThread& thread, int round) {
        for (int i = 0; i < 20; ++i) {
            ScriptedClass& used =
                *classes[static_cast<std::size_t>(round * 7 + i) % classes.size()];
            vm.send.methodEntry(thread, used.methodId("a"));
            compute(thread, 3);
            vm.send.methodEntry(thread, used.methodId("b"));
            compute(thread, 2);
            vm.send.monitorContendedEnter(thread, nullptr);
            passWall(1);
            vm.send.monitorContendedEntered(thread, nullptr);
            auto* model = static_cast<PRBJavaThread*>(thread.localStorage());
            model->heapAllocation(16);
            model->heapFree(8);
            model->createNewInstrumentedProfilingEntry(thread.env(), nullptr, nullptr);
            timeval now = PRBClock::now();
            model->newContentionEvent(used.id(), used.methodId("a"), kMonitorWait, now);
            model->contentionEventEnded(used.id(), used.methodId("a"), kMonitorWait, 5, now);
            vm.send.methodExit(thread, used.methodId("b"));
            model->removeTopInstrumentedProfilingEntry(thread.env(), nullptr, nullptr);
            if (i % 5 != 0) vm.send.methodExit(thread, used.methodId("a"));
        }
        vm.send.methodExit(thread, nullptr); // leaves every frame
    }
    void poll(bool clear) {
        PRBThreadSnapshot::Reader threads;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            PRBCThreadSample sample;
            threads[i]->createSample(sample, 1, 2);
            samples += 1;
            threads[i]->getMethodUsageSamples(
                [](void* count, PRBJavaThread::MethodFrequency* record, long long ms) {
                    PRBMethodUsageSample usage;
                    *static_cast<long*>(count) += record->createSample(usage, ms, 1, 2);
                    return 1;
                },
                &samples, nullptr);
            threads[i]->getContentionSamples(
                [](void* count, PRBJavaThread::MonitorContentionEvent* event, long long ms) {
                    PRBContentionSample contention;
                    *static_cast<long*>(count) += event->createSample(contention, ms);
                    return 1;
                },
                &samples);
            if (clear) threads[i]->clearCounters();
        }
    }

    static constexpr int kClasses = 12;
    std::vector<ScriptedClass*> classes;
    long samples = 0;
};

TEST_F(Churn, threadsAndClassesComeAndGoUnderSamplerAndDataReturn) {
    constexpr int kRounds = 60;
    constexpr int kWorkers = 3;
    std::vector<ScriptedThread*> workers;
    for (int i = 0; i < kWorkers; ++i) {
        ScriptedThread& thread = startRunning("worker" + std::to_string(i)).vm;
        thread.startReal();
        thread.post([this, &thread] {
            for (int round = 0; round < kRounds; ++round) work(thread, round);
        });
        workers.push_back(&thread);
    }
    ScriptedThread& cycles = vm.systemThread(0);
    vm.send.threadStart(cycles);
    cycles.startReal();
    cycles.post([this] {
        for (int i = 0; i < kRounds; ++i) {
            sampler->interruptSampler();
            sampler->runCycle();
            sampler->resumeSampler(0);
            PRBReclaimer::reclaim();
        }
    });
    ScriptedThread& poller = startThread("poller").vm;
    poller.startReal();
    poller.post([this] {
        for (int i = 0; i < kRounds; ++i) {
            poll(i % 4 == 3);
            PRBMonitorGlobal::getMonitorGlobal()->purgeEndedThreads();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        ScriptedClass& churned = *classes[static_cast<std::size_t>(round) % classes.size()];
        vm.send.classUnload(vm.mainThread(), churned.id());
        vm.send.classLoad(vm.mainThread(), churned);
        ScriptedThread& brief = vm.addThread({.name = "brief"});
        vm.send.threadStart(brief);
        work(brief, round);
        vm.send.threadEnd(brief);
        if (round % 10 == 0) PRBMaskLists::setMethodMask(round % 20 == 0 ? "*" : "*.a");
    }
    for (ScriptedThread* thread : workers) thread->waitIdle();
    cycles.waitIdle();
    poller.waitIdle();
    poll(false);
    EXPECT_GT(samples, 0);
    PRBMonitorGlobal::getMonitorGlobal()->purgeEndedThreads();
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
    EXPECT_LE(PRBUnloadedRecords::deadClasses(), static_cast<std::size_t>(kRounds));
    EXPECT_EQ(PRBContext::getThreadTable()->entries(), static_cast<std::size_t>(kWorkers) + 2);
}

TEST_F(Churn, thousandsOfThreadsLeaveNothingBehind) {
    const auto threads = PRBContext::getThreadTable()->entries();
    for (int i = 0; i < 3000; ++i) {
        ScriptedThread& brief = vm.addThread({.name = "brief"});
        vm.send.threadStart(brief);
        vm.send.threadEnd(brief);
        if (i % 500 == 499) PRBMonitorGlobal::getMonitorGlobal()->purgeEndedThreads();
    }
    PRBReclaimer::reclaim();
    PRBReclaimer::reclaim();
    EXPECT_EQ(PRBContext::getThreadTable()->entries(), threads);
    EXPECT_EQ(PRBThreadSnapshot::Reader().size(), threads);
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

// Each class goes while a frame of it is still on the stack, as an agent may be told late.
TEST_F(Churn, thousandsOfClassesLeaveNoRecordOfThemselvesOrTheirMethods) {
    constexpr int kMany = 3000;
    auto [worker, model] = startRunning("worker");
    const auto known = [] {
        return std::pair(PRBContext::getClassTable()->entries(),
                         PRBContext::getMethodTable()->entries());
    };
    const auto before = known();
    const auto dead = PRBUnloadedRecords::deadClasses();
    for (int i = 0; i < kMany; ++i) {
        ScriptedClass& brief = makeClass("com/y/K" + std::to_string(i), {"a", "b"});
        worker.setFrames({{1, brief.methodId("b")}, {2, brief.methodId("a")}});
        vm.send.methodEntry(worker, brief.methodId("a"));
        vm.send.methodEntry(worker, brief.methodId("b"));
        compute(worker, 2000);
        vm.send.methodExit(worker, brief.methodId("b"));
        cycle();
        ASSERT_EQ(recordOf(model, brief.methodId("b"))->getOwnCPU(), 2000001);
        worker.setFrames({});
        vm.send.classUnload(vm.mainThread(), brief.id());
        if (i % 100 == 99) poll(false);
        compute(worker, 1000);
        vm.send.methodExit(worker, brief.methodId("a"));
    }
    EXPECT_EQ(known(), before);
    // Kept: what a poll met in a record.
    EXPECT_LE(PRBUnloadedRecords::deadClasses(), dead + kMany / 50);
    poll(false);
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 0u);
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

} // namespace
