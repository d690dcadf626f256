// What the core costs per event and per object, each beside its floor in the same run:
//
//   dispatch            an event of a known thread, over what its handler does itself (ns)
//   find, insert, walk  a registry of a million records, beside the faster of two flat sets of
//                       today under the same lock (ratio), and walking (ns an element)
//   cachedFind          the element found last, beside the lock alone (ns)
//   emptying            a registry of a million records, inside a collection pause (us)
//   tracingOff          a registry's operations, beside the same code without tracing (ratio)
//
// The figures to look at are the counters. Each comes from many short rounds in which the rivals
// take turns, and is the median of the rounds: other programs on the machine then slow both.
#include "core/PRBContext.h"
#include "core/PRBFormat.h"
#include "core/PRBLockRank.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"

#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>
#include <benchmark/benchmark.h>
#include <boost/unordered/unordered_flat_set.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <numeric>
#include <pthread.h>
#include <random>
#include <utility>
#include <vector>

// The registry and its monitor twice more from the same sources: as they are, and with tracing
// compiled out. Both are compiled here, so that the compiler treats them alike.
#undef PRB_CORE_PRBJAVARAWMONITOR_H
#undef PRB_CORE_PRBMONITORHASHTABLE_H
namespace traced {
#include "core/PRBJavaRawMonitor.cpp"
#include "core/PRBMonitorHashTable.cpp"
} // namespace traced

#undef PRB_CORE_PRBJAVARAWMONITOR_H
#undef PRB_CORE_PRBMONITORHASHTABLE_H
namespace untraced {
struct PRBTrace {
    static constexpr bool isDebugEnabled(const char*) { return false; }
    template <typename... Args> static void log(Args...) {}
    static void writeToLog(const char*) {}
};
struct PRBTraceScope {
    PRBTraceScope(int, const char*, const char*) {}
    ~PRBTraceScope() {} // so that a scope counts as used
};
#include "core/PRBJavaRawMonitor.cpp"
#include "core/PRBMonitorHashTable.cpp"
} // namespace untraced

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::size_t kMillion = 1000000;

// ---- the least of a VM: monitors that are plain re-entrant mutexes, and thread-local words ----

JVMPI_RawMonitor createMonitor(char*) {
    auto* mutex = new pthread_mutex_t;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(mutex, &attributes);
    return reinterpret_cast<JVMPI_RawMonitor>(mutex);
}
void enterMonitor(JVMPI_RawMonitor m) { pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(m)); }
void exitMonitor(JVMPI_RawMonitor m) {
    pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(m));
}

void* localStorage = nullptr; // one thread is enough
void setStorage(JNIEnv*, void* value) { localStorage = value; }
void* getStorage(JNIEnv*) { return localStorage; }

JVMPI_Interface& vm() {
    static JVMPI_Interface table = [] {
        JVMPI_Interface t{};
        t.version = 0x10000001;
        t.RawMonitorCreate = createMonitor;
        t.RawMonitorEnter = enterMonitor;
        t.RawMonitorExit = exitMonitor;
        t.SetThreadLocalStorage = setStorage;
        t.GetThreadLocalStorage = getStorage;
        return t;
    }();
    return table;
}

PRBMonitorGlobal& agent() { return *PRBMonitorGlobal::getMonitorGlobal(&vm(), nullptr, nullptr); }

// ---- measuring ----

template <class F> double nanoseconds(const F& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

class Median {
public:
    void add(double value) { values_.push_back(value); }
    double operator()() {
        auto middle = values_.begin() + static_cast<std::ptrdiff_t>(values_.size() / 2);
        std::nth_element(values_.begin(), middle, values_.end());
        return *middle;
    }

private:
    std::vector<double> values_;
};

// ---- dispatch ----

void dispatch(benchmark::State& state) {
    agent();
    auto* env = reinterpret_cast<JNIEnv*>(std::uintptr_t{0x1000});
    JVMPI_Event start{};
    start.event_type = JVMPI_EVENT_THREAD_START;
    start.env_id = env;
    char name[] = "worker", none[] = "";
    start.u.thread_start.thread_name = name;
    start.u.thread_start.group_name = none;
    start.u.thread_start.parent_name = none;
    start.u.thread_start.thread_env_id = env;
    start.u.thread_start.thread_id = reinterpret_cast<jobjectID>(std::uintptr_t{7});
    PRBMonitorGlobal::notify(&start);
    PRBJavaThread* thread = PRBLookup::getThreadClass(env);
    if (thread == nullptr) return state.SkipWithError("the thread is not known");

    JVMPI_Event entry{}, exit{};
    entry.env_id = exit.env_id = env;
    entry.event_type = JVMPI_EVENT_METHOD_ENTRY;
    exit.event_type = JVMPI_EVENT_METHOD_EXIT;
    entry.u.method.method_id = exit.u.method.method_id =
        reinterpret_cast<jmethodID>(std::uintptr_t{0x2000});
    constexpr int kEvents = 2000; // a round
    Median through, itself, extra;
    for (auto _ : state) {
        const double a = nanoseconds([&] {
            for (int i = 0; i < kEvents / 2; ++i) {
                PRBMonitorGlobal::notify(&entry);
                PRBMonitorGlobal::notify(&exit);
            }
        });
        const double b = nanoseconds([&] {
            for (int i = 0; i < kEvents / 2; ++i) {
                thread->methodEntry(entry.u.method.method_id, nullptr);
                thread->methodExit(exit.u.method.method_id);
            }
        });
        through.add(a / kEvents);
        itself.add(b / kEvents);
        extra.add((a - b) / kEvents);
        state.SetIterationTime(a * 1e-9);
    }
    state.counters["event_ns"] = through();
    state.counters["handler_ns"] = itself();
    state.counters["dispatch_ns"] = extra();
}
BENCHMARK(dispatch)->UseManualTime()->Iterations(2000);

// ---- a registry of a million ----

struct Hash {
    std::size_t operator()(const PRBCollectable* c) const { return c->hash(); }
};
// This set relies on the spread of the hash, which identifiers do not have.
struct SpreadHash {
    std::size_t operator()(const PRBCollectable* c) const {
        return absl::Hash<std::uint32_t>{}(c->hash());
    }
};
struct Equal {
    bool operator()(const PRBCollectable* a, const PRBCollectable* b) const {
        return a->isEqual(b);
    }
};
using AbslSet = absl::flat_hash_set<PRBCollectable*, SpreadHash, Equal>;
using BoostSet = boost::unordered_flat_set<PRBCollectable*, Hash, Equal>;

template <class Set> class Locked {
public:
    PRBCollectable* find(PRBCollectable* key) {
        PRBMonitorGuard guard(monitor_);
        auto at = set_.find(key);
        return at == set_.end() ? nullptr : *at;
    }
    void insert(PRBCollectable* item) {
        PRBMonitorGuard guard(monitor_);
        set_.insert(item);
    }

private:
    PRBJavaRawMonitor monitor_{"Rival", &vm()};
    Set set_;
};

jobjectID idOf(std::size_t i) { return reinterpret_cast<jobjectID>(i + 1); }

// Records with the dense identifiers that a VM hands out, and an order to ask for them in.
struct Million {
    std::vector<std::unique_ptr<PRBJavaObjectAllocated>> records;
    std::vector<std::size_t> order;
    Million() : order(kMillion) {
        agent();
        records.reserve(kMillion);
        for (std::size_t i = 0; i < kMillion; ++i)
            records.emplace_back(
                new PRBJavaObjectAllocated(nullptr, nullptr, 0, 16, idOf(i), nullptr));
        std::iota(order.begin(), order.end(), std::size_t{0});
        std::shuffle(order.begin(), order.end(), std::mt19937(17));
    }
    template <class Set> void fill(Set& set) const {
        for (const auto& record : records) set.insert(record.get());
    }
    static const Million& instance() {
        static const Million million;
        return million;
    }
};

void report(benchmark::State& state, Median& ours, Median& absl, Median& boost) {
    state.counters["ns"] = ours();
    state.counters["absl_ns"] = absl();
    state.counters["boost_ns"] = boost();
    state.counters["ratio"] = ours() / std::min(absl(), boost());
}

// `order`: random, and in the order of the identifiers, as a walk of the heap asks.
void find(benchmark::State& state, bool random) {
    const Million& million = Million::instance();
    PRBMonitorHashTable table("Table", &vm());
    Locked<AbslSet> absl;
    Locked<BoostSet> boost;
    million.fill(table);
    million.fill(absl);
    million.fill(boost);
    Median a, b, c;
    constexpr std::size_t kFinds = 20000; // a round
    std::size_t from = 0;
    for (auto _ : state) {
        if (from + kFinds > kMillion) from = 0;
        const auto pass = [&](auto& set) {
            return nanoseconds([&] {
                       for (std::size_t i = from; i < from + kFinds; ++i) {
                           PRBJavaObjectAllocated probe(idOf(random ? million.order[i] : i));
                           PRBCollectable* found = set.find(&probe);
                           benchmark::DoNotOptimize(found);
                       }
                   }) /
                   kFinds;
        };
        const double ours = pass(table);
        from = (from + 3 * kFinds) % (kMillion - kFinds); // records that no cache still holds
        b.add(pass(absl));
        from = (from + 3 * kFinds) % (kMillion - kFinds);
        c.add(pass(boost));
        from = (from + 3 * kFinds) % (kMillion - kFinds);
        a.add(ours);
        state.SetIterationTime(ours * kFinds * 1e-9);
    }
    report(state, a, b, c);
}
BENCHMARK_CAPTURE(find, random, true)->UseManualTime()->Iterations(300);
BENCHMARK_CAPTURE(find, inOrder, false)->UseManualTime()->Iterations(300);

void insertMillion(benchmark::State& state) {
    const Million& million = Million::instance();
    Median a, b, c;
    for (auto _ : state) {
        const auto pass = [&](auto&& set) {
            return nanoseconds([&] { million.fill(set); }) / kMillion;
        };
        const double ours = pass(PRBMonitorHashTable("Table", &vm()));
        a.add(ours);
        b.add(pass(Locked<AbslSet>()));
        c.add(pass(Locked<BoostSet>()));
        state.SetIterationTime(ours * kMillion * 1e-9);
    }
    report(state, a, b, c);
}
BENCHMARK(insertMillion)->UseManualTime()->Iterations(11);

void walk(benchmark::State& state) {
    PRBMonitorHashTable table("Table", &vm());
    Million::instance().fill(table);
    Median each;
    for (auto _ : state) {
        std::size_t seen = 0;
        const double time = nanoseconds([&] {
            PRBTableWalk next(table);
            while (PRBCollectable* item = next()) {
                benchmark::DoNotOptimize(item);
                ++seen;
            }
        });
        if (seen != kMillion) return state.SkipWithError("the walk is not complete");
        each.add(time / kMillion);
        state.SetIterationTime(time * 1e-9);
    }
    state.counters["element_ns"] = each();
}
BENCHMARK(walk)->UseManualTime()->Iterations(31);

void cachedFind(benchmark::State& state) {
    const Million& million = Million::instance();
    PRBMonitorHashTable table("Table", &vm());
    million.fill(table);
    PRBJavaRawMonitor monitor("Alone", &vm());
    PRBJavaObjectAllocated probe(idOf(kMillion / 2));
    constexpr int kFinds = 10000;
    Median found, alone, extra;
    for (auto _ : state) {
        const double a = nanoseconds([&] {
                             for (int i = 0; i < kFinds; ++i)
                                 benchmark::DoNotOptimize(table.find(&probe));
                         }) /
                         kFinds;
        const double b = nanoseconds([&] {
                             for (int i = 0; i < kFinds; ++i) PRBMonitorGuard guard(monitor);
                         }) /
                         kFinds;
        found.add(a);
        alone.add(b);
        extra.add(a - b);
        state.SetIterationTime(a * kFinds * 1e-9);
    }
    state.counters["find_ns"] = found();
    state.counters["lock_ns"] = alone();
    state.counters["over_lock_ns"] = extra();
}
BENCHMARK(cachedFind)->UseManualTime()->Iterations(300);

// Inside the pause, and what each later insertion pays until the memory has gone back.
void emptying(benchmark::State& state) {
    agent();
    Median pause, later;
    for (auto _ : state) {
        PRBMonitorHashTable table("Table", &vm());
        const auto fill = [&] {
            for (std::size_t i = 0; i < kMillion; ++i)
                table.insert(new PRBJavaObjectAllocated(nullptr, nullptr, 0, 16, idOf(i), nullptr));
        };
        fill();
        const double time = nanoseconds([&] {
            PRBTableLock guard(table);
            table.beginPause();
            table.detachAll(sizeof(PRBJavaObjectAllocated));
            table.endPause();
        });
        if (table.entries() != 0) return state.SkipWithError("the registry is not empty");
        pause.add(time * 1e-3);
        later.add(nanoseconds(fill) / kMillion);
        table.clearAndDestroy();
        state.SetIterationTime(time * 1e-9);
    }
    state.counters["pause_us"] = pause();
    state.counters["refill_ns"] = later();
}
BENCHMARK(emptying)->UseManualTime()->Iterations(7);

// ---- tracing that is off, beside no tracing ----

template <class Table> double tracingRound(Table& table, PRBJavaObjectAllocated* const* records) {
    constexpr int kRounds = 500, kRecords = 4;
    return nanoseconds([&] {
               for (int i = 0; i < kRounds; ++i) {
                   for (int r = 0; r < kRecords; ++r) table.insert(records[r]);
                   for (int r = 0; r < kRecords; ++r)
                       benchmark::DoNotOptimize(table.find(records[r]));
                   for (int r = 0; r < kRecords; ++r) table.remove(records[r]);
               }
           }) /
           (kRounds * kRecords * 3);
}

void tracingOff(benchmark::State& state) {
    agent();
    traced::PRBMonitorHashTable with("Table", &vm());
    untraced::PRBMonitorHashTable without("Table", &vm());
    PRBJavaObjectAllocated r0(idOf(1)), r1(idOf(2)), r2(idOf(3)), r3(idOf(4));
    PRBJavaObjectAllocated* records[] = {&r0, &r1, &r2, &r3};
    Median a, b, ratio;
    bool first = false;
    for (auto _ : state) {
        first = !first; // whoever comes second has it warmer
        double off, out;
        if (first) {
            off = tracingRound(with, records);
            out = tracingRound(without, records);
        } else {
            out = tracingRound(without, records);
            off = tracingRound(with, records);
        }
        a.add(off);
        b.add(out);
        ratio.add(off / out);
        state.SetIterationTime(off * 1e-6);
    }
    state.counters["off_ns"] = a();
    state.counters["compiled_out_ns"] = b();
    state.counters["ratio"] = ratio();
}
BENCHMARK(tracingOff)->UseManualTime()->Iterations(3000);

} // namespace
