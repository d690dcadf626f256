#include "bridge/SystemThreads.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "bridge/Context.h"
#include "bridge/Jvmti.h"
#include "bridge/RawMonitor.h"
#include "bridge/Report.h"
#include "jvmpi/jvmpi.h"

namespace bridge {
namespace {

struct Request {
    std::string name;
    jint priority;
    SystemThreads::Body body;
};

std::mutex queueMutex;
bool queueOpen = true;
std::vector<Request>& queued() {
    static std::vector<Request>& all = *new std::vector<Request>;
    return all;
}

// Ends of the VM: how long VMDeath waits for the system threads, and how often it looks.
constexpr int kSleepLooks = 100;
constexpr long kSleepLookNs = 500 * 1000;

// One per system thread, kept for good: VMDeath may look at it at any time.
struct SystemThread {
    std::atomic<RawMonitor*> waitsOn{nullptr};
    std::atomic<bool> done{false}; // its body has ended, or it sleeps for good
    SystemThread* next = nullptr;
};
std::atomic<SystemThread*> systemThreads{nullptr};
constinit thread_local SystemThread* self = nullptr;
std::atomic<bool> dying{false};
std::atomic<jrawMonitorID> bed{nullptr}; // the VM's own monitor that nobody notifies

void JNICALL run(jvmtiEnv*, JNIEnv*, void* argument) {
    const SystemThreads::Body body = *static_cast<SystemThreads::Body*>(argument);
    delete static_cast<SystemThreads::Body*>(argument);
    self = new (std::nothrow) SystemThread;
    if (self) {
        self->next = systemThreads.load(std::memory_order_relaxed);
        while (!systemThreads.compare_exchange_weak(self->next, self)) {
        }
    }
    body(nullptr);
    if (self) self->done.store(true, std::memory_order_release);
}

[[noreturn]] void sleepInVm() {
    jvmtiEnv* jvmti = context().jvmti;
    const jrawMonitorID monitor = bed.load(std::memory_order_acquire);
    jvmti->RawMonitorEnter(monitor);
    self->done.store(true, std::memory_order_release);
    for (;;) jvmti->RawMonitorWait(monitor, 0);
}

// The topmost group: the thread belongs to no part of the program.
jthreadGroup topGroup(JNIEnv* jni) {
    jint count = 0;
    JvmtiMemory<jthreadGroup> groups(context().jvmti);
    if (context().jvmti->GetTopThreadGroups(&count, groups.out()) != JVMTI_ERROR_NONE || count == 0)
        return nullptr;
    for (jint i = 1; i < count; i++) jni->DeleteLocalRef(groups[i]);
    return groups[0];
}

// The Thread is made by its constructor: the VM starts none that was merely allocated. The
// program's class loader, which it inherits from the calling thread, is taken off, so that the
// thread keeps nothing of the program alive.
jobject makeThread(JNIEnv* jni, const char* name) {
    LocalRef<jclass> threadClass(jni, jni->FindClass("java/lang/Thread"));
    if (!threadClass) return nullptr;
    const jmethodID make = jni->GetMethodID(threadClass.get(), "<init>",
                                            "(Ljava/lang/ThreadGroup;Ljava/lang/String;)V");
    const jmethodID setLoader =
        jni->GetMethodID(threadClass.get(), "setContextClassLoader", "(Ljava/lang/ClassLoader;)V");
    if (!make || !setLoader) return nullptr;
    LocalRef<jthreadGroup> group(jni, topGroup(jni));
    LocalRef<jstring> text(jni, jni->NewStringUTF(name));
    if (!text) return nullptr;
    jobject thread = jni->NewObject(threadClass.get(), make, group.get(), text.get());
    if (thread) jni->CallVoidMethod(thread, setLoader, nullptr);
    return thread;
}

jint start(JNIEnv* jni, const Request& request) {
    ExceptionShelter shelter(jni);
    LocalRef<jobject> thread(jni, makeThread(jni, request.name.c_str()));
    if (!thread) return JVMPI_FAIL;
    jni->ExceptionClear();
    auto argument = std::make_unique<SystemThreads::Body>(request.body);
    if (context().jvmti->RunAgentThread(thread.get(), run, argument.get(), request.priority) !=
        JVMTI_ERROR_NONE)
        return JVMPI_FAIL;
    static_cast<void>(argument.release()); // the thread's
    return JVMPI_SUCCESS;
}

} // namespace

jint SystemThreads::create(const char* name, jint priority, Body body) {
    if (!body || isDead()) return JVMPI_FAIL;
    const Request request{name ? name : "",
                          std::clamp(priority, JVMPI_MINIMUM_PRIORITY, JVMPI_MAXIMUM_PRIORITY),
                          body};
    {
        std::lock_guard<std::mutex> guard(queueMutex);
        if (queueOpen) {
            queued().push_back(request);
            return JVMPI_SUCCESS;
        }
    }
    JNIEnv* jni = currentEnv();
    return jni ? start(jni, request) : JVMPI_FAIL;
}

void SystemThreads::wait(RawMonitor& monitor, jlong milliseconds) {
    SystemThread* const thread = self;
    if (!thread) {
        monitor.wait(milliseconds);
        return;
    }
    // Announced before `dying` is read, and read by VMDeath after it was set.
    thread->waitsOn.store(&monitor);
    if (!dying.load()) monitor.wait(milliseconds);
    thread->waitsOn.store(nullptr);
    if (!dying.load() || !bed.load(std::memory_order_acquire)) return;
    while (monitor.ownedBySelf()) monitor.exit();
    sleepInVm();
}

void SystemThreads::sleepForGood() {
    dying.store(true);
    for (int look = 0; look < kSleepLooks; look++) {
        bool all = true;
        for (SystemThread* thread = systemThreads.load(); thread; thread = thread->next) {
            if (thread->done.load(std::memory_order_acquire)) continue;
            all = false;
            if (RawMonitor* monitor = thread->waitsOn.load()) monitor->notifyAll();
        }
        if (all) return;
        const timespec pause{0, kSleepLookNs};
        nanosleep(&pause, nullptr);
    }
}

void SystemThreads::startQueued(JNIEnv* jni) {
    jrawMonitorID monitor = nullptr;
    if (context().jvmti->CreateRawMonitor("prbprof end", &monitor) == JVMTI_ERROR_NONE)
        bed.store(monitor, std::memory_order_release);
    std::vector<Request> now;
    {
        std::lock_guard<std::mutex> guard(queueMutex);
        queueOpen = false;
        now.swap(queued());
    }
    for (const Request& request : now)
        if (start(jni, request) != JVMPI_SUCCESS)
            report("the VM refuses to start the thread '%s': the profile will be incomplete",
                   request.name.c_str());
}

} // namespace bridge
