#include "bridge/RunCredit.h"

#include <algorithm>

namespace bridge {

bool CycleClock::tick(std::int64_t nowNs) {
    const std::int64_t length = nowNs - lastNs_;
    lastNs_ = nowNs;
    const bool paused = started_ && counted_ > 0 && length > kPauseNs &&
                        static_cast<double>(length) > kPauseCycles * meanNs_;
    if (!started_ || paused || length < 0) {
        started_ = true;
        counted_ = 0;
        meanNs_ = 0;
        return false;
    }
    counted_ = std::min(counted_ + 1, kWindow);
    meanNs_ += (static_cast<double>(length) - meanNs_) / counted_;
    return true;
}

void RunCredit::reset(std::uint32_t seed) {
    credit_ = 0;
    random_ = seed * 2654435761u + 0x9E3779B9u; // neighbouring seeds to distant states
    if (random_ == 0) random_ = 1;
    for (int warmUp = 0; warmUp < 4; warmUp++) draw();
}

void RunCredit::earn(std::int64_t cpuNs, double meanCycleNs) {
    if (meanCycleNs > 0) credit_ += static_cast<double>(cpuNs) / meanCycleNs;
}

void RunCredit::charge() {
    credit_ -= 1;
    draw();
}

// Marsaglia's 32-bit xorshift.
void RunCredit::draw() {
    random_ ^= random_ << 13;
    random_ ^= random_ >> 17;
    random_ ^= random_ << 5;
    threshold_ = static_cast<double>(random_) / 4294967296.0;
}

Verdict judge(const RunCredit& credit, KeptTrace trace, bool running, bool mostlyBlocked) {
    if (running) {
        if (credit.due()) return Verdict::kSample;
        return mostlyBlocked && trace != KeptTrace::kFresh ? Verdict::kKeepTrace
                                                           : Verdict::kNothing;
    }
    switch (trace) {
    case KeptTrace::kFresh:
        return credit.due() ? Verdict::kSampleKept : Verdict::kNothing;
    case KeptTrace::kCounted:
        return credit.due(kPatienceForFresh) ? Verdict::kSampleKept : Verdict::kNothing;
    case KeptTrace::kNone:
        return credit.due(kPatienceForTrace) ? Verdict::kSampleBlocked : Verdict::kNothing;
    }
    return Verdict::kNothing;
}

} // namespace bridge
