// What the agent itself costs: processor time and cycles of the sampler, memory.
#ifndef PRB_DATA_PRBPROFILERRESOURCESAMPLE_H
#define PRB_DATA_PRBPROFILERRESOURCESAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBProfilerResourceSample
    : public PRBSampleOf<PRBProfilerResourceSample, PRBSampleCatalogue::kProfilerResource> {};

#endif
