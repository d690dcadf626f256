// Every anchor class as data: identifier, base, sample type, the identity operations of its own
// and the fields that it adds. Adding a class is adding a row here and its accessors in
// PRBAnchors.h.
#ifndef PRB_ANCHORS_PRBANCHORCATALOGUE_H
#define PRB_ANCHORS_PRBANCHORCATALOGUE_H

#include "anchors/PRBAnchorClass.h"

namespace PRBAnchorCatalogue {

using F = PRBAnchorField;
inline constexpr unsigned H = PRBAnchorClass::H; // getHashKey
inline constexpr unsigned E = PRBAnchorClass::E; // isEqual
inline constexpr unsigned M = PRBAnchorClass::M; // doesItMatch
inline constexpr unsigned S = PRBAnchorClass::S; // isSpecific
inline constexpr unsigned P = PRBAnchorClass::Poll;
inline constexpr PRBAnchorTraits kUnnamed = {.unnamed = true};
constexpr PRBAnchorTraits named(int key) { return {.nameKey = key}; }

// Identifier, base, sample type, own operations, own fields with the sample's key, traits.
// Server resources.
inline constexpr PRBAnchorClass kAppServer = prbAnchorClass(32759, nullptr, 1, 0, {}, named(5));
inline constexpr PRBAnchorClass kApplication =
    prbAnchorClass(32753, nullptr, 8, H | E | M | S,
                   {{"VirtualHostName", F::Text, 267}, {"Summary", F::Number, 17}}, named(9));
inline constexpr PRBAnchorClass kServlet =
    prbAnchorClass(32752, &kApplication, 9, H | E | M | S,
                   {{"ServletName", F::Text, 270}, {"PathName", F::OptionalText, 271}}, named(9));
inline constexpr PRBAnchorClass kContainer =
    prbAnchorClass(32760, nullptr, 2, E | M | S, {{"Summary", F::Number, 17}}, named(6));
inline constexpr PRBAnchorClass kContainerTransaction =
    prbAnchorClass(32737, &kContainer, 3, E | M, {}, named(6));
inline constexpr PRBAnchorClass kObjectPool =
    prbAnchorClass(32736, &kContainer, 4, E | M, {}, named(6));
inline constexpr PRBAnchorClass kDBConnection =
    prbAnchorClass(32755, nullptr, 7, E | M | S, {{"Summary", F::Number, 17}}, named(8));
inline constexpr PRBAnchorClass kEJB =
    prbAnchorClass(32758, nullptr, 5, H | E | M | S, {{"EJBName", F::Text, 7}}, named(6));
inline constexpr PRBAnchorClass kEJBMethod =
    prbAnchorClass(32754, &kEJB, 6, H | E | M | S, {{"MethodName", F::Text, 11}}, named(6));
inline constexpr PRBAnchorClass kHTTP =
    prbAnchorClass(32706, nullptr, 33, H | E | M | S, {{"WebAppName", F::Text, 777}});
inline constexpr PRBAnchorClass kMessages = prbAnchorClass(32674, nullptr, 15, 0, {});
inline constexpr PRBAnchorClass kMethodSummary = prbAnchorClass(
    32699, nullptr, 37, H | E | M | S, {{"ClassName", F::Text, 10}, {"MethodName", F::Text, 11}});

// Resources of one process, as the profiler sees them.
inline constexpr PRBAnchorClass kProfilerSample =
    prbAnchorClass(0, nullptr, 0, H | E | M | S, {{"ProcessId", F::Number, 4}});
inline constexpr PRBAnchorClass kAFDetail =
    prbAnchorClass(32688, &kProfilerSample, 53, H | E | M | S, {{"AFId", F::Number}}, kUnnamed);
inline constexpr PRBAnchorClass kGC = prbAnchorClass(32747, &kProfilerSample, 14, 0, {}, kUnnamed);
inline constexpr PRBAnchorClass kGCDetail =
    prbAnchorClass(32687, &kProfilerSample, 54, H | E | M | S,
                   {{"AFId", F::Number}, {"GCId", F::Number}}, kUnnamed);
inline constexpr PRBAnchorClass kHeap =
    prbAnchorClass(32748, &kProfilerSample, 13, 0, {}, named(10));
inline constexpr PRBAnchorClass kProfilerResource =
    prbAnchorClass(32730, &kProfilerSample, 18, 0, {}, kUnnamed);
inline constexpr PRBAnchorClass kThread =
    prbAnchorClass(32751, &kProfilerSample, 10, H | E | M | S, {{"ThreadId", F::Long, 2}});
inline constexpr PRBAnchorClass kMethod = prbAnchorClass(
    32750, &kThread, 11, H | E | M | S, {{"ClassName", F::Text, 10}, {"MethodName", F::Text, 11}});
inline constexpr PRBAnchorClass kContention =
    prbAnchorClass(32749, &kMethod, 12, E | M, {{"MonitorClassName", F::Text, 330}});

// Resources of workload analysis.
inline constexpr PRBAnchorClass kWorkloadAnalysis = prbAnchorClass(0, &kProfilerSample, 0, 0, {});
inline constexpr PRBAnchorClass kCTGSummary = prbAnchorClass(
    32669, &kWorkloadAnalysis, 66, H | E | M | S,
    {{"GatewayHost", F::Text}, {"GatewayPort", F::Number}, {"CicsServer", F::Text}}, kUnnamed);
inline constexpr PRBAnchorClass kClassHeapUsageSummary = prbAnchorClass(
    32681, &kWorkloadAnalysis, 56, H | E | M | P, {{"ClassName", F::Text}}, kUnnamed);
inline constexpr PRBAnchorClass kClassHeapUsageDetail =
    prbAnchorClass(32679, &kClassHeapUsageSummary, 58, H | E | M | S | P,
                   {{"WorkloadType", F::Number},
                    {"WorkloadMajorName", F::Text},
                    {"WorkloadMinorName", F::OptionalText},
                    {"AllocatingClassName", F::Text},
                    {"AllocatingMethodName", F::Text},
                    {"LineNumber", F::Number}},
                   kUnnamed);
inline constexpr PRBAnchorClass kHeapObjectReference =
    prbAnchorClass(32676, &kClassHeapUsageDetail, 61, H | E | M | S | P,
                   {{"ReferenceType", F::Number},
                    {"ReferencingWorkloadType", F::Number},
                    {"ReferencingWorkloadMajorName", F::Text},
                    {"ReferencingWorkloadMinorName", F::OptionalText},
                    {"ReferencingAllocatingClassName", F::Text},
                    {"ReferencingAllocatingMethodName", F::Text},
                    {"ReferencingLineNumber", F::Number}},
                   kUnnamed);
inline constexpr PRBAnchorClass kDataSource =
    prbAnchorClass(32705, &kWorkloadAnalysis, 34, H | E | M | S, {{"DataSourceName", F::Text, 8}});
inline constexpr PRBAnchorClass kMQAccess =
    prbAnchorClass(32704, &kWorkloadAnalysis, 35, H | E | M | S,
                   {{"QueueManagerName", F::Text}, {"QueueName", F::Text}}, kUnnamed);
inline constexpr PRBAnchorClass kWorkload =
    prbAnchorClass(0, &kWorkloadAnalysis, 0, H | E | M | S,
                   {{"WorkloadType", F::Number, 700},
                    {"WorkloadMajorName", F::Text, F::kResourceName},
                    {"WorkloadMinorName", F::OptionalText}});
inline constexpr PRBAnchorClass kInflightSummary =
    prbAnchorClass(32671, &kWorkload, 64, H | E | M | S, {{"ServerName", F::Text}}, kUnnamed);
inline constexpr PRBAnchorClass kInflightDetail =
    prbAnchorClass(32670, &kInflightSummary, 65, H | E | M | S,
                   {{"ThreadId", F::Long}, {"StartTime", F::Long}}, kUnnamed);
inline constexpr PRBAnchorClass kWorkloadDetail =
    prbAnchorClass(32709, &kWorkload, 32, H | E | M | S,
                   {{"DelayType", F::Number, 750},
                    {"DelayMajorName", F::OptionalText},
                    {"DelayMinorName", F::OptionalText}},
                   kUnnamed);
inline constexpr PRBAnchorClass kWorkloadException = prbAnchorClass(
    32707, &kWorkload, 36, H | E | M, {{"MaxHistoricalRecords", F::Number}}, kUnnamed);
inline constexpr PRBAnchorClass kWorkloadHeapAllocByMethod =
    prbAnchorClass(32673, &kWorkload, 63, H | E | M | S,
                   {{"ClassName", F::Text}, {"LineNumber", F::Number}}, kUnnamed);
inline constexpr PRBAnchorClass kWorkloadHeapUsageSummary =
    prbAnchorClass(32680, &kWorkload, 57, H | E | M, {{"ClassName", F::Text}}, kUnnamed);
inline constexpr PRBAnchorClass kWorkloadSum =
    prbAnchorClass(32708, &kWorkload, 31, E | M, {}, kUnnamed);
inline constexpr PRBAnchorClass kServerOfWorkload = prbAnchorClass(0, &kWorkloadAnalysis, 0, 0, {});
inline constexpr PRBAnchorClass kAppSrvOverview =
    prbAnchorClass(32698, &kServerOfWorkload, 39, E | M | S,
                   {{"ServerType", F::Number, 833}, {"ServerID", F::OptionalText, 831}});

} // namespace PRBAnchorCatalogue

#endif
