#include "bridge/SystemThreads.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bridge/Context.h"
#include "bridge/Jvmti.h"
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

void JNICALL run(jvmtiEnv*, JNIEnv*, void* argument) {
    const SystemThreads::Body body = *static_cast<SystemThreads::Body*>(argument);
    delete static_cast<SystemThreads::Body*>(argument);
    body(nullptr);
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
    argument.release(); // the thread's
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

void SystemThreads::startQueued(JNIEnv* jni) {
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
