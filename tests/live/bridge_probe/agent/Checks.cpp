// The checks and numbers that the Java program asks the probe for by name.
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "tests/live/bridge_probe/Probe.h"
#include "tests/live/bridge_probe/agent/Model.h"
#include "tests/live/bridge_probe/agent/Phases.h"
#include "tests/live/bridge_probe/agent/Sampler.h"

namespace probe {
namespace {

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
    check(samplerRan, "the queued system thread never ran");
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
    check(framesUnknown == 0, "%d frames of %d have no class", static_cast<int>(framesUnknown),
          static_cast<int>(framesSeen));
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

} // namespace

jlong answer(JNIEnv* jni, const std::string& name, jobject argument) {
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

void runCheck(JNIEnv* jni, const std::string& name, jobject argument) {
    if (name.starts_with("class name ")) return className(name.substr(11), argument);
    if (name.starts_with("atLeast ")) {
        const jlong got = answer(jni, name.substr(8), nullptr);
        return check(got >= longOf(jni, argument), "%s: only %lld", name.c_str(),
                     static_cast<long long>(got));
    }
    runNamed(kChecks, jni, name, argument);
}

} // namespace probe
