// Finding one anchor among a million method anchors (class and method names of about 40 bytes, a
// hundred threads), in a random order, beside absl's flat hash set of the same identities: once
// of pointers to the same anchors with the same hash and equality, once of plain structs of the
// identifying fields. The figures to look at are the counters.
#include "anchors/PRBAnchorCollection.h"
#include "anchors/PRBAnchors.h"
#include "bench/Turns.h"

#include <benchmark/benchmark.h>

#ifdef PRB_BENCH_ABSL
#include <absl/container/flat_hash_set.h>
#include <absl/hash/hash.h>
#endif

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kAnchors = 1000000;

struct Identity {
    unsigned process;
    long long thread;
    std::string className, methodName, resourceName;
    bool operator==(const Identity&) const = default;
};

Identity identity(int i) {
    const std::string number = std::to_string(i / 100);
    Identity id{4711, i % 100, "com/example/shop/inventory/Warehouse" + number.substr(0, 3),
                "computeAvailabilityForArticleNumber" + number, ""};
    id.resourceName = id.className + '.' + id.methodName;
    return id;
}

void identify(PRBMethodAnchor& anchor, const Identity& id) {
    anchor.setResourceName(id.resourceName);
    anchor.setProcessId(id.process);
    anchor.setThreadId(id.thread);
    anchor.setClassName(id.className);
    anchor.setMethodName(id.methodName);
}

#ifdef PRB_BENCH_ABSL
struct IdentityHash {
    std::size_t operator()(const Identity& id) const {
        return absl::HashOf(id.process, id.thread, id.className, id.methodName, id.resourceName);
    }
};
struct PointerHash {
    std::size_t operator()(const PRBResourceAnchor* a) const {
        return static_cast<std::size_t>(a->identityHash());
    }
};
struct PointerEqual {
    bool operator()(const PRBResourceAnchor* a, const PRBResourceAnchor* b) const {
        return a->isA() == b->isA() && a->isEqual(b);
    }
};
#endif

void findAmongAMillion(benchmark::State& state) {
    PRBAnchorCollection anchors;
#ifdef PRB_BENCH_ABSL
    absl::flat_hash_set<PRBResourceAnchor*, PointerHash, PointerEqual> pointers;
    absl::flat_hash_set<Identity, IdentityHash> structs;
    pointers.reserve(kAnchors);
    structs.reserve(kAnchors);
#endif
    for (int i = 0; i < kAnchors; ++i) {
        auto anchor = std::make_unique<PRBMethodAnchor>();
        identify(*anchor, identity(i));
#ifdef PRB_BENCH_ABSL
        pointers.insert(anchor.get());
        structs.insert(identity(i));
#endif
        anchors.insert(std::move(anchor));
    }
    // The keys that are asked for, as a receiver has them: built anew.
    constexpr int kKeys = 4096;
    std::mt19937 random(7);
    std::vector<Identity> keys;
    std::vector<std::unique_ptr<PRBMethodAnchor>> probes;
    const auto draw = [&] {
        keys.clear();
        probes.clear();
        for (int i = 0; i < kKeys; ++i) {
            keys.push_back(identity(static_cast<int>(random() % kAnchors)));
            probes.push_back(std::make_unique<PRBMethodAnchor>());
            identify(*probes.back(), keys.back());
        }
    };
    Turns turns;
    std::vector<double> ours, ofPointers, ofStructs;
    for (auto _ : state) {
        // New keys for each rival, so that none finds what another brought into the caches.
        draw();
        turns.time(ours, kKeys, [&](int i) {
            benchmark::DoNotOptimize(anchors.find(*probes[static_cast<std::size_t>(i)]));
        });
#ifdef PRB_BENCH_ABSL
        draw();
        turns.time(ofPointers, kKeys, [&](int i) {
            benchmark::DoNotOptimize(*pointers.find(probes[static_cast<std::size_t>(i)].get()));
        });
        draw();
        turns.time(ofStructs, kKeys, [&](int i) {
            benchmark::DoNotOptimize(structs.contains(keys[static_cast<std::size_t>(i)]));
        });
#endif
    }
    state.counters["ours_ns"] = Turns::median(ours);
    state.counters["pointers_ns"] = Turns::median(ofPointers);
    state.counters["structs_ns"] = Turns::median(ofStructs);
    if (ofPointers.empty()) return;
    state.counters["ratio_pointers"] = Turns::median(ours) / Turns::median(ofPointers);
    state.counters["ratio_structs"] = Turns::median(ours) / Turns::median(ofStructs);
}
BENCHMARK(findAmongAMillion)->Iterations(50)->Unit(benchmark::kMillisecond);

} // namespace
