// The state of a server as the Java side reports it; passes through.
#ifndef PRB_DATA_PRBAPPSERVEROVERVIEWSAMPLE_H
#define PRB_DATA_PRBAPPSERVEROVERVIEWSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBAppServerOverviewSample
    : public PRBSampleOf<PRBAppServerOverviewSample, PRBSampleCatalogue::kAppServerOverview> {};

#endif
