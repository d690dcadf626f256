// What one method did on all threads: usage samples summed.
#ifndef PRB_DATA_PRBMETHODSUMMARYSAMPLE_H
#define PRB_DATA_PRBMETHODSUMMARYSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBMethodUsageSample;

class PRBMethodSummarySample
    : public PRBSampleOf<PRBMethodSummarySample, PRBSampleCatalogue::kMethodSummary> {
public:
    PRBMethodSummarySample() = default;
    PRBMethodSummarySample(const PRBMethodSummarySample&) = default;
    PRBMethodSummarySample& operator=(const PRBMethodSummarySample&) = default;
    // Takes over the names of class, method and signature and merges the counts into its own.
    PRBMethodSummarySample& operator=(const PRBMethodUsageSample& usage);
};

#endif
