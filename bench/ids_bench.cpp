// A look of the bridge at all objects that have ids, of which none has died: 20,000 ids, as a
// server has that loads many classes. The VM's answer is made up (a call that reads the reference's
// slot), so what is measured is the table; the floor are the same calls over an array. The figures
// to look at are the counters, in nanoseconds per id.
#include "bench/Turns.h"
#include "bridge/ObjectIds.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace {

constexpr int kIds = 20000;
constexpr int kRepetitions = 5;
constexpr std::size_t kStretch = 512; // as ObjectIds::reap

jboolean isSame(jobject reference, jobject other) {
    return *reinterpret_cast<jobject*>(reference) == other ? JNI_TRUE : JNI_FALSE;
}
using IsSame = jboolean (*)(jobject, jobject);

void looks(benchmark::State& state) {
    std::vector<std::uintptr_t> slots(kIds, 1);
    std::vector<jweak> references;
    bridge::IdTable table;
    for (std::uintptr_t& slot : slots) {
        references.push_back(reinterpret_cast<jweak>(&slot));
        table.addClass(references.back());
    }
    IsSame call = isSame;
    benchmark::DoNotOptimize(call);
    std::vector<double> look, floor;
    for (auto _ : state) {
        Turns turns;
        turns.time(look, kRepetitions, [&](int) {
            bridge::IdTable::Entry entries[kStretch];
            std::size_t place = 0;
            int dead = 0;
            do {
                const bridge::IdTable::Use use(table, 0);
                const std::size_t count = table.copy(place, entries, kStretch);
                for (std::size_t i = 0; i < count; i++) dead += call(entries[i].reference, nullptr);
            } while (place != 0);
            benchmark::DoNotOptimize(dead);
        });
        turns.time(floor, kRepetitions, [&](int) {
            int dead = 0;
            for (const jweak reference : references) dead += call(reference, nullptr);
            benchmark::DoNotOptimize(dead);
        });
    }
    state.counters["look"] = Turns::median(look) / kIds;
    state.counters["floor"] = Turns::median(floor) / kIds;
    state.counters["ratio"] = Turns::median(look) / Turns::median(floor);
}
BENCHMARK(looks)->Iterations(200);

} // namespace
