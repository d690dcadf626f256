// Every sample class, and a way to make one.
#ifndef PRB_TESTS_UNIT_DATA_ALLSAMPLES_H
#define PRB_TESTS_UNIT_DATA_ALLSAMPLES_H

#include "data/PRBAppServerOverviewSample.h"
#include "data/PRBAppServerSample.h"
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "data/PRBEndSample.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBHeapSample.h"
#include "data/PRBMethodSummarySample.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBProfilerError.h"
#include "data/PRBProfilerResourceSample.h"
#include "data/PRBServerSamples.h"
#include "data/PRBWorkloadSamples.h"

#include <memory>

namespace datatest {

template <class Sample> std::unique_ptr<PRBSample> create() {
    return std::unique_ptr<PRBSample>(new Sample);
}

} // namespace datatest

#endif
