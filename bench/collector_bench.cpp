// What the collector's passes cost, each beside its floor in the same run where it has one:
//
//   heapDumpUnknown   a level-0 dump of 5 million objects that the agent does not know (ns an
//                     object beyond what the VM below needs; bytes of agent memory an object)
//   heapDumpKnown     the same dump once more, all of its objects known (ns an object)
//   references        a level-1 dump searched for 1, 4 and 10,000 targets (GB a second)
//   poll              1,000 threads with 200 method records each, beside the same samples with
//                     nothing around them: filled and streamed into a buffer each, into one
//                     block, and streamed only
//
// The figures to look at are the counters.
#include "collector/PRBSampleList.h"
#include "collector/PRBWorkloadCollector.h"
#include "collector/ReferenceFinderHeapDumpHandler.h"
#include "core/PRBContext.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBMonitorHashTable.h"
#include "data/PRBBuffer.h"
#include "data/PRBMethodUsageSample.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBMethodFrequency.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <pthread.h>
#include <random>
#include <string>
#include <time.h>
#include <vector>

namespace {

double threadCpu() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// Processor time of this thread, which does all the work: other programs on the machine then
// disturb the figures less.
template <class F> double nanoseconds(const F& work) {
    const double start = threadCpu();
    work();
    return threadCpu() - start;
}

template <class Id> Id asId(std::uintptr_t number) { return reinterpret_cast<Id>(number); }

// ---- the least of a VM ----

constexpr std::size_t kObjects = 5000000;
constexpr std::size_t kClasses = 500;
constexpr std::uintptr_t kFirstObject = 0x10000000;
constexpr std::uintptr_t kObjectStride = 24; // bytes from one object to the next
constexpr std::uintptr_t kFirstClass = 0x1000;
constexpr int kMethodsOfAClass = 20;

jobjectID objectId(std::size_t i) { return asId<jobjectID>(kFirstObject + i * kObjectStride); }
jobjectID classId(std::size_t i) { return asId<jobjectID>(kFirstClass + i * 8); }
jmethodID methodId(std::size_t cls, int m) {
    return asId<jmethodID>(0x8000000 + (cls * kMethodsOfAClass + static_cast<std::size_t>(m)) * 8);
}
// Objects lie in runs of one class, as a collected heap has them.
std::size_t classOf(std::size_t object) { return object / 4 * 2654435761U % kClasses; }

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
void destroyMonitor(JVMPI_RawMonitor) {}
void nothing() {}

std::vector<void*> storage; // a word for each thread; environments are its indices
void setStorage(JNIEnv* env, void* value) {
    const auto at = reinterpret_cast<std::uintptr_t>(env);
    if (at < storage.size()) storage[at] = value;
}
void* getStorage(JNIEnv* env) {
    const auto at = reinterpret_cast<std::uintptr_t>(env);
    return at < storage.size() ? storage[at] : nullptr;
}

void (*notify)(JVMPI_Event*) = PRBMonitorGlobal::notify;
jint requestEvent(jint type, void* argument) {
    if (type != JVMPI_EVENT_OBJECT_ALLOC) return JVMPI_NOT_AVAILABLE;
    const std::size_t i =
        (reinterpret_cast<std::uintptr_t>(argument) - kFirstObject) / kObjectStride;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_OBJECT_ALLOC | JVMPI_REQUESTED_EVENT;
    event.u.obj_alloc.arena_id = 1;
    event.u.obj_alloc.class_id = classId(classOf(i));
    event.u.obj_alloc.size = static_cast<jint>(kObjectStride);
    event.u.obj_alloc.obj_id = static_cast<jobjectID>(argument);
    notify(&event);
    return JVMPI_SUCCESS;
}

JVMPI_Interface& vm() {
    static JVMPI_Interface table = [] {
        JVMPI_Interface t{};
        t.version = JVMPI_VERSION_1;
        t.RawMonitorCreate = createMonitor;
        t.RawMonitorEnter = enterMonitor;
        t.RawMonitorExit = exitMonitor;
        t.RawMonitorDestroy = destroyMonitor;
        t.SetThreadLocalStorage = setStorage;
        t.GetThreadLocalStorage = getStorage;
        t.RequestEvent = requestEvent;
        t.DisableGC = nothing;
        t.EnableGC = nothing;
        return t;
    }();
    return table;
}

// An agent without a sampler that knows all classes and reports each of them.
PRBWorkloadCollector& agent() {
    static PRBWorkloadCollector& made = []() -> PRBWorkloadCollector& {
        PRBMonitorGlobal* monitor = PRBMonitorGlobal::getMonitorGlobal(&vm(), nullptr, nullptr);
        auto& collector = *PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 1);
        collector.setJVMPIInterface(&vm());
        monitor->setPRBWorkloadCollector(&collector);
        collector.processInitiateCollection(nullptr, 0x600, 0, 5, "*", "*");
        for (std::size_t c = 0; c < kClasses; ++c) {
            std::string name = "com/shop/orders/Class" + std::to_string(c);
            std::vector<JVMPI_Method> methods(kMethodsOfAClass);
            std::vector<std::string> texts(kMethodsOfAClass);
            char signature[] = "(Ljava/lang/String;I)V", source[] = "Source.java";
            for (int m = 0; m < kMethodsOfAClass; ++m) {
                texts[static_cast<std::size_t>(m)] = "computePriceOf" + std::to_string(m);
                JVMPI_Method& method = methods[static_cast<std::size_t>(m)];
                method.method_name = texts[static_cast<std::size_t>(m)].data();
                method.method_signature = signature;
                method.method_id = methodId(c, m);
            }
            JVMPI_Event load{};
            load.event_type = JVMPI_EVENT_CLASS_LOAD;
            load.u.class_load.class_name = name.data();
            load.u.class_load.source_name = source;
            load.u.class_load.num_methods = kMethodsOfAClass;
            load.u.class_load.methods = methods.data();
            load.u.class_load.class_id = classId(c);
            PRBMonitorGlobal::notify(&load);
        }
        return collector;
    }();
    return made;
}

// ---- level 0 ----

const std::vector<char>& levelZero() {
    static const std::vector<char> dump = [] {
        std::vector<char> bytes(kObjects * 5);
        for (std::size_t i = 0; i < kObjects; ++i) {
            const auto id =
                static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(objectId(i)));
            std::memcpy(&bytes[i * 5 + 1], &id, sizeof id);
        }
        return bytes;
    }();
    return dump;
}

void deliver(PRBHeapDumpHandler& handler, const std::vector<char>& dump) {
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_HEAP_DUMP | JVMPI_REQUESTED_EVENT;
    event.u.heap_dump.begin = const_cast<char*>(dump.data());
    event.u.heap_dump.end = const_cast<char*>(dump.data()) + dump.size();
    handler.handleHeapDump(&event);
}

// What a collection does with the records of objects.
void forgetObjects() {
    PRBMonitorHashTable& objects = *PRBContext::getObjectTable();
    objects.detachAll(sizeof(PRBJavaObjectAllocated));
    while (objects.reclaim(100000)) {
    }
}

// What the VM above takes for its answers, with nobody to hear them.
double vmAlone() {
    return nanoseconds([] {
        notify = [](JVMPI_Event* event) { benchmark::DoNotOptimize(event->u.obj_alloc.obj_id); };
        for (std::size_t i = 0; i < kObjects; ++i)
            vm().RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, objectId(i));
        notify = PRBMonitorGlobal::notify;
    });
}

void heapDumpUnknown(benchmark::State& state) {
    PRBWorkloadCollector& collector = agent();
    const std::vector<char>& dump = levelZero();
    double whole = 1e18, alone = 1e18;
    std::uint32_t used = 0;
    for (auto _ : state) {
        forgetObjects();
        const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
        const double ns = nanoseconds([&] { deliver(collector, dump); });
        used = PRBMemoryManager::getCurrentAllocation() - before;
        if (PRBContext::getObjectTable()->entries() != kObjects)
            return state.SkipWithError("not every object is known");
        whole = std::min(whole, ns);
        alone = std::min(alone, vmAlone());
        state.SetIterationTime(ns * 1e-9);
    }
    const auto high = static_cast<double>(PRBMemoryManager::getHighWaterMark());
    state.counters["agent_ns"] = (whole - alone) / kObjects;
    state.counters["vm_ns"] = alone / kObjects;
    state.counters["bytes"] = static_cast<double>(used) / kObjects;
    state.counters["peak_bytes"] = high / kObjects; // of everything, growing tables included
}
BENCHMARK(heapDumpUnknown)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

void heapDumpKnown(benchmark::State& state) {
    PRBWorkloadCollector& collector = agent();
    const std::vector<char>& dump = levelZero();
    deliver(collector, dump);
    double best = 1e18;
    for (auto _ : state) {
        const double ns = nanoseconds([&] { deliver(collector, dump); });
        best = std::min(best, ns);
        state.SetIterationTime(ns * 1e-9);
    }
    if (PRBContext::getObjectTable()->entries() != kObjects)
        return state.SkipWithError("objects have left the table");
    state.counters["agent_ns"] = best / kObjects;
    forgetObjects();
}
BENCHMARK(heapDumpKnown)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

// ---- level 1 ----

// 200 MB of instances with up to eight references, and now and then an array.
const std::vector<char>& levelOne() {
    static const std::vector<char> dump = [] {
        std::vector<char> bytes;
        std::mt19937 random(7);
        const auto u4 = [&](std::uint32_t value) {
            const std::uint32_t big = __builtin_bswap32(value);
            const auto* raw = reinterpret_cast<const char*>(&big);
            bytes.insert(bytes.end(), raw, raw + sizeof big);
        };
        const auto id = [&](std::size_t object) {
            const auto word =
                static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(objectId(object)));
            const auto* raw = reinterpret_cast<const char*>(&word);
            bytes.insert(bytes.end(), raw, raw + sizeof word);
        };
        constexpr std::size_t kSize = 200000000;
        bytes.reserve(kSize + 1000);
        for (std::size_t i = 0; bytes.size() < kSize; ++i) {
            const bool isArray = i % 16 == 0;
            const unsigned references = isArray ? 64 : static_cast<unsigned>(random() % 9);
            bytes.push_back(isArray ? JVMPI_GC_OBJ_ARRAY_DUMP : JVMPI_GC_INSTANCE_DUMP);
            id(i % kObjects);
            u4(isArray ? references : 1); // the count of an array; an instance's class
            if (isArray)
                u4(1);
            else
                u4(references * 4);
            for (unsigned r = 0; r < references; ++r) id(random() % kObjects);
        }
        return bytes;
    }();
    return dump;
}

void references(benchmark::State& state) {
    PRBWorkloadCollector& collector = agent();
    const std::vector<char>& dump = levelOne();
    // Targets that nothing refers to: those found would be a matter of the list of results.
    std::vector<jobjectID> targets;
    for (int i = 0; i < state.range(0); ++i)
        targets.push_back(asId<jobjectID>(0xC0000000U + static_cast<std::uintptr_t>(i) * 24));
    double best = 1e18;
    for (auto _ : state) {
        PRBSlist results;
        PRBWorkloadCollector::ReferenceFinderHeapDumpHandler finder(
            nullptr, &collector, &results, targets.data(), static_cast<int>(targets.size()));
        const double ns = nanoseconds([&] { deliver(finder, dump); });
        if (results.entries() != 0) return state.SkipWithError("found what is not there");
        best = std::min(best, ns);
        state.SetIterationTime(ns * 1e-9);
    }
    state.counters["GB_per_s"] = static_cast<double>(dump.size()) / best;
}
BENCHMARK(references)
    ->Arg(1)
    ->Arg(4)
    ->Arg(10000)
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

// ---- a poll ----

constexpr std::size_t kThreads = 1000;
constexpr std::size_t kRecordsOfAThread = 200;

long long wallMs = 1000000;
timeval fakeClock() {
    return {static_cast<time_t>(wallMs / 1000), static_cast<suseconds_t>(wallMs % 1000 * 1000)};
}

// Of JNI only what a poll without a request needs: an array of its own.
std::vector<jbyte> javaArray;
JNIEnv* environment() {
    static JNINativeInterface_ table{};
    table.ExceptionCheck = [](JNIEnv*) -> jboolean { return JNI_FALSE; };
    table.NewByteArray = [](JNIEnv*, jsize size) {
        javaArray.resize(static_cast<std::size_t>(size));
        return reinterpret_cast<jbyteArray>(&javaArray);
    };
    table.SetByteArrayRegion = [](JNIEnv*, jbyteArray, jsize from, jsize size, const jbyte* bytes) {
        std::memcpy(javaArray.data() + from, bytes, static_cast<std::size_t>(size));
    };
    static JNIEnv_ env{&table};
    return &env;
}

std::vector<PRBJavaThread*> startThreads() {
    storage.assign(kThreads + 1, nullptr);
    for (std::size_t t = 1; t <= kThreads; ++t) {
        std::string name = "worker-" + std::to_string(t), group = "main", parent = "system";
        JVMPI_Event start{};
        start.event_type = JVMPI_EVENT_THREAD_START;
        start.u.thread_start.thread_name = name.data();
        start.u.thread_start.group_name = group.data();
        start.u.thread_start.parent_name = parent.data();
        start.u.thread_start.thread_id = asId<jobjectID>(0x700000 + t * 8);
        start.u.thread_start.thread_env_id = asId<JNIEnv*>(t);
        PRBMonitorGlobal::notify(&start);
    }
    std::vector<PRBJavaThread*> threads;
    for (std::size_t t = 1; t <= kThreads; ++t)
        threads.push_back(static_cast<PRBJavaThread*>(storage[t]));
    return threads;
}

void charge(const std::vector<PRBJavaThread*>& threads) {
    const long long cycle = PRBContext::getSimulatedSamplingDivisor();
    for (std::size_t t = 0; t < threads.size(); ++t)
        for (std::size_t r = 0; r < kRecordsOfAThread; ++r)
            threads[t]
                ->findMethodFrequency(methodId((t + r) % kClasses, static_cast<int>(r % 20)))
                ->sampleCPU(static_cast<int>(r % 2), cycle * 3, 0);
}

// One method usage sample as a poll sends it.
void fill(PRBMethodUsageSample& sample, std::size_t i) {
    sample.saveNumericData(2, static_cast<long long>(i));
    sample.saveNumericData(4, 4711);
    sample.saveStringData(10, "com/shop/orders/Class123");
    sample.saveStringData(11, "computePriceOf12");
    sample.saveStringData(320, "(Ljava/lang/String;I)V");
    sample.saveNumericData(314, wallMs);
    sample.saveNumericData(321, 3);
    sample.saveNumericData(322, 0);
    sample.saveNumericData(310, 5);
    sample.saveNumericData(315, 200);
}

void poll(benchmark::State& state) {
    PRBWorkloadCollector& collector = agent();
    PRBClock::source.store(fakeClock);
    const std::vector<PRBJavaThread*> threads = startThreads();
    if (std::count(threads.begin(), threads.end(), nullptr) != 0)
        return state.SkipWithError("the threads are not known");
    const std::size_t samples = threads.size() * kRecordsOfAThread;
    double whole = 1e18, single = 1e18, filling = 1e18, streaming = 1e18;
    PRBSampleList::Kept kept;
    std::size_t bytes = 0;
    collector.sendBackData(environment(), 0, nullptr);
    for (auto _ : state) {
        charge(threads);
        wallMs += 1000;
        const double ns = nanoseconds([&] { collector.sendBackData(environment(), 0, nullptr); });
        bytes = javaArray.size();
        if (bytes < samples * 200) return state.SkipWithError("samples are missing");
        const double apart = nanoseconds([&] {
            for (std::size_t i = 0; i < samples; ++i) {
                PRBMethodUsageSample sample;
                fill(sample, i);
                PRBBuffer buffer;
                sample.stream(buffer);
                benchmark::DoNotOptimize(buffer.data());
            }
        });
        const double built = nanoseconds([&] {
            PRBSampleList list(kept);
            for (std::size_t i = 0; i < samples; ++i) {
                PRBMethodUsageSample sample;
                fill(sample, i);
                list.save(sample);
            }
        });
        PRBMethodUsageSample sample;
        fill(sample, 1);
        const double streamed = nanoseconds([&] {
            PRBSampleList list(kept);
            for (std::size_t i = 0; i < samples; ++i) list.save(sample);
        });
        whole = std::min(whole, ns);
        single = std::min(single, apart);
        filling = std::min(filling, built);
        streaming = std::min(streaming, streamed);
        state.SetIterationTime(ns * 1e-9);
    }
    PRBClock::source.store(nullptr);
    state.counters["ms"] = whole * 1e-6;
    state.counters["x_singles"] = whole / single;
    state.counters["x_filled_and_streamed"] = whole / filling;
    state.counters["x_streamed"] = whole / streaming;
    state.counters["sample_ns"] = whole / static_cast<double>(samples);
    state.counters["MB"] = static_cast<double>(bytes) * 1e-6;
}
BENCHMARK(poll)->UseManualTime()->Iterations(15)->Unit(benchmark::kMillisecond);

} // namespace
