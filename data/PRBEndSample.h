// The mark after the last sample of a batch: identity, time and duration only.
#ifndef PRB_DATA_PRBENDSAMPLE_H
#define PRB_DATA_PRBENDSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBEndSample : public PRBSampleOf<PRBEndSample, PRBSampleCatalogue::kEnd> {};

#endif
