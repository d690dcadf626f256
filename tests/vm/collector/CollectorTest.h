// The fixture of the collector's tests: an agent that Java initialises and polls through the
// native methods, and a reader of what a poll returns that shares no code with its writer.
#ifndef PRB_TESTS_VM_COLLECTOR_COLLECTORTEST_H
#define PRB_TESTS_VM_COLLECTOR_COLLECTORTEST_H

#include "collector/PRBNatives.h"
#include "collector/PRBWorkloadCollector.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBProfilerCPUSampler.h"
#include "tests/vm/ScriptedVmTest.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#define NATIVE(javaClass, method) Java_com_tessel_prb_workanalysis_##javaClass##_##method

// One record of a poll.
struct Record {
    int encoding = -1;
    int dataType = -1;
    int sampleType = -1;
    std::vector<int> keys; // in the order of their fields
    std::map<int, long long> numbers;
    std::map<int, std::string> texts;
    bool whole = false; // ends with its last field

    bool has(int key) const { return numbers.count(key) + texts.count(key) != 0; }
    long long number(int key) const { return numbers.count(key) != 0 ? numbers.at(key) : -1; }
    std::string text(int key) const { return texts.count(key) != 0 ? texts.at(key) : "(none)"; }
};

class PollReader {
public:
    explicit PollReader(const std::vector<jbyte>& bytes) : bytes_(bytes) {}

    // Every record; a poll that is not framed to its last byte fails the test.
    std::vector<Record> records() {
        std::vector<Record> all;
        while (at_ < bytes_.size()) {
            const auto length = static_cast<std::size_t>(number(4));
            if (length > bytes_.size() - at_) {
                ADD_FAILURE() << "a record of " << length << " bytes reaches past the end";
                return all;
            }
            all.push_back(record(at_ + length));
        }
        return all;
    }

private:
    Record record(std::size_t end) {
        Record made;
        made.encoding = static_cast<int>(number(2));
        made.dataType = static_cast<int>(number(2));
        made.sampleType = static_cast<int>(number(4));
        while (at_ < end) {
            const long long kind = number(4);
            const int key = static_cast<int>(number(4));
            made.keys.push_back(key);
            if (kind == 1) {
                made.numbers[key] = number(8);
            } else {
                const auto length = static_cast<std::size_t>(number(4));
                for (std::size_t i = 0; i < length; ++i)
                    made.texts[key] += static_cast<char>(bytes_.at(at_ + i));
                at_ += length;
            }
        }
        made.whole = at_ == end;
        EXPECT_TRUE(made.whole);
        at_ = end;
        return made;
    }
    long long number(int width) {
        unsigned long long value = 0;
        for (int i = 0; i < width; ++i)
            value = value << 8 | static_cast<unsigned char>(bytes_.at(at_++));
        return static_cast<long long>(value);
    }

    const std::vector<jbyte>& bytes_;
    std::size_t at_ = 0;
};

class CollectorTest : public scripted::ScriptedVmTest {
public:
    using Texts = scripted::Texts;

    CollectorTest() : java(scripted::makeCollector(vm)) {
        vm.setSystemThreads(scripted::SystemThreads::kRecord);
        wallClock = {1000000, 0};
        PRBClock::source.store([] { return wallClock; });
    }
    ~CollectorTest() override {
        if (samplerRuns_) stopSampler();
        PRBClock::source.store(nullptr);
    }

    // ---- the Java side ----
    jlong init(const std::optional<std::string>& options = std::nullopt) {
        EXPECT_EQ(JNI_OnLoad(vm.javaVM(), nullptr), 0x10002);
        handle = 0;
        vm.callNative([&] {
            handle = NATIVE(Profiler, InitProfiler)(vm.env(), nullptr, text(options),
                                                    vm.newLocalRef(vm.mainThread(), java.object));
        });
        return handle;
    }
    jlong start(int type, const std::optional<std::string>& classes = "*",
                const std::optional<std::string>& methods = "*", int interval = 20000,
                int frequency = 0) {
        jlong rc = -1;
        vm.callNative([&] {
            rc = NATIVE(Profiler, handleInitiateCollection)(
                vm.env(), nullptr, handle, type, frequency, interval, text(classes), text(methods));
        });
        return rc;
    }
    jlong stop() {
        jlong rc = -1;
        vm.callNative(
            [&] { rc = NATIVE(Profiler, handleStopCollection)(vm.env(), nullptr, handle); });
        return rc;
    }
    // The bytes of a poll; nothing when it answered null.
    std::optional<std::vector<jbyte>> pollBytes(scripted::ScriptedObject* request = nullptr,
                                                int extra = 0) {
        std::optional<std::vector<jbyte>> bytes;
        vm.callNative([&] {
            jobject asked = request == nullptr ? nullptr : vm.newLocalRef(vm.mainThread(), request);
            jbyteArray array =
                NATIVE(Profiler, getProfilerData)(vm.env(), nullptr, handle, extra, asked);
            if (array != nullptr) bytes = vm.resolve(array)->bytes;
        });
        return bytes;
    }
    std::vector<Record> poll(scripted::ScriptedObject* request = nullptr) {
        const auto bytes = pollBytes(request);
        return bytes.has_value() ? PollReader(*bytes).records() : std::vector<Record>{};
    }
    std::vector<Record> pollOf(int sampleType, scripted::ScriptedObject* request = nullptr) {
        std::vector<Record> found = poll(request);
        std::erase_if(found, [&](const Record& r) { return r.sampleType != sampleType; });
        return found;
    }
    static std::vector<int> typesOf(const std::vector<Record>& records) {
        std::vector<int> types;
        for (const Record& r : records) types.push_back(r.sampleType);
        return types;
    }

    jstring text(const std::optional<std::string>& value) {
        return value.has_value() ? vm.local<jstring>(vm.currentThread(), &vm.newString(*value))
                                 : nullptr;
    }

    // ---- the agent ----
    PRBWorkloadCollector& collector() { return *PRBWorkloadCollector::fromHandle(handle); }
    static PRBMonitorGlobal& monitor() { return *PRBMonitorGlobal::getMonitorGlobal(); }
    static PRBProfilerCPUSampler& sampler() { return *monitor().getCPUSampler(); }

    // Lets the VM give the sampler a thread of its own. REQUIRES: before init().
    void runSamplerThread() {
        vm.setSystemThreads(scripted::SystemThreads::kRun);
        samplerRuns_ = true;
    }
    // Waits until the sampler's thread has noticed what it was told.
    void waitForSamplerState(int idle) {
        for (int i = 0; i < 20000 && sampler().getCurrentState() != idle; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        ASSERT_EQ(sampler().getCurrentState(), idle);
    }
    // One cycle, as the sampler's thread runs it once per interval.
    void runCycle() {
        sampler().interruptSampler();
        sampler().runCycle();
        sampler().resumeSampler(0);
    }
    void stopSampler() {
        if (PRBMonitorGlobal::getMonitorGlobal() != nullptr) sampler().deactivateSampler();
    }

    // A Java thread that runs and is to be sampled at the frame.
    scripted::ScriptedThread& startWorker(const std::string& name, jmethodID method) {
        scripted::ScriptedThread& worker = vm.startThread({.name = name});
        worker.setFrames({{1, method}});
        return worker;
    }

    static void advanceClock(long ms) {
        const long long us = wallClock.tv_usec + ms * 1000LL;
        wallClock.tv_sec += static_cast<time_t>(us / 1000000);
        wallClock.tv_usec = static_cast<suseconds_t>(us % 1000000);
    }

    scripted::JavaCollector java;
    jlong handle = 0;
    static inline timeval wallClock{};

private:
    bool samplerRuns_ = false;
};

#endif
