// The stack of instrumented Java code.
#include "collector/PRBWorkloadCollector.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "tests/vm/runtime/RuntimeTest.h"

namespace {

using Entry = PRBJavaThread::InstrumentedMethodEntry;

class Instrumented : public RuntimeTest {
protected:
    void SetUp() override {
        RuntimeTest::SetUp();
        prepare();
    }
    void prepare() {
        auto collector = scripted::makeCollector(vm);
        vm.callNative([&] {
            PRBWorkloadCollector::getWorkloadCollector(
                vm.env(), vm.newLocalRef(vm.mainThread(), collector.object), 1);
        });
        worker = &startThread("worker").model;
        scripted = vm.findThread("worker");
        entry = &scripted::makeInstrumentedEntry(vm);
        vm.recorder().clear();
    }
    void push() {
        vm.callNative(*scripted, [&] {
            worker->createNewInstrumentedProfilingEntry(scripted->env(), nullptr, nullptr);
        });
    }
    void pop(scripted::ScriptedObject* object) {
        vm.callNative(*scripted, [&] {
            worker->removeTopInstrumentedProfilingEntry(scripted->env(), nullptr,
                                                        vm.newLocalRef(*scripted, object));
        });
    }
    void pop() { pop(entry); }
    static std::string told(int samples, int active, int contention, int wait) {
        return "setNumCpuSamples(" + std::to_string(samples) + ", " + std::to_string(active) +
               ", " + std::to_string(contention) + ", " + std::to_string(wait) + ")";
    }
    // The last call of a Java method, without its class.
    std::string lastCall() const {
        const Texts calls = vm.javaCalls();
        if (calls.empty()) return "";
        const std::string& text = calls.back();
        return text.substr(
            text.find("setNumCpuSamples") == std::string::npos ? 0 : text.find("setNumCpuSamples"));
    }

    PRBJavaThread* worker = nullptr;
    ScriptedThread* scripted = nullptr;
    scripted::ScriptedObject* entry = nullptr;
};

TEST_F(Instrumented, aPushedEntryHasTheFormerTopAsParent) {
    push();
    Entry* first = worker->getTopMethodEntry();
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->isA(), 32710);
    EXPECT_EQ(first->getParent(), nullptr);
    push();
    EXPECT_EQ(worker->getTopMethodEntry()->getParent(), first);
    pop();
    EXPECT_EQ(worker->getTopMethodEntry(), first);
    pop();
    EXPECT_EQ(worker->getTopMethodEntry(), nullptr);
}

TEST_F(Instrumented, aPopOfAnEmptyStackDoesNothing) {
    pop();
    EXPECT_EQ(worker->getTopMethodEntry(), nullptr);
    EXPECT_EQ(vm.recorder().count("PushLocalFrame"), 0u);
}

TEST_F(Instrumented, timesBecomeSimulatedCountsAndGoToTheParent) {
    push();
    compute(*scripted, 2000);
    push();
    worker->workloadRunning();
    vm.send.monitorContendedEnter(*scripted, nullptr);
    passWall(4000);
    vm.send.monitorContendedEntered(*scripted, nullptr);
    vm.send.monitorWait(*scripted, nullptr, 0);
    passWall(6000);
    vm.send.monitorWaited(*scripted, nullptr, 0);
    compute(*scripted, 3000);
    pop();
    EXPECT_EQ(lastCall(), told(13, 3, 4, 6));
    compute(*scripted, 1000);
    passWall(5000);
    pop();
    EXPECT_EQ(lastCall(), told(8, 3, 0, 0)); // 21 and 6 less the inner entry's
}

TEST_F(Instrumented, aSamplerThatGoesActiveDuringThePopDoesNotTurnNanosecondsIntoSamples) {
    push();
    compute(*scripted, 9000);
    PRBClock::source = [] {
        setSamplerIdle(0); // between the choice of the unit and its use
        const long long us = wallUs.load();
        return timeval{static_cast<time_t>(us / 1000000), static_cast<suseconds_t>(us % 1000000)};
    };
    pop();
    EXPECT_EQ(lastCall(), told(9, 9, 0, 0));
}

TEST_F(Instrumented, anEntryWithoutSamplesTellsNobody) {
    push();
    compute(*scripted, 900);
    pop();
    EXPECT_EQ(vm.javaCalls(), Texts{});
    PRBContext::setCPUSamplingInterval(0);
    push();
    compute(*scripted, 900000);
    pop();
    EXPECT_EQ(vm.javaCalls(), Texts{});
}

TEST_F(Instrumented, theJavaEntryIsToldInAFrameOfThirtyTwo) {
    push();
    compute(*scripted, 9000);
    pop();
    EXPECT_EQ(lastCall(), told(9, 9, 0, 0));
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(32)"), 1u);
    EXPECT_EQ(vm.recorder().count("PopLocalFrame"), 1u);
}

TEST_F(Instrumented, whileTheSamplerIsActiveItsCountsAreTold) {
    setSamplerIdle(0);
    push();
    Entry* top = worker->getTopMethodEntry();
    top->incrNumSamples(7);
    top->incrNumSamplesActive(4);
    top->incrNumSamplesContention(2);
    top->incrNumSamplesWait(1);
    compute(*scripted, 90000);
    pop();
    EXPECT_EQ(lastCall(), told(7, 4, 2, 1));
}

TEST_F(Instrumented, anEntryPushedWhileTheSamplerWasActiveHasNoTimes) {
    scripted->advanceCpuTime(50000000);
    passWall(100000);
    setSamplerIdle(0);
    push();
    worker->getTopMethodEntry()->incrNumSamples(2);
    setSamplerIdle(1);
    compute(*scripted, 9000);
    pop();
    EXPECT_EQ(lastCall(), told(2, 0, 0, 0));
}

TEST_F(Instrumented, anExceptionOfTheJavaEntryIsCleared) {
    auto& cls = vm.addClass({.name = "com/x/Entry",
                             .methods = {{.name = "setNumCpuSamples",
                                          .signature = "(IIII)V",
                                          .body = [](scripted::JavaCall& call) {
                                              call.throwNew("java/lang/RuntimeException");
                                              return scripted::JavaValue{};
                                          }}}});
    push();
    compute(*scripted, 9000);
    pop(&vm.newObject(cls));
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(Instrumented, aMissingMethodIsSkippedSilently) {
    auto& cls = vm.addClass({.name = "com/x/Entry"});
    push();
    compute(*scripted, 9000);
    pop(&vm.newObject(cls));
    EXPECT_EQ(vm.javaCalls(), Texts{});
    EXPECT_EQ(vm.exceptionLeft(), "");
    push();
    compute(*scripted, 9000);
    pop(nullptr); // no Java entry at all
    EXPECT_EQ(vm.javaCalls(), Texts{});
}

class InstrumentedAlone : public RuntimeTest {};
TEST_F(InstrumentedAlone, aMissingCollectorIsSkippedSilently) {
    auto [scripted, model] = startThread("worker");
    auto& entry = scripted::makeInstrumentedEntry(vm);
    vm.callNative(scripted, [&, s = &scripted, m = &model] {
        m->createNewInstrumentedProfilingEntry(s->env(), nullptr, nullptr);
        compute(*s, 9000);
        m->removeTopInstrumentedProfilingEntry(s->env(), nullptr, vm.newLocalRef(*s, &entry));
    });
    EXPECT_EQ(vm.javaCalls(), Texts{});
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(Instrumented, aPoppedEntryIsReusedFreshAndALateIncrementHarmsNobody) {
    push();
    Entry* popped = worker->getTopMethodEntry();
    pop();
    popped->incrNumSamples(5); // the sampler had it in hand
    push();
    EXPECT_EQ(worker->getTopMethodEntry(), popped);
    EXPECT_EQ(popped->getNumSamples(), 0);
    pop();
}

TEST_F(Instrumented, countersAddWhatTheyAreGiven) {
    Entry one(nullptr, nullptr, nullptr);
    one.incrNumSamples(3);
    one.incrNumSamplesContention(4);
    one.incrNumSamplesWait(5);
    one.incrNumSamplesActive(6);
    one.incrNumContentionEvents(100);
    one.incrNumContentionEvents(11);
    one.incrNumWaitEvents(7);
    EXPECT_EQ(one.getNumSamples(), 3);
    EXPECT_EQ(one.getNumSamplesContention(), 4);
    EXPECT_EQ(one.getNumSamplesWait(), 5);
    EXPECT_EQ(one.getNumSamplesActive(), 6);
    EXPECT_EQ(one.getContentionEvents(), 2);
    EXPECT_EQ(one.getContentionTime(), 111);
    EXPECT_EQ(one.getWaitEvents(), 1);
    EXPECT_EQ(one.getWaitTime(), 7);
}

TEST_F(Instrumented, theStackObjectIsKeptAndReplaced) {
    auto& first = vm.newObject("java/lang/Object");
    auto& second = vm.newObject("java/lang/Object");
    const auto before = vm.globalReferences().size();
    const auto keep = [&](scripted::ScriptedObject& object) {
        vm.callNative(*scripted, [&] {
            worker->registerInstrumentedStackObject(scripted->env(),
                                                    vm.newLocalRef(*scripted, &object));
        });
    };
    keep(first);
    EXPECT_EQ(vm.resolve(worker->getInstrumentedStackObject()), &first);
    keep(second);
    EXPECT_EQ(vm.resolve(worker->getInstrumentedStackObject()), &second);
    EXPECT_EQ(vm.globalReferences().size(), before + 1);
    vm.send.threadEnd(*scripted);
    EXPECT_EQ(vm.globalReferences().size(), before);
    EXPECT_EQ(worker->getInstrumentedStackObject(), nullptr);
}

class InstrumentedDebug : public Instrumented {
    void SetUp() override {
        startAgent("debug=PUBLIC");
        prepare();
    }
};

TEST_F(InstrumentedDebug, clockInconsistenciesAreToldAndGiveNoCounts) {
    scripted->setCpuTime(5000000);
    push();
    scripted->setCpuTime(4000000);
    passWall(10000);
    pop();
    EXPECT_EQ(logCount("Found TotalCPUTime < StartCPUTime"), 1u);
    EXPECT_THAT(readLog(), testing::HasSubstr("StartCPUTime   @"));
    push();
    scripted->advanceCpuTime(20000000);
    passWall(10000);
    pop();
    EXPECT_EQ(logCount("Found TotalCPUTime < TotalRealTime"), 1u);
    EXPECT_THAT(readLog(), testing::HasSubstr("TotalRealTime   @"));
    EXPECT_EQ(vm.javaCalls(), Texts{});
}

} // namespace
