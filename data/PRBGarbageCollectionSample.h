// The collections since the last poll and since the start of the process.
#ifndef PRB_DATA_PRBGARBAGECOLLECTIONSAMPLE_H
#define PRB_DATA_PRBGARBAGECOLLECTIONSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBGarbageCollectionSample
    : public PRBSampleOf<PRBGarbageCollectionSample, PRBSampleCatalogue::kGarbageCollection> {};

#endif
