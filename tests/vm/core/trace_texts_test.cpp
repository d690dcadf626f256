// The entry and exit lines of some operations of every component, by trace class.
#include "anchors/PRBAnchors.h"
#include "core/PRBStringMask.h"
#include "core/PRB_Profiler_Log.h"
#include "data/PRBBuffer.h"
#include "data/PRBKeyValueSet.h"
#include "data/PRBTime.h"
#include "data/SnapHex.h"
#include "runtime/PRBProfilerCPUSampler.h"
#include "tests/unit/data/AllSamples.h"
#include "tests/vm/core/CoreTest.h"

#include <functional>

using namespace scripted;

namespace {

struct Traced {
    const char* component;
    int traceClass;
    const char* operation;
    const char* exit; // what follows "Exit"
    std::function<void()> run;
};

// Sets the level and a filter of one component for a scope.
class Tracing {
public:
    Tracing(int level, const char* component) {
        list_.insert(new PRBCollectableString(component));
        PRBTrace::filter = &list_;
        PRBTrace::level = level;
    }
    ~Tracing() {
        PRBTrace::level = 0;
        PRBTrace::filter = nullptr;
        list_.clearAndDestroy();
    }

private:
    PRBSlist list_;
};

class TraceTexts : public CoreTest {
protected:
    // The lines that come while it runs.
    Texts linesOf(int level, const char* component, const std::function<void()>& run) {
        const std::size_t before = logTexts().size();
        {
            Tracing tracing(level, component);
            run();
        }
        Texts lines = logTexts();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
        return lines;
    }
    static std::ptrdiff_t count(const Texts& lines, const std::string& text) {
        return std::count(lines.begin(), lines.end(), text);
    }

    // Each operation writes its two lines under its own component and class, and none under any
    // other class or component.
    void check(const std::vector<Traced>& operations, const char* otherComponent) {
        for (const Traced& traced : operations) {
            const std::string entry = std::string(traced.operation) + " Entry";
            const std::string exit = std::string(traced.operation) + " Exit" + traced.exit;
            const Texts lines = linesOf(traced.traceClass, traced.component, traced.run);
            EXPECT_GE(count(lines, entry), 1) << entry;
            EXPECT_GE(count(lines, exit), 1) << exit << " in " << testing::PrintToString(lines);
            EXPECT_LT(std::find(lines.begin(), lines.end(), entry) - lines.begin(),
                      std::find(lines.begin(), lines.end(), exit) - lines.begin())
                << entry;
        }
        for (const Traced& traced : operations) {
            const std::string entry = std::string(traced.operation) + " Entry";
            const std::string exit = std::string(traced.operation) + " Exit" + traced.exit;
            for (const Texts& lines :
                 {linesOf(0x1E00 & ~traced.traceClass, traced.component, traced.run),
                  linesOf(0x1E00, otherComponent, traced.run)}) {
                EXPECT_EQ(count(lines, entry), 0) << entry;
                EXPECT_EQ(count(lines, exit), 0) << exit;
            }
        }
    }

    PRBMonitorGlobal& monitor = start();
    ScriptedThread& worker = vm.startThread({.name = "worker"});
    ScriptedClass& order =
        vm.addClass({.name = "com/x/Order", .methods = {{.name = "price", .signature = "()I"}}});
};

} // namespace

TEST_F(TraceTexts, namesEveryOperationAtItsEntryAndItsExit) {
    constexpr int kMain = 0x200, kDetail = 0x400, kMember = 0x800, kFrequent = 0x1000;
    vm.send.classLoad(worker, order);
    PRBJavaClass* cls = findClass(order.id());
    PRBJavaMethod* method = findMethod(order.methodId("price"));
    PRBJavaThread* thread = threadOf(worker);
    PRBMethodUsageSample usage;
    PRBBuffer buffer;
    PRBTime time(1000000);
    PRBKeyValueSet pairs;
    const auto collect = [this] {
        vm.send.gcStart();
        vm.send.gcFinish(0, 0, 0);
    };
    const std::vector<Traced> operations = {
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::completeInit", "",
         [this] { monitor.completeInit(); }},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::parseStartupOptions", " with return value 122",
         [] {
             PRBMonitorGlobal::parseStartupOptions("bogus", nullptr, nullptr, nullptr, nullptr);
         }},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::HandleJVMShutdown", "",
         [this] { vm.send.jvmShutDown(worker); }},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::HandleThreadStart", "",
         [this] { vm.send.threadStart(worker); }},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::HandleClassLoad", "",
         [this] { vm.send.classLoad(worker, order); }},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::HandleGCStart", "", collect},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::HandleGCFinish", "", collect},
        {"PRBCMNGL", kMain, "PRBMonitorGlobal::requestKillThread", " with return value 76",
         [this] { monitor.requestKillThread(nullptr); }},
        {"PRBCMNGL", kMember, "PRBMonitorGlobal::notify", "",
         [this] { vm.send.bare(worker, JVMPI_EVENT_CLASS_LOAD_HOOK); }},
        {"PRBCMNGL", kMember, "PRBMonitorGlobal::newProfilerErrorSample", "",
         [this] { monitor.newProfilerErrorSample(nullptr); }},
        {"PRBCMNGL", kMember, "PRBMonitorGlobal::getNextProfilerErrorSample", "",
         [this] { monitor.getNextProfilerErrorSample(); }},
        {"PRBCMNGL", kMember, "PRBMonitorGlobal::registerHeapDumpHandler", "",
         [this] { monitor.registerHeapDumpHandler(nullptr); }},
        {"PRBCMNGL", kMember, "PRBMonitorHashTable::find", "",
         [&] { PRBContext::getClassTable()->find(cls); }},
        {"PRBCMNGL", kFrequent, "PRBMonitorGlobal::HandleObjectAlloc", "",
         [this] { vm.send.objectAlloc(worker, 1, nullptr, JVMPI_INT, 16, objectId(5)); }},
        {"PRBCMNGL", kFrequent, "PRBMonitorGlobal::shouldClassBeMonitored", " with return value 0",
         [this] { monitor.shouldClassBeMonitored("com/x/Order"); }},
        {"PRBCLOG", kMember, "PRB_Log::SendMessage", " with return value 0",
         [] { PRB_Profiler_Log().LogMessage("a", "b", 0, 1); }},
        {"PRBCPLOG", kMember, "PRB_Profiler_Log::SendMessage", " with return value 1",
         [] {
             PRB_Log::Arguments arguments{};
             void* args = &arguments;
             PRB_Profiler_Log().SendMessage("no conversions", args, 1);
         }},
        {"PRBCRETC", kMember, "PRBReturnCode::getDescription", "",
         [] { PRBReturnCode(43u).getDescription(); }},
        {"PRBCPRER", kMember, "PRBProfilerError::constructor", "",
         [] { PRBProfilerError(PRBReturnCode(43u), "text"); }},
        {"PRBCMASK", kMember, "PRBStringMask constructor", "",
         [] { PRBStringMask("a*", kExactCase); }},
        {"PRBCMASK", kMember, "PRBStringMask::buildMaskSegments", "",
         [] { PRBStringMask("a*", kExactCase).buildMaskSegments(); }},
        {"PRBCMASK", kMember, "PRBStringMask::operator==", "",
         [] { (void)(PRBStringMask("a*", kExactCase) == "abc"); }},
        {"PRBCMEMM", kMember, "PRBMemoryManager::displayMemoryUse", "",
         [] { PRBMemoryManager::displayMemoryUse(); }},
        {"PRBCJVTH", kMain, "PRBJavaThread constructor", "",
         [] { delete new PRBJavaThread("t", "g", "p", nullptr, nullptr, 0); }},
        {"PRBCJVTH", kMain, "PRBJavaThread destructor", "",
         [] { delete new PRBJavaThread("t", "g", "p", nullptr, nullptr, 0); }},
        {"PRBCJVTH", kDetail, "PRBJavaThread::clearCounters", "", [&] { thread->clearCounters(); }},
        {"PRBCJVTH", kFrequent, "PRBJavaThread::heapAllocation", "",
         [&] { thread->heapAllocation(8); }},
        {"PRBCJVCL", kFrequent, "PRBJavaClass::shouldBeMonitored", " with return value 1",
         [&] { cls->shouldBeMonitored(); }},
        {"PRBCJVMT", kFrequent, "PRBJavaMethod::shouldBeMonitored", " with return value 1",
         [&] { method->shouldBeMonitored(); }},
        {"PRBCJVOB", kMember, "PRBJavaObject::resetShouldBeMonitoredStatus", " with return value 1",
         [&] { cls->resetShouldBeMonitoredStatus(); }},
        {"PRBCJVOA", kFrequent, "PRBJavaObjectAllocated::shouldBeMonitored", " with return value 2",
         [] { PRBJavaObjectAllocated().shouldBeMonitored(); }},
        {"PRBCCPUS", kDetail, "PRBProfilerCPUSampler::deactivateSampler", " with return value 0",
         [this] { monitor.getCPUSampler()->deactivateSampler(); }},
        {"PRBCBUFF", kFrequent, "PRBBuffer::streamInt", "", [&] { buffer.streamInt(1); }},
        {"PRBCTRAN", kMember, "PRBTransportableData::stream", "", [&] { usage.stream(buffer); }},
        {"PRBCKYST", kMember, "PRBKeyValueSet::find", "", [&] { pairs.find(4); }},
        {"PRBCSAMP", kMember, "PRBSample::saveNumericData", "",
         [&] { usage.saveNumericData(4, 1); }},
        {"PRBCTIME", kFrequent, "PRBTime::operator-", " with return value 0",
         [&] { (void)(time - time); }},
        {"PRBCUTIL", kMember, "SnapHex", " with return value 0",
         [] { SnapHex(reinterpret_cast<const unsigned char*>("x"), 1, "title", nullptr); }},
    };
    check(operations, "PRBCRSCA");
}

TEST_F(TraceTexts, namesTheOperationsOfEverySampleClass) {
    using datatest::create;
    const struct {
        const char* component;
        const char* name;
        std::unique_ptr<PRBSample> (*create)();
    } classes[] = {
        {"PRBCAASA", "PRBApplicationSample", create<PRBApplicationSample>},
        {"PRBCAPSA", "PRBAppServerSample", create<PRBAppServerSample>},
        {"PRBCCNSA", "PRBContentionSample", create<PRBContentionSample>},
        {"PRBCCOSA", "PRBContainerSample", create<PRBContainerSample>},
        {"PRBCDBSA", "PRBDBConnectPoolSample", create<PRBDBConnectPoolSample>},
        {"PRBCDSSA", "PRBDataSourceDetSample", create<PRBDataSourceDetSample>},
        {"PRBCEJSA", "PRBEJBSample", create<PRBEJBSample>},
        {"PRBCEMSA", "PRBEJBMethodSample", create<PRBEJBMethodSample>},
        {"PRBCENSA", "PRBEndSample", create<PRBEndSample>},
        {"PRBCGCSA", "PRBGarbageCollectionSample", create<PRBGarbageCollectionSample>},
        {"PRBCHESA", "PRBHeapSample", create<PRBHeapSample>},
        {"PRBCHSSA", "PRBHTTPSample", create<PRBHTTPSample>},
        {"PRBCMSSA", "PRBMethodSummarySample", create<PRBMethodSummarySample>},
        {"PRBCMUSA", "PRBMethodUsageSample", create<PRBMethodUsageSample>},
        {"PRBCOPSA", "PRBObjectPoolSample", create<PRBObjectPoolSample>},
        {"PRBCPRER", "PRBProfilerError", create<PRBProfilerError>},
        {"PRBCPRSA", "PRBProfilerResourceSample", create<PRBProfilerResourceSample>},
        {"PRBCSOSA", "PRBAppServerOverviewSample", create<PRBAppServerOverviewSample>},
        {"PRBCSVSA", "PRBServletSample", create<PRBServletSample>},
        {"PRBCTHSA", "PRBCThreadSample", create<PRBCThreadSample>},
        {"PRBCTRSA", "PRBTransactionSample", create<PRBTransactionSample>},
        {"PRBCWDSA", "PRBWorkloadDetailSample", create<PRBWorkloadDetailSample>},
        {"PRBCWESA", "PRBWorkloadExceptionSample", create<PRBWorkloadExceptionSample>},
        {"PRBCWSSA", "PRBWorkloadSumSample", create<PRBWorkloadSumSample>},
    };
    for (const auto& row : classes) {
        const std::shared_ptr<PRBSample> sample = row.create();
        const std::string name = row.name;
        const std::string save = name + "::saveStringData", get = name + "::getStringData",
                          rates = name + "::calculateRates";
        check({{row.component, 0x800, save.c_str(), "", [=] { sample->saveStringData(10, "x"); }},
               {row.component, 0x800, get.c_str(), "", [=] { sample->getStringData(10); }},
               {row.component, 0x800, rates.c_str(), "", [=] { sample->calculateRates(nullptr); }}},
              "PRBCEBSA");
    }
}

TEST_F(TraceTexts, namesTheOperationsThatSamplesHaveOfTheirOwn) {
    constexpr int kMember = 0x800;
    PRBWorkloadSumSample workload;
    PRBMethodSummarySample summary;
    PRBHTTPSample http;
    PRBEJBSample bean;
    check(
        {{"PRBCEBSA", kMember, "PRBEJBBaseSample constructor", "", [] { PRBTransactionSample(); }},
         {"PRBCWBSA", kMember, "PRBWorkloadBaseSample::getResourceName", "",
          [&] { (void)workload.getResourceName(); }},
         {"PRBCMSSA", kMember, "PRBMethodSummarySample::operator=", "",
          [&] { summary = PRBMethodUsageSample(); }},
         {"PRBCHSSA", kMember, "PRBHTTPSample::mergeSampleData", "",
          [&] { http.mergeSampleData(&http); }},
         {"PRBCEJSA", kMember, "PRBEJBSample::buildFromDataString", "",
          [&] { bean.buildFromDataString(""); }},
         {"PRBCAPSA", kMember, "PRBAppServerSample::getProcessCPUUsage", " with return value -1",
          [] { PRBAppServerSample::getProcessCPUUsage(0); }},
         {"PRBCAPSA", kMember, "PRBAppServerSample::saveRollUpValues", "",
          [] { PRBAppServerSample().saveRollUpValues(1, 2, 3, 4, 5, 6, 7, 8, 9, 10); }}},
        "PRBCRSCA");
}

TEST_F(TraceTexts, namesTheOperationsOfAnchors) {
    constexpr int kFrequent = 0x1000;
    constexpr const char* kAnchor = "PRBCRSCA";
    PRBResourceAnchor plain(_SampleType{13}, "abcd");
    PRBEJBAnchor bean;
    check({{kAnchor, kFrequent, "PRBResourceAnchor::createHashKey", " with return value 0",
            [] { PRBResourceAnchor::createHashKey(""); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::hash", " with return value 1684234849",
            [&] { plain.hash(); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::isEqual", " with return value 0",
            [&] { plain.isEqual(nullptr); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::doesItMatch", " with return value 1",
            [&] { plain.doesItMatch(plain); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::isSpecific", " with return value 1",
            [&] { plain.isSpecific(); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::saveNewSample", "",
            [&] { plain.saveNewSample(new PRBHeapSample, 0); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::saveNewHistoricalSample",
            " with return value 0", [&] { plain.saveNewHistoricalSample(nullptr); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::getLastHistoricalSample", "",
            [&] { plain.getLastHistoricalSample(); }},
           {kAnchor, kFrequent, "PRBResourceAnchor::resetHistoricalSample", "",
            [&] { plain.resetHistoricalSample(); }},
           {kAnchor, kFrequent, "PRBDescribedAnchor::getHashKey", " with return value 0",
            [&] { bean.getHashKey(); }},
           {kAnchor, kFrequent, "PRBDescribedAnchor::isEqual", " with return value 1",
            [&] { bean.isEqual(&bean); }},
           {kAnchor, kFrequent, "PRBDescribedAnchor::doesItMatch", " with return value 1",
            [&] { bean.doesItMatch(bean); }},
           {kAnchor, kFrequent, "PRBDescribedAnchor::isSpecific", " with return value 0",
            [&] { bean.isSpecific(); }}},
          "PRBCSAMP");
}
