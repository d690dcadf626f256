#include "anchors/PRBSampleAnchors.h"

#include "anchors/PRBAnchors.h"

namespace {

template <class Anchor> PRBDescribedAnchor* make() { return new Anchor; }

constexpr struct {
    _SampleType type;
    PRBDescribedAnchor* (*create)();
} kAnchors[] = {
    {kSampleMethodUsage, make<PRBMethodAnchor>},
    {kSampleThread, make<PRBThreadAnchor>},
    {kSampleContention, make<PRBContentionAnchor>},
    {kSampleHeap, make<PRBHeapAnchor>},
    {kSampleGarbageCollection, make<PRBGCAnchor>},
    {kSampleProfilerResource, make<PRBProfilerResourceAnchor>},
    {kSampleMethodSummary, make<PRBMethodSummaryAnchor>},
    {kSampleAppServer, make<PRBAppServerAnchor>},
    {kSampleAppServerOverview, make<PRWAppSrvOverviewAnchor>},
    {kSampleContainer, make<PRBContainerAnchor>},
    {kSampleTransaction, make<PRBContainerTransactionAnchor>},
    {kSampleObjectPool, make<PRBObjectPoolAnchor>},
    {kSampleEJB, make<PRBEJBAnchor>},
    {kSampleEJBMethod, make<PRBEJBMethodAnchor>},
    {kSampleDBConnectPool, make<PRBDBConnectionAnchor>},
    {kSampleApplication, make<PRBApplicationAnchor>},
    {kSampleServlet, make<PRBServletAnchor>},
    {kSampleWorkloadSum, make<PRBWorkloadSumAnchor>},
    {kSampleWorkloadDetail, make<PRBWorkloadDetailAnchor>},
    {kSampleWorkloadException, make<PRBWorkloadExceptionAnchor>},
    {kSampleHTTP, make<PRBHTTPAnchor>},
    {kSampleDataSourceDet, make<PRBDataSourceAnchor>},
};

} // namespace

PRBResourceAnchor* prbNewAnchorOf(const PRBSample& sample) {
    for (const auto& row : kAnchors) {
        if (row.type != sample.getSampleType()) continue;
        PRBDescribedAnchor* anchor = row.create();
        if (anchor != nullptr) anchor->identify(sample);
        return anchor;
    }
    return new PRBResourceAnchor(sample.getSampleType(), sample.getResourceName());
}
