// The anchor classes. What identifies each, and how, is its row in PRBAnchorCatalogue.h; here are
// its name in the family and its accessors. A new anchor has its class's sample type; numbers
// start as 0, texts as empty. pattern() answers an anchor that matches all of its class.
#ifndef PRB_ANCHORS_PRBANCHORS_H
#define PRB_ANCHORS_PRBANCHORS_H

#include "anchors/PRBAnchorCatalogue.h"

// Names of classes and of their bases cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
// The head of a class of a row: its one mechanism, or what an abstract one needs of it.
#define PRB_ANCHOR(Name, Row, Base)                                                                \
    class Name : public PRBAnchorOf<Name, PRBAnchorCatalogue::Row, Base>
#define PRB_ABSTRACT_ANCHOR(Name, Row, Base)                                                       \
    class Name : public Base {                                                                     \
    protected:                                                                                     \
        static constexpr const PRBAnchorClass& kRow = PRBAnchorCatalogue::Row;                     \
        using Base::Base;                                                                          \
                                                                                                   \
    public:
#define PRB_CONSTRUCTORS                                                                           \
public:                                                                                            \
    using PRBAnchorOf::PRBAnchorOf;
// Accessors of one field: the slot is found by the field's name when the class is compiled.
#define PRB_TEXT(Name)                                                                             \
    const std::string& get##Name() const { return textAt(prbAnchorSlot(kRow, #Name, true)); }      \
    void set##Name(const std::string& value) { textAt(prbAnchorSlot(kRow, #Name, true)) = value; }
#define PRB_NUMBER(Name)                                                                           \
    unsigned get##Name() const {                                                                   \
        return static_cast<unsigned>(numberAt(prbAnchorSlot(kRow, #Name, false)));                 \
    }                                                                                              \
    void set##Name(unsigned value) { numberAt(prbAnchorSlot(kRow, #Name, false)) = value; }
#define PRB_LONG(Name)                                                                             \
    long long get##Name() const {                                                                  \
        return static_cast<long long>(numberAt(prbAnchorSlot(kRow, #Name, false)));                \
    }                                                                                              \
    void set##Name(long long value) {                                                              \
        numberAt(prbAnchorSlot(kRow, #Name, false)) = static_cast<std::uint64_t>(value);           \
    }
// The resource name under the name that the class gives it.
#define PRB_NAME(Name)                                                                             \
    const std::string& get##Name() const { return getResourceName(); }                             \
    void set##Name(const std::string& value) { setResourceName(value); }

// NOLINTEND(bugprone-macro-parentheses)

// clang-format off
// The server process.
PRB_ANCHOR(PRBAppServerAnchor, kAppServer, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_NAME(AppServerName)
};

PRB_ANCHOR(PRBApplicationAnchor, kApplication, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_NAME(ApplicationName)
    PRB_TEXT(VirtualHostName)
    PRB_NUMBER(Summary)
};

PRB_ANCHOR(PRBServletAnchor, kServlet, PRBApplicationAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ServletName)
    PRB_TEXT(PathName)
};

PRB_ANCHOR(PRBContainerAnchor, kContainer, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_NAME(ContainerName)
    PRB_NUMBER(Summary)
};

PRB_ANCHOR(PRBContainerTransactionAnchor, kContainerTransaction, PRBContainerAnchor) {
    PRB_CONSTRUCTORS
};

PRB_ANCHOR(PRBObjectPoolAnchor, kObjectPool, PRBContainerAnchor) {
    PRB_CONSTRUCTORS
};

PRB_ANCHOR(PRBDBConnectionAnchor, kDBConnection, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_NAME(DataSourceName)
    PRB_NUMBER(Summary)
};

PRB_ANCHOR(PRBEJBAnchor, kEJB, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_NAME(ContainerName)
    PRB_TEXT(EJBName)
};

PRB_ANCHOR(PRBEJBMethodAnchor, kEJBMethod, PRBEJBAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(MethodName)
};

PRB_ANCHOR(PRBHTTPAnchor, kHTTP, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(WebAppName)
};

PRB_ANCHOR(PRBMessagesAnchor, kMessages, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
};

// A method on all threads.
PRB_ANCHOR(PRBMethodSummaryAnchor, kMethodSummary, PRBDescribedAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ClassName)
    PRB_TEXT(MethodName)
};

// Common base of the resources of one process.
PRB_ABSTRACT_ANCHOR(PRBProfilerSampleAnchor, kProfilerSample, PRBDescribedAnchor)
    PRB_NUMBER(ProcessId)
};

// One allocation failure.
PRB_ANCHOR(PRBAFDetailAnchor, kAFDetail, PRBProfilerSampleAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(AFId)
};

PRB_ANCHOR(PRBGCAnchor, kGC, PRBProfilerSampleAnchor) {
    PRB_CONSTRUCTORS
};

// One collection of an allocation failure.
PRB_ANCHOR(PRBGCDetailAnchor, kGCDetail, PRBProfilerSampleAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(AFId)
    PRB_NUMBER(GCId)
};

// The live objects of a class.
PRB_ANCHOR(PRBHeapAnchor, kHeap, PRBProfilerSampleAnchor) {
    PRB_CONSTRUCTORS
    PRB_NAME(ClassName)
};

PRB_ANCHOR(PRBProfilerResourceAnchor, kProfilerResource, PRBProfilerSampleAnchor) {
    PRB_CONSTRUCTORS
};

PRB_ANCHOR(PRBThreadAnchor, kThread, PRBProfilerSampleAnchor) {
    PRB_CONSTRUCTORS
    PRB_LONG(ThreadId)
};

// A method on one thread.
PRB_ANCHOR(PRBMethodAnchor, kMethod, PRBThreadAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ClassName)
    PRB_TEXT(MethodName)
};

// The monitors of one class in a method of a thread.
PRB_ANCHOR(PRBContentionAnchor, kContention, PRBMethodAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(MonitorClassName)
};

PRB_ABSTRACT_ANCHOR(PRBWorkloadAnalysisAnchor, kWorkloadAnalysis, PRBProfilerSampleAnchor)
};

PRB_ANCHOR(PRBCTGSummaryAnchor, kCTGSummary, PRBWorkloadAnalysisAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(GatewayHost)
    PRB_NUMBER(GatewayPort)
    PRB_TEXT(CicsServer)
};

PRB_ANCHOR(PRBClassHeapUsageSummaryResourceAnchor, kClassHeapUsageSummary, PRBWorkloadAnalysisAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ClassName)
};

PRB_ANCHOR(PRBClassHeapUsageDetailResourceAnchor, kClassHeapUsageDetail, PRBClassHeapUsageSummaryResourceAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(WorkloadType)
    PRB_TEXT(WorkloadMajorName)
    PRB_TEXT(WorkloadMinorName)
    PRB_TEXT(AllocatingClassName)
    PRB_TEXT(AllocatingMethodName)
    PRB_NUMBER(LineNumber)
};

PRB_ANCHOR(PRBHeapObjectReferenceResourceAnchor, kHeapObjectReference, PRBClassHeapUsageDetailResourceAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(ReferenceType)
    PRB_NUMBER(ReferencingWorkloadType)
    PRB_TEXT(ReferencingWorkloadMajorName)
    PRB_TEXT(ReferencingWorkloadMinorName)
    PRB_TEXT(ReferencingAllocatingClassName)
    PRB_TEXT(ReferencingAllocatingMethodName)
    PRB_NUMBER(ReferencingLineNumber)
};

PRB_ANCHOR(PRBDataSourceAnchor, kDataSource, PRBWorkloadAnalysisAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(DataSourceName)
};

PRB_ANCHOR(PRBMQAccessAnchor, kMQAccess, PRBWorkloadAnalysisAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(QueueManagerName)
    PRB_TEXT(QueueName)
};

// Common base of the resources that belong to one workload.
PRB_ABSTRACT_ANCHOR(PRBWorkloadAnchor, kWorkload, PRBWorkloadAnalysisAnchor)
    PRB_NUMBER(WorkloadType)
    PRB_TEXT(WorkloadMajorName)
    PRB_TEXT(WorkloadMinorName)
};

PRB_ANCHOR(PRBInflightSummaryAnchor, kInflightSummary, PRBWorkloadAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ServerName)
};

// One running workload: its thread and when it started, in milliseconds.
PRB_ANCHOR(PRBInflightDetailAnchor, kInflightDetail, PRBInflightSummaryAnchor) {
    PRB_CONSTRUCTORS
    PRB_LONG(ThreadId)
    PRB_LONG(StartTime)
};

PRB_ANCHOR(PRBWorkloadDetailAnchor, kWorkloadDetail, PRBWorkloadAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(DelayType)
    PRB_TEXT(DelayMajorName)
    PRB_TEXT(DelayMinorName)
};

PRB_ANCHOR(PRBWorkloadExceptionAnchor, kWorkloadException, PRBWorkloadAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(MaxHistoricalRecords)
};

PRB_ANCHOR(PRBWorkloadHeapAllocByMethodResourceAnchor, kWorkloadHeapAllocByMethod, PRBWorkloadAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ClassName)
    PRB_NUMBER(LineNumber)
};

PRB_ANCHOR(PRBWorkloadHeapUsageSummaryResourceAnchor, kWorkloadHeapUsageSummary, PRBWorkloadAnchor) {
    PRB_CONSTRUCTORS
    PRB_TEXT(ClassName)
};

PRB_ANCHOR(PRBWorkloadSumAnchor, kWorkloadSum, PRBWorkloadAnchor) {
    PRB_CONSTRUCTORS
};

PRB_ABSTRACT_ANCHOR(PRWWas35ResourceAnchor, kServerOfWorkload, PRBWorkloadAnalysisAnchor)
};

PRB_ANCHOR(PRWAppSrvOverviewAnchor, kAppSrvOverview, PRWWas35ResourceAnchor) {
    PRB_CONSTRUCTORS
    PRB_NUMBER(ServerType)
    PRB_TEXT(ServerID)
};

// clang-format on
#undef PRB_ANCHOR
#undef PRB_ABSTRACT_ANCHOR
#undef PRB_CONSTRUCTORS
#undef PRB_TEXT
#undef PRB_NUMBER
#undef PRB_LONG
#undef PRB_NAME

#endif
