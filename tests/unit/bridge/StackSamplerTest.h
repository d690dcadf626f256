// The sampler on real threads of a made-up VM: signals, stops and accounts are the real ones.
#pragma once

#include "bridge/StackSampler.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <poll.h>

#include "FakeVm.h"
#include "bridge/Clocks.h"
#include "bridge/SampleSignal.h"

namespace bridge {

inline constexpr std::uintptr_t kWork = 7;
inline constexpr std::uintptr_t kRead = 8;

inline void sleepMs(int milliseconds) { poll(nullptr, 0, milliseconds); }

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
    std::atomic<std::int64_t> workNs{0}; // CPU time at kWork, by the body's own count

private:
    ThreadTable& threads_;
    Body body_;
    std::thread thread_;
};

// Uses the processor until told to stop. The clock calls let the thread sanitizer, which holds
// signals back until the next intercepted call, deliver them.
inline void spin(Worker& self) {
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
inline void rest(Worker& self) {
    self.java.place = kRead;
    while (!self.stop) sleepMs(2);
}

// 0.2 ms of work, then a blocking call, over and over.
inline void burst(Worker& self) {
    RaggedSleep sleep(1);
    while (!self.stop) {
        self.java.place = kWork;
        self.java.setState(VmStructs::kInJava);
        const std::int64_t from = ownCpuNs();
        while (ownCpuNs() < from + 200'000) self.steps++;
        self.java.setState(VmStructs::kInNative);
        self.java.place = kRead;
        self.workNs += ownCpuNs() - from;
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

    struct Tally {
        int samples = 0;
        int atWork = 0;    // of them, whose trace is kWork
        double charge = 0; // the worker's CPU time in mean cycles, our handlers' included
        double work = 0;   // the part of it at kWork, where the body counts it
    };
    // So many cycles, each after a pause. A sample's price is the mean of the latest cycles, whose
    // length changes with the machine's load: the charge is summed up in stretches as well.
    template <typename Pause> Tally tally(Worker& worker, int cycles, Pause pause) {
        constexpr int kStretch = 50;
        cycle();
        Tally result;
        for (int done = 0; done < cycles; done += kStretch) {
            const std::int64_t cpu = threadCpuNs(worker.java.os.threadId);
            const std::int64_t work = worker.workNs;
            const std::int64_t started = monotonicNs();
            for (int i = 0; i < kStretch; i++) {
                pause();
                for (const Sample& sample : cycle()) {
                    result.samples++;
                    if (sample.frames == std::vector<jmethodID>{methodAt(kWork)}) result.atWork++;
                }
            }
            const double perNs = kStretch / static_cast<double>(monotonicNs() - started);
            result.charge +=
                static_cast<double>(threadCpuNs(worker.java.os.threadId) - cpu) * perNs;
            result.work += static_cast<double>(worker.workNs - work) * perNs;
        }
        return result;
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
    // Suspends a thread and takes its trace until it has been stopped for it: one without a
    // processor may have left its trace before. Answers the trace's first method.
    jmethodID stopped(Worker& worker) {
        for (int i = 0; i < 3000; i++) {
            sampler.suspend(worker.env());
            JVMPI_CallFrame frames[50];
            JVMPI_CallTrace trace{worker.env(), 0, frames};
            sampler.callTrace(&trace, 50);
            if (trace.num_frames == 1 &&
                vm.threads.find(worker.env())->slot.state == SampleSlot::kStopped) {
                EXPECT_EQ(frames[0].lineno, -1);
                return frames[0].method_id;
            }
            sampler.resume(worker.env());
            sleepMs(1);
        }
        return nullptr;
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

} // namespace bridge
