// Blocking and waiting on the monitors of one class in one method of one thread. Filled by the
// contention records.
#ifndef PRB_DATA_PRBCONTENTIONSAMPLE_H
#define PRB_DATA_PRBCONTENTIONSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBContentionSample
    : public PRBSampleOf<PRBContentionSample, PRBSampleCatalogue::kContention> {};

#endif
