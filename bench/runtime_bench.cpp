// What the events of the runtime model and the sampler's stop window cost beside what they need
// anyway: clock readings, a flat hash set and malloc, the bare calls of the VM.
//
// Each benchmark runs both sides in turn, in chunks, and reports medians: `ours` and `floor` in
// nanoseconds per operation, their `ratio`, and the `bar` that the ratio (or `ours`) must keep.
#include "bench/MinimalVm.h"
#include "core/PRBContext.h"
#include "core/PRBMaskLists.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBSamplerWindow.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <ctime>
#include <memory>
#include <vector>

#if __has_include(<boost/unordered/unordered_flat_set.hpp>)
#include <boost/unordered/unordered_flat_set.hpp>
#define HAVE_FLAT_SET 1
#endif

namespace {

using minimal::Agent;
using minimal::Env;

double median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

double threadTime() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Nanoseconds of processor time per operation of a chunk of `count`; chunks are long beside the
// reading of the clock.
template <typename Work> double timed(std::size_t count, const Work& work) {
    const double start = threadTime();
    work();
    return (threadTime() - start) / static_cast<double>(count);
}

class Sides {
public:
    void add(double ours, double floor) {
        ours_.push_back(ours);
        floor_.push_back(floor);
    }
    // `slack`: nanoseconds that the bar allows over its multiple of the floor.
    void report(benchmark::State& state, double bar, double slack = 0) const {
        const double ours = median(ours_);
        const double floor = median(floor_);
        state.counters["ours"] = ours;
        state.counters["floor"] = floor;
        state.counters["ratio"] = (ours - slack) / floor;
        state.counters["bar"] = bar;
    }

private:
    std::vector<double> ours_, floor_;
};

void send(jint type, Env& env, jmethodID method) {
    JVMPI_Event event;
    event.event_type = type;
    event.env_id = &env;
    event.u.method.method_id = method;
    Agent::get().table().NotifyEvent(&event);
}
void enter(Env& env, jmethodID method) { send(JVMPI_EVENT_METHOD_ENTRY, env, method); }
void leave(Env& env, jmethodID method) { send(JVMPI_EVENT_METHOD_EXIT, env, method); }

// ---- Method entry and exit ----------------------------------------------------------------------

constexpr std::size_t kPairs = 2000; // per chunk
constexpr int kDepth = 20;

// Both clocks, moved on by two microseconds with each reading, so that every exit measures CPU
// time and walks all its callers.
long long steps = 0;
jlong steppingCpuClock() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<jlong>(now.tv_sec) * 1000000000 + now.tv_nsec + ++steps * 2000;
}
timeval steppingWallClock() {
    timeval now;
    gettimeofday(&now, nullptr);
    const long long us = PRBClock::toMicros(now) + ++steps * 2;
    return {static_cast<time_t>(us / 1000000), static_cast<suseconds_t>(us % 1000000)};
}

void timedMethod(benchmark::State& state) {
    Agent& agent = Agent::get();
    // The agent keeps the first clock that it has used.
    static const bool stepping = [&agent] {
        agent.table().GetCurrentThreadCpuTime = steppingCpuClock;
        return true;
    }();
    benchmark::DoNotOptimize(stepping);
    PRBClock::source = state.range(0) != 0 ? steppingWallClock : nullptr;
    PRBContext::setDataBeingCollected(PRBCollect::kMethods);
    Env& env = agent.startThread();
    for (int i = 0; i < kDepth; ++i) enter(env, minimal::method(i));
    const jmethodID measured = minimal::method(kDepth);
    Sides sides;
    for (auto _ : state) {
        const double ours = timed(kPairs, [&] {
            for (std::size_t i = 0; i < kPairs; ++i) {
                enter(env, measured);
                leave(env, measured);
            }
        });
        const double floor = timed(kPairs, [&] {
            for (std::size_t i = 0; i < kPairs; ++i) {
                for (int twice = 0; twice < 2; ++twice) {
                    benchmark::DoNotOptimize(PRBContext::getThreadCPUTimeInMicroSeconds());
                    benchmark::DoNotOptimize(PRBClock::now());
                }
            }
        });
        sides.add(ours, floor);
    }
    sides.report(state, 1.25);
    leave(env, minimal::method(0));
    PRBClock::source = nullptr;
    PRBContext::setDataBeingCollected(0);
}
BENCHMARK(timedMethod)->ArgName("everyExitHasCpuTime")->Arg(0)->Arg(1)->Iterations(200);

void untimedMethod(benchmark::State& state) {
    Agent& agent = Agent::get();
    PRBContext::setDataBeingCollected(PRBCollect::kMethods);
    PRBMaskLists::setMethodMask("nothing");
    Env& env = agent.startThread();
    for (int i = 0; i < kDepth; ++i) enter(env, minimal::method(i));
    const jmethodID measured = minimal::method(kDepth);
    Sides sides;
    for (auto _ : state)
        sides.add(timed(kPairs,
                        [&] {
                            for (std::size_t i = 0; i < kPairs; ++i) {
                                enter(env, measured);
                                leave(env, measured);
                            }
                        }),
                  60);
    sides.report(state, 1);
    leave(env, minimal::method(0));
    PRBMaskLists::setMethodMask("*");
    PRBContext::setDataBeingCollected(0);
}
BENCHMARK(untimedMethod)->Iterations(1000);

// ---- Objects ------------------------------------------------------------------------------------

#if HAVE_FLAT_SET
constexpr std::size_t kObjects = 100000;
constexpr std::size_t kRecordBytes = 64;

// Ids as a VM gives them: in rising order, aligned.
std::uintptr_t objectNumber(std::size_t i) { return 0x100000 + 8 * i; }

void objects(benchmark::State& state) {
    const bool measureFree = state.range(0) != 0;
    Agent& agent = Agent::get();
    PRBContext::setDataBeingCollected(PRBCollect::kHeapAllocation);
    Env& env = agent.startThread();
    const auto allocate = [&] {
        for (std::size_t i = 0; i < kObjects; ++i) {
            JVMPI_Event event;
            event.event_type = JVMPI_EVENT_OBJECT_ALLOC;
            event.env_id = &env;
            event.u.obj_alloc = {1, minimal::kClass, 0, 24, minimal::objectId(objectNumber(i))};
            agent.table().NotifyEvent(&event);
        }
    };
    const auto release = [&] {
        for (std::size_t i = 0; i < kObjects; ++i) {
            JVMPI_Event event;
            event.event_type = JVMPI_EVENT_OBJECT_FREE;
            event.env_id = &env;
            event.u.obj_free.obj_id = minimal::objectId(objectNumber(i));
            agent.table().NotifyEvent(&event);
        }
    };
    boost::unordered_flat_set<std::uintptr_t> set;
    std::vector<void*> blocks(kObjects);
    const auto floorAllocate = [&] {
        for (std::size_t i = 0; i < kObjects; ++i) {
            set.insert(objectNumber(i));
            blocks[i] = std::malloc(kRecordBytes);
        }
    };
    const auto floorRelease = [&] {
        for (std::size_t i = 0; i < kObjects; ++i) {
            set.erase(objectNumber(i));
            std::free(blocks[i]);
        }
    };
    Sides sides;
    for (auto _ : state) {
        const double a = timed(kObjects, allocate);
        const double r = timed(kObjects, release);
        const double fa = timed(kObjects, floorAllocate);
        const double fr = timed(kObjects, floorRelease);
        if (measureFree)
            sides.add(r, fr);
        else
            sides.add(a, fa);
    }
    sides.report(state, 3);
    PRBContext::setDataBeingCollected(0);
}
BENCHMARK(objects)->ArgName("free")->Arg(0)->Arg(1)->Iterations(40);
#endif

// ---- Contention ---------------------------------------------------------------------------------

void contendedEnter(benchmark::State& state) {
    Agent& agent = Agent::get();
    PRBContext::setDataBeingCollected(PRBCollect::kContention | PRBCollect::kHeapAllocation);
    Env& env = agent.startThread();
    JVMPI_Event known = Agent::eventOf(JVMPI_EVENT_OBJECT_ALLOC, &env);
    known.u.obj_alloc = {1, minimal::kClass, 0, 24, minimal::objectId(0x90000008)};
    agent.table().NotifyEvent(&known);
    const auto block = [&](jint type) {
        JVMPI_Event event;
        event.event_type = type;
        event.env_id = &env;
        event.u.monitor.object = minimal::objectId(0x90000008);
        agent.table().NotifyEvent(&event);
    };
    Sides sides;
    for (auto _ : state) {
        const double ours = timed(kPairs, [&] {
            for (std::size_t i = 0; i < kPairs; ++i) {
                block(JVMPI_EVENT_MONITOR_CONTENDED_ENTER);
                block(JVMPI_EVENT_MONITOR_CONTENDED_ENTERED);
            }
        });
        const double floor = timed(kPairs, [&] {
            for (std::size_t i = 0; i < kPairs; ++i)
                for (int twice = 0; twice < 2; ++twice) benchmark::DoNotOptimize(PRBClock::now());
        });
        sides.add(ours, floor);
    }
    sides.report(state, 2, 150);
    PRBContext::setDataBeingCollected(0);
}
BENCHMARK(contendedEnter)->Iterations(1000);

// ---- The sampler's stop window ------------------------------------------------------------------

void stopWindow(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    Agent& agent = Agent::get();
    PRBContext::setDataBeingCollected(PRBCollect::kMethods);
    std::vector<Env*> envs;
    std::vector<PRBSamplerWindow::Candidate> threads;
    for (std::size_t i = 0; i < count; ++i) {
        envs.push_back(&agent.startThread());
        threads.push_back(
            PRBSamplerWindow::candidate(*static_cast<PRBJavaThread*>(envs.back()->storage)));
    }
    const std::size_t cycles = std::max<std::size_t>(1, 10000 / count);
    const auto slots = std::make_unique<PRBSamplerWindow::TraceSlot[]>(count);
    const auto bareSlots = std::make_unique<PRBSamplerWindow::TraceSlot[]>(count);
    const JVMPI_Interface& vm = agent.table();
    Sides sides;
    for (auto _ : state) {
        const double ours = timed(count * cycles, [&] {
            for (std::size_t n = 0; n < cycles; ++n) {
                PRBSamplerWindow window(vm, threads.data(), static_cast<int>(count), slots.get(),
                                        nullptr, true);
                window.run(); // all are runnable, so their order stays
            }
        });
        const double floor = timed(count * cycles, [&] {
            for (std::size_t n = 0; n < cycles; ++n) {
                for (Env* env : envs) vm.SuspendThread(env);
                for (std::size_t i = 0; i < count; ++i) {
                    if (vm.ThreadHasRun(envs[i]) == JNI_FALSE) continue;
                    JVMPI_CallTrace trace{envs[i], 0, bareSlots[i].frames};
                    vm.GetCallTrace(&trace, PRBSamplerWindow::kFrames);
                    bareSlots[i].frameCount = trace.num_frames;
                }
                for (Env* env : envs) vm.ResumeThread(env);
            }
        });
        sides.add(ours, floor);
    }
    sides.report(state, 1.3);
    PRBContext::setDataBeingCollected(0);
}
BENCHMARK(stopWindow)->ArgName("threads")->Arg(20)->Arg(200)->Arg(2000)->Iterations(300);

} // namespace
