// Holds the CPU sampler off while its counters are read.
#ifndef PRB_COLLECTOR_PRBSAMPLERPAUSE_H
#define PRB_COLLECTOR_PRBSAMPLERPAUSE_H

#include "runtime/PRBProfilerCPUSampler.h"

// Interrupts the sampler if there is one and it is running, and resumes it on every way out of
// the scope. The two must happen on one thread: the sampler's lock belongs to it meanwhile.
class PRBSamplerPause {
public:
    explicit PRBSamplerPause(PRBProfilerCPUSampler* sampler) {
        if (sampler == nullptr || sampler->getCurrentState() != kRunning) return;
        sampler->interruptSampler();
        sampler_ = sampler;
    }
    ~PRBSamplerPause() {
        if (sampler_ != nullptr) sampler_->resumeSampler(kSameInterval);
    }
    PRBSamplerPause(const PRBSamplerPause&) = delete;
    PRBSamplerPause& operator=(const PRBSamplerPause&) = delete;

    bool isPausing() const { return sampler_ != nullptr; }

private:
    static constexpr int kRunning = 0;
    static constexpr unsigned kSameInterval = 0;
    PRBProfilerCPUSampler* sampler_ = nullptr;
};

#endif
