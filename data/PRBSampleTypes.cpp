// What a sample type id stands for: its display name, its source, its class.
#include "anchors/PRBSampleAnchors.h"
#include "core/PRBTrace.h"
#include "data/PRBAppServerOverviewSample.h"
#include "data/PRBAppServerSample.h"
#include "data/PRBBuffer.h"
#include "data/PRBCThreadSample.h"
#include "data/PRBContentionSample.h"
#include "data/PRBEndSample.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBHeapSample.h"
#include "data/PRBMethodSummarySample.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBProfilerError.h"
#include "data/PRBProfilerResourceSample.h"

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kMember, PRBComponent::kSample, operation);
}

template <class Sample> PRBSample* make() { return new Sample; }

// The classes whose records may be received.
constexpr struct {
    _SampleType type;
    PRBSample* (*create)();
} kClasses[] = {
    {kSampleAppServer, make<PRBAppServerSample>},
    {kSampleThread, make<PRBCThreadSample>},
    {kSampleMethodUsage, make<PRBMethodUsageSample>},
    {kSampleContention, make<PRBContentionSample>},
    {kSampleHeap, make<PRBHeapSample>},
    {kSampleGarbageCollection, make<PRBGarbageCollectionSample>},
    {kSampleProfilerError, make<PRBProfilerError>},
    {kSampleProfilerResource, make<PRBProfilerResourceSample>},
    {kSampleMethodSummary, make<PRBMethodSummarySample>},
    {kSampleAppServerOverview, make<PRBAppServerOverviewSample>},
    {kSampleEnd, make<PRBEndSample>},
};

// "Workload Exceptionl" and the second "Web Application" are what receivers know.
constexpr struct {
    int type;
    const char* name;
} kNames[] = {
    {1, "Application Server"},
    {2, "Container"},
    {3, "Transaction"},
    {4, "Object Pool"},
    {5, "EJB"},
    {6, "EJB Method"},
    {7, "DB Connection"},
    {8, "Web Application"},
    {9, "Servlet"},
    {10, "Thread"},
    {11, "Method"},
    {37, "MethodSummary"},
    {12, "Contention"},
    {13, "Heap"},
    {14, "Garbage Collection"},
    {32, "Workload Detail"},
    {31, "Workload Summary"},
    {36, "Workload Exceptionl"},
    {33, "HTTPSession Detail"},
    {34, "DataSource Detail"},
    {35, "MQAccess Detail"},
    {15, "Application Server Event"},
    {16, "ProductEvent"},
    {19, "Application Server SMF Interval Statistics"},
    {20, "MOFW Container"},
    {21, "MOFW Class"},
    {22, "MOFW Method"},
    {23, "J2EE Container"},
    {24, "J2EE Java Bean"},
    {25, "J2EE Method"},
    {39, "Application Server Overview"},
    {40, "Application Server Configuration"},
    {41, "JVM Properties"},
    {55, "WAS Environment Variables"},
    {42, "Application Server Detail Version Info"},
    {43, "JDBC Pool Configuration"},
    {44, "JDBC Pool Counters"},
    {45, "Web Application Configuration"},
    {46, "Servlet Configuration"},
    {47, "HTTP Session Manager Configuration"},
    {48, "Web Container"},
    {49, "Web Application"},
    {50, "Web Servlet"},
    {53, "Garbage Collection Allocation Failure Detail"},
    {54, "Garbage Collection Cycle Detail"},
    {56, "Class Heap Summary"},
    {57, "Workload Heap Usage"},
    {58, "Class Heap Detail"},
    {61, "Heap Object Reference"},
    {66, "CTG Summary"},
    {63, "Heap Allocation By Method"},
    {64, "Inflight Workload Summary"},
    {65, "Inflight Workload Detail"},
    {998, "End of samples"},
};

} // namespace

std::unique_ptr<PRBSample> PRBSample::buildFromType(_SampleType type) {
    auto trace = traced("PRBSample::buildFromType");
    for (const auto& row : kClasses)
        if (row.type == type) return std::unique_ptr<PRBSample>(row.create());
    return nullptr;
}

std::unique_ptr<PRBSample> PRBSample::buildFromBuffer(PRBBuffer& buffer) {
    auto trace = traced("PRBSample::buildFromBuffer");
    return buildFromType(static_cast<_SampleType>(buffer.getNextIntField()));
}

PRBResourceAnchor* PRBSample::getResourceAnchor() const {
    auto trace = traced("PRBSample::getResourceAnchor");
    return prbNewAnchorOf(*this);
}

const char* PRBSample::getSampleTypeInEnglish(_SampleType type) {
    auto trace = traced("PRBSample::getSampleTypeInEnglish");
    for (const auto& row : kNames)
        if (row.type == type) return row.name;
    return "Unknown";
}

_DataSource PRBSample::getDataSource(_SampleType type) {
    const auto within = [type](int first, int last) { return type >= first && type <= last; };
    if (within(10, 14) || within(17, 18) || type == 37) return kProfiler;
    if (within(31, 36) || within(56, 66)) return kWorkloadAnalysis;
    return kServerCounters;
}
