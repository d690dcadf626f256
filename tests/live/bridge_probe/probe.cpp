// Stands in for the profiling agent in a real JVM: uses the profiler interface in every phase and
// from every kind of thread, and writes what is as it should be and what is not to the file that
// the environment variable PRB_PROBE_LOG names. The last line is "done".
//
// Mode (the option text agent.mode=...): early enables the events in JVM_OnLoad, late in the
// driver's start, so that the threads of the VM are announced on enabling.
#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "jvmpi/jvmpi.h"

namespace {

JavaVM* vm = nullptr;
JVMPI_Interface* jvmpi = nullptr;
FILE* logFile = nullptr;
std::mutex logMutex;
std::atomic<int> failures{0};

__attribute__((format(printf, 2, 3))) void check(bool right, const char* format, ...) {
    if (right) return; // thousands of checks: only what fails is of interest
    std::lock_guard<std::mutex> guard(logMutex);
    failures++;
    va_list arguments;
    va_start(arguments, format);
    fputs("FAIL ", logFile);
    vfprintf(logFile, format, arguments);
    fputc('\n', logFile);
    fflush(logFile);
    va_end(arguments);
}

void note(const char* text) {
    std::lock_guard<std::mutex> guard(logMutex);
    fprintf(logFile, "%s\n", text);
    fflush(logFile);
}

JNIEnv* self() {
    void* env = nullptr;
    return vm->GetEnv(&env, JNI_VERSION_1_2) == JNI_OK ? static_cast<JNIEnv*>(env) : nullptr;
}

// ---- What the events told -----------------------------------------------------------------

struct Class {
    std::string name;
    std::string source;
    std::set<std::string> methods; // name and signature
    std::set<std::string> statics;
    std::set<std::string> instances;
    std::map<std::string, jmethodID> ids;
    jint interfaces = 0;
};

struct Thread {
    std::string name;
    std::string group;
    std::string parent;
    jobjectID object = nullptr;
};

// Never destroyed: the sampler may run until the process is gone.
std::mutex mutex;
auto& classesById = *new std::map<jobjectID, Class>;
auto& threadsByEnv = *new std::map<JNIEnv*, Thread>;
auto& everStarted = *new std::set<std::string>;
auto& methodsOfUnloaded = *new std::vector<jmethodID>;
int startsOfWorkers = 0;
int endsOfWorkers = 0;
int unloadsOfKnown = 0;
int initDone = 0;
int shutDowns = 0;
int doubleStarts = 0;
bool queuedRan = false;
thread_local int requestsSeen = 0; // events with the requested bit on this thread
thread_local Thread requestedThread;
thread_local Class requestedClass;

constexpr char kWorker[] = "w\xc3\xb6rker ";
constexpr char kSampler[] = "probe sampler";

Class classOf(const JVMPI_Event& event) {
    const auto& load = event.u.class_load;
    Class result;
    result.name = load.class_name;
    result.source = load.source_name;
    result.interfaces = load.num_interfaces;
    for (jint i = 0; i < load.num_methods; i++) {
        const std::string name =
            std::string(load.methods[i].method_name) + load.methods[i].method_signature;
        result.methods.insert(name);
        result.ids[name] = load.methods[i].method_id;
    }
    for (jint i = 0; i < load.num_static_fields; i++)
        result.statics.insert(std::string(load.statics[i].field_name) + " " +
                              load.statics[i].field_signature);
    for (jint i = 0; i < load.num_instance_fields; i++)
        result.instances.insert(std::string(load.instances[i].field_name) + " " +
                                load.instances[i].field_signature);
    return result;
}

void onThreadStart(const JVMPI_Event& event, bool requested) {
    const auto& start = event.u.thread_start;
    check(event.env_id != nullptr, "THREAD_START without env_id");
    Thread thread{start.thread_name, start.group_name, start.parent_name, start.thread_id};
    if (requested) {
        requestsSeen++;
        requestedThread = thread;
        check(event.env_id == self(), "requested THREAD_START names another thread's env_id");
        return;
    }
    check(event.env_id == start.thread_env_id, "THREAD_START: env_id and thread_env_id differ");
    check(jvmpi->GetThreadLocalStorage(start.thread_env_id) == nullptr,
          "storage of the new thread %s is not null", start.thread_name);
    jvmpi->SetThreadLocalStorage(start.thread_env_id, start.thread_id);
    std::lock_guard<std::mutex> guard(mutex);
    if (!threadsByEnv.emplace(start.thread_env_id, thread).second) doubleStarts++;
    everStarted.insert(thread.name);
    if (thread.name.starts_with(kWorker)) {
        startsOfWorkers++;
        check(thread.group == "inner group", "worker's group is %s", start.group_name);
        check(thread.parent == "outer group", "worker's parent is %s", start.parent_name);
    }
}

void onThreadEnd(const JVMPI_Event& event) {
    check(event.env_id == self(), "THREAD_END on another thread");
    std::lock_guard<std::mutex> guard(mutex);
    const auto known = threadsByEnv.find(event.env_id);
    check(known != threadsByEnv.end(), "THREAD_END of a thread that never started");
    if (known == threadsByEnv.end()) return;
    check(jvmpi->GetThreadLocalStorage(event.env_id) == known->second.object,
          "storage of %s is lost at its end", known->second.name.c_str());
    // It can no longer be asked for.
    check(jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, known->second.object) == JVMPI_FAIL,
          "an ending thread is announced on request");
    if (known->second.name.starts_with(kWorker)) endsOfWorkers++;
    threadsByEnv.erase(known);
}

void onClassLoad(const JVMPI_Event& event, bool requested) {
    Class loaded = classOf(event);
    if (requested) {
        requestsSeen++;
        requestedClass = loaded;
        return;
    }
    std::lock_guard<std::mutex> guard(mutex);
    check(!classesById.contains(event.u.class_load.class_id), "class %s has a used id",
          loaded.name.c_str());
    classesById[event.u.class_load.class_id] = loaded;
}

void onClassUnload(const JVMPI_Event& event) {
    std::lock_guard<std::mutex> guard(mutex);
    const auto known = classesById.find(event.u.class_unload.class_id);
    if (known == classesById.end()) return;
    if (known->second.name == "Known") {
        unloadsOfKnown++;
        for (const auto& [name, id] : known->second.ids) methodsOfUnloaded.push_back(id);
    }
    classesById.erase(known);
}

void afterDeath();

void notify(JVMPI_Event* event) {
    const bool requested = event->event_type & JVMPI_REQUESTED_EVENT;
    switch (event->event_type & ~JVMPI_REQUESTED_EVENT) {
    case JVMPI_EVENT_THREAD_START:
        return onThreadStart(*event, requested);
    case JVMPI_EVENT_THREAD_END:
        return onThreadEnd(*event);
    case JVMPI_EVENT_CLASS_LOAD:
        return onClassLoad(*event, requested);
    case JVMPI_EVENT_CLASS_UNLOAD:
        return onClassUnload(*event);
    case JVMPI_EVENT_JVM_INIT_DONE:
        initDone++;
        return;
    case JVMPI_EVENT_JVM_SHUT_DOWN:
        jvmpi->DisableEvent(JVMPI_EVENT_THREAD_START, nullptr);
        jvmpi->DisableEvent(JVMPI_EVENT_THREAD_END, nullptr);
        jvmpi->DisableEvent(JVMPI_EVENT_CLASS_LOAD, nullptr);
        jvmpi->DisableEvent(JVMPI_EVENT_CLASS_UNLOAD, nullptr);
        shutDowns++;
        atexit(afterDeath);
        return;
    default:
        check(false, "event %d was never asked for", event->event_type);
    }
}

// ---- The sampler: a system thread that does what the profiler's sampler does ------------------

std::atomic<bool> samplerMayRun{false};
std::atomic<uint64_t> cycles{0};
std::atomic<uint64_t> traces{0};
std::atomic<uint64_t> tracesOfBusy{0};
std::atomic<uint64_t> framesSeen{0};
std::atomic<uint64_t> framesUnknown{0};
JVMPI_RawMonitor samplerMonitor = nullptr;

void sampleOnce() {
    struct Slot {
        JNIEnv* env;
        bool busy;
        jint count;
        JVMPI_CallFrame frames[50];
    };
    std::vector<Slot> slots;
    {
        std::lock_guard<std::mutex> guard(mutex);
        for (const auto& [env, thread] : threadsByEnv)
            if (thread.name != kSampler) slots.push_back({env, thread.name == "busy", 0, {}});
    }
    for (size_t i = 0; i < slots.size();) {
        const jint status = jvmpi->GetThreadStatus(slots[i].env) & ~JVMPI_THREAD_INTERRUPTED;
        if (status == JVMPI_THREAD_RUNNABLE) {
            jvmpi->SuspendThread(slots[i++].env);
        } else {
            slots[i] = slots.back();
            slots.pop_back();
        }
    }
    for (Slot& slot : slots) {
        if (!jvmpi->ThreadHasRun(slot.env)) continue;
        JVMPI_CallTrace trace{slot.env, 0, slot.frames};
        jvmpi->GetCallTrace(&trace, 50);
        slot.count = trace.num_frames;
    }
    for (Slot& slot : slots) jvmpi->ResumeThread(slot.env);
    for (const Slot& slot : slots) {
        if (slot.count == 0) continue;
        traces++;
        if (slot.busy) tracesOfBusy++;
        for (jint i = 0; i < slot.count; i++) {
            framesSeen++;
            if (!jvmpi->GetMethodClass(slot.frames[i].method_id)) framesUnknown++;
        }
    }
    cycles++;
}

void samplerBody(void* argument) {
    check(argument == nullptr, "a system thread's body gets an argument");
    queuedRan = true;
    check(self() != nullptr, "a system thread has no environment");
    jvmpi->RawMonitorEnter(samplerMonitor);
    while (!samplerMayRun) jvmpi->RawMonitorWait(samplerMonitor, 1000);
    jvmpi->RawMonitorExit(samplerMonitor);
    while (samplerMayRun) {
        usleep(3000);
        sampleOnce();
    }
    note("sampler ends");
}

// ---- Phases ---------------------------------------------------------------------------------

bool lateMode = false;
constexpr jint kSupported[] = {JVMPI_EVENT_THREAD_START,  JVMPI_EVENT_THREAD_END,
                               JVMPI_EVENT_CLASS_LOAD,    JVMPI_EVENT_CLASS_UNLOAD,
                               JVMPI_EVENT_JVM_INIT_DONE, JVMPI_EVENT_JVM_SHUT_DOWN};

void enableAll() {
    for (jint type : kSupported)
        check(jvmpi->EnableEvent(type, nullptr) == JVMPI_SUCCESS, "event %d is refused", type);
}

void countUnderMonitor(jlong times);
uint64_t counted = 0;
JVMPI_RawMonitor countMonitor = nullptr;

void whileLoading() {
    void* other = nullptr;
    check(vm->GetEnv(&other, 0x7fff0000) < 0, "GetEnv answers a version that does not exist");
    check(jvmpi->version == JVMPI_VERSION_1, "version is %x", jvmpi->version);
    for (jint type : {-5, 0, 1, 3, 4, 37, 62, 999}) {
        check(jvmpi->EnableEvent(type, nullptr) == JVMPI_NOT_AVAILABLE, "event %d is taken", type);
        check(jvmpi->RequestEvent(type, nullptr) == JVMPI_NOT_AVAILABLE, "request %d is taken",
              type);
    }
    check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, reinterpret_cast<void*>(1)) == JVMPI_FAIL,
          "a class is reported before the VM is up");
    check(jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, nullptr) == JVMPI_FAIL,
          "a thread is reported before the VM is up");
    check(jvmpi->GetThreadStatus(nullptr) == 0, "status of nothing");
    check(jvmpi->GetThreadLocalStorage(nullptr) == nullptr, "storage of nothing");
    check(jvmpi->jobject2jobjectID(nullptr) == nullptr, "id of nothing");
    check(jvmpi->jobjectID2jobject(nullptr) == nullptr, "object of nothing");
    check(jvmpi->GetMethodClass(nullptr) == nullptr, "class of nothing");
    check(jvmpi->GetCurrentThreadCpuTime() > 0, "no CPU clock");
    JVMPI_CallTrace none{nullptr, 5, nullptr};
    jvmpi->GetCallTrace(&none, 50);
    check(none.num_frames == 0, "a trace of nothing");
    jvmpi->SuspendThread(nullptr);
    jvmpi->ResumeThread(nullptr);
    jvmpi->RunGC();
    char name[] = "_Sampler";
    samplerMonitor = jvmpi->RawMonitorCreate(name);
    countMonitor = jvmpi->RawMonitorCreate(name);
    countUnderMonitor(10);
    counted = 0;
    char thread[] = "probe sampler";
    check(jvmpi->CreateSystemThread(thread, 10, samplerBody) == JVMPI_SUCCESS,
          "a system thread is refused while loading");
    check(jvmpi->CreateSystemThread(thread, 10, nullptr) == JVMPI_FAIL,
          "a system thread without a body is taken");
}

void afterDeath() {
    for (jint type : kSupported)
        check(jvmpi->EnableEvent(type, nullptr) == JVMPI_FAIL, "event %d after death", type);
    check(jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, nullptr) == JVMPI_FAIL, "request");
    std::vector<JNIEnv*> envs;
    for (const auto& [env, thread] : threadsByEnv) envs.push_back(env);
    for (JNIEnv* env : envs) {
        check(jvmpi->GetThreadStatus(env) == 0, "status after death");
        jvmpi->SuspendThread(env);
        check(!jvmpi->ThreadHasRun(env), "has run after death");
        jvmpi->ResumeThread(env);
        check(jvmpi->GetThreadObject(env) == nullptr, "thread object after death");
    }
    char name[] = "late";
    check(jvmpi->CreateSystemThread(name, 5, samplerBody) == JVMPI_FAIL, "thread after death");
    countUnderMonitor(3);
    jvmpi->RunGC();
    check(initDone == (lateMode ? 0 : 1), "JVM_INIT_DONE came %d times", initDone);
    check(doubleStarts == 0, "%d threads were announced twice", doubleStarts);
    check(shutDowns == 1, "JVM_SHUT_DOWN came %d times", shutDowns);
    note(failures == 0 ? "done" : "done with failures");
}

void countUnderMonitor(jlong times) {
    for (jlong i = 0; i < times; i++) {
        jvmpi->RawMonitorEnter(countMonitor);
        jvmpi->RawMonitorEnter(countMonitor);
        counted++;
        jvmpi->RawMonitorExit(countMonitor);
        if (i % 256 == 0) jvmpi->RawMonitorNotifyAll(countMonitor);
        if (i % 512 == 511) jvmpi->RawMonitorWait(countMonitor, 1);
        jvmpi->RawMonitorExit(countMonitor);
    }
}

// ---- Checks by name, called from Java -----------------------------------------------------------

std::string textOf(JNIEnv* jni, jobject text) {
    const char* chars = jni->GetStringUTFChars(static_cast<jstring>(text), nullptr);
    std::string result = chars;
    jni->ReleaseStringUTFChars(static_cast<jstring>(text), chars);
    return result;
}

jlong longOf(JNIEnv* jni, jobject number) {
    jclass type = jni->FindClass("java/lang/Number");
    return jni->CallLongMethod(number, jni->GetMethodID(type, "longValue", "()J"));
}

void driverStart(JNIEnv* jni, jobject argument) {
    check(textOf(jni, argument).find("agent.mode=") != std::string::npos, "the driver's text is %s",
          textOf(jni, argument).c_str());
    check(initDone == (lateMode ? 0 : 1), "the driver starts before JVM_INIT_DONE");
    if (lateMode) enableAll();
    {
        std::lock_guard<std::mutex> guard(mutex);
        for (const char* name : {"main", "Reference Handler", "Finalizer"})
            check(everStarted.contains(name), "thread %s was not announced", name);
    }
    samplerMayRun = true;
    jvmpi->RawMonitorEnter(samplerMonitor);
    jvmpi->RawMonitorNotifyAll(samplerMonitor);
    jvmpi->RawMonitorExit(samplerMonitor);
}

void driverStop(JNIEnv*, jobject) {
    check(shutDowns == 0, "the driver is stopped after JVM_SHUT_DOWN");
    check(queuedRan, "the queued system thread never ran");
    samplerMayRun = false;
    note("driver stopped");
}

void inThread(JNIEnv* jni, jobject) {
    jobjectID object = nullptr;
    {
        std::lock_guard<std::mutex> guard(mutex);
        const auto known = threadsByEnv.find(jni);
        check(known != threadsByEnv.end(), "a running thread was not announced");
        if (known != threadsByEnv.end()) object = known->second.object;
    }
    check(jvmpi->GetThreadLocalStorage(jni) == object, "thread storage is lost");
    check(jvmpi->GetThreadObject(jni) == object, "GetThreadObject disagrees with the event");
    check((jvmpi->GetThreadStatus(jni) & 0xff) == JVMPI_THREAD_RUNNABLE, "own status");
    JVMPI_CallFrame frames[50];
    JVMPI_CallTrace trace{jni, 0, frames};
    jvmpi->GetCallTrace(&trace, 50);
    check(trace.num_frames >= 2, "own trace has %d frames", trace.num_frames);
    char name[] = "temporary";
    JVMPI_RawMonitor temporary = jvmpi->RawMonitorCreate(name);
    jvmpi->RawMonitorEnter(temporary);
    jvmpi->RawMonitorExit(temporary);
    jvmpi->RawMonitorDestroy(temporary);
}

void threadsCheck(JNIEnv* jni, jobject count) {
    std::lock_guard<std::mutex> guard(mutex);
    check(startsOfWorkers == longOf(jni, count), "%d workers started", startsOfWorkers);
    check(endsOfWorkers == longOf(jni, count), "%d workers ended", endsOfWorkers);
}

void* asArgument(jlong id) { return reinterpret_cast<void*>(static_cast<uintptr_t>(id)); }

void requestThread(JNIEnv* jni, jobject id) {
    requestsSeen = 0;
    check(jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, asArgument(longOf(jni, id))) ==
              JVMPI_SUCCESS,
          "a live thread cannot be requested");
    check(requestsSeen == 1, "the request was answered %d times", requestsSeen);
    check(requestedThread.name == "asked for", "thread %s was reported",
          requestedThread.name.c_str());
}

void requestEndedThread(JNIEnv* jni, jobject id) {
    requestsSeen = 0;
    check(jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, asArgument(longOf(jni, id))) == JVMPI_FAIL,
          "an ended thread is reported");
    check(requestsSeen == 0, "an ended thread was reported");
}

void knownClass(JNIEnv* jni, jobject mirror) {
    const jobjectID id = jvmpi->jobject2jobjectID(mirror);
    requestsSeen = 0;
    check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, id) == JVMPI_SUCCESS, "request of Known");
    check(requestsSeen == 1, "the class came %d times", requestsSeen);
    const Class& got = requestedClass;
    check(got.name == "Known", "Known is called %s", got.name.c_str());
    check(got.source == "Known.java", "Known comes from %s", got.source.c_str());
    check(got.interfaces == 2, "Known has %d interfaces", got.interfaces);
    check(got.methods == std::set<std::string>{"<init>()V", "run()V", "twice(I)I"},
          "Known has %zu other methods", got.methods.size());
    check(got.statics == std::set<std::string>{"serialVersionUID J", "shared I"},
          "Known has %zu other static fields", got.statics.size());
    check(got.instances == std::set<std::string>{"own J", "text Ljava/lang/String;"},
          "Known has %zu other fields", got.instances.size());
    {
        std::lock_guard<std::mutex> guard(mutex);
        const auto known = classesById.find(id);
        check(known != classesById.end(), "Known was not announced");
        check(known == classesById.end() || known->second.methods == got.methods,
              "event and request differ");
    }
    jclass type = static_cast<jclass>(mirror);
    for (const jmethodID method :
         {jni->GetMethodID(type, "run", "()V"), jni->GetStaticMethodID(type, "twice", "(I)I")})
        check(jvmpi->GetMethodClass(method) == id, "a method's class is another");
}

void className(const std::string& name, jobject mirror) {
    const jobjectID id = jvmpi->jobject2jobjectID(mirror);
    check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, id) == JVMPI_SUCCESS, "request of %s",
          name.c_str());
    check(requestedClass.name == name, "%s is called %s", name.c_str(),
          requestedClass.name.c_str());
}

void hiddenClass(JNIEnv*, jobject mirror) {
    const jobjectID id = jvmpi->jobject2jobjectID(mirror);
    check(jvmpi->RequestEvent(JVMPI_EVENT_CLASS_LOAD, id) == JVMPI_SUCCESS, "request of a lambda");
    check(requestedClass.name.starts_with("Program$$Lambda"), "a lambda is called %s",
          requestedClass.name.c_str());
    check(requestedClass.methods.contains("run()V"), "a lambda without its method");
}

void unloadedMethods(JNIEnv*, jobject) {
    std::lock_guard<std::mutex> guard(mutex);
    size_t alive = 0; // the VM may have given the address to a method that lives
    for (jmethodID method : methodsOfUnloaded)
        if (const jobjectID id = jvmpi->GetMethodClass(method))
            alive += classesById.contains(id) ? 0 : 1;
    check(alive == 0, "%zu methods belong to classes that are gone", alive);
}

void samples(JNIEnv*, jobject) {
    check(cycles > 0 && traces > 0, "%d cycles, %d traces", static_cast<int>(cycles),
          static_cast<int>(traces));
    check(framesUnknown * 100 <= framesSeen, "%d frames of %d have no class",
          static_cast<int>(framesUnknown), static_cast<int>(framesSeen));
}

// Pages of resident memory, from /proc/self/statm, without allocating.
long residentKb() {
    FILE* file = fopen("/proc/self/statm", "r");
    long all = 0;
    long resident = 0;
    if (!file) return -1;
    const int read = fscanf(file, "%ld %ld", &all, &resident);
    fclose(file);
    return read == 2 ? resident * (sysconf(_SC_PAGESIZE) / 1024) : -1;
}

void forkCheck(JNIEnv* jni, jobject megabytes) {
    const long before = residentKb();
    int ends[2];
    check(pipe(ends) == 0, "no pipe");
    const pid_t child = fork();
    if (child == 0) {
        const long resident = residentKb();
        [[maybe_unused]] const ssize_t sent = write(ends[1], &resident, sizeof resident);
        _exit(0);
    }
    long inChild = 0;
    check(read(ends[0], &inChild, sizeof inChild) == sizeof inChild, "no answer from the child");
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    check(before - inChild >= longOf(jni, megabytes) * 1024 * 9 / 10,
          "the child has %ld KB of the parent's %ld KB: the heap is in it", inChild, before);
}

// ZGC of newer JVMs does not tell; everything else must be had.
constexpr char kUnknownSizes[] = "heap sizes after collections are not known with the Z collector";

void facts(JNIEnv* jni, jobject array) {
    std::set<std::string> keys;
    const auto texts = static_cast<jobjectArray>(array);
    for (jsize i = 0; i < jni->GetArrayLength(texts); i++) {
        const std::string text = textOf(jni, jni->GetObjectArrayElement(texts, i));
        keys.insert(text.substr(0, text.find('=')));
        if (text.starts_with("wordBits="))
            check(text == "wordBits=" + std::to_string(sizeof(void*) * 8), "%s", text.c_str());
        if (text.starts_with("limits="))
            check(text == "limits=" || text.ends_with("=" + std::string(kUnknownSizes)), "%s",
                  text.c_str());
    }
    for (const char* key : {"version", "counters", "available", "vm", "signal", "limits"})
        check(keys.contains(key), "there is no fact %s", key);
}

void counters(JNIEnv* jni, jobject array) {
    const auto values = static_cast<jlongArray>(array);
    const jsize count = jni->GetArrayLength(values);
    check(count >= 10, "there are %d counters", count);
    std::vector<jlong> read(static_cast<size_t>(count));
    jni->GetLongArrayRegion(values, 0, count, read.data());
    check(read[0] > 0 && read[2] > 0 && read[3] > 0, "cycles, samples, traces are %lld %lld %lld",
          static_cast<long long>(read[0]), static_cast<long long>(read[2]),
          static_cast<long long>(read[3]));
}

void same(JNIEnv* jni, jobject pair) {
    const auto both = static_cast<jobjectArray>(pair);
    check(
        jni->IsSameObject(jni->GetObjectArrayElement(both, 0), jni->GetObjectArrayElement(both, 1)),
        "an id's object is another");
}

void equal(JNIEnv* jni, jobject pair) {
    const auto both = static_cast<jobjectArray>(pair);
    const std::string wanted = textOf(jni, jni->GetObjectArrayElement(both, 0));
    const std::string got = textOf(jni, jni->GetObjectArrayElement(both, 1));
    check(wanted == got, "'%s' instead of '%s'", got.c_str(), wanted.c_str());
}

jlong number(JNIEnv* jni, const std::string& name, jobject argument) {
    if (name == "id")
        return static_cast<jlong>(reinterpret_cast<uintptr_t>(jvmpi->jobject2jobjectID(argument)));
    if (name == "runGC") {
        jvmpi->DisableGC();
        jvmpi->RunGC();
        jvmpi->EnableGC();
        return 0;
    }
    if (name == "requestThread")
        return jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, asArgument(longOf(jni, argument)));
    if (name == "traces of busy") return static_cast<jlong>(tracesOfBusy.load());
    std::lock_guard<std::mutex> guard(mutex);
    if (name == "worker ends") return endsOfWorkers;
    if (name == "unloads of Known") return unloadsOfKnown;
    check(false, "no number %s", name.c_str());
    return -1;
}

struct NamedCheck {
    const char* name;
    void (*run)(JNIEnv* jni, jobject argument);
};

const NamedCheck kChecks[] = {
    {"driverStart", driverStart},
    {"driverStop", driverStop},
    {"inThread", inThread},
    {"threads", threadsCheck},
    {"requestThread", requestThread},
    {"requestEndedThread", requestEndedThread},
    {"known class", knownClass},
    {"hidden class", hiddenClass},
    {"unloaded methods", unloadedMethods},
    {"samples", samples},
    {"fork", forkCheck},
    {"facts", facts},
    {"counters", counters},
    {"same", same},
    {"equal", equal},
    {"objectId",
     [](JNIEnv* jni, jobject id) {
         check(longOf(jni, id) >= 0x40000000 && longOf(jni, id) < 0x7fffffff, "an object's id");
     }},
    {"classId",
     [](JNIEnv* jni, jobject id) {
         check(longOf(jni, id) > 0 && longOf(jni, id) < 0x40000000, "a class's id");
     }},
    {"countUnderMonitor",
     [](JNIEnv* jni, jobject times) { countUnderMonitor(longOf(jni, times)); }},
    {"counted",
     [](JNIEnv* jni, jobject times) {
         check(counted == static_cast<uint64_t>(longOf(jni, times)), "%d counts under a monitor",
               static_cast<int>(counted));
     }},
    {"fail", [](JNIEnv* jni, jobject text) { check(false, "%s", textOf(jni, text).c_str()); }},
};

void checkByName(JNIEnv* jni, const std::string& name, jobject argument) {
    if (name.starts_with("class name ")) return className(name.substr(11), argument);
    if (name.starts_with("atLeast ")) {
        const jlong got = number(jni, name.substr(8), nullptr);
        return check(got >= longOf(jni, argument), "%s: only %lld", name.c_str(),
                     static_cast<long long>(got));
    }
    for (const NamedCheck& row : kChecks)
        if (name == row.name) return row.run(jni, argument);
    check(false, "no check %s", name.c_str());
}

} // namespace

extern "C" {

JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM* loadedBy, char* options, void*) {
    vm = loadedBy;
    const char* path = getenv("PRB_PROBE_LOG");
    logFile = fopen(path ? path : "/dev/null", "w");
    if (!logFile) return JNI_ERR;
    void* table = nullptr;
    if (vm->GetEnv(&table, JVMPI_VERSION_1) != JNI_OK) {
        note("FAIL GetEnv gives no profiler interface");
        return JNI_OK;
    }
    jvmpi = static_cast<JVMPI_Interface*>(table);
    jvmpi->NotifyEvent = notify;
    lateMode = options && strstr(options, "mode=late");
    whileLoading();
    if (!lateMode) enableAll();
    return JNI_OK;
}

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* loadedBy, void*) {
    check(loadedBy == vm, "JNI_OnLoad names another VM");
    return JNI_VERSION_1_2;
}

JNIEXPORT void JNICALL Java_com_tessel_prb_workanalysis_Profiler_check(JNIEnv* jni, jclass,
                                                                       jstring name,
                                                                       jobject argument) {
    checkByName(jni, textOf(jni, name), argument);
}

JNIEXPORT jlong JNICALL Java_com_tessel_prb_workanalysis_Profiler_number(JNIEnv* jni, jclass,
                                                                         jstring name,
                                                                         jobject argument) {
    return number(jni, textOf(jni, name), argument);
}

JNIEXPORT jobject JNICALL Java_com_tessel_prb_workanalysis_Profiler_object(JNIEnv*, jclass,
                                                                           jlong id) {
    return jvmpi->jobjectID2jobject(static_cast<jobjectID>(asArgument(id)));
}

JNIEXPORT void JNICALL Java_com_tessel_prb_workanalysis_Profiler_idWhileThrowing(JNIEnv* jni,
                                                                                 jclass,
                                                                                 jobject argument) {
    jni->ThrowNew(jni->FindClass("java/lang/IllegalArgumentException"), "kept");
    const jobjectID id = jvmpi->jobject2jobjectID(argument);
    check(id != nullptr, "no id while an exception is pending");
    char name[] = "made while throwing";
    check(jvmpi->CreateSystemThread(name, 5, [](void*) {}) == JVMPI_SUCCESS,
          "no thread while an exception is pending");
    jobject back = jvmpi->jobjectID2jobject(id);
    check(back != nullptr, "no object while an exception is pending");
}
}
