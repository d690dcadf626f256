// Stands in for the profiling agent in a real JVM: uses the profiler interface in every phase and
// from every kind of thread.
//
// Mode (the option text agent.mode=...): early enables the events in JVM_OnLoad, late in the
// driver's start, so that the threads of the VM are announced on enabling.
#include "tests/live/bridge_probe/agent/Phases.h"

#include <cstring>
#include <mutex>
#include <vector>

#include "tests/live/bridge_probe/Probe.h"
#include "tests/live/bridge_probe/agent/Model.h"
#include "tests/live/bridge_probe/agent/Sampler.h"

namespace probe {

bool lateMode = false;
uint64_t counted = 0;

namespace {

JVMPI_RawMonitor countMonitor = nullptr;
constexpr jint kSupported[] = {JVMPI_EVENT_THREAD_START,  JVMPI_EVENT_THREAD_END,
                               JVMPI_EVENT_CLASS_LOAD,    JVMPI_EVENT_CLASS_UNLOAD,
                               JVMPI_EVENT_JVM_INIT_DONE, JVMPI_EVENT_JVM_SHUT_DOWN};

void whileLoading() {
    void* other = nullptr;
    check(vm->GetEnv(&other, 0x7fff0000) < 0, "GetEnv answers a version that does not exist");
    check(jvmpi->version == JVMPI_VERSION_1, "version is %x", jvmpi->version);
    for (jint type : {-5, 0, 2, 7, 40, 44, 62, 999}) {
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

} // namespace

void enableAll() {
    for (jint type : kSupported)
        check(jvmpi->EnableEvent(type, nullptr) == JVMPI_SUCCESS, "event %d is refused", type);
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
    noteEnd();
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

void loaded(const char* options) {
    jvmpi->NotifyEvent = notify;
    lateMode = strstr(options, "mode=late");
    whileLoading();
    if (!lateMode) enableAll();
}

} // namespace probe
