// The sampler's accounts against simulated threads whose CPU time is known exactly.
#include "bridge/RunCredit.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace bridge {
namespace {

constexpr double kMs = 1e6;
constexpr double kCycle = 10 * kMs;

// A thread as a function of wall time: CPU time used up to then, and whether it runs then (or
// would).
struct Program {
    std::function<double(double wallNs)> cpu;
    std::function<bool(double wallNs)> running;
};

// `busy` of every `period` ns, from `phase` on.
Program bursts(double busy, double period, double phase) {
    return {[=](double wall) {
                const double at = wall + phase;
                const double whole = std::floor(at / period);
                const double start =
                    std::floor(phase / period) * busy + std::min(std::fmod(phase, period), busy);
                return whole * busy + std::min(at - whole * period, busy) - start;
            },
            [=](double wall) { return std::fmod(wall + phase, period) < busy; }};
}

struct Outcome {
    double due; // CPU time over the mean cycle
    int samples = 0;
    int live = 0;    // taken while it runs
    int kept = 0;    // counted with a trace of when it ran
    int blocked = 0; // counted where it was blocked
    int stops = 0;
};

// What the sampler does with one thread, cycle after cycle.
Outcome sample(const Program& program, const std::vector<double>& looks, std::uint32_t seed) {
    RunCredit credit(seed);
    CycleClock clock;
    KeptTrace trace = KeptTrace::kNone;
    double cpu = 0;
    int lastBlocked = -1000;
    Outcome result{};
    for (std::size_t i = 0; i < looks.size(); i++) {
        const bool counts = clock.tick(static_cast<std::int64_t>(looks[i]));
        const double now = program.cpu(looks[i]);
        const double used = now - cpu;
        cpu = now;
        if (!counts) continue;
        credit.earn(static_cast<std::int64_t>(used), clock.meanNs());
        const bool running = program.running(looks[i]);
        const int cycle = static_cast<int>(i);
        if (!running) lastBlocked = cycle;
        switch (judge(credit, trace, running, cycle - lastBlocked <= 32)) {
        case Verdict::kNothing:
            continue;
        case Verdict::kSample:
            result.live++;
            result.stops++;
            trace = KeptTrace::kCounted;
            break;
        case Verdict::kSampleKept:
            result.kept++;
            trace = KeptTrace::kCounted;
            break;
        case Verdict::kSampleBlocked:
            result.blocked++;
            result.stops++;
            break;
        case Verdict::kKeepTrace:
            result.stops++;
            trace = KeptTrace::kFresh;
            continue;
        }
        credit.charge();
        result.samples++;
    }
    result.due = (cpu - program.cpu(looks.front())) /
                 ((looks.back() - looks.front()) / static_cast<double>(looks.size() - 1));
    return result;
}

std::vector<double> steady(int cycles, double cycle = kCycle) {
    std::vector<double> looks;
    for (int i = 0; i <= cycles; i++) looks.push_back(i * cycle);
    return looks;
}

// Cycles as a loaded machine gives them: jitter, and now and then one several times as long.
std::vector<double> ragged(int cycles, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::exponential_distribution<double> jitter(1 / (0.4 * kMs));
    std::vector<double> looks{0};
    for (int i = 0; i < cycles; i++) {
        const double extra = random() % 100 == 0 ? 60 * kMs : 0;
        looks.push_back(looks.back() + kCycle + jitter(random) + extra);
    }
    return looks;
}

TEST(RunCredit, AThreadThatAlwaysRunsIsSampledEveryCycle) {
    const Program always = bursts(1, 1, 0);
    for (std::uint32_t seed = 0; seed < 50; seed++) {
        const Outcome outcome = sample(always, steady(2000), seed);
        EXPECT_NEAR(outcome.samples, outcome.due, 2) << seed;
        EXPECT_EQ(outcome.samples, outcome.live);
        EXPECT_EQ(outcome.samples, outcome.stops);
    }
}

TEST(RunCredit, LongCyclesAreMadeUpForInTheShortOnes) {
    const Program always = bursts(1, 1, 0);
    double sum = 0;
    constexpr std::uint32_t kRuns = 50;
    for (std::uint32_t seed = 0; seed < kRuns; seed++) {
        const Outcome outcome = sample(always, ragged(2000, seed), seed);
        EXPECT_NEAR(outcome.samples / outcome.due, 1, 0.03) << seed;
        sum += outcome.samples / outcome.due;
    }
    EXPECT_NEAR(sum / kRuns, 1, 0.015);
}

// The load of the machine doubles the cycles for a part of the run.
TEST(RunCredit, ASteadyShareIsSampledAlikeInShortAndLongCycles) {
    double ratios = 0;
    constexpr std::uint32_t kRuns = 40;
    for (std::uint32_t seed = 0; seed < kRuns; seed++) {
        std::vector<double> looks{0};
        for (int i = 0; i < 3000; i++) {
            looks.push_back(looks.back() + (i >= 1000 && i < 2000 ? 2.3 * kCycle : kCycle));
        }
        const Outcome outcome = sample(bursts(0.3 * kMs, 1.0173 * kMs, 0), looks, seed);
        ratios += outcome.samples / outcome.due;
    }
    EXPECT_NEAR(ratios / kRuns, 1, 0.01);
}

struct Load {
    const char* name;
    double busy;
    double period;
};

class RunCreditLoad : public testing::TestWithParam<Load> {};

// The whole of 40 such threads, as the accuracy of a program's total is that of its threads
// together, at all phases against the cycle.
TEST_P(RunCreditLoad, SamplesAreTheCpuTimeWhateverThePhase) {
    const Load load = GetParam();
    std::mt19937 random(7);
    double due = 0;
    int samples = 0;
    int blocked = 0;
    for (std::uint32_t thread = 0; thread < 40; thread++) {
        const double phase = load.period * static_cast<double>(random() % 1000) / 1000.0;
        const Outcome outcome =
            sample(bursts(load.busy, load.period, phase), ragged(2000, thread + 1), thread);
        due += outcome.due;
        samples += outcome.samples;
        blocked += outcome.blocked;
    }
    EXPECT_NEAR(samples / due, 1, 0.02) << due;
    EXPECT_LE(blocked, samples / 100);
}

INSTANTIATE_TEST_SUITE_P(Loads, RunCreditLoad,
                         testing::Values(Load{"thirtyPercent", 3 * kMs, 10.07 * kMs},
                                         Load{"halfOfTwoCycles", 10 * kMs, 20 * kMs},
                                         Load{"bursty", 0.2 * kMs, 1.1 * kMs},
                                         Load{"burstyLockedToCycle", 0.2 * kMs, 1 * kMs},
                                         Load{"rareBursts", 0.2 * kMs, 7.3 * kMs},
                                         Load{"longBursts", 70 * kMs, 300 * kMs},
                                         Load{"nearlyAlways", 9.5 * kMs, 10.01 * kMs}),
                         [](const testing::TestParamInfo<Load>& load) { return load.param.name; });

TEST(RunCredit, ABurstyThreadIsSampledAtItsWork) {
    const Outcome outcome = sample(bursts(0.2 * kMs, 1.037 * kMs, 0.1 * kMs), ragged(4000, 3), 3);
    EXPECT_GT(outcome.samples, 600);
    EXPECT_LE(outcome.blocked, 1);
    // and without stopping it much more often than it is counted
    EXPECT_LE(outcome.stops, outcome.samples * 1.3);
}

// 13 threads that are always ready to run share two processors.
TEST(RunCredit, PreemptedThreadsAreSampledInProportion) {
    std::mt19937 random(11);
    constexpr int kThreads = 13;
    std::vector<double> cpu(kThreads, 0);
    std::vector<RunCredit> credit;
    for (std::uint32_t i = 0; i < kThreads; i++) credit.emplace_back(i);
    std::vector<int> samples(kThreads, 0);
    for (int cycle = 0; cycle < 3000; cycle++) {
        for (int slice = 0; slice < 5; slice++) { // 2 processors, 2 ms each
            const auto first = random() % kThreads;
            const auto second = (first + 1 + random() % (kThreads - 1)) % kThreads;
            for (const auto i : {first, second}) {
                cpu[i] += 2 * kMs;
                credit[i].earn(static_cast<std::int64_t>(2 * kMs), kCycle);
            }
        }
        for (std::size_t i = 0; i < kThreads; i++) {
            if (judge(credit[i], KeptTrace::kCounted, true, false) != Verdict::kSample) continue;
            credit[i].charge();
            samples[i]++;
        }
    }
    for (std::size_t i = 0; i < kThreads; i++) EXPECT_NEAR(samples[i], cpu[i] / kCycle, 3) << i;
}

// A thread that lives for a fraction of a cycle's CPU time is sampled with that probability: the
// first sample of a life is neither early nor late.
TEST(RunCredit, ShortLivesAreNeitherFavouredNorForgotten) {
    int samples = 0;
    constexpr int kLives = 20000;
    for (std::uint32_t life = 0; life < kLives; life++) {
        RunCredit credit(life);
        credit.earn(static_cast<std::int64_t>(2.5 * kMs), kCycle);
        if (credit.due()) samples++;
    }
    EXPECT_NEAR(samples, kLives / 4, 5 * std::sqrt(kLives * 0.25 * 0.75));
}

// A program that alternates 5 ms of A and 5 ms of B, then rests for 10 ms: one sample per burst.
// If samples fell due at a fixed point of CPU time, all of them would see the same half.
TEST(RunCredit, APeriodOfTheProgramDoesNotLockTheDuePoints) {
    RunCredit credit(5);
    int inA = 0;
    constexpr int kBursts = 20000;
    for (int burst = 0; burst < kBursts; burst++) {
        for (int step = 0; step < 100; step++) { // 0.1 ms each
            credit.earn(static_cast<std::int64_t>(0.1 * kMs), kCycle);
            if (!credit.due()) continue;
            credit.charge();
            if (step < 50) inA++;
        }
    }
    EXPECT_NEAR(inA, kBursts / 2, 5 * std::sqrt(kBursts * 0.25));
}

TEST(RunCredit, ABlockedThreadKeepsItsCreditAndIsChargedInTheEnd) {
    RunCredit credit(1);
    credit.earn(static_cast<std::int64_t>(9.9 * kCycle), kCycle);
    EXPECT_EQ(judge(credit, KeptTrace::kNone, false, true), Verdict::kNothing);
    EXPECT_EQ(judge(credit, KeptTrace::kCounted, false, true), Verdict::kSampleKept);
    EXPECT_EQ(judge(credit, KeptTrace::kFresh, false, true), Verdict::kSampleKept);
    EXPECT_EQ(judge(credit, KeptTrace::kNone, true, true), Verdict::kSample);
    credit.earn(static_cast<std::int64_t>(1.1 * kCycle), kCycle);
    EXPECT_EQ(judge(credit, KeptTrace::kNone, false, true), Verdict::kSampleBlocked);
}

TEST(RunCredit, AThreadWithoutCreditIsStoppedOnlyForATraceThatIsMissing) {
    const RunCredit credit(1);
    EXPECT_EQ(judge(credit, KeptTrace::kNone, true, false), Verdict::kNothing);
    EXPECT_EQ(judge(credit, KeptTrace::kNone, true, true), Verdict::kKeepTrace);
    EXPECT_EQ(judge(credit, KeptTrace::kCounted, true, true), Verdict::kKeepTrace);
    EXPECT_EQ(judge(credit, KeptTrace::kFresh, true, true), Verdict::kNothing);
    EXPECT_EQ(judge(credit, KeptTrace::kFresh, false, true), Verdict::kNothing);
}

TEST(CycleClock, APauseStartsANewRunButASlowIntervalDoesNot) {
    constexpr std::int64_t ms = 1'000'000;
    CycleClock clock;
    std::int64_t now = 77;
    EXPECT_FALSE(clock.tick(now)); // the first ever
    EXPECT_EQ(clock.meanNs(), 0);
    EXPECT_TRUE(clock.tick(now += 5000 * ms)); // whatever its length, it may be the interval
    EXPECT_EQ(clock.meanNs(), 5000.0 * ms);
    EXPECT_TRUE(clock.tick(now += 5000 * ms));
    CycleClock fast;
    fast.tick(now);
    for (int i = 0; i < 10; i++) EXPECT_TRUE(fast.tick(now += 10 * ms));
    EXPECT_TRUE(fast.tick(now += 1000 * ms)); // the machine stood still
    EXPECT_NEAR(fast.meanNs(), 100.0 * ms, 1);
    EXPECT_TRUE(fast.tick(now += 10 * ms));
    EXPECT_FALSE(fast.tick(now += 60'000 * ms)); // sampling was off
    EXPECT_EQ(fast.meanNs(), 0);
}

} // namespace
} // namespace bridge
