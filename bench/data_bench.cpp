// What a sample costs: building and streaming one method usage sample with three texts of 40
// bytes and its ten counts, reading it back, and a pass of 100,000 of them. The floor of the
// first is an encoder written out for exactly this record, into a string made per record.
#include "data/PRBBuffer.h"
#include "data/PRBMethodUsageSample.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

const std::string kTexts[] = {std::string(40, 'c'), std::string(40, 'm'), std::string(40, 's')};
constexpr int kTextKeys[] = {10, 11, 320};
constexpr int kNumberKeys[] = {2, 4, 314, 304, 305, 306, 307, 310, 315, 321, 322};

void fill(PRBMethodUsageSample& sample, long long seed) {
    for (int key : kNumberKeys) sample.saveNumericData(key, seed + key);
    for (int i = 0; i < 3; ++i) sample.saveStringData(kTextKeys[i], kTexts[i].c_str());
}

template <class T> void put(std::string& out, T value) {
    if constexpr (sizeof value == 4) value = __builtin_bswap32(value);
    if constexpr (sizeof value == 8) value = __builtin_bswap64(value);
    out.append(reinterpret_cast<const char*>(&value), sizeof value);
}

void buildAndStream(benchmark::State& state) {
    long long seed = 0;
    for (auto _ : state) {
        PRBMethodUsageSample sample;
        fill(sample, ++seed);
        PRBBuffer buffer;
        sample.stream(buffer);
        benchmark::DoNotOptimize(buffer.data());
    }
}
BENCHMARK(buildAndStream);

void streamOnly(benchmark::State& state) {
    PRBMethodUsageSample sample;
    fill(sample, 1);
    for (auto _ : state) {
        PRBBuffer buffer;
        sample.stream(buffer);
        benchmark::DoNotOptimize(buffer.data());
    }
}
BENCHMARK(streamOnly);

void floorByHand(benchmark::State& state) {
    long long seed = 0;
    for (auto _ : state) {
        ++seed;
        std::string out;
        out.reserve(8 + 16 * 13 + 3 * 52);
        put(out, std::uint32_t{2});
        put(out, std::uint32_t{11});
        const auto number = [&out](int key, long long value) {
            put(out, std::uint32_t{1});
            put(out, static_cast<std::uint32_t>(key));
            put(out, static_cast<std::uint64_t>(value));
        };
        number(20, seed);
        number(21, 0);
        for (int key : kNumberKeys) number(key, seed + key);
        for (int i = 0; i < 3; ++i) {
            put(out, std::uint32_t{2});
            put(out, static_cast<std::uint32_t>(kTextKeys[i]));
            put(out, static_cast<std::uint32_t>(kTexts[i].size()));
            out += kTexts[i];
        }
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(floorByHand);

void readChecked(benchmark::State& state) {
    PRBMethodUsageSample sample;
    fill(sample, 1);
    PRBBuffer buffer;
    sample.stream(buffer);
    for (auto _ : state) {
        PRBWireError error;
        auto record =
            PRBTransportableData::buildFromBufferChecked(buffer.data(), buffer.size(), error);
        benchmark::DoNotOptimize(record.get());
    }
}
BENCHMARK(readChecked);

// Samples into buffers, buffers into one array with a length before each.
void passOf100000(benchmark::State& state) {
    constexpr int kSamples = 100000;
    for (auto _ : state) {
        std::vector<PRBBuffer> buffers(kSamples);
        std::size_t total = 0;
        for (int i = 0; i < kSamples; ++i) {
            PRBMethodUsageSample sample;
            fill(sample, i);
            sample.stream(buffers[static_cast<std::size_t>(i)]);
            total += 4 + buffers[static_cast<std::size_t>(i)].size();
        }
        std::string all;
        all.reserve(total);
        for (const PRBBuffer& buffer : buffers) {
            put(all, static_cast<std::uint32_t>(buffer.size()));
            all += buffer;
        }
        benchmark::DoNotOptimize(all.data());
    }
    state.SetItemsProcessed(state.iterations() * kSamples);
}
BENCHMARK(passOf100000)->Unit(benchmark::kMillisecond);

} // namespace
