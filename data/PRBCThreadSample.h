// What one thread did since the last poll: processor, blocked and waiting samples, contention,
// allocation. Filled by the thread model.
#ifndef PRB_DATA_PRBCTHREADSAMPLE_H
#define PRB_DATA_PRBCTHREADSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBCThreadSample : public PRBSampleOf<PRBCThreadSample, PRBSampleCatalogue::kThread> {};

#endif
