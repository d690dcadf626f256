// Stops, resumes and accounts.
#include "StackSamplerTest.h"

#include <csignal>

namespace bridge {
namespace {

TEST_F(StackSamplerTest, ARunningThreadIsStoppedWalkedAndResumed) {
    Worker& worker = add(spin);
    worker.java.walkResult = 3;
    std::vector<Sample> last;
    ASSERT_TRUE(cyclesUntil([&](const std::vector<Sample>& samples) {
        last = samples;
        return !samples.empty();
    }));
    ASSERT_EQ(last.size(), 1u);
    EXPECT_EQ(last[0].env, worker.env());
    EXPECT_EQ(last[0].frames, (std::vector<jmethodID>{methodAt(kWork), methodAt(kWork + 1000),
                                                      methodAt(kWork + 2000)}));
    expectProgress(worker);
    worker.finish();
    EXPECT_EQ(worker.faults, 0); // errno came back as it was
    EXPECT_EQ(sampler.counters().samples, 1u);
    EXPECT_EQ(sampler.counters().traces, 1u);
    EXPECT_EQ(sampler.counters().timeouts, 0u);
    EXPECT_EQ(sampler.counters().longStops, 0u);
}

TEST_F(StackSamplerTest, AStoppedThreadStandsStillUntilItsResume) {
    Worker& worker = add(spin);
    ASSERT_TRUE(cyclesUntilSampled(worker));
    expectProgress(worker); // the handler has returned
    // A suspended thread gives its trace, has it run or not.
    ASSERT_EQ(stopped(worker), methodAt(kWork));
    EXPECT_EQ(sampler.status(worker.env()), JVMPI_THREAD_RUNNABLE | JVMPI_THREAD_SUSPENDED);
    const std::uint64_t steps = worker.steps;
    sleepMs(10);
    if (sampler.counters().longStops == 0) {
        EXPECT_EQ(worker.steps, steps);
    }
    sampler.resume(worker.env());
    EXPECT_EQ(sampler.status(worker.env()), JVMPI_THREAD_RUNNABLE);
    expectProgress(worker);
}

TEST_F(StackSamplerTest, SuspendingAloneStopsNobody) {
    Worker& worker = add(spin);
    sampler.suspend(worker.env());
    expectProgress(worker);
    sampler.resume(worker.env());
    EXPECT_EQ(sampler.counters().signals, 0u);
}

TEST_F(StackSamplerTest, StatusesAreThoseOfTheInterface) {
    Worker& worker = add(rest);
    const std::pair<int, jint> table[] = {{0, 0}, {1, 0}, {2, 1}, {3, 2}, {4, 3},
                                          {5, 3}, {6, 0}, {7, 3}, {8, 0}, {-1, 0}};
    for (const auto& [os, status] : table) {
        worker.java.setOsState(os);
        EXPECT_EQ(sampler.status(worker.env()), status) << os;
    }
    sampler.suspend(worker.env());
    worker.java.setOsState(3);
    EXPECT_EQ(sampler.status(worker.env()), JVMPI_THREAD_MONITOR_WAIT | JVMPI_THREAD_SUSPENDED);
    sampler.resume(worker.env());
}

TEST_F(StackSamplerTest, UnknownEnvironmentsGetNeutralAnswers) {
    FakeJavaThread unknown;
    for (JNIEnv* env : {unknown.env(), static_cast<JNIEnv*>(nullptr)}) {
        EXPECT_EQ(sampler.status(env), 0);
        sampler.suspend(env);
        EXPECT_FALSE(sampler.hasRun(env));
        JVMPI_CallFrame frame;
        JVMPI_CallTrace trace{env, 5, &frame};
        sampler.callTrace(&trace, 1);
        EXPECT_EQ(trace.num_frames, 0);
        sampler.resume(env);
    }
    Worker& worker = add(spin); // known, but not suspended
    EXPECT_FALSE(sampler.hasRun(worker.env()));
    JVMPI_CallFrame frame;
    JVMPI_CallTrace trace{worker.env(), 5, &frame};
    sampler.callTrace(&trace, 1);
    EXPECT_EQ(trace.num_frames, 0);
    sampler.resume(worker.env());
    EXPECT_EQ(sampler.counters().signals, 0u);
}

TEST_F(StackSamplerTest, TheCallersOwnTraceComesFromTheCallback) {
    Worker& worker = add([this](Worker& self) {
        JVMPI_CallFrame frames[2];
        JVMPI_CallTrace trace{self.env(), 0, frames};
        sampler.callTrace(&trace, 2);
        if (trace.num_frames != 1 || frames[0].method_id != methodAt(99)) self.faults++;
        sampler.suspend(self.env()); // of itself: noted, never stopped
        if (sampler.hasRun(self.env())) self.faults++;
        sampler.resume(self.env());
    });
    worker.finish();
    EXPECT_EQ(worker.faults, 0);
    EXPECT_EQ(ownTraces, 1);
}

TEST_F(StackSamplerTest, AThreadThatHasNotRunIsNotTouched) {
    Worker& worker = add([](Worker& self) {
        while (!self.stop) sleepMs(50);
    });
    for (int i = 0; i < 50; i++) {
        EXPECT_TRUE(cycle().empty());
        sleepMs(2);
    }
    EXPECT_EQ(sampler.counters().signals, 0u);
    EXPECT_EQ(worker.java.walks, 0);
    EXPECT_GE(sampler.counters().cycles, 49u);
}

TEST_F(StackSamplerTest, CyclesWithoutARunnableThreadCountAsWell) {
    Worker& worker = add(rest);
    cycle();
    cycle(); // only the second one can tell a repetition
    const std::uint64_t before = sampler.counters().cycles;
    worker.java.setOsState(5);
    for (int i = 0; i < 20; i++) cycle();
    EXPECT_EQ(sampler.counters().cycles, before + 20);
}

// The sum of all samples, and their places, for a thread that nearly every look finds blocked.
TEST_F(StackSamplerTest, ABurstyThreadIsChargedItsCpuTimeAndToItsWork) {
    Worker& worker = add(burst);
    const Tally tallied = tally(worker, 1000, RaggedSleep(2));
    EXPECT_NEAR(tallied.samples, tallied.charge, 0.15 * tallied.charge + 5);
    EXPECT_GE(tallied.atWork, 0.75 * tallied.work - 5)
        << "kept " << sampler.counters().keptTraces << ", signals " << sampler.counters().signals
        << ", blocked " << sampler.counters().chargedBlocked << ", work " << tallied.work;
    EXPECT_EQ(sampler.counters().timeouts, 0u);
}

// Thread-pool workers are parked at nearly every look, and the profiler does not suspend those.
TEST_F(StackSamplerTest, AThreadThatWaitsIsChargedItsWork) {
    Worker& worker = add([](Worker& self) {
        RaggedSleep sleep(1);
        while (!self.stop) {
            self.java.place = kWork;
            self.java.setState(VmStructs::kInJava);
            const std::int64_t until = ownCpuNs() + 300'000;
            while (ownCpuNs() < until) self.steps++;
            self.java.setState(VmStructs::kBlocked);
            self.java.setOsState(4); // parked
            sleep();
            self.java.setOsState(2);
        }
    });
    const Tally tallied = tally(worker, 1000, RaggedSleep(2));
    EXPECT_NEAR(tallied.samples, tallied.charge, 0.15 * tallied.charge + 5);
    EXPECT_EQ(tallied.atWork, tallied.samples);
    EXPECT_GT(sampler.counters().keptTraces, 0u);
}

TEST_F(StackSamplerTest, ADeafThreadIsDroppedAndItsLateSignalIgnored) {
    std::atomic<bool> deaf{true};
    Worker& worker = add([&](Worker& self) {
        sigset_t all;
        sigset_t old;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &old);
        self.java.setState(VmStructs::kInJava);
        while (deaf) self.steps++;
        pthread_sigmask(SIG_SETMASK, &old, nullptr);
        spin(self);
    });
    ASSERT_TRUE(
        cyclesUntil([&](const std::vector<Sample>&) { return sampler.counters().timeouts != 0; }));
    EXPECT_EQ(sampler.counters().samples, 0u);
    ThreadRecord& record = *vm.threads.find(worker.env());
    EXPECT_TRUE(record.slot.idle());
    expectProgress(worker);
    deaf = false; // now the withdrawn request's signal arrives
    expectProgress(worker);
    sleepMs(20);
    EXPECT_EQ(worker.java.walks, 0);
    ASSERT_TRUE(cyclesUntilSampled(worker)); // and it is asked again
    EXPECT_EQ(worker.java.walks, 1);
}

TEST_F(StackSamplerTest, AThreadMayEndWhileItIsSuspendedButNotWhileItIsStopped) {
    Worker& worker = add([](Worker& self) {
        while (!self.stop) self.steps++;
    });
    sampler.suspend(worker.env());
    worker.finish();
    EXPECT_FALSE(sampler.hasRun(worker.env()));
    sampler.resume(worker.env());
    Worker& next = add(spin);
    ASSERT_TRUE(cyclesUntilSampled(next));
}

TEST_F(StackSamplerTest, AForgottenStopEndsByItself) {
    Worker& worker = add(spin);
    ASSERT_TRUE(cyclesUntilSampled(worker));
    expectProgress(worker); // the handler has returned
    ASSERT_EQ(stopped(worker), methodAt(kWork));
    const std::uint64_t before = sampler.counters().longStops;
    expectProgress(worker);       // although nobody has resumed it
    Worker& newcomer = add(spin); // a thread may start: the list lock has been given back
    expectProgress(newcomer);
    EXPECT_EQ(sampler.counters().longStops, before + 1);
    sampler.resume(worker.env());
    ASSERT_TRUE(cyclesUntilSampled(worker));
    ASSERT_TRUE(cyclesUntilSampled(newcomer));
}

TEST_F(StackSamplerTest, HundredsOfThreadsComeAndGoUnderTheSampler) {
    constexpr int kThreads = 200;
    for (int i = 0; i < kThreads; i++) {
        add([i](Worker& self) {
            while (!self.stop) {
                self.java.setState(VmStructs::kInJava);
                for (int k = 0; k < 200; k++) self.steps++;
                self.java.setState(VmStructs::kInNative);
                if (i % 2 == 0) {
                    self.leave();
                    self.enter();
                    self.ended = false;
                }
                sleepMs(1 + i % 7);
            }
        });
    }
    Worker& busy = add(spin);
    for (int i = 0; i < 200; i++) {
        cycle();
        sleepMs(1);
    }
    EXPECT_TRUE(cyclesUntilSampled(busy));
    for (auto& worker : workers) {
        expectProgress(*worker);
        worker->finish();
    }
    EXPECT_EQ(vm.threads.size(), 0u);
    EXPECT_EQ(sampler.counters().longStops, 0u);
}

// Everything from everywhere: no order of calls may hang or crash.
TEST_F(StackSamplerTest, AnyCallInAnyOrderFromAnyThreadIsSafe) {
    add(spin);
    add(burst);
    for (std::uint32_t caller = 0; caller < 3; caller++) {
        add([this, caller](Worker& self) {
            std::uint32_t random = caller + 1;
            for (int i = 0; i < 3000 && !self.stop; i++) {
                random = random * 1664525u + 1013904223u;
                JNIEnv* env = workers[(random >> 8) % 2]->env();
                JVMPI_CallFrame frames[50];
                JVMPI_CallTrace trace{env, 0, frames};
                switch ((random >> 16) % 5) {
                case 0:
                    sampler.status(env);
                    break;
                case 1:
                    sampler.suspend(env);
                    break;
                case 2:
                    sampler.hasRun(env);
                    break;
                case 3:
                    sampler.callTrace(&trace, 50);
                    break;
                default:
                    sampler.resume(env);
                    break;
                }
                self.steps++;
            }
            for (std::size_t i = 0; i < 2; i++) sampler.resume(workers[i]->env());
            self.started = true;
        });
    }
    for (std::size_t i = 2; i < 5; i++) {
        for (int k = 0; k < 20000 && !workers[i]->ended; k++) sleepMs(1);
        EXPECT_TRUE(workers[i]->ended);
        workers[i]->finish();
    }
    for (std::size_t i = 0; i < 2; i++) sampler.resume(workers[i]->env());
    expectProgress(*workers[0]);
    expectProgress(*workers[1]);
}

} // namespace
} // namespace bridge
