// Activation, sleeping and ending of the sampler's thread.
#include "data/PRBProfilerResourceSample.h"
#include "tests/vm/runtime/SamplerTest.h"

#include <csignal>
#include <dlfcn.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {
int forkErrno = 0; // not 0: the next forks fail with it
}

// Takes the place of the system's, so that a failure can be scripted.
extern "C" __attribute__((visibility("default"))) pid_t fork() {
    if (forkErrno != 0) {
        errno = forkErrno;
        return -1;
    }
    return reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "fork"))();
}

namespace {

std::vector<int> sleeps; // ms, of pauses without a child

class SamplerLife : public SamplerTest {
protected:
    ~SamplerLife() override { PRBClock::sleeper = nullptr; }
    // No child: every pause is written down, and takes its time on the scripted clock.
    void sleepHere() {
        forkErrno = EAGAIN;
        sleeps.clear();
        PRBClock::sleeper = [](int ms) {
            sleeps.push_back(ms);
            passWall(1000LL * ms);
        };
    }
};

TEST_F(SamplerLife, theThreadIsMadeByNameAtTheHighestPriority) {
    const auto threads = vm.systemThreads();
    ASSERT_EQ(threads.size(), 1u);
    EXPECT_EQ(threads[0].name, "PRB_CPUSampler_Thread");
    EXPECT_EQ(threads[0].priority, 10);
    EXPECT_EQ(threads[0].body, &PRBProfilerCPUSampler::launchBackgroundThread);
    EXPECT_THAT(vm.monitors().created(), testing::Contains("_InterruptSamplerRawMonitor"));
}

TEST_F(SamplerLife, waitsForActivationAtFirst) {
    EXPECT_EQ(sampler->getCurrentState(), 1);
    EXPECT_EQ(sampler->isInactive(), 1);
    EXPECT_EQ(PRBContext::isCPUSamplingActive(), 0);
    EXPECT_EQ(sampler->deactivateSampler(), 0);
}

TEST_F(SamplerLife, activatesOnceAndStoresTheInterval) {
    EXPECT_EQ(sampler->activateSampler(35), 1);
    EXPECT_EQ(sampler->getInterval(), 35u);
    EXPECT_EQ(sampler->activateSampler(50), 0);
    EXPECT_EQ(sampler->getInterval(), 35u);
}

TEST_F(SamplerLife, aLifeFromActivationToDeactivationToTheEnd) {
    sleepHere();
    startRunning("one");
    live([&](int wait) {
        switch (wait) {
        case 1:
            EXPECT_EQ(sampler->isTerminated(), 0);
            EXPECT_EQ(sampler->getCurrentState(), 1);
            EXPECT_EQ(sampler->activateSampler(20), 1);
            hookClock([&] {
                if (sampler->getAndResetCycleCount() == 0) return;
                EXPECT_EQ(sampler->getCurrentState(), 0);
                EXPECT_EQ(PRBContext::isCPUSamplingActive(), 1);
                EXPECT_EQ(sampler->deactivateSampler(), 1);
                EXPECT_EQ(sampler->deactivateSampler(), 0);
            });
            break;
        case 2: // what the deactivation posted
            break;
        default:
            EXPECT_EQ(sampler->getCurrentState(), 1);
            EXPECT_EQ(sampler->isInactive(), 1);
            EXPECT_EQ(vm.findThread("one")->timesSuspended(), 1u);
            // The stopped monitor times out in shutdown, as this thread is the stopped one.
            vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
            sampler->shutdown();
        }
    });
    EXPECT_EQ(sampler->isTerminated(), 1);
    EXPECT_EQ(sampler->getAndResetCPUBusyCount(), 1);
}

TEST_F(SamplerLife, aStopBeforeTheThreadWakesIsKept) {
    sleepHere();
    int waits = 0;
    live([&](int wait) {
        waits = wait;
        if (wait == 1) {
            EXPECT_EQ(sampler->activateSampler(20), 1);
            EXPECT_EQ(sampler->deactivateSampler(), 0); // as in the wrong state
        } else if (wait == 2) {
            EXPECT_EQ(sampler->getCurrentState(), 1);
            EXPECT_EQ(sampler->isInactive(), 1);
            vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
            sampler->shutdown();
        }
    });
    EXPECT_EQ(waits, 2);
    EXPECT_EQ(sampler->getAndResetCycleCount(), 0);
    EXPECT_EQ(sleeps, std::vector<int>{}); // it never went active
}

TEST_F(SamplerLife, aStartAfterThatStopStands) {
    sampler->activateSampler(20);
    sampler->deactivateSampler();
    EXPECT_EQ(sampler->activateSampler(30), 0);
    EXPECT_EQ(sampler->getInterval(), 30u);
    sleepHere();
    hookClock([&] {
        if (sampler->getAndResetCycleCount() != 0) sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    vm.runSystemThread(0);
    EXPECT_FALSE(sleeps.empty());
    EXPECT_EQ(sleeps.front(), 30);
}

TEST_F(SamplerLife, aStartBeforeTheStopIsNoticedWithdrawsIt) {
    sleepHere();
    int cycles = 0;
    hookClock([&] {
        if (sampler->getAndResetCycleCount() == 0) return;
        if (++cycles == 1) {
            EXPECT_EQ(sampler->deactivateSampler(), 1);
            sampler->withdrawDeactivation();
            EXPECT_EQ(sampler->isInactive(), 0);
        }
        if (cycles == 2) sampler->shutdown();
    });
    sampler->activateSampler(20);
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    vm.runSystemThread(0);
    EXPECT_EQ(cycles, 2);
    sampler->withdrawDeactivation(); // nothing to withdraw
    EXPECT_EQ(sampler->isInactive(), 0);
}

TEST_F(SamplerLife, sleepsTheIntervalLessTheLastCycleButAtLeastOneMillisecond) {
    sleepHere();
    startRunning("one");
    int cycle = 0;
    const int lengths[] = {0, 5, 19, 20, 33, 0};
    static void (*resume)(JNIEnv*) = nullptr;
    static std::function<void()> work;
    resume = vm.jvmpi()->ResumeThread;
    work = [&] {
        passWall(1000LL * lengths[cycle]);
        ++cycle;
    };
    hookClock([&] { // read with no lock held, after the cycle
        if (cycle == 6 && !sampler->isStopRequested()) sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    vm.jvmpi()->ResumeThread = [](JNIEnv* env) {
        resume(env);
        work();
    };
    sampler->activateSampler(20);
    vm.runSystemThread(0);
    EXPECT_EQ(sleeps, (std::vector<int>{20, 20, 15, 1, 1, 1}));
}

TEST_F(SamplerLife, aClockThatJumpsDoesNotChangeTheSleep) {
    sleepHere();
    startRunning("one");
    int cycle = 0;
    const long long jumps[] = {-3600000, 3600000, -20, 0}; // ms
    static void (*resume)(JNIEnv*) = nullptr;
    static std::function<void()> jump;
    resume = vm.jvmpi()->ResumeThread;
    jump = [&] { passWall(1000LL * jumps[cycle++]); };
    hookClock([&] {
        if (cycle == 4 && !sampler->isStopRequested()) sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    vm.jvmpi()->ResumeThread = [](JNIEnv* env) {
        resume(env);
        jump();
    };
    sampler->activateSampler(20);
    vm.runSystemThread(0);
    EXPECT_EQ(sleeps, (std::vector<int>{20, 20, 1, 20}));
}

TEST_F(SamplerLife, aPendingSuspensionIsKeptServedOnceAndTold) {
    sleepHere();
    EXPECT_EQ(sampler->tempSuspend(3), 1);
    EXPECT_EQ(sampler->tempSuspend(5), 0);
    hookClock([&] {
        if (sleeps.size() == 2 && !sampler->isStopRequested()) sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    sampler->activateSampler(20);
    vm.runSystemThread(0);
    EXPECT_EQ(sleeps, (std::vector<int>{3000, 20}));
    EXPECT_EQ(logCount("sampler thread suspended for 3 seconds"), 1u);
    EXPECT_EQ(logCount("sampler thread woken up after 3 seconds"), 1u);
    EXPECT_EQ(sampler->tempSuspend(5), 1);
}

TEST_F(SamplerLife, goingActiveForgetsTimesThatWereNanoseconds) {
    auto [scripted, model] = startThread("one");
    vm.send.monitorContendedEnter(scripted, nullptr);
    passWall(5000);
    vm.send.monitorContendedEntered(scripted, nullptr);
    vm.send.monitorWait(scripted, nullptr, 0);
    passWall(5000);
    vm.send.monitorWaited(scripted, nullptr, 0);
    scripted.setStatus(0);
    EXPECT_NE(model.getCounters().unsampledContention, 0);
    sleepHere();
    hookClock([&] {
        if (sampler->getCurrentState() == 0 && !sampler->isStopRequested()) sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    sampler->activateSampler(20);
    vm.runSystemThread(0);
    EXPECT_EQ(model.getCounters().unsampledContention, 0);
    EXPECT_EQ(model.getCounters().unsampledWait, 0);
    EXPECT_EQ(model.getCounters().contentionTime, 5000000); // these keep their unit
}

TEST_F(SamplerLife, anInterruptHoldsTheCyclesLockUntilTheResume) {
    sampler->interruptSampler();
    EXPECT_EQ(vm.monitors().heldNow(), Texts{"_InterruptSamplerRawMonitor by main"});
    sampler->resumeSampler(0);
    EXPECT_EQ(vm.monitors().heldNow(), Texts{});
    EXPECT_EQ(sampler->getInterval(), 20u);
    sampler->interruptSampler();
    sampler->resumeSampler(45);
    EXPECT_EQ(sampler->getInterval(), 45u);
}

// Whoever holds that lock holds the cycles off.
TEST_F(SamplerLife, aCycleHoldsTheInterruptLockAndASleepDoesNot) {
    sleepHere();
    static scripted::MonitorWorld* monitors = nullptr;
    monitors = &vm.monitors();
    PRBClock::sleeper = [](int ms) {
        sleeps.push_back(ms);
        EXPECT_EQ(monitors->heldNow(), Texts{});
    };
    const ScriptedThread& one = startRunning("one").vm;
    hookClock([&] {
        if (one.timesResumed() > 0 && !sampler->isStopRequested()) sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    sampler->activateSampler(20);
    vm.runSystemThread(0);
    std::size_t looked = 0;
    for (const scripted::Call& call : vm.recorder().calls(scripted::kJvmpi)) {
        if (call.name != "SuspendThread" && call.name != "ResumeThread") continue;
        ++looked;
        EXPECT_THAT(call.held, testing::Contains("_InterruptSamplerRawMonitor")) << call.text;
    }
    EXPECT_EQ(looked, 2u);
    EXPECT_EQ(sleeps, std::vector<int>{20});
    EXPECT_EQ(vm.monitors().heldNow(), Texts{});
}

TEST_F(SamplerLife, ownCpuIsMeasuredReportedAndReset) {
    PRBProfilerResourceSample before;
    sampler->getProfilerUsageStats(before);
    EXPECT_EQ(before.getNumericValueForStream(400), 0);
    EXPECT_EQ(sampler->getCPUUsedBySampler(1000), 0);
    sleepHere();
    startRunning("one");
    static void (*resume)(JNIEnv*) = nullptr;
    static std::function<void()> work;
    resume = vm.jvmpi()->ResumeThread;
    bool done = false;
    work = [&] {
        vm.systemThread(0).advanceCpuTime(4000);
        done = true;
    };
    hookClock([&] { // read with no lock held, after the cycle
        if (done && !sampler->isStopRequested()) sampler->shutdown();
    });
    vm.jvmpi()->ResumeThread = [](JNIEnv* env) {
        resume(env);
        work();
    };
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    sampler->activateSampler(20);
    vm.runSystemThread(0);
    PRBProfilerResourceSample sample;
    sampler->getProfilerUsageStats(sample);
    EXPECT_EQ(sample.getNumericValueForStream(400), 4);
    EXPECT_EQ(sample.getNumericValueForStream(403), 1);
    EXPECT_EQ(sampler->getCPUUsedBySampler(0), 0);
    EXPECT_EQ(sampler->getCPUUsedBySampler(1000), 4); // 4 us of 1000 ns
    EXPECT_EQ(sampler->getCPUUsedBySampler(4001), 0);
    sampler->interruptSampler();
    sampler->resumeSampler(0);
    EXPECT_EQ(sampler->getCPUUsedBySampler(1000), 0);
}

// ---- The child process ------------------------------------------------------------------------

std::vector<std::string> reported;

TEST_F(SamplerLife, aFailedForkIsToldAndTheSamplerGoesOn) {
    reported.clear();
    PRBProfilerCPUSampler::errorSink = [](unsigned code, const char* text) {
        reported.push_back(std::to_string(code) + " " + text);
    };
    sleepHere();
    sampler->createChildProcess();
    EXPECT_EQ(logCount("Fork failed - errno = 11"), 1u);
    EXPECT_EQ(reported, (std::vector<std::string>{"43 Fork failed - errno = 11"}));
    EXPECT_EQ(sampler->getChild().getPid(), 0);
    sampler->pause(7);
    EXPECT_EQ(sleeps, std::vector<int>{7});
}

TEST_F(SamplerLife, aFailedPipeIsToldAndTheSamplerGoesOn) {
    sleepHere();
    // One more descriptor, for the log; a pipe needs two.
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const int next = dup(0);
    close(next);
    rlimit one = before;
    one.rlim_cur = static_cast<rlim_t>(next) + 1;
    setrlimit(RLIMIT_NOFILE, &one);
    sampler->createChildProcess();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(logCount("Pipe creation failed - rc = -1  errno = 24"), 1u);
    sampler->pause(9);
    EXPECT_EQ(sleeps, std::vector<int>{9});
}

TEST_F(SamplerLife, aChildIsMadeAskedAndEnded) {
    forkErrno = 0;
    sampler->createChildProcess();
    const pid_t child = sampler->getChild().getPid();
    ASSERT_GT(child, 0);
    sleeps.clear();
    PRBClock::sleeper = [](int ms) { sleeps.push_back(ms); };
    sampler->pause(1);
    EXPECT_EQ(sleeps, std::vector<int>{}); // the child slept
    FILE* log = sampler->openChildLogFile();
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(folder.read(scripted::TestFolder::logName(child)),
              "Child process log file is open\n"); // flushed already
    fclose(log);
    sampler->stopChildProcess();
    EXPECT_EQ(sampler->getChild().getPid(), 0);
    EXPECT_EQ(sampler->getChild().getReadFd(), -1);
    EXPECT_EQ(sampler->getChild().getWriteFd(), -1);
    sampler->pause(5);
    EXPECT_EQ(sleeps, std::vector<int>{5});
}

class SamplerLifeDebug : public SamplerTest {
    void SetUp() override {
        startAgent("debug=PUBLIC,filter=PRBCCPUS");
        prepare();
    }
};

TEST_F(SamplerLifeDebug, tellsItsStateChangesAndTheChild) {
    forkErrno = 0;
    pid_t child = 0;
    hookClock([&] {
        if (sampler->getAndResetCycleCount() == 0) return;
        child = sampler->getChild().getPid();
        sampler->shutdown();
    });
    vm.monitors().setWaitHook([](const std::string&, jlong) { return true; });
    sampler->activateSampler(1);
    vm.runSystemThread(0);
    ASSERT_GT(child, 0);
    const std::string log = readLog();
    const auto active = log.find("CPU Profiler to become active");
    const auto created = log.find("New process " + std::to_string(child) + " created.\n");
    const auto starting = log.find("Starting CPU Monitoring cycle");
    const auto finishing = log.find("Finishing CPU Monitoring cycle");
    EXPECT_LT(active, created);
    EXPECT_LT(created, starting);
    EXPECT_LT(starting, finishing);
    EXPECT_NE(finishing, std::string::npos);
    EXPECT_EQ(sampler->getChild().getPid(), 0); // it does not outlive the active period
}

// ---- The base of the agent's threads ------------------------------------------------------------

class BackgroundThread : public RuntimeTest {};

TEST_F(BackgroundThread, hasTwoMonitorsDestroyedStoppedFirst) {
    vm.recorder().clear();
    const auto before = vm.monitors().created().size();
    {
        PRBProfilerBackgroundThread thread(vm.jvmpi());
        EXPECT_EQ(thread.isStopRequested(), 0);
        EXPECT_EQ(thread.isTerminated(), 1);
        thread.backgroundProcessing(); // returns at once
    }
    const Texts created = vm.monitors().created();
    EXPECT_EQ(Texts(created.begin() + static_cast<std::ptrdiff_t>(before), created.end()),
              (Texts{"_StopBackgroundThread_COBT", "_BackgroundThreadIsStopped"}));
    EXPECT_EQ(vm.recorder().textsOf({"RawMonitorDestroy"}),
              (Texts{"RawMonitorDestroy(_BackgroundThreadIsStopped)",
                     "RawMonitorDestroy(_StopBackgroundThread_COBT)"}));
}

TEST_F(BackgroundThread, shutdownSetsTheFlagPostsAndWaitsForTheTimeout) {
    PRBProfilerBackgroundThread thread(vm.jvmpi());
    std::vector<std::string> waits;
    vm.monitors().setWaitHook([&](const std::string& name, jlong ms) {
        EXPECT_EQ(thread.isStopRequested(), 1);
        EXPECT_EQ(vm.recorder().count("RawMonitorNotifyAll(_StopBackgroundThread_COBT)"), 1u);
        waits.push_back(name + " " + std::to_string(ms));
        return true; // the time is over: no body ever ran
    });
    vm.recorder().clear();
    thread.shutdown();
    EXPECT_EQ(waits, Texts{"_BackgroundThreadIsStopped 999999"});
}

TEST_F(BackgroundThread, shutdownOfTheSamplerReturnsWhenItsThreadHasEnded) {
    vm.setSystemThreads(scripted::SystemThreads::kRun);
    auto* sampler = PRBProfilerCPUSampler::createBackgroundThread(vm.jvmpi(), 20);
    while (sampler->isTerminated() == 1) usleep(100);
    sampler->shutdown();
    EXPECT_EQ(sampler->isTerminated(), 1);
    vm.waitSystemThreads();
}

} // namespace
