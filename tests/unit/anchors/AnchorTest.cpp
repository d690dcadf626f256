#include "tests/unit/anchors/AnchorTest.h"

namespace anchortest {

namespace {

template <class A> Anchor create() { return Anchor(new A); }
template <class A> Anchor pattern() { return Anchor(new A(A::pattern())); }

const char* const kTexts[] = {"", "some/first/Text", "another"};
const unsigned kNumbers[] = {0xFFFFFFFF, 17, 0};
const long long kLongs[] = {-1, 0x1234567890ABCDEF, 5};

template <class A>
Field text(const char* name, bool ofS, bool ofH, const std::string& (A::*get)() const,
           void (A::*set)(const std::string&)) {
    return {name,
            ofS,
            ofH,
            false,
            [set](PRBResourceAnchor& a, int i) { (as<A>(a).*set)(kTexts[i]); },
            [get](PRBResourceAnchor& a) { return (as<A>(a).*get)(); }};
}
template <class A>
Field number(const char* name, bool ofS, bool ofH, unsigned (A::*get)() const,
             void (A::*set)(unsigned)) {
    return {name,
            ofS,
            ofH,
            true,
            [set](PRBResourceAnchor& a, int i) { (as<A>(a).*set)(kNumbers[i]); },
            [get](PRBResourceAnchor& a) { return std::to_string((as<A>(a).*get)()); }};
}
template <class A>
Field longNumber(const char* name, bool ofS, bool ofH, long long (A::*get)() const,
                 void (A::*set)(long long)) {
    return {name,
            ofS,
            ofH,
            true,
            [set](PRBResourceAnchor& a, int i) { (as<A>(a).*set)(kLongs[i]); },
            [get](PRBResourceAnchor& a) { return std::to_string((as<A>(a).*get)()); }};
}

} // namespace

#define PRB_TEXT(S, H, A, Name) text<A>(#Name, S, H, &A::get##Name, &A::set##Name)
#define PRB_NUMBER(S, H, A, Name) number<A>(#Name, S, H, &A::get##Name, &A::set##Name)
#define PRB_LONG(S, H, A, Name) longNumber<A>(#Name, S, H, &A::get##Name, &A::set##Name)
#define PRB_CLASS(A) create<A>, pattern<A>

// Name, isA, sample type; equality by class, specific by name; fields with: asked for by
// isSpecific, hashed, class that has the accessors, name.
// clang-format off
std::vector<Class> allClasses() {
    return {
        {"PRBContainerAnchor", 32760, 2, PRB_CLASS(PRBContainerAnchor), true, true, {
            PRB_NUMBER(1, 0, PRBContainerAnchor, Summary)}},
        {"PRBAppServerAnchor", 32759, 1, PRB_CLASS(PRBAppServerAnchor), false, true, {}},
        {"PRBEJBAnchor", 32758, 5, PRB_CLASS(PRBEJBAnchor), true, true, {
            PRB_TEXT(1, 1, PRBEJBAnchor, EJBName)}},
        {"PRBDBConnectionAnchor", 32755, 7, PRB_CLASS(PRBDBConnectionAnchor), true, true, {
            PRB_NUMBER(1, 0, PRBDBConnectionAnchor, Summary)}},
        {"PRBEJBMethodAnchor", 32754, 6, PRB_CLASS(PRBEJBMethodAnchor), true, true, {
            PRB_TEXT(1, 1, PRBEJBAnchor, EJBName),
            PRB_TEXT(1, 1, PRBEJBMethodAnchor, MethodName)}},
        {"PRBApplicationAnchor", 32753, 8, PRB_CLASS(PRBApplicationAnchor), true, true, {
            PRB_TEXT(1, 1, PRBApplicationAnchor, VirtualHostName),
            PRB_NUMBER(1, 1, PRBApplicationAnchor, Summary)}},
        {"PRBServletAnchor", 32752, 9, PRB_CLASS(PRBServletAnchor), true, true, {
            PRB_TEXT(1, 1, PRBApplicationAnchor, VirtualHostName),
            PRB_NUMBER(1, 1, PRBApplicationAnchor, Summary),
            PRB_TEXT(1, 1, PRBServletAnchor, ServletName),
            PRB_TEXT(0, 1, PRBServletAnchor, PathName)}},
        {"PRBThreadAnchor", 32751, 10, PRB_CLASS(PRBThreadAnchor), true, true, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_LONG(1, 1, PRBThreadAnchor, ThreadId)}},
        {"PRBMethodAnchor", 32750, 11, PRB_CLASS(PRBMethodAnchor), true, true, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_LONG(1, 1, PRBThreadAnchor, ThreadId),
            PRB_TEXT(1, 1, PRBMethodAnchor, ClassName),
            PRB_TEXT(1, 1, PRBMethodAnchor, MethodName)}},
        {"PRBContentionAnchor", 32749, 12, PRB_CLASS(PRBContentionAnchor), true, true, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_LONG(1, 1, PRBThreadAnchor, ThreadId),
            PRB_TEXT(1, 1, PRBMethodAnchor, ClassName),
            PRB_TEXT(1, 1, PRBMethodAnchor, MethodName),
            PRB_TEXT(0, 0, PRBContentionAnchor, MonitorClassName)}},
        {"PRBHeapAnchor", 32748, 13, PRB_CLASS(PRBHeapAnchor), true, true, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId)}},
        {"PRBGCAnchor", 32747, 14, PRB_CLASS(PRBGCAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId)}},
        {"PRBContainerTransactionAnchor", 32737, 3, PRB_CLASS(PRBContainerTransactionAnchor), true, true, {
            PRB_NUMBER(1, 0, PRBContainerAnchor, Summary)}},
        {"PRBObjectPoolAnchor", 32736, 4, PRB_CLASS(PRBObjectPoolAnchor), true, true, {
            PRB_NUMBER(1, 0, PRBContainerAnchor, Summary)}},
        {"PRBProfilerResourceAnchor", 32730, 18, PRB_CLASS(PRBProfilerResourceAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId)}},
        {"PRBWorkloadExceptionAnchor", 32707, 36, PRB_CLASS(PRBWorkloadExceptionAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName),
            PRB_NUMBER(0, 1, PRBWorkloadExceptionAnchor, MaxHistoricalRecords)}},
        {"PRBWorkloadSumAnchor", 32708, 31, PRB_CLASS(PRBWorkloadSumAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName)}},
        {"PRBWorkloadDetailAnchor", 32709, 32, PRB_CLASS(PRBWorkloadDetailAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName),
            PRB_NUMBER(1, 1, PRBWorkloadDetailAnchor, DelayType),
            PRB_TEXT(0, 1, PRBWorkloadDetailAnchor, DelayMajorName),
            PRB_TEXT(0, 1, PRBWorkloadDetailAnchor, DelayMinorName)}},
        {"PRBHTTPAnchor", 32706, 33, PRB_CLASS(PRBHTTPAnchor), true, true, {
            PRB_TEXT(1, 1, PRBHTTPAnchor, WebAppName)}},
        {"PRBDataSourceAnchor", 32705, 34, PRB_CLASS(PRBDataSourceAnchor), true, true, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_TEXT(1, 1, PRBDataSourceAnchor, DataSourceName)}},
        {"PRBMQAccessAnchor", 32704, 35, PRB_CLASS(PRBMQAccessAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_TEXT(1, 1, PRBMQAccessAnchor, QueueManagerName),
            PRB_TEXT(1, 1, PRBMQAccessAnchor, QueueName)}},
        {"PRBMethodSummaryAnchor", 32699, 37, PRB_CLASS(PRBMethodSummaryAnchor), true, true, {
            PRB_TEXT(1, 1, PRBMethodSummaryAnchor, ClassName),
            PRB_TEXT(1, 1, PRBMethodSummaryAnchor, MethodName)}},
        {"PRWAppSrvOverviewAnchor", 32698, 39, PRB_CLASS(PRWAppSrvOverviewAnchor), true, true, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 0, PRWAppSrvOverviewAnchor, ServerType),
            PRB_TEXT(0, 0, PRWAppSrvOverviewAnchor, ServerID)}},
        {"PRBAFDetailAnchor", 32688, 53, PRB_CLASS(PRBAFDetailAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBAFDetailAnchor, AFId)}},
        {"PRBGCDetailAnchor", 32687, 54, PRB_CLASS(PRBGCDetailAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBGCDetailAnchor, AFId),
            PRB_NUMBER(1, 1, PRBGCDetailAnchor, GCId)}},
        {"PRBClassHeapUsageSummaryResourceAnchor", 32681, 56, PRB_CLASS(PRBClassHeapUsageSummaryResourceAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_TEXT(0, 1, PRBClassHeapUsageSummaryResourceAnchor, ClassName)}},
        {"PRBWorkloadHeapUsageSummaryResourceAnchor", 32680, 57, PRB_CLASS(PRBWorkloadHeapUsageSummaryResourceAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName),
            PRB_TEXT(0, 1, PRBWorkloadHeapUsageSummaryResourceAnchor, ClassName)}},
        {"PRBClassHeapUsageDetailResourceAnchor", 32679, 58, PRB_CLASS(PRBClassHeapUsageDetailResourceAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_TEXT(0, 1, PRBClassHeapUsageSummaryResourceAnchor, ClassName),
            PRB_NUMBER(1, 1, PRBClassHeapUsageDetailResourceAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBClassHeapUsageDetailResourceAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBClassHeapUsageDetailResourceAnchor, WorkloadMinorName),
            PRB_TEXT(1, 1, PRBClassHeapUsageDetailResourceAnchor, AllocatingClassName),
            PRB_TEXT(1, 1, PRBClassHeapUsageDetailResourceAnchor, AllocatingMethodName),
            PRB_NUMBER(1, 1, PRBClassHeapUsageDetailResourceAnchor, LineNumber)}},
        {"PRBHeapObjectReferenceResourceAnchor", 32676, 61, PRB_CLASS(PRBHeapObjectReferenceResourceAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_TEXT(0, 1, PRBClassHeapUsageSummaryResourceAnchor, ClassName),
            PRB_NUMBER(1, 1, PRBClassHeapUsageDetailResourceAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBClassHeapUsageDetailResourceAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBClassHeapUsageDetailResourceAnchor, WorkloadMinorName),
            PRB_TEXT(1, 1, PRBClassHeapUsageDetailResourceAnchor, AllocatingClassName),
            PRB_TEXT(1, 1, PRBClassHeapUsageDetailResourceAnchor, AllocatingMethodName),
            PRB_NUMBER(1, 1, PRBClassHeapUsageDetailResourceAnchor, LineNumber),
            PRB_NUMBER(1, 1, PRBHeapObjectReferenceResourceAnchor, ReferenceType),
            PRB_NUMBER(1, 1, PRBHeapObjectReferenceResourceAnchor, ReferencingWorkloadType),
            PRB_TEXT(1, 1, PRBHeapObjectReferenceResourceAnchor, ReferencingWorkloadMajorName),
            PRB_TEXT(0, 1, PRBHeapObjectReferenceResourceAnchor, ReferencingWorkloadMinorName),
            PRB_TEXT(1, 1, PRBHeapObjectReferenceResourceAnchor, ReferencingAllocatingClassName),
            PRB_TEXT(1, 1, PRBHeapObjectReferenceResourceAnchor, ReferencingAllocatingMethodName),
            PRB_NUMBER(1, 1, PRBHeapObjectReferenceResourceAnchor, ReferencingLineNumber)}},
        {"PRBMessagesAnchor", 32674, 15, PRB_CLASS(PRBMessagesAnchor), false, true, {}},
        {"PRBWorkloadHeapAllocByMethodResourceAnchor", 32673, 63, PRB_CLASS(PRBWorkloadHeapAllocByMethodResourceAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName),
            PRB_TEXT(1, 1, PRBWorkloadHeapAllocByMethodResourceAnchor, ClassName),
            PRB_NUMBER(1, 1, PRBWorkloadHeapAllocByMethodResourceAnchor, LineNumber)}},
        {"PRBInflightSummaryAnchor", 32671, 64, PRB_CLASS(PRBInflightSummaryAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName),
            PRB_TEXT(1, 1, PRBInflightSummaryAnchor, ServerName)}},
        {"PRBInflightDetailAnchor", 32670, 65, PRB_CLASS(PRBInflightDetailAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_NUMBER(1, 1, PRBWorkloadAnchor, WorkloadType),
            PRB_TEXT(1, 1, PRBWorkloadAnchor, WorkloadMajorName),
            PRB_TEXT(0, 1, PRBWorkloadAnchor, WorkloadMinorName),
            PRB_TEXT(1, 1, PRBInflightSummaryAnchor, ServerName),
            PRB_LONG(1, 1, PRBInflightDetailAnchor, ThreadId),
            PRB_LONG(1, 1, PRBInflightDetailAnchor, StartTime)}},
        {"PRBCTGSummaryAnchor", 32669, 66, PRB_CLASS(PRBCTGSummaryAnchor), true, false, {
            PRB_NUMBER(1, 1, PRBProfilerSampleAnchor, ProcessId),
            PRB_TEXT(1, 1, PRBCTGSummaryAnchor, GatewayHost),
            PRB_NUMBER(1, 1, PRBCTGSummaryAnchor, GatewayPort),
            PRB_TEXT(1, 1, PRBCTGSummaryAnchor, CicsServer)}},
    };
}
// clang-format on

} // namespace anchortest
