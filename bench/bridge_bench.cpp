// How long the program's threads stand still in a cycle of the sampler: 50 threads of which 4
// run, in a made-up VM whose stack walk costs nothing, beside a bare signal round trip to the same
// running threads. The two take turns cycle by cycle. Prints median and 99th percentile of both,
// and their ratios.
//
// Usage: bridge_bench [cycles] [interval ms]; default 1000 cycles of 10 ms.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "bridge/Clocks.h"
#include "bridge/StackSampler.h"
#include "tests/unit/bridge/FakeVm.h"

namespace bridge {
namespace {

constexpr int kThreads = 50;
constexpr int kRunning = 4;
constexpr int kBareSignal = 60; // far from the sampler's own

std::atomic<int> answers{0};
void answer(int) { answers.fetch_add(1, std::memory_order_relaxed); }

struct Worker {
    FakeJavaThread java;
    std::atomic<bool> started{false};
    std::atomic<bool> stop{false};
    std::thread thread;

    void start(ThreadTable& threads, bool runs) {
        thread = std::thread([this, &threads, runs] {
            java.os.threadId = gettid();
            if (runs)
                java.setState(VmStructs::kInJava);
            else
                java.setOsState(5); // waiting on a condition
            ThreadInfo info;
            info.env = java.env();
            info.tid = gettid();
            info.javaThread = &java;
            threads.insert(info);
            started = true;
            std::uint64_t steps = 0;
            while (!stop.load(std::memory_order_relaxed)) {
                if (runs)
                    steps++;
                else
                    poll(nullptr, 0, 20);
            }
            threads.remove(java.env());
        });
        while (!started) std::this_thread::yield();
    }
};

// One cycle as the profiler makes it. Answers nanoseconds from the first stop to the last resume,
// 0 when nobody had to be stopped.
std::int64_t cycle(StackSampler& sampler, const std::vector<JNIEnv*>& all,
                   std::vector<JNIEnv*>& suspended, std::vector<JNIEnv*>& ran) {
    suspended.clear();
    ran.clear();
    for (JNIEnv* env : all) {
        if (sampler.status(env) != JVMPI_THREAD_RUNNABLE) continue;
        sampler.suspend(env);
        suspended.push_back(env);
    }
    JVMPI_CallFrame frames[50];
    const std::uint64_t signals = sampler.counters().signals;
    const std::int64_t start = monotonicNs();
    for (JNIEnv* env : suspended)
        if (sampler.hasRun(env)) ran.push_back(env);
    for (JNIEnv* env : ran) {
        JVMPI_CallTrace trace{env, 0, frames};
        sampler.callTrace(&trace, 50);
    }
    for (JNIEnv* env : suspended) sampler.resume(env);
    return sampler.counters().signals > signals ? monotonicNs() - start : 0;
}

// Signals to the threads, answered at once: what no stop can do without.
std::int64_t bareRoundTrip(const std::vector<int>& tids) {
    answers = 0;
    const std::int64_t start = monotonicNs();
    for (const int tid : tids) syscall(SYS_tgkill, getpid(), tid, kBareSignal);
    while (answers.load(std::memory_order_relaxed) < static_cast<int>(tids.size()))
        if (monotonicNs() - start > 1'000'000'000) break;
    return monotonicNs() - start;
}

double micros(std::vector<std::int64_t>& values, double share) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const auto at = static_cast<std::size_t>(share * static_cast<double>(values.size() - 1));
    return static_cast<double>(values[at]) / 1000;
}

int run(int cycles, int intervalMs) {
    struct sigaction action {};
    action.sa_handler = answer;
    action.sa_flags = SA_RESTART;
    sigaction(kBareSignal, &action, nullptr);

    FakeVm vm;
    StackSampler sampler(vm.threads, vm.structs, nullptr);
    std::string problem;
    if (!vm.ready || !sampler.start(problem)) {
        std::fprintf(stderr, "bridge_bench: %s\n", problem.c_str());
        return 1;
    }
    std::deque<Worker> workers(kThreads);
    std::vector<JNIEnv*> all, suspended, ran;
    std::vector<int> runningTids;
    for (int i = 0; i < kThreads; i++) {
        Worker& worker = workers[static_cast<std::size_t>(i)];
        worker.start(vm.threads, i < kRunning);
        all.push_back(worker.java.env());
        if (i < kRunning) runningTids.push_back(worker.java.os.threadId);
    }
    suspended.reserve(kThreads);
    ran.reserve(kThreads);

    std::vector<std::int64_t> stops, bare;
    for (int i = 0; i < cycles; i++) {
        poll(nullptr, 0, intervalMs);
        const std::uint64_t before = sampler.counters().signals;
        const std::int64_t stopped = cycle(sampler, all, suspended, ran);
        const std::uint64_t asked = sampler.counters().signals - before;
        if (stopped == 0) continue;
        stops.push_back(stopped);
        poll(nullptr, 0, intervalMs / 2);
        // As many threads as the cycle has stopped, the same ones in turn.
        std::vector<int> tids;
        for (std::uint64_t n = 0; n < asked; n++)
            tids.push_back(runningTids[(static_cast<std::size_t>(i) + n) % kRunning]);
        bare.push_back(bareRoundTrip(tids));
    }
    for (Worker& worker : workers) worker.stop = true;
    for (Worker& worker : workers) worker.thread.join();

    std::printf("%zu stops; %d threads, %d of them running\n", stops.size(), kThreads, kRunning);
    for (const double share : {0.5, 0.99}) {
        const double stopped = micros(stops, share), signalled = micros(bare, share);
        std::printf("  %2.0f %%: stopped %8.1f us   bare round trip %8.1f us   ratio %.2f\n",
                    100 * share, stopped, signalled, stopped / signalled);
    }
    return 0;
}

} // namespace
} // namespace bridge

int main(int argc, char** argv) {
    const int cycles = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int interval = argc > 2 ? std::atoi(argv[2]) : 10;
    return bridge::run(std::max(cycles, 1), std::max(interval, 2));
}
