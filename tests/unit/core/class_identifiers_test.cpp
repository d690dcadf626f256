#include "collector/PRBWorkloadCollector.h"
#include "collector/ReferenceFinderHeapDumpHandler.h"
#include "core/PRBArena.h"
#include "core/PRBCollectable.h"
#include "core/PRBStringMask.h"
#include "data/PRBAppServerOverviewSample.h"
#include "data/PRBAppServerSample.h"
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "data/PRBEndSample.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBHeapSample.h"
#include "data/PRBKeyValueSet.h"
#include "data/PRBMethodSummarySample.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBProfilerError.h"
#include "data/PRBProfilerResourceSample.h"
#include "data/PRBServerSamples.h"
#include "data/PRBWorkloadSamples.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"
#include "runtime/PRBMonitorContentionEvent.h"

#include <gtest/gtest.h>

namespace {

// Asked through the root, as containers do.
std::uint16_t identifierOf(const PRBCollectable& c) { return c.isA(); }

} // namespace

TEST(ClassIdentifiers, areThoseOfTheTable) {
    using Pair = PRBKeyValueSet::PRBKeyValuePair;
    EXPECT_EQ(identifierOf(PRBCollectable()), 0);
    EXPECT_EQ(identifierOf(PRBJavaObject()), 0);
    EXPECT_EQ(identifierOf(Pair()), 32675);
    EXPECT_EQ(identifierOf(PRBKeyValueSet::KeyValuePairString()), 32675);
    EXPECT_EQ(identifierOf(PRBKeyValueSet::KeyValuePairNumeric()), 32675);
    EXPECT_EQ(
        identifierOf(
            PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::FoundReferenceObject(nullptr)),
        32677);
    EXPECT_EQ(identifierOf(PRBJavaThread::InstrumentedMethodEntry(nullptr, nullptr, nullptr)),
              32710);
    static const auto* collector = new PRBWorkloadCollector(nullptr, nullptr); // never deleted
    EXPECT_EQ(identifierOf(*collector), 32714);
    EXPECT_EQ(identifierOf(PRBStringMask("a", kExactCase)), 32733);
    EXPECT_EQ(identifierOf(PRBJavaThread::MethodFrequency(nullptr)), 32735);
    EXPECT_EQ(identifierOf(PRBJavaThread::MonitorContentionEvent()), 32739);
    EXPECT_EQ(identifierOf(PRBJavaThread(nullptr)), 32740);
    EXPECT_EQ(identifierOf(PRBJavaMethod()), 32741);
    EXPECT_EQ(identifierOf(PRBJavaObjectAllocated()), 32742);
    EXPECT_EQ(identifierOf(PRBArena()), 32743);
    EXPECT_EQ(identifierOf(PRBJavaClass()), 32744);
}

template <class Sample> class SampleIdentifiers : public testing::Test {};
using Samples = testing::Types<
    PRBApplicationSample, PRBAppServerOverviewSample, PRBAppServerSample, PRBContentionSample,
    PRBContainerSample, PRBCThreadSample, PRBDBConnectPoolSample, PRBDataSourceDetSample,
    PRBEJBMethodSample, PRBEJBSample, PRBEndSample, PRBGarbageCollectionSample, PRBHTTPSample,
    PRBHeapSample, PRBMethodSummarySample, PRBMethodUsageSample, PRBObjectPoolSample,
    PRBProfilerError, PRBProfilerResourceSample, PRBServletSample, PRBTransactionSample,
    PRBWorkloadDetailSample, PRBWorkloadExceptionSample, PRBWorkloadSumSample>;
TYPED_TEST_SUITE(SampleIdentifiers, Samples);

TYPED_TEST(SampleIdentifiers, areThatOfTransportableDataButForOne) {
    const int expected = std::is_same_v<TypeParam, PRBWorkloadExceptionSample> ? 32700 : 32757;
    EXPECT_EQ(identifierOf(TypeParam()), expected);
}
