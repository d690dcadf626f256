// The fixture of the sampler's tests: a sampler whose thread is played by the test.
#ifndef PRB_TESTS_VM_RUNTIME_SAMPLERTEST_H
#define PRB_TESTS_VM_RUNTIME_SAMPLERTEST_H

#include "runtime/PRBInstrumentedMethodEntry.h"
#include "runtime/PRBProfilerCPUSampler.h"
#include "tests/vm/runtime/RuntimeTest.h"

#include <functional>

class SamplerTest : public RuntimeTest {
protected:
    ~SamplerTest() override { onClock = nullptr; }
    void SetUp() override {
        RuntimeTest::SetUp();
        prepare();
    }
    void prepare() {
        collect(PRBCollect::kMethods);
        cls = &makeClass("com/x/A", {"run", "main"});
        sampler = PRBProfilerCPUSampler::createBackgroundThread(vm.jvmpi(), 20);
        vm.recorder().clear();
    }
    // Plays one cycle on the sampler's thread.
    void cycle() {
        ScriptedThread& thread = vm.systemThread(0);
        if (thread.localStorage() == nullptr) vm.send.threadStart(thread);
        vm.recorder().clear();
        thread.run([&] { sampler->runCycle(); });
    }
    // A runnable thread in A.run, called by A.main.
    Threads startRunning(const std::string& name) {
        Threads made = startThread(name);
        made.vm.setFrames({{1, cls->methodId("run")}, {2, cls->methodId("main")}});
        return made;
    }
    Texts sampling() const {
        return vm.recorder().textsOf(
            {"GetThreadStatus", "SuspendThread", "ThreadHasRun", "GetCallTrace", "ResumeThread"});
    }
    // Plays the whole life of the sampler's thread on this one. `step` runs at every wait on the
    // wake-up monitor (the n-th, from 1) instead of waiting.
    void live(std::function<void(int)> step) {
        int waits = 0;
        vm.monitors().setWaitHook([&](const std::string& name, jlong ms) {
            if (name != "_StopBackgroundThread_COBT") return false;
            EXPECT_EQ(ms, 120000);
            step(++waits);
            return true;
        });
        vm.runSystemThread(0);
        vm.monitors().setWaitHook(nullptr);
    }
    // Runs at every reading of the wall clock.
    static void hookClock(std::function<void()> hook) {
        onClock = std::move(hook);
        PRBClock::source = [] {
            if (onClock) onClock();
            const long long us = wallUs.load();
            return timeval{static_cast<time_t>(us / 1000000),
                           static_cast<suseconds_t>(us % 1000000)};
        };
    }

    ScriptedClass* cls = nullptr;
    PRBProfilerCPUSampler* sampler = nullptr;
    static inline std::function<void()> onClock;
};

#endif
