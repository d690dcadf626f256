#include "data/PRBKeyNames.h"

#include "data/PRBSampleCatalogue.h"

#include <cstring>

namespace {

namespace Catalogue = PRBSampleCatalogue;

constexpr const PRBSampleClass* kClasses[] = {
    &Catalogue::kAppServer,
    &Catalogue::kContainer,
    &Catalogue::kTransaction,
    &Catalogue::kObjectPool,
    &Catalogue::kEJB,
    &Catalogue::kEJBMethod,
    &Catalogue::kDBConnectPool,
    &Catalogue::kApplication,
    &Catalogue::kServlet,
    &Catalogue::kThread,
    &Catalogue::kMethodUsage,
    &Catalogue::kContention,
    &Catalogue::kHeap,
    &Catalogue::kGarbageCollection,
    &Catalogue::kProfilerError,
    &Catalogue::kProfilerResource,
    &Catalogue::kWorkloadSum,
    &Catalogue::kWorkloadDetail,
    &Catalogue::kHTTP,
    &Catalogue::kDataSourceDet,
    &Catalogue::kWorkloadException,
    &Catalogue::kMethodSummary,
    &Catalogue::kAppServerOverview,
    &Catalogue::kEnd,
};

constexpr int kAnyType = 0;

// Rows of one sample type stand before the row for any type.
constexpr struct {
    int sampleType;
    int key;
    const char* name;
} kNames[] = {
    {kSampleHeap, 308, "allocations"},
    {kSampleHeap, 309, "liveBytes"},
    {kSampleHeap, 340, "liveObjects"},
    {kSampleHeap, 341, "freedObjects"},
    {kSampleHeap, 342, "movedObjects"},
    {kSampleGarbageCollection, 341, "totalFreedObjects"},
    {kSampleGarbageCollection, 342, "totalMovedObjects"},
    {kSampleDataSourceDet, 8, "dataSource"},

    {kAnyType, 2, "threadId"},
    {kAnyType, 4, "processId"},
    {kAnyType, 5, "serverName"},
    {kAnyType, 10, "className"},
    {kAnyType, 11, "methodName"},
    {kAnyType, 20, "time"},
    {kAnyType, 21, "duration"},
    {kAnyType, 58, "instrumentationLevel"},
    {kAnyType, 129, "transactions"},
    {kAnyType, 130, "transactionsCommitted"},
    {kAnyType, 131, "transactionsRolledBack"},
    {kAnyType, 207, "instantiates"},
    {kAnyType, 240, "poolCreates"},
    {kAnyType, 241, "poolDestroys"},
    {kAnyType, 242, "poolAllocates"},
    {kAnyType, 260, "errors"},
    {kAnyType, 261, "requests"},
    {kAnyType, 301, "threadName"},
    {kAnyType, 302, "groupName"},
    {kAnyType, 303, "parentName"},
    {kAnyType, 304, "contentions"},
    {kAnyType, 305, "contentionMs"},
    {kAnyType, 306, "waits"},
    {kAnyType, 307, "waitMs"},
    {kAnyType, 308, "allocations"},
    {kAnyType, 309, "allocatedBytes"},
    {kAnyType, 310, "busySamples"},
    {kAnyType, 311, "cpuSamples"},
    {kAnyType, 312, "contentionSamples"},
    {kAnyType, 313, "waitSamples"},
    {kAnyType, 314, "timeMs"},
    {kAnyType, 315, "cycles"},
    {kAnyType, 316, "processCpuMs"},
    {kAnyType, 320, "methodSignature"},
    {kAnyType, 321, "ownSamples"},
    {kAnyType, 322, "calleeSamples"},
    {kAnyType, 330, "monitorClassName"},
    {kAnyType, 340, "netObjects"},
    {kAnyType, 341, "frees"},
    {kAnyType, 342, "moves"},
    {kAnyType, 350, "collectionCpuMs"},
    {kAnyType, 352, "totalCollections"},
    {kAnyType, 353, "freedBytes"},
    {kAnyType, 354, "bytesInUse"},
    {kAnyType, 355, "freeBytes"},
    {kAnyType, 356, "collectionElapsedMs"},
    {kAnyType, 357, "bytesInUseChange"},
    {kAnyType, 360, "returnCode"},
    {kAnyType, 361, "errorText"},
    {kAnyType, 400, "samplerCpuUs"},
    {kAnyType, 401, "agentBytes"},
    {kAnyType, 402, "agentBytesHighWater"},
    {kAnyType, 403, "samplerCycles"},
    {kAnyType, 700, "workloadType"},
    {kAnyType, 702, "workloadMinorName"},
    {kAnyType, 703, "workloads"},
    {kAnyType, 704, "workloadTime"},
    {kAnyType, 750, "delayType"},
    {kAnyType, 753, "delays"},
    {kAnyType, 754, "delayTime"},
    {kAnyType, 777, "webApplication"},
};

} // namespace

const PRBSampleClass* prbSampleClass(int sampleType) {
    for (const PRBSampleClass* description : kClasses)
        if (description->type == sampleType) return description;
    return nullptr;
}

const char* prbKeyName(int sampleType, int key) {
    const PRBSampleClass* description = prbSampleClass(sampleType);
    if (description != nullptr && description->keywords != nullptr)
        for (const PRBKeyword* row = description->keywords; row->keyword != nullptr; ++row)
            if (row->key == key) return row->keyword;
    for (const auto& row : kNames)
        if (row.key == key && (row.sampleType == kAnyType || row.sampleType == sampleType))
            return row.name;
    return nullptr;
}

const char* prbSampleTypeName(int sampleType) {
    if (sampleType == kSampleProfilerError) return "Profiler Error";
    if (sampleType == kSampleProfilerResource) return "Profiler Resource";
    const char* name = PRBSample::getSampleTypeInEnglish(static_cast<_SampleType>(sampleType));
    return std::strcmp(name, "Unknown") == 0 ? nullptr : name;
}
