// A VM of a few lines, for measurements in which the scripted VM's checks and records would be
// most of what is measured: raw monitors are plain recursive mutexes, a thread is an environment
// with one word of storage, and the calls of a sampling cycle do next to nothing.
#ifndef PRB_BENCH_MINIMALVM_H
#define PRB_BENCH_MINIMALVM_H

#include "core/PRBMonitorGlobal.h"
#include "jvmpi/jvmpi.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <pthread.h>
#include <string>
#include <vector>

namespace minimal {

struct Env : JNIEnv_ {
    void* storage = nullptr;
    int suspended = 0;
};

// Ids are numbers that nobody dereferences.
inline jobjectID objectId(std::uintptr_t n) { return reinterpret_cast<jobjectID>(n); }
inline jmethodID methodId(std::uintptr_t n) { return reinterpret_cast<jmethodID>(n); }

inline constexpr std::uintptr_t kFirstMethod = 0x7F0000001000;
inline constexpr int kMethods = 64;
inline jmethodID method(int i) {
    return methodId(kFirstMethod + static_cast<std::uintptr_t>(i) * 8);
}
inline const jobjectID kClass = objectId(0x1000);
inline constexpr jint kTraceDepth = 20;

inline Env& of(JNIEnv* env) { return *static_cast<Env*>(env); }

inline JVMPI_Interface makeTable() {
    JVMPI_Interface t{};
    t.version = static_cast<jint>(JVMPI_VERSION_1);
    t.EnableEvent = [](jint, void*) -> jint { return JVMPI_SUCCESS; };
    t.DisableEvent = [](jint, void*) -> jint { return JVMPI_SUCCESS; };
    t.RequestEvent = [](jint, void*) -> jint { return JVMPI_FAIL; };
    t.GetCallTrace = [](JVMPI_CallTrace* trace, jint depth) {
        const jint n = depth < kTraceDepth ? depth : kTraceDepth;
        for (jint i = 0; i < n; ++i) trace->frames[i] = {i, method(i)};
        trace->num_frames = n;
    };
    t.RawMonitorCreate = [](char*) {
        auto* mutex = static_cast<pthread_mutex_t*>(std::malloc(sizeof(pthread_mutex_t)));
        pthread_mutexattr_t kind;
        pthread_mutexattr_init(&kind);
        pthread_mutexattr_settype(&kind, PTHREAD_MUTEX_RECURSIVE);
        pthread_mutex_init(mutex, &kind);
        return reinterpret_cast<JVMPI_RawMonitor>(mutex);
    };
    t.RawMonitorEnter = [](JVMPI_RawMonitor m) {
        pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(m));
    };
    t.RawMonitorExit = [](JVMPI_RawMonitor m) {
        pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(m));
    };
    t.RawMonitorWait = [](JVMPI_RawMonitor, jlong) {};
    t.RawMonitorNotifyAll = [](JVMPI_RawMonitor) {};
    t.RawMonitorDestroy = [](JVMPI_RawMonitor m) { std::free(m); };
    t.GetCurrentThreadCpuTime = [] {
        timespec now{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return static_cast<jlong>(now.tv_sec) * 1000000000 + now.tv_nsec;
    };
    t.SuspendThread = [](JNIEnv* env) { ++of(env).suspended; };
    t.ResumeThread = [](JNIEnv* env) { --of(env).suspended; };
    t.GetThreadStatus = [](JNIEnv*) -> jint { return JVMPI_THREAD_RUNNABLE; };
    t.ThreadHasRun = [](JNIEnv*) -> jboolean { return JNI_TRUE; };
    t.CreateSystemThread = [](char*, jint, void (*)(void*)) -> jint { return JNI_OK; };
    t.SetThreadLocalStorage = [](JNIEnv* env, void* value) { of(env).storage = value; };
    t.GetThreadLocalStorage = [](JNIEnv* env) { return of(env).storage; };
    t.DisableGC = [] {};
    t.EnableGC = [] {};
    t.RunGC = [] {};
    t.GetThreadObject = [](JNIEnv*) -> jobjectID { return nullptr; };
    t.GetMethodClass = [](jmethodID) -> jobjectID { return nullptr; };
    return t;
}

// The agent, built on first use, with one class of kMethods methods loaded and everything
// monitored. One per process, as the agent is.
class Agent {
public:
    static Agent& get() {
        static auto* agent = new Agent;
        return *agent;
    }
    JVMPI_Interface& table() { return table_; }

    // A thread that has started; lives as long as the process.
    Env& startThread() {
        Env& env = envs_.emplace_back();
        char name[] = "measured";
        JVMPI_Event event = eventOf(JVMPI_EVENT_THREAD_START, nullptr);
        event.u.thread_start.thread_name = name;
        event.u.thread_start.group_name = name;
        event.u.thread_start.parent_name = name;
        event.u.thread_start.thread_id = objectId(0x200000 + 8 * envs_.size());
        event.u.thread_start.thread_env_id = &env;
        table_.NotifyEvent(&event);
        if (env.storage == nullptr) std::abort();
        return env;
    }
    static JVMPI_Event eventOf(jint type, JNIEnv* env) {
        JVMPI_Event event;
        std::memset(&event, 0, sizeof event);
        event.event_type = type;
        event.env_id = env;
        return event;
    }

private:
    Agent() : table_(makeTable()) {
        PRBMonitorGlobal::getMonitorGlobal(&table_, nullptr, nullptr);
        table_.NotifyEvent = PRBMonitorGlobal::notify;
        PRBMaskLists::setClassMask("*");
        PRBMaskLists::setMethodMask("*");
        std::deque<std::string> names;
        std::vector<JVMPI_Method> methods;
        char signature[] = "()V";
        for (int i = 0; i < kMethods; ++i) {
            names.push_back("method" + std::to_string(i));
            methods.push_back({names.back().data(), signature, 1, 2, method(i)});
        }
        JVMPI_Event event = eventOf(JVMPI_EVENT_CLASS_LOAD, nullptr);
        event.u.class_load.class_name = "com/x/Measured";
        event.u.class_load.num_methods = kMethods;
        event.u.class_load.methods = methods.data();
        event.u.class_load.class_id = kClass;
        table_.NotifyEvent(&event);
    }

    JVMPI_Interface table_;
    std::deque<Env> envs_;
};

} // namespace minimal

#endif
