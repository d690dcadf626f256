// Building the collector, starting, changing and stopping collections.
#include "tests/vm/collector/CollectorTest.h"

#include "core/PRBContext.h"
#include "core/PRBMaskLists.h"

#include <unistd.h>

using scripted::kJni;
using scripted::kJvmpi;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

class Control : public CollectorTest {
protected:
    Texts enablesAndDisables() { return vm.recorder().textsOf({"EnableEvent", "DisableEvent"}); }
    // What starting a collection of the type changes.
    Texts changesOf(int type) {
        vm.recorder().clear();
        EXPECT_EQ(start(type), 0);
        return enablesAndDisables();
    }
};

const scripted::Texts kNothing;

// ---- building ----

TEST_F(Control, looksUpTheJavaMethodsInOrderAndAsksForTheBuildLevelAtOnce) {
    java.script->buildLevel = 77;
    vm.callNative([&] {
        jobject object = vm.newLocalRef(vm.mainThread(), java.object);
        vm.recorder().clear();
        PRBWorkloadCollector::getWorkloadCollector(vm.env(), object, 1);
    });
    std::vector<std::string> order;
    for (const scripted::Call& call : vm.recorder().calls(scripted::kJni | scripted::kJava))
        if (call.name.find("MethodID") != std::string::npos || call.kind == scripted::kJava)
            order.push_back(call.kind == scripted::kJava ? "called" : call.text);
    ASSERT_EQ(order.size(), 6U);
    EXPECT_THAT(order[0], HasSubstr("getBuildLevel"));
    EXPECT_EQ(order[1], "called");
    EXPECT_THAT(order[2], HasSubstr("getFreeBytes"));
    EXPECT_THAT(order[3], HasSubstr("getTotalBytes"));
    EXPECT_THAT(order[4], HasSubstr("writeToLog"));
    EXPECT_THAT(order[5], HasSubstr("isGCCollectionActive"));

    auto* built = PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 0);
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->getJavaBuildLevel(), 77);
    EXPECT_TRUE(built->isGood());
    EXPECT_EQ(built->getCollectionType(), 0U);
    EXPECT_EQ(built->getCPUSamplingInterval(), 5);
    EXPECT_EQ(built->getPollingFrequency(), 0);
    EXPECT_EQ(built->getProcessId(), 0);
    EXPECT_EQ(built->getHeapData().getGeneration(), 0U);
    EXPECT_EQ(built->getNumBytesFreedAtLastGC(), -1);
    EXPECT_EQ(built->getNumBytesCurrentlyFreeAtLastGC(), -1);
    EXPECT_EQ(built->getNumBytesTotalAtLastGC(), -1);
    EXPECT_EQ(built->getDataReturn().getProcessCPUAtLastReturn(), -1);
    for (const PRBEventState& row : built->getEventCollection().current())
        EXPECT_EQ(row.enabled, 0) << row.event;
    EXPECT_THAT(vm.globalReferences(),
                ElementsAre(HasSubstr("workanalysis/Collector"),
                            HasSubstr("class com/tessel/prb/workanalysis/Collector")));
}

TEST_F(Control, isBuiltOnlyOnRequestAndOnlyOnce) {
    EXPECT_EQ(PRBWorkloadCollector::getWorkloadCollector(vm.env(), nullptr, 0), nullptr);
    ASSERT_NE(init(), 0);
    const jlong first = handle;
    EXPECT_EQ(PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 0)->toHandle(), first);
    java = scripted::makeCollector(vm, {}, "com/x/OtherCollector");
    EXPECT_EQ(init(), first);
    java.script->freeBytes = 99; // of the object that came second, which is not used
    vm.callNative([&] { EXPECT_EQ(collector().getNumBytesFree(vm.env()), 1000000); });
}

TEST_F(Control, theHandleIsTheAddress) {
    ASSERT_NE(init(), 0);
    EXPECT_EQ(handle, static_cast<jlong>(reinterpret_cast<std::intptr_t>(
                          PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 0))));
    EXPECT_EQ(PRBWorkloadCollector::fromHandle(handle + 8), nullptr);
    EXPECT_EQ(PRBWorkloadCollector::fromHandle(0), nullptr);
}

TEST_F(Control, withoutAProfilerInterfaceNothingIsBuilt) {
    vm.refuseJvmpi(JNI_EVERSION);
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(PRBMonitorGlobal::getMonitorGlobal(), nullptr);
    EXPECT_THAT(vm.globalReferences(), IsEmpty());
}

TEST_F(Control, withoutJniOnLoadNothingIsBuilt) {
    vm.callNative(
        [&] { EXPECT_EQ(NATIVE(Profiler, InitProfiler)(vm.env(), nullptr, nullptr, nullptr), 0); });
    EXPECT_EQ(PRBMonitorGlobal::getMonitorGlobal(), nullptr);
}

TEST_F(Control, aNullJavaCollectorGivesNeutralAnswers) {
    JNI_OnLoad(vm.javaVM(), nullptr);
    vm.callNative([&] {
        handle = NATIVE(Profiler, InitProfiler)(vm.env(), nullptr, nullptr, nullptr);
        ASSERT_NE(handle, 0);
        EXPECT_EQ(collector().getJavaBuildLevel(), 0);
        EXPECT_EQ(collector().getNumBytesFree(vm.env()), -1);
        EXPECT_EQ(collector().getTotalNumBytes(vm.env()), -1);
        EXPECT_FALSE(collector().isGCCollectionActiveInWorkloadAnalysis(vm.env()));
        collector().writeToWorkloadAnalysisLog(vm.env(), "lost");
    });
}

TEST_F(Control, missingJavaMethodsGiveNeutralAnswersAndLeaveNothingPending) {
    java = scripted::makeCollector(
        vm,
        {"getBuildLevel", "getFreeBytes", "getTotalBytes", "writeToLog", "isGCCollectionActive"},
        "com/x/Bare");
    ASSERT_NE(init(), 0);
    vm.callNative([&] {
        EXPECT_EQ(collector().getJavaBuildLevel(), 0);
        EXPECT_EQ(collector().getNumBytesFree(vm.env()), -1);
        EXPECT_EQ(collector().getTotalNumBytes(vm.env()), -1);
        EXPECT_FALSE(collector().isGCCollectionActiveInWorkloadAnalysis(vm.env()));
        collector().writeToWorkloadAnalysisLog(vm.env(), "lost");
    });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

TEST_F(Control, initialisationHooksTheEventsBeforeItEnablesThem) {
    vm.jvmpi()->NotifyEvent = nullptr;
    bool hookedAtFirstCall = false;
    static bool* seen = &hookedAtFirstCall;
    static JVMPI_Interface* table = nullptr;
    static jint (*enable)(jint, void*) = nullptr;
    table = vm.jvmpi();
    enable = table->EnableEvent;
    table->EnableEvent = [](jint type, void* argument) {
        *seen = table->NotifyEvent == &PRBMonitorGlobal::notify;
        return enable(type, argument);
    };
    ASSERT_NE(init(), 0);
    EXPECT_TRUE(hookedAtFirstCall);
    EXPECT_EQ(PRBContext::getInterface(), vm.jvmpi());
    EXPECT_EQ(PRBjvmpi_interface, vm.jvmpi());
    EXPECT_EQ(PRBContext::getJavaVM(), vm.javaVM());
    EXPECT_EQ(monitor().getPRBWorkloadCollector(), &collector());
    EXPECT_EQ(collector().getProcessId(), getpid());
    EXPECT_EQ(PRBTrace::level.load(), 0) << "null options are empty options";
}

TEST_F(Control, initialisationPassesTheOptionsOn) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    EXPECT_EQ(PRBTrace::level.load(), 0x200);
    EXPECT_EQ(logCount("Startup Options: debug=PUBLIC"), 1U);
}

TEST_F(Control, isGCCollectionActiveOnlyWhenJavaSaysTrue) {
    ASSERT_NE(init(), 0);
    vm.callNative([&] {
        EXPECT_FALSE(collector().isGCCollectionActiveInWorkloadAnalysis(vm.env()));
        java.script->gcCollectionActive = true;
        EXPECT_TRUE(collector().isGCCollectionActiveInWorkloadAnalysis(vm.env()));
        java.script->throws = "java/lang/RuntimeException";
        EXPECT_FALSE(collector().isGCCollectionActiveInWorkloadAnalysis(vm.env()));
    });
    EXPECT_EQ(vm.exceptionLeft(), "");
}

// ---- events ----

TEST_F(Control, contentionEnablesTheMonitorEventsInOrderAndOnlyOnce) {
    ASSERT_NE(init(), 0);
    EXPECT_THAT(changesOf(0x800),
                ElementsAre("EnableEvent(54)", "EnableEvent(55)", "EnableEvent(56)",
                            "EnableEvent(57)", "EnableEvent(58)"));
    EXPECT_EQ(changesOf(0x800), kNothing);
}

TEST_F(Control, aChangeOfCollectionPassesOnlyTheDifferencesInTheOrderOfTheTable) {
    ASSERT_NE(init(), 0);
    changesOf(0x800);
    EXPECT_THAT(changesOf(0x8000),
                ElementsAre("EnableEvent(49)", "EnableEvent(48)", "DisableEvent(54)",
                            "DisableEvent(55)", "DisableEvent(56)", "DisableEvent(57)",
                            "DisableEvent(58)", "EnableEvent(4)", "EnableEvent(5)",
                            "EnableEvent(6)"));
    EXPECT_THAT(changesOf(0x8800),
                ElementsAre("EnableEvent(54)", "EnableEvent(55)", "EnableEvent(56)",
                            "EnableEvent(57)", "EnableEvent(58)"));
}

TEST_F(Control, otherTypesEnableNoEvents) {
    ASSERT_NE(init(), 0);
    for (int type : {0x200, 0x400, 0x1000, 0x2000, 0x40000, 0x80000, 0xC3600})
        EXPECT_EQ(changesOf(type), kNothing) << type;
}

TEST_F(Control, methodThreadAndCollectionEventsAreNeverTouched) {
    ASSERT_NE(init(), 0);
    Texts all = changesOf(-1);
    vm.recorder().clear();
    stop();
    const Texts stopped = enablesAndDisables();
    all.insert(all.end(), stopped.begin(), stopped.end());
    ASSERT_EQ(all.size(), 20U);
    for (int event : {1, 2, 3, 33, 34, 60, 61}) {
        const std::string argument = "(" + std::to_string(event) + ")";
        EXPECT_THAT(all, ::testing::Not(Contains(::testing::EndsWith(argument))));
    }
}

TEST_F(Control, stopDisablesWhatWasEnabledOnceAndKeepsTheType) {
    ASSERT_NE(init(), 0);
    start(0x8E00);
    vm.recorder().clear();
    EXPECT_EQ(stop(), 0);
    EXPECT_THAT(enablesAndDisables(),
                ElementsAre("DisableEvent(49)", "DisableEvent(48)", "DisableEvent(54)",
                            "DisableEvent(55)", "DisableEvent(56)", "DisableEvent(57)",
                            "DisableEvent(58)", "DisableEvent(4)", "DisableEvent(5)",
                            "DisableEvent(6)"));
    EXPECT_EQ(collector().getCollectionType(), 0x8E00U);
    EXPECT_EQ(monitor().getDataBeingCollected(), 0x8E00U);
    vm.recorder().clear();
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(enablesAndDisables(), kNothing);
    EXPECT_EQ(changesOf(0x800).size(), 5U) << "after a stop everything is enabled anew";
}

TEST_F(Control, aVmThatRefusesEventsChangesNothingInTheAnswers) {
    ASSERT_NE(init(), 0);
    for (int i = 0; i < 5; ++i) vm.recorder().failNext("EnableEvent");
    EXPECT_EQ(start(0x800), 0);
    EXPECT_EQ(stop(), 0);
}

// ---- masks, intervals, texts ----

TEST_F(Control, intervalZeroBecomesFiveInTheLogAndInTheSamplersDivisor) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    EXPECT_EQ(start(0x200, "*", "*", 0, 9), 0);
    EXPECT_EQ(logCount("Data collection initiated.  Collection Type = 0x200 CPUSamplingInterval = "
                       "5 PollingFrequency = 9 ClassMasks = * MethodMasks = *"),
              1U);
    EXPECT_EQ(collector().getCPUSamplingInterval(), 5);
    EXPECT_EQ(collector().getPollingFrequency(), 9);
    EXPECT_EQ(sampler().getInterval(), 5U);
    EXPECT_EQ(monitor().getSimulatedSamplingDivisor(), 5000000);
}

struct MaskCase {
    std::optional<std::string> given;
    const char* shown;
};

TEST_F(Control, masksAreConvertedAndLogged) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    const MaskCase classes[] = {
        {std::nullopt, "*"}, {"", "*"}, {"com.x.Y", "com/x/Y"}, {"a.b.*,c?d", "a/b/*,c?d"}};
    const MaskCase methods[] = {
        {std::nullopt, ""}, {"", ""}, {"com.x.Y", "com/x/Y"}, {"*.run", "*/run"}};
    for (const MaskCase& c : classes) {
        for (const MaskCase& m : methods) {
            EXPECT_EQ(start(0x12, c.given, m.given, 7, 1), 0);
            const std::string line =
                std::string("Data collection initiated.  Collection Type = 0x12 "
                            "CPUSamplingInterval = 7 PollingFrequency = 1 ClassMasks = ") +
                c.shown + " MethodMasks = " + m.shown;
            EXPECT_GE(logCount(line), 1U) << line;
        }
    }
}

TEST_F(Control, masksReachTheMonitorAlsoFromTheOperationItself) {
    ASSERT_NE(init(), 0);
    EXPECT_EQ(collector().processInitiateCollection(vm.env(), 0, 0, 5, "com.x.*", nullptr), 0U);
    EXPECT_TRUE(PRBMaskLists::shouldClassBeMonitored("com/x/Order"));
    EXPECT_FALSE(PRBMaskLists::shouldClassBeMonitored("com/y/Order"));
    EXPECT_FALSE(PRBMaskLists::shouldMethodBeMonitored("com/x/Order.price"));
    EXPECT_EQ(collector().processInitiateCollection(vm.env(), 0, 0, 5, nullptr, "*"), 0U);
    EXPECT_TRUE(PRBMaskLists::shouldClassBeMonitored("com/y/Order"));
    EXPECT_TRUE(PRBMaskLists::shouldMethodBeMonitored("com/x/Order.price"));
}

TEST_F(Control, maskTextsOfAnyLengthAndWithPercentSignsAreLoggedWhole) {
    ASSERT_NE(init("debug=PUBLIC"), 0);
    std::string masks;
    for (int i = 0; i < 500; ++i) masks += "com/x/%s%n%d" + std::to_string(i) + ",";
    EXPECT_EQ(start(0, masks, "*", 5), 0);
    EXPECT_EQ(logCount("Data collection initiated.  Collection Type = 0x0 CPUSamplingInterval = 5 "
                       "PollingFrequency = 0 ClassMasks = " +
                       masks + " MethodMasks = *"),
              1U);
}

TEST_F(Control, theTypeIsStoredInCollectorAndMonitor) {
    ASSERT_NE(init(), 0);
    EXPECT_EQ(monitor().getDataBeingCollected(), 0U);
    start(0x8C00);
    EXPECT_EQ(collector().getCollectionType(), 0x8C00U);
    EXPECT_EQ(monitor().getDataBeingCollected(), 0x8C00U);
}

TEST_F(Control, theNativesUseALocalFrameOfSixteen) {
    ASSERT_NE(init(), 0);
    vm.recorder().clear();
    start(0x800);
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(16)"), 1U);
    EXPECT_EQ(vm.recorder().count("PopLocalFrame"), 1U);
    vm.recorder().clear();
    stop();
    EXPECT_EQ(vm.recorder().count("PushLocalFrame(16)"), 1U);
    EXPECT_EQ(vm.recorder().count("PopLocalFrame"), 1U);
}

// ---- the sampler ----

TEST_F(Control, threadStatisticsActivateAnIdleSampler) {
    runSamplerThread();
    ASSERT_NE(init(), 0);
    EXPECT_EQ(start(0x200), 0);
    waitForSamplerState(0);
    EXPECT_EQ(sampler().getInterval(), 20000U);
    EXPECT_EQ(monitor().getSimulatedSamplingDivisor(), 1);
    EXPECT_EQ(stop(), 0);
    EXPECT_EQ(sampler().isInactive(), 1);
}

TEST_F(Control, aRunningSamplerIsInterruptedAndResumedWithTheNewInterval) {
    runSamplerThread();
    ASSERT_NE(init(), 0);
    start(0x200);
    waitForSamplerState(0);
    vm.recorder().clear();
    start(0x200, "*", "*", 30000);
    Texts own;
    for (const scripted::Call& call : vm.recorder().calls(scripted::kMonitor))
        if (call.thread == vm.mainThread().name() &&
            call.text.find("_InterruptSamplerRawMonitor") != std::string::npos)
            own.push_back(call.name);
    EXPECT_EQ(own, (Texts{"RawMonitorEnter", "RawMonitorExit"}));
    EXPECT_EQ(sampler().getInterval(), 30000U);
    EXPECT_EQ(sampler().isInactive(), 0);
}

TEST_F(Control, aStartRightAfterAStopKeepsTheSamplerRunning) {
    runSamplerThread();
    ASSERT_NE(init(), 0);
    start(0x200);
    waitForSamplerState(0);
    stop(); // the sampler sleeps on and, unless its sleep just ends, has not noticed
    EXPECT_EQ(sampler().isInactive(), 1);
    start(0x200);
    EXPECT_EQ(sampler().isInactive(), 0);
    waitForSamplerState(0);
    EXPECT_EQ(sampler().isInactive(), 0);
}

TEST_F(Control, aStartThatDoesNotSampleLeavesARunningSamplerAlone) {
    runSamplerThread();
    ASSERT_NE(init(), 0);
    start(0x200);
    waitForSamplerState(0);
    start(0x800);
    EXPECT_EQ(sampler().isInactive(), 0);
}

TEST_F(Control, withoutASamplerTheIntervalIsStoredAllTheSame) {
    ASSERT_NE(init(), 0);
    EXPECT_EQ(start(0x200, "*", "*", 40), 0);
    EXPECT_EQ(monitor().getSimulatedSamplingDivisor(), 40000000);
}

TEST_F(Control, tenThousandStartsAndStopsLeaveNothingBehind) {
    ASSERT_NE(init(), 0);
    vm.recorder().setRecording(false);
    start(0x8E00);
    stop();
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(start(i % 2 == 0 ? 0x8E00 : 0x800), 0);
        ASSERT_EQ(stop(), 0);
    }
    EXPECT_LE(PRBMemoryManager::getCurrentAllocation(), before + 1000);
}

} // namespace
