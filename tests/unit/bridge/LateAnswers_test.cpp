// Threads that have no processor when they are asked: nobody waits for them, and nothing is lost.
#include "StackSamplerTest.h"

#include <csignal>

namespace bridge {
namespace {

using LateAnswers = StackSamplerTest;

// Holds signals back, like a thread without a processor, until it is let go.
class Held {
public:
    void operator()(Worker& self) {
        sigset_t all;
        sigset_t old;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &old);
        self.java.place = kWork;
        self.java.setState(VmStructs::kInJava);
        while (held && !self.stop) self.steps++;
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        passed = true;
        spin(self);
    }
    std::atomic<bool> held{true};
    std::atomic<bool> passed{false};
};

TEST_F(LateAnswers, ALateThreadLeavesItsTraceWithoutStopping) {
    Held body;
    Worker& worker = add(std::ref(body));
    ASSERT_TRUE(
        cyclesUntil([&](const std::vector<Sample>&) { return sampler.counters().signals != 0; }));
    EXPECT_EQ(sampler.counters().samples, 0u);
    EXPECT_EQ(worker.java.walks, 0);
    expectProgress(worker);
    body.held = false;
    for (int i = 0; i < 5000 && worker.java.walks == 0; i++) sleepMs(1);
    EXPECT_EQ(worker.java.walks, 1);
    expectProgress(worker); // no cycle has taken place, yet it runs
    EXPECT_EQ(sampler.counters().longStops, 0u);

    const std::vector<Sample> samples = cycle();
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples[0].env, worker.env());
    EXPECT_EQ(samples[0].frames, std::vector<jmethodID>{methodAt(kWork)});
    EXPECT_EQ(sampler.counters().samples, 1u);
    EXPECT_EQ(sampler.counters().leftTraces, 1u);
    EXPECT_EQ(sampler.counters().keptTraces, 0u);
    EXPECT_EQ(sampler.counters().timeouts, 0u);
    expectProgress(worker);
}

TEST_F(LateAnswers, NobodyWaitsForASlowWalk) {
    Worker& worker = add(spin);
    static std::atomic<bool> slow;
    slow = true;
    SampleSignal::uninstall();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void*) {
            while (slow) ownCpuNs();
            trace->num_frames = 1;
            trace->frames[0] = {0, methodAt(1)};
        },
        {}, problem))
        << problem;
    const auto walking = [&] {
        return vm.threads.find(worker.env())->slot.state == SampleSlot::kWalkingOn;
    };
    ASSERT_TRUE(cyclesUntil([&](const std::vector<Sample>&) { return walking(); }));
    for (int i = 0; i < 10; i++) EXPECT_TRUE(cycle().empty());
    EXPECT_TRUE(walking());
    slow = false;
    ASSERT_TRUE(cyclesUntilSampled(worker));
    EXPECT_GE(sampler.counters().leftTraces, 1u);
    EXPECT_EQ(sampler.counters().timeouts, 0u);
    expectProgress(worker);
}

TEST_F(LateAnswers, ATraceThatIsAskedForIsWaitedForAndGivenUp) {
    Held body;
    Worker& worker = add(std::ref(body));
    sampler.suspend(worker.env());
    JVMPI_CallFrame frames[50];
    JVMPI_CallTrace trace{worker.env(), 0, frames};
    sampler.callTrace(&trace, 50);
    EXPECT_EQ(trace.num_frames, 0);
    sampler.resume(worker.env());
    EXPECT_TRUE(vm.threads.find(worker.env())->slot.idle());
    EXPECT_EQ(sampler.counters().timeouts, 1u);
    body.held = false;
    while (!body.passed) sleepMs(1);
    expectProgress(worker);
    EXPECT_EQ(worker.java.walks, 0); // the request was withdrawn
}

TEST_F(LateAnswers, WhoIsLateGivesItsTraceToThoseWhoAskForIt) {
    Held body;
    Worker& worker = add(std::ref(body));
    ThreadRecord& record = *vm.threads.find(worker.env());
    ASSERT_TRUE(cyclesUntil(
        [&](const std::vector<Sample>&) { return record.slot.state == SampleSlot::kDeferred; }));
    sampler.suspend(worker.env());
    EXPECT_FALSE(sampler.hasRun(worker.env()));
    std::thread letGo([&] {
        sleepMs(5);
        body.held = false;
    });
    JVMPI_CallFrame frames[50];
    JVMPI_CallTrace trace{worker.env(), 0, frames};
    for (int i = 0; i < 100 && trace.num_frames == 0; i++) {
        sampler.callTrace(&trace, 50);
        if (trace.num_frames == 0) { // a loaded machine took longer than is waited for
            sampler.resume(worker.env());
            sampler.suspend(worker.env());
        }
    }
    letGo.join();
    EXPECT_EQ(trace.num_frames, 1);
    sampler.resume(worker.env());
    expectProgress(worker);
}

TEST_F(LateAnswers, WhoNeverHasAProcessorWhenAskedIsChargedInFull) {
    Worker& worker = add([](Worker& self) {
        sigset_t all;
        sigset_t old;
        sigfillset(&all);
        self.java.place = kWork;
        self.java.setState(VmStructs::kInJava);
        while (!self.stop) {
            pthread_sigmask(SIG_BLOCK, &all, &old);
            const std::int64_t until = ownCpuNs() + 1'500'000;
            while (ownCpuNs() < until) self.steps++;
            pthread_sigmask(SIG_SETMASK, &old, nullptr);
        }
    });
    const Tally tallied = tally(worker, 500, [] { sleepMs(2); });
    EXPECT_NEAR(tallied.samples, tallied.charge, 0.2 * tallied.charge + 5);
    EXPECT_EQ(tallied.atWork, tallied.samples);
    EXPECT_GT(sampler.counters().leftTraces, static_cast<std::uint64_t>(tallied.samples) / 2);
    EXPECT_EQ(sampler.counters().timeouts, 0u);
}

TEST_F(LateAnswers, AThreadThatEndsTakesItsRequestWithIt) {
    Held body;
    Worker& worker = add(std::ref(body));
    ThreadRecord& record = *vm.threads.find(worker.env());
    ASSERT_TRUE(cyclesUntil(
        [&](const std::vector<Sample>&) { return record.slot.state == SampleSlot::kDeferred; }));
    vm.threads.remove(worker.env());
    EXPECT_TRUE(record.slot.idle());
    worker.ended = true;
    body.held = false;
    while (!body.passed) sleepMs(1);
    EXPECT_EQ(worker.java.walks, 0);
    Worker& next = add(spin);
    ASSERT_TRUE(cyclesUntilSampled(next));
    EXPECT_EQ(worker.java.walks, 0);
}

// Their traces come when nobody asks any more: the next thread is counted with them.
TEST_F(LateAnswers, ThreadsThatEndBeforeTheNextCycleAreChargedToTheirWork) {
    add(rest); // cycles are told by a thread that stays
    Worker& worker = add([](Worker& self) {
        sigset_t all;
        sigset_t old;
        sigfillset(&all);
        self.leave();
        while (!self.stop) {
            self.java.setState(VmStructs::kInJava);
            self.java.place = kRead; // a little of something else, first and last
            self.enter();
            const std::int64_t from = ownCpuNs();
            pthread_sigmask(SIG_BLOCK, &all, &old);
            self.java.place = kWork;
            while (ownCpuNs() < from + 1'000'000) self.steps++;
            pthread_sigmask(SIG_SETMASK, &old, nullptr);
            self.java.place = kRead;
            self.workNs += ownCpuNs() - from;
            self.leave();
        }
    });
    const Tally tallied = tally(worker, 500, [] { sleepMs(2); });
    // To come and to go takes time as well, which is no thread's. A cycle pays for two of those
    // that have gone: after a stall of the sampler the payment stretches over many cycles.
    EXPECT_NEAR(tallied.samples, tallied.work, 0.25 * tallied.work + 5);
    EXPECT_GT(tallied.atWork, tallied.samples * 8 / 10) << "left " << sampler.counters().leftTraces;
    EXPECT_EQ(sampler.counters().timeouts, 0u);
}

TEST_F(LateAnswers, WhatWasLeftBeforeAPauseIsNobodysSample) {
    Held body;
    Worker& worker = add(std::ref(body));
    ThreadRecord& record = *vm.threads.find(worker.env());
    ASSERT_TRUE(cyclesUntil(
        [&](const std::vector<Sample>&) { return record.slot.state == SampleSlot::kDeferred; }));
    body.held = false;
    for (int i = 0; i < 5000 && record.slot.state != SampleSlot::kLeft; i++) sleepMs(1);
    sleepMs(2100); // sampling was off
    EXPECT_TRUE(cycle().empty());
    EXPECT_TRUE(record.slot.idle());
    ASSERT_TRUE(cyclesUntilSampled(worker));
}

} // namespace
} // namespace bridge
