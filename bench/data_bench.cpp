// What a sample costs, for one method usage sample with three texts of 40 bytes and its counts:
//
//   buildAndStream  a new sample filled and streamed into a new buffer, beside the same fields
//                   set in a new protobuf message and serialised into a new string, and beside
//                   an encoder written out for exactly this record (ns)
//   readChecked     the bytes read the checked way, beside protobuf's parse (ns)
//   pass            100,000 samples into one block, each behind its length, beside as many single
//                   ones: into a new block, into the block of the pass before, and through one
//                   buffer each, which are joined at the end (ns a sample)
//
// The figures to look at are the counters. Without protobuf its columns are 0.
#include "bench/Turns.h"
#include "data/PRBBuffer.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBRecordArray.h"

#include <benchmark/benchmark.h>

#ifdef PRB_BENCH_PROTOBUF
#include "method_usage.pb.h"
#endif

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

#ifdef PRB_BENCH_PROTOBUF
void fill(prb::bench::MethodUsage& message, long long seed) {
    message.set_time(1700000000 + seed); // what a new sample has as well
    message.set_duration(0);
    message.set_thread_id(seed + 2);
    message.set_process_id(seed + 4);
    message.set_time_ms(seed + 314);
    message.set_contentions(seed + 304);
    message.set_contention_ms(seed + 305);
    message.set_waits(seed + 306);
    message.set_wait_ms(seed + 307);
    message.set_busy_samples(seed + 310);
    message.set_cycles(seed + 315);
    message.set_own_samples(seed + 321);
    message.set_callee_samples(seed + 322);
    message.set_class_name(kTexts[0].c_str());
    message.set_method_name(kTexts[1].c_str());
    message.set_signature(kTexts[2].c_str());
}
#endif

void single(long long seed) {
    PRBMethodUsageSample sample;
    fill(sample, seed);
    PRBBuffer buffer;
    sample.stream(buffer);
    benchmark::DoNotOptimize(buffer.data());
}

void byHand(long long seed) {
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

constexpr int kRepetitions = 1000;

double ratio(const std::vector<double>& ours, const std::vector<double>& theirs) {
    return theirs.empty() ? 0 : Turns::median(ours) / Turns::median(theirs);
}

void buildAndStream(benchmark::State& state) {
    Turns turns;
    std::vector<double> ours, streaming, hand, protobuf;
    PRBMethodUsageSample filled;
    fill(filled, 1);
    for (auto _ : state) {
        turns.time(ours, kRepetitions, single);
        turns.time(streaming, kRepetitions, [&](int) {
            PRBBuffer buffer;
            filled.stream(buffer);
            benchmark::DoNotOptimize(buffer.data());
        });
        turns.time(hand, kRepetitions, byHand);
#ifdef PRB_BENCH_PROTOBUF
        turns.time(protobuf, kRepetitions, [](int seed) {
            prb::bench::MethodUsage message;
            fill(message, seed);
            std::string out;
            message.SerializeToString(&out);
            benchmark::DoNotOptimize(out.data());
        });
#endif
    }
    state.counters["ours_ns"] = Turns::median(ours);
    state.counters["stream_ns"] = Turns::median(streaming);
    state.counters["hand_ns"] = Turns::median(hand);
    state.counters["protobuf_ns"] = Turns::median(protobuf);
    state.counters["ratio"] = ratio(ours, protobuf);
}
BENCHMARK(buildAndStream);

void readChecked(benchmark::State& state) {
    Turns turns;
    std::vector<double> ours, protobuf;
    PRBMethodUsageSample sample;
    fill(sample, 1);
    PRBBuffer buffer;
    sample.stream(buffer);
#ifdef PRB_BENCH_PROTOBUF
    prb::bench::MethodUsage message;
    fill(message, 1);
    const std::string bytes = message.SerializeAsString();
#endif
    for (auto _ : state) {
        turns.time(ours, kRepetitions, [&](int) {
            PRBWireError error;
            auto record =
                PRBTransportableData::buildFromBufferChecked(buffer.data(), buffer.size(), error);
            benchmark::DoNotOptimize(record.get());
        });
#ifdef PRB_BENCH_PROTOBUF
        turns.time(protobuf, kRepetitions, [&](int) {
            prb::bench::MethodUsage read;
            read.ParseFromString(bytes);
            benchmark::DoNotOptimize(&read);
        });
#endif
    }
    state.counters["ours_ns"] = Turns::median(ours);
    state.counters["protobuf_ns"] = Turns::median(protobuf);
    state.counters["ratio"] = ratio(ours, protobuf);
}
BENCHMARK(readChecked);

void pass(benchmark::State& state) {
    constexpr int kSamples = 100000;
    Turns turns;
    std::vector<double> singles, oneBlock, again, joined;
    PRBRecordArray kept;
    for (auto _ : state) {
        turns.time(singles, kSamples, single);
        turns.time(oneBlock, 1, [](int) {
            PRBRecordArray all;
            for (int i = 0; i < kSamples; ++i) {
                PRBMethodUsageSample sample;
                fill(sample, i);
                all.add(sample);
            }
            benchmark::DoNotOptimize(all.data());
        });
        turns.time(again, 1, [&kept](int) {
            kept.rewind();
            for (int i = 0; i < kSamples; ++i) {
                PRBMethodUsageSample sample;
                fill(sample, i);
                kept.add(sample);
            }
            benchmark::DoNotOptimize(kept.data());
        });
        turns.time(joined, 1, [](int) {
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
        });
    }
    for (auto* rounds : {&oneBlock, &again, &joined})
        for (double& round : *rounds) round /= kSamples;
    state.counters["single_ns"] = Turns::median(singles);
    state.counters["block_ns"] = Turns::median(oneBlock);
    state.counters["block_ratio"] = ratio(oneBlock, singles);
    state.counters["kept_ns"] = Turns::median(again);
    state.counters["kept_ratio"] = ratio(again, singles);
    state.counters["buffers_ns"] = Turns::median(joined);
    state.counters["buffers_ratio"] = ratio(joined, singles);
}
BENCHMARK(pass)->Unit(benchmark::kMillisecond);

} // namespace
