// Methods of classes that were loaded before the agent heard of loads.
#include "tests/vm/runtime/SamplerTest.h"

#include "data/PRBMethodUsageSample.h"
#include "runtime/PRBReclaimer.h"

namespace {

using testing::Contains;

class SamplerKnown : public SamplerTest {
protected:
    // A runnable thread in Early.run, called by EarlyCaller.main; the agent knows neither.
    Threads startEarly(const std::string& name) {
        early = &makeClass("com/x/Early", {"run"}, false);
        caller = &makeClass("com/x/EarlyCaller", {"main"}, false);
        Threads made = startThread(name);
        made.vm.setFrames({{1, early->methodId("run")}, {2, caller->methodId("main")}});
        return made;
    }
    std::size_t requests() const {
        return vm.recorder().count("RequestEvent") + vm.recorder().count("GetMethodClass");
    }
    static Texts namesOf(PRBJavaThread& thread, jmethodID method) {
        auto* record = recordOf(thread, method);
        PRBMethodUsageSample sample;
        if (record == nullptr || record->createSample(sample, 1, 2, 3) == 0) return {};
        Texts names;
        for (int key : {10, 11, 320}) names.emplace_back(sample.getStringData(key));
        return names;
    }

    ScriptedClass* early = nullptr;
    ScriptedClass* caller = nullptr;
};

TEST_F(SamplerKnown, aLoadedClassBecomesKnownWithTheFirstSampleAndThatCounts) {
    auto [scripted, model] = startEarly("one");
    setSamplerIdle(0);
    cycle();
    EXPECT_NE(findMethod(early->methodId("run")), nullptr);
    EXPECT_NE(findClass(early->id()), nullptr);
    EXPECT_EQ(model.getCounters().cpuTime, 1);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 1);
    EXPECT_EQ(recordOf(model, early->methodId("run"))->getOwnCPU(), 1);
    EXPECT_EQ(namesOf(model, early->methodId("run")), (Texts{"com/x/Early", "run", "()V"}));
}

TEST_F(SamplerKnown, callersBecomeKnownByTheirNames) {
    auto [scripted, model] = startEarly("one");
    setSamplerIdle(0);
    cycle();
    EXPECT_NE(findMethod(caller->methodId("main")), nullptr);
    EXPECT_EQ(namesOf(model, caller->methodId("main")),
              (Texts{"com/x/EarlyCaller", "main", "()V"}));
}

TEST_F(SamplerKnown, whatIsKnownIsNotAskedForAgain) {
    startEarly("one");
    startRunning("two"); // in methods of a class whose load was told
    cycle();
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 2u); // one for each early class
    for (int i = 0; i < 3; ++i) {
        cycle();
        EXPECT_EQ(requests(), 0u);
    }
}

TEST_F(SamplerKnown, aClassIsAskedForOnceForAllItsMethods) {
    ScriptedClass& many = makeClass("com/x/Many", {"a", "b", "c"}, false);
    startThread("one").vm.setFrames(
        {{1, many.methodId("a")}, {1, many.methodId("b")}, {1, many.methodId("c")}});
    cycle();
    EXPECT_EQ(vm.recorder().count("RequestEvent"), 1u);
    EXPECT_EQ(vm.recorder().count("GetMethodClass"), 1u);
}

TEST_F(SamplerKnown, aMethodThatTheMaskLeavesOutIsKnownAndNotCounted) {
    auto [scripted, model] = startEarly("one");
    PRBMaskLists::setMethodMask("*.main");
    cycle();
    EXPECT_NE(findMethod(early->methodId("run")), nullptr);
    EXPECT_EQ(model.getCounters().cpuTime, 0);
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 0u);
}

TEST_F(SamplerKnown, aMethodOfAnUnloadedClassIsAskedForAgainWhenItComesBack) {
    startEarly("one");
    cycle();
    vm.send.classUnload(vm.mainThread(), early->id());
    EXPECT_EQ(findMethod(early->methodId("run")), nullptr);
    vm.send.classLoad(vm.mainThread(), *early);
    cycle();
    EXPECT_NE(findMethod(early->methodId("run")), nullptr);
    EXPECT_EQ(requests(), 0u); // its load was told
}

TEST_F(SamplerKnown, theVmIsAskedAfterTheLastResumeAndWithNoLockHeld) {
    startEarly("one");
    startRunning("two");
    cycle();
    bool asked = false;
    unsigned resumes = 0;
    for (const scripted::Call& call : vm.recorder().calls(scripted::kJvmpi)) {
        if (call.name == "ResumeThread") ++resumes;
        if (call.name != "RequestEvent" && call.name != "GetMethodClass") continue;
        asked = true;
        EXPECT_EQ(resumes, 2u) << call.text;
        EXPECT_EQ(call.held, Texts{}) << call.text;
    }
    EXPECT_TRUE(asked);
}

// The thread may end and be purged while the VM is asked.
TEST_F(SamplerKnown, aThreadPurgedWhileTheVmIsAskedIsChargedWithoutHarm) {
    auto [scripted, model] = startEarly("one");
    static scripted::ScriptedVm* of = nullptr;
    static ScriptedThread* ending = nullptr;
    static jobjectID (*getMethodClass)(jmethodID) = nullptr;
    of = &vm;
    ending = &scripted;
    getMethodClass = vm.jvmpi()->GetMethodClass;
    vm.jvmpi()->GetMethodClass = [](jmethodID method) {
        if (ending != nullptr) {
            ScriptedThread& thread = *ending;
            ending = nullptr;
            of->send.threadEnd(thread);
            PRBMonitorGlobal::getMonitorGlobal()->purgeEndedThreads();
            for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
        }
        return getMethodClass(method);
    };
    cycle();
    EXPECT_EQ(ending, nullptr);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 1);
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

class SamplerKnownDebug : public SamplerKnown {
    void SetUp() override {
        startAgent("debug=PUBLIC,filter=PRBCCPUS");
        prepare();
    }
};

TEST_F(SamplerKnownDebug, aRefusedMethodStaysIgnoredAndIsToldSo) {
    auto [scripted, model] = startEarly("one");
    const Texts ignored = {"Thread busy for thread " + [](const void* p) {
        char digits[24];
        std::snprintf(digits, sizeof digits, "%lX",
                      static_cast<unsigned long>(reinterpret_cast<std::uintptr_t>(p)));
        return std::string(digits);
    }(scripted.env()) + " was ignored"};
    vm.recorder().failNext("RequestEvent", -1);
    cycle();
    EXPECT_EQ(findMethod(early->methodId("run")), nullptr);
    EXPECT_EQ(model.getCounters().cpuTime, 0);
    EXPECT_EQ(model.getMethodFrequencyTable()->entries(), 0u);
    EXPECT_EQ(logCount(ignored[0]), 1u);
    cycle(); // asked again, and not refused this time
    EXPECT_EQ(model.getCounters().cpuTime, 1);
    EXPECT_EQ(logCount(ignored[0]), 1u);
}

} // namespace
