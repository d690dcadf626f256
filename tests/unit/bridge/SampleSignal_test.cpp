// The signal that stops threads, among signals of others.
#include "StackSamplerTest.h"

#include <csignal>

namespace bridge {
namespace {

TEST_F(StackSamplerTest, AForeignHandlerOnOurSignalIsNoticedOnce) {
    std::string text;
    EXPECT_FALSE(sampler.handlerLost(text));
    struct sigaction ours {};
    sigaction(SampleSignal::number(), nullptr, &ours);
    signal(SampleSignal::number(), SIG_IGN);
    EXPECT_TRUE(sampler.handlerLost(text));
    EXPECT_EQ(text, "another handler was installed for signal " +
                        std::to_string(SampleSignal::number()) +
                        ", which the sampler uses: samples may be missing");
    EXPECT_FALSE(sampler.handlerLost(text));
    // Nobody is asked: to a disposition that is the default one the signal would be deadly.
    signal(SampleSignal::number(), SIG_DFL);
    Worker& worker = add(spin);
    for (int i = 0; i < 50; i++) {
        cycle();
        sleepMs(2);
    }
    EXPECT_EQ(sampler.counters().signals, 0u);
    EXPECT_EQ(sampler.counters().timeouts, 0u);
    expectProgress(worker);
    sigaction(SampleSignal::number(), &ours, nullptr);
    for (int i = 0; i < 3000 && sampler.counters().samples == 0; i++) {
        cycle();
        sleepMs(2);
    }
    EXPECT_GT(sampler.counters().samples, 0u);
    expectProgress(worker);
}

TEST_F(StackSamplerTest, AForeignHandlerThatHasLeftAgainIsToldAllTheSame) {
    std::string text;
    add(spin);
    cycle();
    struct sigaction ours {};
    sigaction(SampleSignal::number(), nullptr, &ours);
    signal(SampleSignal::number(), SIG_IGN);
    for (int i = 0; i < 3; i++) cycle();
    sigaction(SampleSignal::number(), &ours, nullptr);
    EXPECT_TRUE(sampler.handlerLost(text));
    EXPECT_FALSE(sampler.handlerLost(text));
}

// Frees the signals that earlier tests of the same process have left ignored.
void freeSignals() {
    for (int number = SIGRTMIN + 6; number <= SIGRTMAX; number++) signal(number, SIG_DFL);
}

TEST(SampleSignal, TakesTheFirstRealTimeSignalThatIsFree) {
    std::string problem;
    freeSignals();
    for (int taken = SIGRTMIN + 6; taken < SIGRTMIN + 8; taken++) signal(taken, [](int) {});
    ASSERT_TRUE(SampleSignal::install(fakeWalk, {}, problem));
    EXPECT_EQ(SampleSignal::number(), SIGRTMIN + 8);
    EXPECT_TRUE(SampleSignal::stillOurs());
    EXPECT_FALSE(SampleSignal::install(fakeWalk, {}, problem));
    EXPECT_EQ(problem, "the sampling signal is taken already");
    SampleSignal::uninstall();
    EXPECT_EQ(SampleSignal::number(), 0);
    raise(SIGRTMIN + 8); // a late one does no harm
    for (int taken = SIGRTMIN + 8; taken <= SIGRTMAX; taken++) signal(taken, [](int) {});
    EXPECT_FALSE(SampleSignal::install(fakeWalk, {}, problem));
    EXPECT_EQ(problem, "no real-time signal is free for sampling: every one from SIGRTMIN+6 up "
                       "has a handler");
    freeSignals();
}

TEST(SampleSignal, SignalsThatNobodyAskedForAreIgnored) {
    freeSignals();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(fakeWalk, {}, problem));
    raise(SampleSignal::number()); // not queued
    sigqueue(getpid(), SampleSignal::number(), {.sival_ptr = nullptr});
    FakeJavaThread thread;
    SampleSlot slot;
    slot.env = thread.env();
    slot.tid = gettid();
    sigqueue(getpid(), SampleSignal::number(), {.sival_ptr = &slot}); // a slot in no state for it
    EXPECT_TRUE(slot.idle());
    slot.tid = gettid() + 1;
    slot.state = SampleSlot::kAsked; // another thread's
    sigqueue(getpid(), SampleSignal::number(), {.sival_ptr = &slot});
    EXPECT_EQ(slot.state, SampleSlot::kAsked);
    EXPECT_EQ(thread.walks, 0);
    SampleSignal::uninstall();
}

} // namespace
} // namespace bridge
