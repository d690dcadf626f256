// What one method did on one thread since the last poll. Filled by the frequency records.
#ifndef PRB_DATA_PRBMETHODUSAGESAMPLE_H
#define PRB_DATA_PRBMETHODUSAGESAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBMethodUsageSample
    : public PRBSampleOf<PRBMethodUsageSample, PRBSampleCatalogue::kMethodUsage> {};

#endif
