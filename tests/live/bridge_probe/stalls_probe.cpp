// Stands in for the profiling agent, for the events in which the program stands still:
// collections and monitors.
#include <algorithm>
#include <atomic>
#include <ctime>
#include <map>
#include <mutex>
#include <string>

#include "tests/live/bridge_probe/Probe.h"

namespace probe {
namespace {

// ---- Collections ----------------------------------------------------------------------------

// Taken in GC_START, given back in GC_FINISH, and taken by the threads that look things up.
JVMPI_RawMonitor outer = nullptr;
JVMPI_RawMonitor inner = nullptr;
// A collection has both monitors. It may have borrowed them from a thread that is stuck in the VM;
// no thread ever runs under them meanwhile.
std::atomic<bool> collecting{false};
std::atomic<jlong> starts{0};
std::atomic<jlong> finishes{0};
std::atomic<jlong> lookups{0};
std::atomic<jlong> lastUsed{-1};
std::atomic<jlong> lastTotal{-1};
std::atomic<jlong> freeAtStart{-1};
std::atomic<bool> sizesKnown{true};

void checkEnvironment(JNIEnv* env) {
    check(env != nullptr, "a collection's event without an environment");
    check(self() == nullptr, "a collection's event on a thread with JNI");
    check(env->FindClass("java/lang/String") == nullptr, "a class in a collection");
    check(env->GetVersion() == 0, "a version in a collection");
    check(!env->ExceptionCheck(), "an exception in a collection");
    check(env->CallStaticIntMethod(nullptr, nullptr) == 0, "an int in a collection");
    const jdouble number = env->CallStaticDoubleMethod(nullptr, nullptr);
    check(number >= 0 && number <= 0, "a double in a collection");
    const jlong free = env->CallStaticLongMethod(nullptr, nullptr);
    check(free == env->CallStaticLongMethodA(nullptr, nullptr, nullptr), "two answers");
    check(sizesKnown ? free >= 0 : free == -1, "%lld bytes are free", static_cast<long long>(free));
}

void onCollectionStart(const JVMPI_Event& event) {
    checkEnvironment(event.env_id);
    jvmpi->RawMonitorEnter(outer);
    jvmpi->RawMonitorEnter(inner);
    jvmpi->RawMonitorEnter(outer);
    jvmpi->RawMonitorExit(outer);
    check(!collecting.exchange(true), "a start inside a collection");
    freeAtStart = event.env_id->CallStaticLongMethod(nullptr, nullptr);
    starts++;
}

void onCollectionFinish(const JVMPI_Event& event) {
    checkEnvironment(event.env_id);
    const auto& info = event.u.gc_info;
    lastUsed = info.used_object_space;
    lastTotal = info.total_object_space;
    if (sizesKnown) {
        check(info.used_object_space > 0 && info.used_object_space <= info.total_object_space,
              "%lld of %lld bytes are used", static_cast<long long>(info.used_object_space),
              static_cast<long long>(info.total_object_space));
        check(event.env_id->CallStaticLongMethod(nullptr, nullptr) ==
                  info.total_object_space - info.used_object_space,
              "free bytes at the finish");
    } else {
        check(info.used_object_space == -1 && info.total_object_space == -1,
              "sizes although they are not known");
    }
    check(collecting.exchange(false), "a finish without a start");
    finishes++;
    jvmpi->RawMonitorExit(inner);
    jvmpi->RawMonitorExit(outer);
}

jlong nowMs() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<jlong>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// What an agent does at worst: it asks the VM while it holds what a collection wants.
void lookUp(JNIEnv* jni, jobject mirror, jlong milliseconds) {
    const jobjectID id = jvmpi->jobject2jobjectID(mirror);
    const jlong end = nowMs() + milliseconds;
    while (nowMs() < end) {
        jvmpi->RawMonitorEnter(outer);
        check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, id) == JVMPI_SUCCESS, "no class");
        jobject text = jni->NewStringUTF("asked for under a monitor");
        jvmpi->RawMonitorEnter(inner);
        for (int i = 0; i < 20; i++) {
            jobject other = jni->NewLocalRef(text);
            jni->DeleteLocalRef(other);
            check(jvmpi->jobject2jobjectID(mirror) == id, "another id");
        }
        // This is agent code: no collection can be under way that has the monitors.
        check(!collecting, "a thread runs under the monitors of a collection");
        jvmpi->RawMonitorExit(inner);
        jni->DeleteLocalRef(text);
        jvmpi->RawMonitorExit(outer);
        lookups++;
    }
}

// ---- Monitors -------------------------------------------------------------------------------

struct Seen {
    jlong times = 0;
    JNIEnv* env = nullptr;
    jlong timeout = -1;
    std::string method; // at the top of the stack
    std::string className;
    jint isArray = -1;
    jint answered = JVMPI_FAIL; // of the request of the object
};
std::mutex seenMutex;
auto& seen = *new std::map<std::pair<jint, jobjectID>, Seen>;
auto& methodNames = *new std::map<jmethodID, std::string>;
thread_local Seen* asking = nullptr;
thread_local std::string* classNameAsked = nullptr;

void onAllocation(const JVMPI_Event& event) {
    check(asking != nullptr, "an object that was not asked for");
    if (!asking) return;
    check(event.env_id == self(), "an answer for another thread");
    check(event.u.obj_alloc.size > 0, "an object of %d bytes", event.u.obj_alloc.size);
    asking->isArray = event.u.obj_alloc.is_array;
    classNameAsked = &asking->className;
    check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, event.u.obj_alloc.class_id) == JVMPI_SUCCESS,
          "the class of an object is not known");
    classNameAsked = nullptr;
}

void onMonitor(const JVMPI_Event& event, jobjectID object, jlong timeout) {
    Seen now;
    now.env = event.env_id;
    now.timeout = timeout;
    check(event.env_id == self(), "a monitor's event on another thread");
    asking = &now;
    now.answered = jvmpi->RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, object);
    asking = nullptr;
    check(jvmpi->RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, asArgument(0x7ffffff0)) == JVMPI_FAIL,
          "an object that does not exist");
    JVMPI_CallFrame frames[3];
    JVMPI_CallTrace trace{event.env_id, 0, frames};
    jvmpi->GetCallTrace(&trace, 1);
    // A thread that ends takes its own monitor with no Java code on its stack.
    check(trace.num_frames == 0 || trace.num_frames == 1, "%d frames", trace.num_frames);
    std::lock_guard<std::mutex> guard(seenMutex);
    if (trace.num_frames == 1) {
        const auto known = methodNames.find(frames[0].method_id);
        if (known != methodNames.end()) now.method = known->second;
    }
    Seen& all = seen[{event.event_type, object}];
    now.times = all.times + 1;
    all = now;
}

void onClassLoad(const JVMPI_Event& event) {
    const auto& load = event.u.class_load;
    if (classNameAsked) *classNameAsked = load.class_name;
    std::lock_guard<std::mutex> guard(seenMutex);
    for (jint i = 0; i < load.num_methods; i++)
        methodNames[load.methods[i].method_id] =
            std::string(load.class_name) + "." + load.methods[i].method_name;
}

void notify(JVMPI_Event* event) {
    switch (event->event_type) {
    case JVMPI_EVENT_GC_START:
        return onCollectionStart(*event);
    case JVMPI_EVENT_GC_FINISH:
        return onCollectionFinish(*event);
    case JVMPI_EVENT_CLASS_LOAD | JVMPI_REQUESTED_EVENT:
        if (classNameAsked) onClassLoad(*event);
        return;
    case JVMPI_EVENT_CLASS_LOAD:
        return onClassLoad(*event);
    case JVMPI_EVENT_OBJECT_ALLOC | JVMPI_REQUESTED_EVENT:
        return onAllocation(*event);
    case JVMPI_EVENT_MONITOR_CONTENDED_ENTER:
    case JVMPI_EVENT_MONITOR_CONTENDED_ENTERED:
        return onMonitor(*event, event->u.monitor.object, 0);
    case JVMPI_EVENT_MONITOR_WAIT:
    case JVMPI_EVENT_MONITOR_WAITED:
        return onMonitor(*event, event->u.monitor_wait.object, event->u.monitor_wait.timeout);
    default:
        check(false, "event %x was never asked for", static_cast<unsigned>(event->event_type));
    }
}

// ---- Called from Java -------------------------------------------------------------------------

constexpr jint kMonitorEvents[] = {
    JVMPI_EVENT_MONITOR_CONTENDED_ENTER, JVMPI_EVENT_MONITOR_CONTENDED_ENTERED,
    JVMPI_EVENT_MONITOR_CONTENDED_EXIT, JVMPI_EVENT_MONITOR_WAIT, JVMPI_EVENT_MONITOR_WAITED};

void switchMonitors(bool on) {
    for (const jint type : kMonitorEvents)
        check((on ? jvmpi->EnableEvent : jvmpi->DisableEvent)(type, nullptr) == JVMPI_SUCCESS,
              "event %d is refused", type);
}

// {event, object, times, class, is_array, method, smallest timeout, largest timeout}
void checkSeen(JNIEnv* jni, jobject argument) {
    const auto row = static_cast<jobjectArray>(argument);
    const auto at = [&](jsize i) { return jni->GetObjectArrayElement(row, i); };
    const auto type = static_cast<jint>(longOf(jni, at(0)));
    const jobjectID id = jvmpi->jobject2jobjectID(at(1));
    const std::string className = textOf(jni, at(3));
    std::lock_guard<std::mutex> guard(seenMutex);
    const Seen& got = seen[{type, id}];
    const char* name = className.c_str();
    check(got.times == longOf(jni, at(2)), "%s: event %d came %lld times", name, type,
          static_cast<long long>(got.times));
    if (got.times == 0) return;
    check(got.answered == JVMPI_SUCCESS, "%s: the object cannot be asked for", name);
    check(got.className == className, "%s: it is called %s", name, got.className.c_str());
    check(got.isArray == longOf(jni, at(4)), "%s: type %d", name, got.isArray);
    check(got.method == textOf(jni, at(5)), "%s: event %d is charged to %s", name, type,
          got.method.c_str());
    check(got.timeout >= longOf(jni, at(6)) && got.timeout <= longOf(jni, at(7)),
          "%s: event %d tells %lld ms", name, type, static_cast<long long>(got.timeout));
}

void driverStop(JNIEnv*, jobject) {
    jvmpi->DisableEvent(JVMPI_EVENT_GC_START, nullptr);
    jvmpi->DisableEvent(JVMPI_EVENT_GC_FINISH, nullptr);
    check(starts == finishes, "%lld starts and %lld finishes", static_cast<long long>(starts),
          static_cast<long long>(finishes));
    note("driver stopped");
    noteEnd();
}

jsize borrowedIndex = -1; // of the counter, told by the fact that names them

void facts(JNIEnv* jni, jobject array) {
    const auto texts = static_cast<jobjectArray>(array);
    bool available = false;
    for (jsize i = 0; i < jni->GetArrayLength(texts); i++) {
        const std::string text = "+" + textOf(jni, jni->GetObjectArrayElement(texts, i)) + "+";
        if (text.starts_with("+counters="))
            borrowedIndex =
                static_cast<jsize>(std::count(
                    text.begin(), text.begin() + static_cast<long>(text.find("monitorsBorrowed")),
                    '+')) -
                1;
        if (!text.starts_with("+available=")) continue;
        available = text.find("+contention+") != std::string::npos &&
                    text.find("+gc+") != std::string::npos;
    }
    check(available, "contention and gc are not offered");
}

// Collections that found a look-up in the VM borrowed its monitors: the test tested something.
void counters(JNIEnv* jni, jobject array) {
    check(borrowedIndex >= 0, "no counter of borrowed monitors");
    if (lookups == 0 || !sizesKnown || borrowedIndex < 0) return;
    jlong borrowed = 0;
    jni->GetLongArrayRegion(static_cast<jlongArray>(array), borrowedIndex, 1, &borrowed);
    check(borrowed > 0, "no monitor was ever borrowed");
}

const NamedCheck kChecks[] = {
    {"driverStart", [](JNIEnv*, jobject) {}},
    {"facts", facts},
    {"counters", counters},
    {"driverStop", driverStop},
    {"monitors on", [](JNIEnv*, jobject) { switchMonitors(true); }},
    {"monitors off", [](JNIEnv*, jobject) { switchMonitors(false); }},
    {"seen", checkSeen},
    {"sizesUnknown", [](JNIEnv*, jobject) { sizesKnown = false; }},
    {"notOutside",
     [](JNIEnv*, jobject object) {
         check(jvmpi->RequestEvent(JVMPI_EVENT_OBJECT_ALLOC, jvmpi->jobject2jobjectID(object)) !=
                   JVMPI_SUCCESS,
               "an object is told of outside the callbacks");
     }},
    {"fail", [](JNIEnv* jni, jobject text) { check(false, "%s", textOf(jni, text).c_str()); }},
};

struct NamedNumber {
    const char* name;
    jlong (*read)();
};
const NamedNumber kNumbers[] = {
    {"starts", [] { return starts.load(); }},
    {"finishes", [] { return finishes.load(); }},
    {"lookups", [] { return lookups.load(); }},
    {"used", [] { return lastUsed.load(); }},
    {"total", [] { return lastTotal.load(); }},
    {"free at start", [] { return freeAtStart.load(); }},
    {"runGC",
     [] {
         jvmpi->RunGC();
         return jlong{0};
     }},
};

} // namespace

void loaded(const char*) {
    jvmpi->NotifyEvent = notify;
    char first[] = "outer";
    char second[] = "inner";
    outer = jvmpi->RawMonitorCreate(first);
    inner = jvmpi->RawMonitorCreate(second);
    for (const jint type : {JVMPI_EVENT_CLASS_LOAD, JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH})
        check(jvmpi->EnableEvent(type, nullptr) == JVMPI_SUCCESS, "event %d is refused", type);
}

void runCheck(JNIEnv* jni, const std::string& name, jobject argument) {
    runNamed(kChecks, jni, name, argument);
}

jlong answer(JNIEnv* jni, const std::string& name, jobject argument) {
    if (name == "look up") {
        lookUp(jni, jni->GetObjectClass(argument), longOf(jni, argument));
        return 0;
    }
    for (const NamedNumber& row : kNumbers)
        if (name == row.name) return row.read();
    check(false, "no number %s", name.c_str());
    return -1;
}

} // namespace probe
