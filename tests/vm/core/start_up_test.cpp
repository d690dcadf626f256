#include "core/InternalTraceTable.h"
#include "core/PRBEventDispatcher.h"
#include "core/PRBFormat.h"
#include "core/PRBTrace.h"
#include "tests/vm/core/CoreTest.h"

#include <atomic>
#include <vector>

using namespace scripted;

namespace {

class StartUp : public CoreTest {};

} // namespace

TEST_F(StartUp, createsItsMonitorsInOrder) {
    build(nullptr);
    const Texts created = vm.monitors().created();
    EXPECT_EQ(created, (Texts{"_LogFile", "_ClassTable", "_MethodTable", "_ObjectTable",
                              "_ArenaTable", "_ThreadTable", "_ActiveThreadTable", "_MaskList",
                              "_ProfilerError", "_HeapDumpRequest", "_ProfilerError"}));
}

TEST_F(StartUp, buildsOneObjectWhateverIsAskedLater) {
    PRBMonitorGlobal& first = build("debug=PUBLIC");
    EXPECT_EQ(&build("debug=YES"), &first);
    EXPECT_EQ(PRBMonitorGlobal::getMonitorGlobal(nullptr, nullptr, nullptr), &first);
    EXPECT_EQ(PRBTrace::level.load(), 0x200);
    EXPECT_TRUE(PRBMonitorGlobal::isProfilerActive());
    EXPECT_EQ(PRBMonitorGlobal::getInterface(), vm.jvmpi());
}

TEST_F(StartUp, isSilentWithoutDebug) {
    start("port=8080");
    EXPECT_EQ(folder.files(), Texts{});
    EXPECT_EQ(PRBTrace::level.load(), 0);
}

TEST_F(StartUp, tellsItsOptionsAndSettings) {
    build("debug=PUBLIC,port=8080,filter=PRBCMNGL");
    EXPECT_EQ(
        logTexts(),
        (Texts{"PRBMonitorGlobal::parseStartupOptions Exit with return value 0",
               "PRBPROF Initialization", "Startup Options: debug=PUBLIC,port=8080,filter=PRBCMNGL",
               "Settings: Port 8080 Trace Level 0x200", "PRBMonitorGlobal constructor Exit"}));
}

TEST_F(StartUp, optionTextsWithPercentSignsAreLoggedAsTheyAre) {
    build("workanalysisconfig=%s%n%x,debug=PUBLIC");
    EXPECT_TRUE(logged("Startup Options: workanalysisconfig=%s%n%x,debug=PUBLIC"));
}

TEST_F(StartUp, writesAnInvalidPortToTheLog) {
    build("port=80a,port=,port=%s");
    EXPECT_EQ(logTexts(),
              (Texts{"Invalid PORT option specified: 80a",
                     "Invalid PORT option specified: ", "Invalid PORT option specified: %s"}));
}

TEST_F(StartUp, writesTheTextOfAnOptionErrorToTheLog) {
    build("bogus=1");
    EXPECT_EQ(logTexts(), Texts{"Invalid profiler parm specified"});
}

TEST_F(StartUp, theInternalTraceTableTakesEverythingAfterItsAddress) {
    PRBMonitorGlobal& monitor = build("debug=INTERNAL");
    EXPECT_EQ(PRBTrace::level.load(), 0x1E00);
    const Texts lines = logTexts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "PRBMonitorGlobal::parseStartupOptions Exit with return value 0");
    char expected[64];
    std::snprintf(expected, sizeof expected, "Internal trace table is at " PRB_PTR,
                  prbPtr(PRBTrace::table.load()));
    EXPECT_EQ(lines[1], expected);
    monitor.dumpMonitorStats();
    PRBTrace::writeToLog("into the table");
    EXPECT_EQ(logTexts(), lines);
    // Of 500 entries.
    const InternalTraceTable& table = *PRBTrace::table.load();
    const auto* next = table.nextEntry();
    for (int i = 0; i < 499; ++i) PRBTrace::writeToLog("again");
    EXPECT_NE(table.nextEntry(), next);
    PRBTrace::writeToLog("around");
    EXPECT_EQ(table.nextEntry(), next);
}

TEST_F(StartUp, aFilterSilencesOtherComponents) {
    PRBMonitorGlobal& monitor = build("debug=YES,filter=(PRBCJV;PRBCLCO)");
    EXPECT_EQ(logTexts(), Texts{});
    EXPECT_TRUE(monitor.doesDebugFilterMatch("PRBCJVTH"));
    EXPECT_FALSE(monitor.doesDebugFilterMatch("PRBCMNGL"));
}

TEST_F(StartUp, enablesItsEventsInOrderAndIgnoresTheResults) {
    PRBMonitorGlobal& monitor = build(nullptr);
    vm.recorder().clear();
    vm.recorder().failNext("EnableEvent");
    vm.recorder().failNext("EnableEvent", JVMPI_NOT_AVAILABLE, 3);
    monitor.completeInit();
    EXPECT_EQ(vm.recorder().textsOf({"CreateSystemThread", "EnableEvent"}),
              (Texts{"CreateSystemThread(PRB_CPUSampler_Thread, 10)", "EnableEvent(47)",
                     "EnableEvent(60)", "EnableEvent(61)", "EnableEvent(6)", "EnableEvent(42)",
                     "EnableEvent(43)", "EnableEvent(34)", "EnableEvent(33)"}));
    EXPECT_NE(monitor.getCPUSampler(), nullptr);
}

TEST_F(StartUp, aSecondCompleteInitBuildsNoSecondSampler) {
    PRBMonitorGlobal& monitor = start();
    PRBProfilerCPUSampler* sampler = monitor.getCPUSampler();
    monitor.completeInit();
    EXPECT_EQ(monitor.getCPUSampler(), sampler);
    EXPECT_EQ(vm.recorder().count("CreateSystemThread"), 0u);
}

TEST_F(StartUp, worksWithAVmThatLacksFunctions) {
    vm.jvmpi()->EnableEvent = nullptr;
    vm.jvmpi()->RequestEvent = nullptr;
    vm.jvmpi()->GetMethodClass = nullptr;
    vm.jvmpi()->GetThreadLocalStorage = nullptr;
    vm.jvmpi()->SetThreadLocalStorage = nullptr;
    vm.jvmpi()->GetThreadObject = nullptr;
    vm.jvmpi()->DisableGC = nullptr;
    vm.jvmpi()->EnableGC = nullptr;
    PRBMonitorGlobal& monitor = start();
    auto& cls = vm.addClass({.name = "com/x/A", .methods = {{.name = "run", .signature = "()V"}}});
    EXPECT_EQ(monitor.getClassForClassID(cls.id()), nullptr);
    EXPECT_EQ(monitor.getObject(objectId(99)), nullptr);
    EXPECT_EQ(monitor.getClassForMethod(cls.methodId("run")), nullptr);
    EXPECT_EQ(monitor.getThreadClass(vm.env()), nullptr);
    vm.send.methodEntry(vm.mainThread(), cls.methodId("run"));
    vm.send.objectAlloc(vm.mainThread(), 1, cls.id(), 0, 8, objectId(99));
    EXPECT_NE(findObject(objectId(99)), nullptr);
}

TEST_F(StartUp, shutdownOnlyTraces) {
    start("debug=PUBLIC");
    const std::size_t before = logTexts().size();
    vm.send.jvmShutDown(vm.mainThread());
    const Texts lines = logTexts();
    EXPECT_EQ(Texts(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end()),
              (Texts{"PRBMonitorGlobal::HandleJVMShutdown Entry",
                     "PRBMonitorGlobal::HandleJVMShutdown Exit"}));
    auto& cls = vm.addClass({.name = "com/x/A"});
    vm.send.classLoad(vm.mainThread(), cls);
    EXPECT_NE(findClass(cls.id()), nullptr);
}

TEST_F(StartUp, notifyTracesAtItsOwnLevel) {
    start("debug=PRIVATE");
    const std::size_t before = logCount("PRBMonitorGlobal::notify Entry");
    vm.send.jvmShutDown(vm.mainThread());
    EXPECT_EQ(logCount("PRBMonitorGlobal::notify Entry"), before + 1);
    EXPECT_EQ(logCount("PRBMonitorGlobal::notify Exit"), before + 1);
}

TEST_F(StartUp, notifyIsSilentAtThePublicLevel) {
    start("debug=PUBLIC");
    vm.send.jvmShutDown(vm.mainThread());
    EXPECT_EQ(logCount("PRBMonitorGlobal::notify Entry"), 0u);
}

TEST_F(StartUp, internalDiagnosticsStaySilentAtEveryLevel) {
    PRBMonitorGlobal& monitor = start("debug=YES");
    monitor.dumpMonitorStats();
    monitor.getClassForClassID(vm.unknownId());
    monitor.getObject(vm.unknownId());
    for (const std::string& line : logTexts()) {
        EXPECT_EQ(line.find("RequestEvent JVMPI_EVENT"), std::string::npos) << line;
        EXPECT_EQ(line.find("Event metrics follow"), std::string::npos) << line;
    }
}

TEST_F(StartUp, refusedRequestsAreToldUnderTheInternalClass) {
    PRBMonitorGlobal& monitor = start();
    PRBTrace::level.store(0x1);
    vm.recorder().failNext("RequestEvent", JVMPI_NOT_AVAILABLE);
    monitor.getObject(vm.unknownId());
    monitor.getObject(vm.unknownId());
    PRBTrace::level.store(0);
    EXPECT_TRUE(logged("getObject RequestEvent JVMPI_EVENT_OBJECT_ALLOC returned "
                       "JVMPI_NOT_AVAILABLE"));
    EXPECT_TRUE(logged("getObject RequestEvent JVMPI_EVENT_OBJECT_ALLOC returned JVMPI_FAIL"));
}

TEST_F(StartUp, eventCountersAreDumpedOnceUnderTheInternalClass) {
    PRBMonitorGlobal& monitor = start();
    vm.send.bare(vm.mainThread(), JVMPI_EVENT_DATA_DUMP_REQUEST);
    vm.send.jvmShutDown(vm.mainThread());
    PRBTrace::level.store(0x1);
    monitor.dumpMonitorStats();
    PRBTrace::level.store(0);
    bool found = false;
    for (const std::string& line : logTexts())
        found |= line.find("Event metrics follow") != std::string::npos;
    EXPECT_TRUE(found);
    for (auto counter : PRBEventDispatcher::metrics().take()) EXPECT_EQ(counter, 0u);
}

TEST_F(StartUp, memoryUseIsTwoLines) {
    build(nullptr);
    PRBMemoryManager::release(PRBMemoryManager::allocate(100000), 100000);
    ASSERT_LT(PRBMemoryManager::getCurrentAllocation(), PRBMemoryManager::getHighWaterMark());
    PRBMemoryManager::displayMemoryUse();
    const Texts lines = logTexts();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "The current amount of memory in use is " +
                            std::to_string(PRBMemoryManager::getCurrentAllocation()));
    EXPECT_EQ(lines[1], "The high water amount of memory used is " +
                            std::to_string(PRBMemoryManager::getHighWaterMark()));
}

TEST_F(StartUp, threadsThatInitialiseAtOnceGetOneObjectAndOneSampler) {
    std::vector<ScriptedThread*> threads;
    for (const char* name : {"a", "b", "c"}) {
        threads.push_back(&vm.addThread({.name = name}));
        threads.back()->startReal();
    }
    std::atomic<PRBMonitorGlobal*> answers[3];
    for (std::size_t i = 0; i < 3; ++i) {
        threads[i]->post([&, i] {
            answers[i] = &build(nullptr);
            answers[i].load()->completeInit();
            EXPECT_NE(answers[i].load()->getCPUSampler(), nullptr);
        });
    }
    for (ScriptedThread* thread : threads) {
        thread->waitIdle();
        thread->stopReal();
    }
    EXPECT_NE(answers[0].load(), nullptr);
    EXPECT_EQ(answers[1].load(), answers[0].load());
    EXPECT_EQ(answers[2].load(), answers[0].load());
    EXPECT_EQ(vm.recorder().count("RawMonitorCreate(_ClassTable)"), 1u);
    EXPECT_EQ(vm.recorder().count("CreateSystemThread"), 1u);
}
