#include "bridge/BridgeLink.h"

#include <cstring>
#include <mutex>

#include <jvmti.h>

#include "bridge/AllocationEvents.h"
#include "bridge/ClassEvents.h"
#include "bridge/Context.h"
#include "bridge/ExactMethods.h"
#include "bridge/HeapDump.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectIds.h"
#include "bridge/RawMonitor.h"
#include "bridge/Report.h"
#include "bridge/SampleSignal.h"
#include "bridge/ThreadTable.h"

namespace bridge {

const char kBridgeVersion[] = "1.0.0";

namespace {

using Counter = std::atomic<std::uint64_t> SamplerCounters::*;

// Either a counter of the sampler, or one of the walks' errors, or a function.
struct CounterRow {
    const char* name;
    Counter counter;
    int error; // 1 and up: SamplerCounters::errors[error]; 0: every error together
    uint64_t (*read)();
};

constexpr CounterRow sampled(const char* name, Counter counter) {
    return {name, counter, 0, nullptr};
}
constexpr CounterRow failed(const char* name, int error) { return {name, nullptr, error, nullptr}; }
constexpr CounterRow read(const char* name, uint64_t (*function)()) {
    return {name, nullptr, 0, function};
}

// Order and names are what a capture carries: new rows go to the end.
constexpr CounterRow kCounters[] = {
    sampled("cycles", &SamplerCounters::cycles),
    sampled("samplesAsked", &SamplerCounters::signals),
    sampled("samplesTaken", &SamplerCounters::samples),
    sampled("tracesTaken", &SamplerCounters::traces),
    failed("tracesFailed", 0),
    sampled("tracesKept", &SamplerCounters::keptTraces),
    sampled("chargedBlocked", &SamplerCounters::chargedBlocked),
    sampled("samplesDropped", &SamplerCounters::droppedSamples),
    sampled("timeouts", &SamplerCounters::timeouts),
    sampled("signalsRefused", &SamplerCounters::notSent),
    sampled("watchdogReleases", &SamplerCounters::longStops),
    sampled("stopNanos", &SamplerCounters::stopNanos),
    failed("walkNoClassLoad", 1),
    failed("walkCollecting", 2),
    failed("walkUnknownNotJava", 3),
    failed("walkNotWalkableNotJava", 4),
    failed("walkUnknownJava", 5),
    failed("walkNotWalkableJava", 6),
    read("monitorsBorrowed", [] { return RawMonitor::borrowed(); }),
    read("threads", [] { return uint64_t{threads().size()}; }),
    read("classes", [] { return uint64_t{classes().classes()}; }),
    read("methods", [] { return uint64_t{classes().methods()}; }),
    read("classBytes", [] { return uint64_t{classes().bytes()}; }),
    read("objectIds", [] { return uint64_t{objectIds().size()}; }),
    read("objectsUntracked", [] { return AllocationEvents::untracked(); }),
    read("weakReferences", [] { return AllocationEvents::references(); }),
    sampled("tracesLeft", &SamplerCounters::leftTraces),
};

uint64_t valueOf(const CounterRow& row) {
    if (row.read) return row.read();
    const StackSampler* sampler = context().sampler;
    if (!sampler) return 0;
    const SamplerCounters& counters = sampler->counters();
    if (row.counter) return (counters.*row.counter).load(std::memory_order_relaxed);
    if (row.error > 0) return counters.errors[row.error].load(std::memory_order_relaxed);
    uint64_t sum = 0;
    for (const auto& error : counters.errors) sum += error.load(std::memory_order_relaxed);
    return sum;
}

std::mutex limitsMutex;
std::string& limits() {
    static std::string& text = *new std::string;
    return text;
}
std::string& collectionLimit() {
    static std::string& text = *new std::string;
    return text;
}

void addText(std::string& list, const std::string& text) {
    if (!list.empty() && !text.empty()) list += "; ";
    list += text;
}

std::string vmProperty(const char* name) {
    JvmtiText value(context().jvmti);
    if (context().jvmti->GetSystemProperty(name, value.out()) != JVMTI_ERROR_NONE) return {};
    return value.get() ? value.get() : "";
}

std::string joinedCounterNames() {
    std::string names;
    for (const CounterRow& row : kCounters) {
        if (!names.empty()) names += '+';
        names += row.name;
    }
    return names;
}

std::string currentLimits() {
    std::string lost;
    if (context().sampler && context().sampler->handlerLost(lost)) noteLimit(lost);
    std::lock_guard<std::mutex> guard(limitsMutex);
    std::string all = collectionLimit();
    addText(all, limits());
    return all;
}

// A kind of data and the events without which it cannot be had.
struct DataRow {
    const char* name;
    jint events[5]; // 0: no more
};
constexpr DataRow kData[] = {
    {"threads", {JVMPI_EVENT_THREAD_START, JVMPI_EVENT_THREAD_END}},
    {"methods", {JVMPI_EVENT_CLASS_LOAD}},
    {"contention",
     {JVMPI_EVENT_MONITOR_CONTENDED_ENTER, JVMPI_EVENT_MONITOR_CONTENDED_ENTERED,
      JVMPI_EVENT_MONITOR_CONTENDED_EXIT, JVMPI_EVENT_MONITOR_WAIT, JVMPI_EVENT_MONITOR_WAITED}},
    {"heap", {JVMPI_EVENT_HEAP_DUMP, JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH}},
    {"gc", {JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH}},
    // Without OBJECT_FREE too: not every collector tells.
    {"alloc", {JVMPI_EVENT_OBJECT_ALLOC, JVMPI_EVENT_ARENA_NEW, JVMPI_EVENT_GC_FINISH}},
    {"errors", {}},
    {"self", {}},
};

std::string availableData() {
    std::string names;
    for (const DataRow& row : kData) {
        bool whole = true;
        for (const jint type : row.events) whole = whole && (type == 0 || events().supports(type));
        if (!whole) continue;
        if (!names.empty()) names += '+';
        names += row.name;
    }
    return names;
}

struct FactRow {
    const char* key;
    std::string (*read)();
};

const FactRow kFacts[] = {
    {"version", [] { return std::string(kBridgeVersion); }},
    {"counters", joinedCounterNames},
    {"available", availableData},
    {"vm", [] { return vmProperty("java.vm.name"); }},
    {"vmVersion", [] { return vmProperty("java.vm.version"); }},
    {"wordBits", [] { return std::to_string(sizeof(void*) * 8); }},
    {"signal", [] { return std::to_string(SampleSignal::number()); }},
    {"fork", [] { return std::string(context().options.protectForks() ? "protect" : "plain"); }},
    {"limits", currentLimits},
    {"nanoseconds", [] { return std::string(ExactMethods::isOn() ? "1" : "0"); }},
};

jlongArray JNICALL counters(JNIEnv* jni, jclass) try {
    HeapDump::sweep(jni);
    const std::vector<jlong> values = counterValues();
    const auto count = static_cast<jsize>(values.size());
    jlongArray array = jni->NewLongArray(count);
    if (array) jni->SetLongArrayRegion(array, 0, count, values.data());
    return array;
} catch (...) {
    return nullptr;
}

jobjectArray JNICALL facts(JNIEnv* jni, jclass) try {
    const std::vector<std::string> texts = bridgeFacts();
    LocalRef<jclass> stringClass(jni, jni->FindClass("java/lang/String"));
    if (!stringClass) return nullptr;
    const auto count = static_cast<jsize>(texts.size());
    jobjectArray array = jni->NewObjectArray(count, stringClass.get(), nullptr);
    for (jsize i = 0; array && i < count; i++) {
        LocalRef<jstring> text(jni, jni->NewStringUTF(texts[static_cast<size_t>(i)].c_str()));
        if (!text) return nullptr;
        jni->SetObjectArrayElement(array, i, text.get());
    }
    return array;
} catch (...) {
    return nullptr;
}

// A line that the Java side has written to standard error.
void JNICALL said(JNIEnv* jni, jclass, jstring line) {
    const char* text = line ? jni->GetStringUTFChars(line, nullptr) : nullptr;
    if (!text) return;
    tellListener(text, static_cast<unsigned>(strlen(text)));
    jni->ReleaseStringUTFChars(line, text);
}

struct NativeRow {
    const char* name;
    void* function;
};
const NativeRow kNatives[] = {{"counters", reinterpret_cast<void*>(counters)},
                              {"facts", reinterpret_cast<void*>(facts)},
                              {"said", reinterpret_cast<void*>(said)}};

} // namespace

void* bridgeNative(const std::string& method) {
    for (const NativeRow& row : kNatives)
        if (method == row.name) return row.function;
    return nullptr;
}

std::vector<std::string> counterNames() {
    std::vector<std::string> names;
    for (const CounterRow& row : kCounters) names.emplace_back(row.name);
    return names;
}

std::vector<jlong> counterValues() {
    std::vector<jlong> values;
    for (const CounterRow& row : kCounters) values.push_back(static_cast<jlong>(valueOf(row)));
    return values;
}

void noteLimit(const std::string& text) {
    std::lock_guard<std::mutex> guard(limitsMutex);
    // A second collection of the same JVM has the same limits.
    if (limits().find(text) == std::string::npos) addText(limits(), text);
}

void setCollectionLimit(const std::string& text) {
    std::lock_guard<std::mutex> guard(limitsMutex);
    collectionLimit() = text;
}

std::vector<std::string> bridgeFacts() {
    std::vector<std::string> facts;
    for (const FactRow& row : kFacts) facts.push_back(std::string(row.key) + "=" + row.read());
    if (ExactMethods::isOn())
        for (const std::string& line : ExactMethods::lines()) facts.push_back("exact=" + line);
    return facts;
}

} // namespace bridge
