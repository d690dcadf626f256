// The sampler on real threads of a made-up VM: signals, stops and accounts are the real ones.
#include "bridge/StackSampler.h"

#include <cerrno>
#include <csignal>
#include <deque>
#include <functional>
#include <memory>
#include <thread>

#include <gtest/gtest.h>
#include <poll.h>
#include <ucontext.h>

#include "FakeVm.h"
#include "bridge/Clocks.h"
#include "bridge/SampleSignal.h"

namespace bridge {
namespace {

constexpr std::uintptr_t kWork = 7;
constexpr std::uintptr_t kRead = 8;

void sleepMs(int milliseconds) { poll(nullptr, 0, milliseconds); }

// Sleeps of 0.5 to 1.5 ms: two threads that slept for whole milliseconds would be woken together,
// and would meet more or less often than chance has it.
class RaggedSleep {
public:
    explicit RaggedSleep(std::uint32_t seed) : random_(seed) {}
    void operator()() {
        random_ = random_ * 1664525u + 1013904223u;
        const timespec time{0, 500'000 + static_cast<long>(random_ % 1'000'000)};
        nanosleep(&time, nullptr);
    }

private:
    std::uint32_t random_;
};

// A thread of the made-up VM. Its body may be stopped at any instruction.
class Worker {
public:
    using Body = std::function<void(Worker&)>;

    Worker(ThreadTable& threads, Body body) : threads_(threads), body_(std::move(body)) {
        thread_ = std::thread([this] {
            java.os.threadId = gettid();
            enter();
            started = true;
            body_(*this);
            cpuNs = ownCpuNs();
            if (!ended) leave();
        });
        while (!started) std::this_thread::yield();
    }
    ~Worker() { finish(); }
    void finish() {
        stop = true;
        if (thread_.joinable()) thread_.join();
    }
    void enter() {
        ThreadInfo info;
        info.env = java.env();
        info.tid = gettid();
        info.javaThread = &java;
        threads_.insert(info);
    }
    void leave() {
        threads_.remove(java.env());
        ended = true;
    }
    JNIEnv* env() { return java.env(); }

    FakeJavaThread java;
    std::atomic<bool> started{false};
    std::atomic<bool> ended{false};
    std::atomic<bool> stop{false};
    std::atomic<std::uint64_t> steps{0};
    std::atomic<int> faults{0};
    std::int64_t cpuNs = 0;

private:
    ThreadTable& threads_;
    Body body_;
    std::thread thread_;
};

// Uses the processor until told to stop. The clock calls let the thread sanitizer, which holds
// signals back until the next intercepted call, deliver them.
void spin(Worker& self) {
    self.java.setState(VmStructs::kInJava);
    self.java.place = kWork;
    while (!self.stop) {
        self.steps++;
        errno = 4711;
        ownCpuNs();
        if (errno != 4711) self.faults++;
    }
    self.java.setState(VmStructs::kInNative);
}

// Blocks in native code.
void rest(Worker& self) {
    self.java.place = kRead;
    while (!self.stop) sleepMs(2);
}

// 0.2 ms of work, then a blocking call, over and over.
void burst(Worker& self) {
    RaggedSleep sleep(1);
    while (!self.stop) {
        self.java.place = kWork;
        self.java.setState(VmStructs::kInJava);
        const std::int64_t until = ownCpuNs() + 200'000;
        while (ownCpuNs() < until) self.steps++;
        self.java.setState(VmStructs::kInNative);
        self.java.place = kRead;
        sleep();
    }
}

class StackSamplerTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(vm.ready);
        std::string problem;
        ASSERT_TRUE(sampler.start(problem)) << problem;
    }
    void TearDown() override {
        for (auto& worker : workers) worker->finish();
    }

    Worker& add(Worker::Body body) {
        workers.push_back(std::make_unique<Worker>(vm.threads, std::move(body)));
        return *workers.back();
    }

    struct Sample {
        JNIEnv* env;
        std::vector<jmethodID> frames;
    };

    // What the profiler does in a cycle. Answers the samples.
    std::vector<Sample> cycle() {
        std::vector<Sample> samples;
        std::vector<JNIEnv*> suspended;
        for (JNIEnv* env : vm.threads.environments()) {
            if ((sampler.status(env) & ~0x4000) != JVMPI_THREAD_RUNNABLE) continue;
            sampler.suspend(env);
            suspended.push_back(env);
        }
        for (JNIEnv* env : suspended) {
            if (!sampler.hasRun(env)) continue;
            JVMPI_CallFrame frames[50];
            JVMPI_CallTrace trace{env, 0, frames};
            sampler.callTrace(&trace, 50);
            Sample& sample = samples.emplace_back();
            sample.env = env;
            for (jint i = 0; i < trace.num_frames; i++) {
                sample.frames.push_back(frames[i].method_id);
            }
        }
        for (JNIEnv* env : suspended) sampler.resume(env);
        return samples;
    }

    // Cycles until `enough` or the limit. Answers whether it was enough.
    bool cyclesUntil(const std::function<bool(const std::vector<Sample>&)>& enough) {
        for (int i = 0; i < 3000; i++) {
            if (enough(cycle())) return true;
            sleepMs(2);
        }
        return false;
    }
    bool cyclesUntilSampled(Worker& worker) {
        return cyclesUntil([&](const std::vector<Sample>& samples) {
            return std::any_of(samples.begin(), samples.end(),
                               [&](const Sample& sample) { return sample.env == worker.env(); });
        });
    }
    static void expectProgress(Worker& worker) {
        const std::uint64_t steps = worker.steps;
        for (int i = 0; i < 5000 && worker.steps == steps; i++) sleepMs(1);
        EXPECT_NE(worker.steps, steps);
    }

    static inline std::atomic<int> ownTraces{0};
    static void ownTrace(JVMPI_CallTrace* trace, jint depth) {
        ownTraces++;
        trace->num_frames = std::min(depth, 1);
        trace->frames[0] = {12, methodAt(99)};
    }

    FakeVm vm;
    StackSampler sampler{vm.threads, vm.structs, ownTrace};
    std::deque<std::unique_ptr<Worker>> workers;
};

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
    sampler.suspend(worker.env());
    JVMPI_CallFrame frames[50];
    JVMPI_CallTrace trace{worker.env(), 0, frames};
    sampler.callTrace(&trace, 50); // a suspended thread gives its trace, has it run or not
    ASSERT_EQ(trace.num_frames, 1);
    EXPECT_EQ(frames[0].method_id, methodAt(kWork));
    EXPECT_EQ(frames[0].lineno, -1);
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
    cycle();
    const std::int64_t from = threadCpuNs(worker.java.os.threadId);
    const std::int64_t started = monotonicNs();
    int samples = 0;
    int atWork = 0;
    constexpr int kCycles = 1000;
    RaggedSleep sleep(2);
    for (int i = 0; i < kCycles; i++) {
        sleep();
        for (const Sample& sample : cycle()) {
            samples++;
            if (sample.frames == std::vector<jmethodID>{methodAt(kWork)}) atWork++;
        }
    }
    const auto cpu = static_cast<double>(threadCpuNs(worker.java.os.threadId) - from);
    const double mean = static_cast<double>(monotonicNs() - started) / kCycles;
    // less what the handlers use, which the thread's clock counts but the sampler does not
    EXPECT_NEAR(samples, cpu / mean, 0.15 * cpu / mean + 5);
    EXPECT_GE(atWork, samples * 8 / 10)
        << "kept " << sampler.counters().keptTraces << ", signals " << sampler.counters().signals
        << ", blocked " << sampler.counters().chargedBlocked;
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
    cycle();
    const std::int64_t from = threadCpuNs(worker.java.os.threadId);
    const std::int64_t started = monotonicNs();
    int samples = 0;
    constexpr int kCycles = 1000;
    RaggedSleep sleep(2);
    for (int i = 0; i < kCycles; i++) {
        sleep();
        for (const Sample& sample : cycle()) {
            samples++;
            EXPECT_EQ(sample.frames, std::vector<jmethodID>{methodAt(kWork)});
        }
    }
    const auto cpu = static_cast<double>(threadCpuNs(worker.java.os.threadId) - from);
    const double mean = static_cast<double>(monotonicNs() - started) / kCycles;
    EXPECT_NEAR(samples, cpu / mean, 0.15 * cpu / mean + 5);
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

TEST_F(StackSamplerTest, ASlowWalkIsGivenUpWithoutStopping) {
    Worker& worker = add(spin);
    static std::atomic<bool> slow;
    slow = true;
    SampleSignal::uninstall();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void*) {
            while (slow) ownCpuNs();
            trace->num_frames = 1;
            trace->frames[0] = {0, methodAt(1)};
        },
        {}, problem))
        << problem;
    ASSERT_TRUE(
        cyclesUntil([&](const std::vector<Sample>&) { return sampler.counters().timeouts != 0; }));
    EXPECT_FALSE(vm.threads.find(worker.env())->slot.idle()); // still the handler's
    slow = false;
    expectProgress(worker);
    EXPECT_TRUE(vm.threads.find(worker.env())->slot.idle());
    EXPECT_EQ(sampler.counters().samples, 0u);
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
    sampler.suspend(worker.env());
    JVMPI_CallFrame frames[50];
    JVMPI_CallTrace trace{worker.env(), 0, frames};
    sampler.callTrace(&trace, 50);
    ASSERT_EQ(trace.num_frames, 1);
    expectProgress(worker);       // although nobody has resumed it
    Worker& newcomer = add(spin); // a thread may start: the list lock has been given back
    expectProgress(newcomer);
    EXPECT_EQ(sampler.counters().longStops, 1u);
    sampler.resume(worker.env());
    ASSERT_TRUE(cyclesUntilSampled(worker));
    ASSERT_TRUE(cyclesUntilSampled(newcomer));
}

TEST_F(StackSamplerTest, FailedWalksAreCountedByTheirCode) {
    Worker& worker = add(spin);
    worker.java.walkResult = -2; // a collection is running
    ASSERT_TRUE(
        cyclesUntil([&](const std::vector<Sample>&) { return sampler.counters().errors[2] == 3; }));
    EXPECT_EQ(sampler.counters().samples, 0u);
    EXPECT_EQ(sampler.counters().traces, 0u);
    worker.java.walkResult = 1;
    ASSERT_TRUE(cyclesUntilSampled(worker)); // the credit is still there
    worker.java.walkResult = 0;
    ASSERT_TRUE(cyclesUntil(
        [&](const std::vector<Sample>&) { return sampler.counters().droppedSamples != 0; }));
    EXPECT_GT(sampler.counters().errors[0], 0u);
}

// In a prologue the walker fails until the stack looks as if the function had returned; afterwards
// the thread goes on with its own registers.
TEST_F(StackSamplerTest, AnUnknownTopFrameIsPopped) {
    Worker& worker = add(spin);
    static std::vector<std::uintptr_t> stack;
    static std::atomic<int> calls;
    static std::atomic<bool> right;
    calls = 0;
    right = true;
    SampleSignal::uninstall();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void* context) {
#if defined(__x86_64__)
            const greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
            const auto pc = static_cast<std::uintptr_t>(registers[REG_RIP]);
            const auto sp = static_cast<std::uintptr_t>(registers[REG_RSP]);
#else
            const greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
            const auto pc = static_cast<std::uintptr_t>(registers[REG_EIP]);
            const auto sp = static_cast<std::uintptr_t>(registers[REG_UESP]);
#endif
            static std::uintptr_t firstSp;
            const int call = calls++;
            if (call % 3 == 0) firstSp = sp;
            const auto* words = reinterpret_cast<const std::uintptr_t*>(firstSp);
            if (call % 3 != 0) {
                const auto k = static_cast<std::uintptr_t>(call % 3);
                if (sp != firstSp + k * sizeof(void*) || pc != words[k - 1] - 1) right = false;
            }
            trace->num_frames = call % 3 == 2 ? 1 : -5;
            if (call % 3 == 2) trace->frames[0] = {0, methodAt(5)};
        },
        {}, problem))
        << problem;
    ASSERT_TRUE(cyclesUntilSampled(worker));
    EXPECT_EQ(calls % 3, 0);
    EXPECT_TRUE(right);
    expectProgress(worker);
    EXPECT_EQ(sampler.counters().traces, 1u);
}

// C code that Java code has called directly, and that keeps no frame pointer: the return address
// into Java code is searched on the stack, and nothing else is taken for one.
TEST_F(StackSamplerTest, TheReturnAddressIntoJavaCodeIsSearched) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer's frames are wider than what is searched";
#endif
    static const std::uintptr_t low = 0x1000;
    static const std::uintptr_t high = 0x2000;
    constexpr std::uintptr_t kReturn = 0x1234;
    static std::atomic<int> calls;
    static std::atomic<std::uintptr_t> tried;
    calls = 0;
    SampleSignal::uninstall();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(
        [](JVMPI_CallTrace* trace, jint, void* context) {
            const greg_t* registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
#if defined(__x86_64__)
            const auto pc = static_cast<std::uintptr_t>(registers[REG_RIP]);
#else
            const auto pc = static_cast<std::uintptr_t>(registers[REG_EIP]);
#endif
            trace->num_frames = -6;
            if (calls++ == 0) return;
            tried = pc;
            trace->num_frames = 1;
            trace->frames[0] = {0, methodAt(5)};
        },
        {&low, &high}, problem))
        << problem;
    Worker& worker = add([](Worker& self) {
        self.java.setState(VmStructs::kInJava);
        volatile std::uintptr_t frame[4] = {0x999, kReturn, 0x2000, 0x1};
        while (!self.stop) {
            self.steps++;
            ownCpuNs();
        }
        if (frame[1] != kReturn) self.faults++;
    });
    ASSERT_TRUE(cyclesUntilSampled(worker));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(tried, kReturn - 1);
    expectProgress(worker);
    worker.finish();
    EXPECT_EQ(worker.faults, 0);
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

TEST_F(StackSamplerTest, AForeignHandlerOnOurSignalIsNoticedOnce) {
    std::string text;
    EXPECT_FALSE(sampler.handlerLost(text));
    struct sigaction ours {};
    sigaction(SampleSignal::number(), nullptr, &ours);
    signal(SampleSignal::number(), SIG_IGN);
    EXPECT_TRUE(sampler.handlerLost(text));
    EXPECT_EQ(text, "another handler was installed for signal " +
                        std::to_string(SampleSignal::number()) +
                        ", which the sampler uses: samples may be missing");
    EXPECT_FALSE(sampler.handlerLost(text));
    Worker& worker = add(spin); // no answer will come: after one time-out nobody is asked any more
    for (int i = 0; i < 3000 && sampler.counters().timeouts == 0; i++) {
        cycle();
        sleepMs(2);
    }
    EXPECT_EQ(sampler.counters().timeouts, 1u);
    const std::uint64_t signals = sampler.counters().signals;
    for (int i = 0; i < 20; i++) cycle();
    EXPECT_EQ(sampler.counters().signals, signals);
    expectProgress(worker);
    sigaction(SampleSignal::number(), &ours, nullptr);
}

// Frees the signals that earlier tests of the same process have left ignored.
void freeSignals() {
    for (int number = SIGRTMIN + 6; number <= SIGRTMAX; number++) signal(number, SIG_DFL);
}

TEST(SampleSignal, TakesTheFirstRealTimeSignalThatIsFree) {
    std::string problem;
    freeSignals();
    for (int taken = SIGRTMIN + 6; taken < SIGRTMIN + 8; taken++) signal(taken, [](int) {});
    ASSERT_TRUE(SampleSignal::install(fakeWalk, {}, problem));
    EXPECT_EQ(SampleSignal::number(), SIGRTMIN + 8);
    EXPECT_TRUE(SampleSignal::stillOurs());
    EXPECT_FALSE(SampleSignal::install(fakeWalk, {}, problem));
    EXPECT_EQ(problem, "the sampling signal is taken already");
    SampleSignal::uninstall();
    EXPECT_EQ(SampleSignal::number(), 0);
    raise(SIGRTMIN + 8); // a late one does no harm
    for (int taken = SIGRTMIN + 8; taken <= SIGRTMAX; taken++) signal(taken, [](int) {});
    EXPECT_FALSE(SampleSignal::install(fakeWalk, {}, problem));
    EXPECT_EQ(problem, "no real-time signal is free for sampling: every one from SIGRTMIN+6 up "
                       "has a handler");
    freeSignals();
}

TEST(SampleSignal, SignalsThatNobodyAskedForAreIgnored) {
    freeSignals();
    std::string problem;
    ASSERT_TRUE(SampleSignal::install(fakeWalk, {}, problem));
    raise(SampleSignal::number()); // not queued
    sigqueue(getpid(), SampleSignal::number(), {.sival_ptr = nullptr});
    FakeJavaThread thread;
    SampleSlot slot;
    slot.env = thread.env();
    slot.tid = gettid();
    sigqueue(getpid(), SampleSignal::number(), {.sival_ptr = &slot}); // a slot in no state for it
    EXPECT_TRUE(slot.idle());
    slot.tid = gettid() + 1;
    slot.state = SampleSlot::kAsked; // another thread's
    sigqueue(getpid(), SampleSignal::number(), {.sival_ptr = &slot});
    EXPECT_EQ(slot.state, SampleSlot::kAsked);
    EXPECT_EQ(thread.walks, 0);
    SampleSignal::uninstall();
}

} // namespace
} // namespace bridge
