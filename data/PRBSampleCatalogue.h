// Every sample class as data: keys in the order in which they are streamed, keyword tables in
// the order in which they are searched, and what names the resource. Adding a class is adding a
// row here and, where it has operations of its own, a class that carries them.
#ifndef PRB_DATA_PRBSAMPLECATALOGUE_H
#define PRB_DATA_PRBSAMPLECATALOGUE_H

#include "data/PRBSampleClass.h"

namespace PRBSampleCatalogue {

using R = PRBKeySpan; // an inclusive range of keys

// Keyword tables. The first row with a keyword wins, so the second rows of "instantiates",
// "destroys", "creates", "removes", "activates" and "passivates" in the container's table are
// never reached; they are kept as the servers' own tables have them.
// clang-format off
inline constexpr PRBKeyword kContainerKeywords[] = {
    {"cont_name", 6}, {"cont_il", 59}, {"beanMethodRT", 120}, {"avgMethodRt", 120},
    {"beanMethodCalls", 121}, {"totalMethodCalls", 121}, {"statelessBeansLive", 150},
    {"statelessBeanMethodLoad", 151}, {"statelessBeanInstantiates", 152},
    {"statelessBeanDestroys", 153}, {"entityBeansLive", 154}, {"entityBeanMethodLoad", 156},
    {"entityBeansActive", 155}, {"entityBeanInstantiates", 157}, {"instantiates", 157},
    {"entityBeanDestroys", 158}, {"destroys", 158}, {"entityBeanCreates", 159}, {"creates", 159},
    {"entityBeanRemoves", 160}, {"removes", 160}, {"entityBeanActivations", 161},
    {"activates", 161}, {"entityBeanPassivations", 162}, {"passivates", 162},
    {"entityBeanLoads", 163}, {"loads", 163}, {"entityBeanStores", 164}, {"stores", 164},
    {"statefulBeansLive", 165}, {"statefulBeanMethodLoad", 167}, {"statefulBeansActive", 166},
    {"statefulBeanInstantiates", 168}, {"statefulBeanDestroys", 169},
    {"statefulBeanCreates", 170}, {"statefulBeanRemoves", 171}, {"statefulBeanActivations", 172},
    {"statefulBeanPassivations", 173}, {"summary", 17}, {"avgCreateTime", 212},
    {"avgRemoveTime", 213}, {"creates", 174}, {"removes", 175}, {"activates", 176},
    {"passivates", 177}, {"instantiates", 178}, {"destroys", 179}, {"concurrentActives", 180},
    {"concurrentLives", 181}, {"activeMethods", 182}, {nullptr, 0},
};

inline constexpr PRBKeyword kTransactionKeywords[] = {
    {"cont_name", 6}, {"trans_il", 54}, {"activeTrans", 132}, {"avgTranDuration", 133},
    {"numBeansPerTran", 134}, {"numMethodsPerTran", 135}, {"numTransactions", 129},
    {"numTransCommitted", 130}, {"numTransRolledBack", 131}, {"summary", 17},
    {"globalTransBegun", 370}, {"globalTransInvolved", 371}, {"localTransBegun", 372},
    {"activeGlobalTrans", 373}, {"activeLocalTrans", 374}, {"globalTranDuration", 375},
    {"localTranDuration", 376}, {"globalBeforeCompletionDuration", 377},
    {"globalPrepareDuration", 378}, {"globalCommitDuration", 379},
    {"localBeforeCompletionDuration", 380}, {"localCommitDuration", 381},
    {"numOptimization", 382}, {"globalTransCommitted", 383}, {"localTransCommitted", 384},
    {"globalTransRolledBack", 385}, {"localTransRolledBack", 386}, {"globalTransTimeout", 387},
    {"localTransTimeout", 388}, {nullptr, 0},
};

inline constexpr PRBKeyword kObjectPoolKeywords[] = {
    {"cont_name", 6}, {"bop_il", 56}, {"numGets", 122}, {"getsFromPool", 122},
    {"numGetFound", 123}, {"getsFound", 123}, {"numPuts", 124}, {"returnsToPool", 124},
    {"numPutDiscarded", 125}, {"returnsDiscarded", 125}, {"numDrains", 126},
    {"drainsFromPool", 126}, {"avgDrainSize", 136}, {"poolSize", 128}, {"summary", 17},
    {nullptr, 0},
};

inline constexpr PRBKeyword kEJBKeywords[] = {
    {"bean_il", 52}, {"cont_name", 6}, {"bean_name", 7}, {"bean_type", 200}, {"bop_il", 56},
    {"poolSize", 128}, {"avgDrainSize", 136}, {"numGets", 122}, {"getsFromPool", 122},
    {"numGetFound", 123}, {"getsFound", 123}, {"numPuts", 124}, {"returnsToPool", 124},
    {"numPutDiscarded", 125}, {"returnsDiscarded", 125}, {"numDrains", 126},
    {"drainsFromPool", 126}, {"statelessBeansLive", 150}, {"methodLoad", 211},
    {"activeMethods", 211}, {"methodRt", 120}, {"avgMethodRt", 120}, {"instantiates", 207},
    {"destroys", 208}, {"methodCalls", 121}, {"totalMethodCalls", 121}, {"entityBeansLive", 154},
    {"concurrentLives", 154}, {"entityBeansActive", 155}, {"concurrentActives", 155},
    {"loads", 205}, {"stores", 206}, {"creates", 201}, {"removes", 202}, {"activations", 204},
    {"activates", 204}, {"passivations", 203}, {"passivates", 203}, {"statefulBeansLive", 165},
    {"statefulBeansActive", 166}, {"avgCreateTime", 212}, {"avgRemoveTime", 213}, {nullptr, 0},
};

inline constexpr PRBKeyword kEJBMethodKeywords[] = {
    {"cont_name", 6}, {"bean_name", 7}, {"mthd_name", 11}, {"RT", 120}, {"methodRt", 120},
    {"num_calls", 220}, {"methodCalls", 220}, {"beanm_il", 53}, {nullptr, 0},
};

inline constexpr PRBKeyword kDBConnectPoolKeywords[] = {
    {"dbname", 8}, {"cont_name", 8}, {"dcp_il", 55}, {"percentUsed", 248}, {"avgTimeHeld", 247},
    {"avgWaitTime", 246}, {"numWaiters", 245}, {"concurrentWaiters", 245}, {"poolSize", 244},
    {"percentMaxed", 249}, {"numCreates", 240}, {"numDestroys", 241}, {"numAllocates", 242},
    {"numTimeoutWaiters", 243}, {"faults", 243}, {"numReturns", 251}, {"summary", 17},
    {"prepStmtCacheDiscards", 250}, {nullptr, 0},
};

inline constexpr PRBKeyword kApplicationKeywords[] = {
    {"appl_name", 9}, {"vhost_name", 267}, {"serve_il", 57}, {"numLoadedServlets", 265},
    {"numReloads", 266}, {"numConcurrentRequests", 262}, {"concurrentRequests", 262},
    {"responseTime", 263}, {"numErrors", 260}, {"totalRequests", 261}, {"summary", 17},
    {"web_il", 268}, {"websub_il", 269}, {nullptr, 0},
};

inline constexpr PRBKeyword kServletKeywords[] = {
    {"appl_name", 9}, {"vhost_name", 267}, {"svlt_name", 270}, {"serv_il", 57}, {"serve_il", 57},
    {"numConcurrentRequests", 262}, {"concurrentRequests", 262}, {"responseTime", 263},
    {"numErrors", 260}, {"totalRequests", 261}, {"loadedSince", 264}, {"jspPath", 271},
    {"is_jsp", 272}, {nullptr, 0},
};

// clang-format on

// Keys as a type, so that each list is one constant array.
template <PRBKeySpan... Spans> struct KeyList {
    static constexpr auto keys = prbMakeKeys<Spans...>();
};

// What a row says beside its type, names and keys.
struct Traits {
    int resourceKey = 0, resourceKey2 = 0;
    bool interval = false;
    const PRBKeyword* keywords = nullptr;
    const unsigned* cumulativeKeys = nullptr;
    unsigned numCumulativeKeys = 0;
};

template <class Numeric, class Text>
constexpr PRBSampleClass describe(_SampleType type, const char* name, const char* component,
                                  const Traits& traits) {
    return {type,
            name,
            component,
            Numeric::keys.data(),
            static_cast<unsigned>(Numeric::keys.size()),
            Text::keys.data(),
            static_cast<unsigned>(Text::keys.size()),
            traits.keywords,
            traits.resourceKey,
            traits.resourceKey2,
            traits.interval,
            traits.cumulativeKeys,
            traits.numCumulativeKeys};
}

// Counters that the collection statistics keep over the whole run.
using CollectionTotals = KeyList<341, 342, 352>;

// name = type, class, component; numeric keys; string keys; traits.
inline constexpr PRBSampleClass kAppServer =
    describe<KeyList<4, 58, 60, 61, 316, R{62, 76}, 78, 240, 241, 242, 207, 129, 130, 131, 260, 261,
                     77, R{79, 86}, 92, R{87, 91}>,
             KeyList<5>>(kSampleAppServer, "PRBAppServerSample", "PRBCAPSA", {.resourceKey = 5});
inline constexpr PRBSampleClass kContainer =
    describe<KeyList<59, 120, 121, R{150, 173}, 17, 212, 213, R{174, 182}>, KeyList<6>>(
        kSampleContainer, "PRBContainerSample", "PRBCCOSA",
        {.resourceKey = 6, .keywords = kContainerKeywords});
inline constexpr PRBSampleClass kTransaction =
    describe<KeyList<54, R{129, 135}, 17, R{370, 388}>, KeyList<6>>(
        kSampleTransaction, "PRBTransactionSample", "PRBCTRSA",
        {.resourceKey = 6, .keywords = kTransactionKeywords});
inline constexpr PRBSampleClass kObjectPool =
    describe<KeyList<56, R{122, 128}, 136, 17>, KeyList<6>>(
        kSampleObjectPool, "PRBObjectPoolSample", "PRBCOPSA",
        {.resourceKey = 6, .keywords = kObjectPoolKeywords});
inline constexpr PRBSampleClass kEJB =
    describe<KeyList<52, 56, R{200, 210}, R{120, 128}, 211, 136, 212, 213>, KeyList<6, 7>>(
        kSampleEJB, "PRBEJBSample", "PRBCEJSA", {.resourceKey = 7, .keywords = kEJBKeywords});
inline constexpr PRBSampleClass kEJBMethod = describe<KeyList<53, 220, 120>, KeyList<6, 7, 11>>(
    kSampleEJBMethod, "PRBEJBMethodSample", "PRBCEMSA",
    {.resourceKey = 11, .keywords = kEJBMethodKeywords});
inline constexpr PRBSampleClass kDBConnectPool =
    describe<KeyList<55, R{240, 249}, 17, 250, 251>, KeyList<8>>(
        kSampleDBConnectPool, "PRBDBConnectPoolSample", "PRBCDBSA",
        {.resourceKey = 8, .keywords = kDBConnectPoolKeywords});
inline constexpr PRBSampleClass kApplication =
    describe<KeyList<57, 260, 261, 262, 263, 265, 266, 17, 268, 269>, KeyList<267, 9>>(
        kSampleApplication, "PRBApplicationSample", "PRBCAASA",
        {.resourceKey = 9, .keywords = kApplicationKeywords});
inline constexpr PRBSampleClass kServlet =
    describe<KeyList<272, 57, 260, 261, 262, 263, 264>, KeyList<267, 9, 270, 271>>(
        kSampleServlet, "PRBServletSample", "PRBCSVSA",
        {.resourceKey = 270, .keywords = kServletKeywords});
inline constexpr PRBSampleClass kThread = describe<
    KeyList<2, 4, 316, 304, 305, 306, 307, 340, 309, 308, 341, 342, 310, 315, 314, 311, 312, 313>,
    KeyList<301, 302, 303>>(kSampleThread, "PRBCThreadSample", "PRBCTHSA",
                            {.resourceKey = 301, .interval = true});
inline constexpr PRBSampleClass kMethodUsage =
    describe<KeyList<2, 4, 314, R{304, 310}, 315, 321, 322>, KeyList<10, 11, 320>>(
        kSampleMethodUsage, "PRBMethodUsageSample", "PRBCMUSA",
        {.resourceKey = 10, .resourceKey2 = 11, .interval = true});
inline constexpr PRBSampleClass kContention =
    describe<KeyList<2, 4, 314, 304, 305, 306, 307>, KeyList<10, 11, 320, 330>>(
        kSampleContention, "PRBContentionSample", "PRBCCNSA",
        {.resourceKey = 10, .interval = true});
inline constexpr PRBSampleClass kHeap = describe<KeyList<4, 340, 309, 308, 341, 342>, KeyList<10>>(
    kSampleHeap, "PRBHeapSample", "PRBCHESA", {.resourceKey = 10});
inline constexpr PRBSampleClass kGarbageCollection =
    describe<KeyList<4, 314, 350, 352, 341, 342, 354, 355, 356, 357, 353, 358>, KeyList<>>(
        kSampleGarbageCollection, "PRBGarbageCollectionSample", "PRBCGCSA",
        {.cumulativeKeys = CollectionTotals::keys.data(), .numCumulativeKeys = 3});
inline constexpr PRBSampleClass kProfilerError =
    describe<KeyList<360>, KeyList<361>>(kSampleProfilerError, "PRBProfilerError", "PRBCPRER", {});
inline constexpr PRBSampleClass kProfilerResource =
    describe<KeyList<4, 314, R{400, 410}>, KeyList<>>(
        kSampleProfilerResource, "PRBProfilerResourceSample", "PRBCPRSA", {.interval = true});
inline constexpr PRBSampleClass kWorkloadSum =
    describe<KeyList<314, 700, 703, 704, 732, R{705, 731}, 4, R{733, 739}>, KeyList<>>(
        kSampleWorkloadSum, "PRBWorkloadSumSample", "PRBCWSSA", {.interval = true});
inline constexpr PRBSampleClass kWorkloadDetail =
    describe<KeyList<314, 700, 750, 753, 703, R{754, 761}, 4, 762>, KeyList<>>(
        kSampleWorkloadDetail, "PRBWorkloadDetailSample", "PRBCWDSA", {.interval = true});
inline constexpr PRBSampleClass kHTTP =
    describe<KeyList<4, 700, 314, 773, 770, 775, 776>, KeyList<701, 702, 777, 771, 772, 774>>(
        kSampleHTTP, "PRBHTTPSample", "PRBCHSSA", {.resourceKey = 777});
inline constexpr PRBSampleClass kDataSourceDet =
    describe<KeyList<4, 314, R{783, 789}>, KeyList<8, 781, 782>>(
        kSampleDataSourceDet, "PRBDataSourceDetSample", "PRBCDSSA",
        {.resourceKey = 8, .interval = true});
inline constexpr PRBSampleClass kWorkloadException =
    describe<KeyList<314, 703, 700, 812, 704, 732, R{706, 731}, 4, 813, R{733, 739}>, KeyList<>>(
        kSampleWorkloadException, "PRBWorkloadExceptionSample", "PRBCWESA", {.interval = true});
inline constexpr PRBSampleClass kMethodSummary =
    describe<KeyList<314, R{304, 310}, 315, 321, 322>, KeyList<10, 11, 320>>(
        kSampleMethodSummary, "PRBMethodSummarySample", "PRBCMSSA",
        {.resourceKey = 10, .resourceKey2 = 11, .interval = true});
inline constexpr PRBSampleClass kAppServerOverview =
    describe<KeyList<833, 62, 63, 836, 839, 840, 841>, KeyList<830, 831, 832, 837, 838>>(
        kSampleAppServerOverview, "PRBAppServerOverviewSample", "PRBCSOSA", {.resourceKey = 830});
inline constexpr PRBSampleClass kEnd =
    describe<KeyList<>, KeyList<>>(kSampleEnd, "PRBEndSample", "PRBCENSA", {});

} // namespace PRBSampleCatalogue

#endif
