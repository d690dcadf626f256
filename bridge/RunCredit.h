// The account of one thread from which the sampler decides whether the thread "has run": a
// thread's samples, times the mean length of a cycle, are to be its CPU time.
//
// The account is kept in cycles: CPU time since the last look, divided by the mean length of a
// cycle, is added; each sample takes 1 off. CPU time is thereby cut into strata of one cycle each,
// and one sample falls due in every stratum, at a point drawn evenly at random: the expected number
// of samples is exact from the first nanosecond of a thread's life, and a program whose own period
// is a multiple of the cycle cannot lock the due points to one phase of its work.
//
// Pure arithmetic without clock, lock or allocation; used by the sampler under its own lock.
#pragma once

#include <cstdint>

namespace bridge {

// The price of a sample: the mean length of the latest cycles, in nanoseconds. A mean, and not the
// length of the cycle at hand, because the reader of the data multiplies by the mean: a thread that
// ran through a long cycle catches up in the short ones that follow. Of the latest cycles alone,
// because cycles grow and shrink with the load of the machine: a thread with a steady share of a
// processor is to have the same share of the cycles, whatever their length is at the time.
class CycleClock {
public:
    // Notes a cycle at `nowNs` (CLOCK_MONOTONIC). False if it starts a new run: the first cycle
    // ever, or one after a pause (sampling was off), whose CPU time is nobody's sample.
    bool tick(std::int64_t nowNs);
    // Mean length; 0 until a run has had two cycles.
    double meanNs() const { return meanNs_; }

private:
    static constexpr std::int64_t kPauseNs = 2'000'000'000; // and at least 20 mean cycles
    static constexpr int kPauseCycles = 20;
    static constexpr int kWindow = 64; // cycles that the mean remembers

    std::int64_t lastNs_ = 0;
    double meanNs_ = 0;
    int counted_ = 0;
    bool started_ = false;
};

class RunCredit {
public:
    RunCredit() { reset(0); }
    explicit RunCredit(std::uint32_t seed) { reset(seed); }

    // Forgets everything: a new thread.
    void reset(std::uint32_t seed);
    // Adds CPU time (ns); `meanCycleNs` > 0.
    void earn(std::int64_t cpuNs, double meanCycleNs);

    // A sample is due; `patience` more cycles' worth may be asked for (0 for a sample now).
    bool due(double patience = 0) const { return credit_ >= threshold_ + patience; }
    // Takes one sample off and draws the point of the next.
    void charge();

    // Cycles' worth that is not yet sampled (below 0: sampled early within its stratum).
    double balance() const { return credit_; }

private:
    void draw();

    double credit_ = 0;
    double threshold_ = 0; // 0 <= threshold < 1
    std::uint32_t random_ = 1;
};

// What the sampler holds of a thread's stack from earlier looks.
enum class KeptTrace : std::uint8_t {
    kNone,
    kCounted, // taken while the thread ran; a sample has used it
    kFresh,   // taken while the thread ran; no sample has used it
};

enum class Verdict : std::uint8_t {
    kNothing,
    kSample,        // stop the thread and count it with what it runs
    kSampleKept,    // count it with the kept trace, without touching it
    kSampleBlocked, // stop it where it is blocked and count that
    kKeepTrace,     // stop it for a trace to count later
};

// Cycles' worth of credit beyond a due sample: before a trace counts for a second time, and before
// a thread of which there is no trace is sampled where it is blocked.
inline constexpr double kPatienceForFresh = 1;
inline constexpr double kPatienceForTrace = 10;

// What to do with a thread at a look. `running`: it runs or is ready to. `mostlyBlocked`: it was
// seen blocked or waiting lately.
Verdict judge(const RunCredit& credit, KeptTrace trace, bool running, bool mostlyBlocked);

} // namespace bridge
