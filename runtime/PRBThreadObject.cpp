// A thread's "java/lang/Thread" object, and what is done through it.
#include "collector/PRBJni.h"
#include "core/PRBReturnCode.h"
#include "core/PRBTrace.h"
#include "runtime/PRBGlobalReferences.h"
#include "runtime/PRBJavaThread.h"

namespace {

constexpr const char* kName = PRBComponent::kThread;
constexpr unsigned kStopFailed = 73;
constexpr unsigned kNoThreadClass = 74;
constexpr unsigned kNoStopMethod = 75;

bool isThreadDeath(JNIEnv* env, jthrowable thrown) {
    jclass death = PRBJni::findClass(env, "java/lang/ThreadDeath");
    return death != nullptr && env->IsInstanceOf(thrown, death) == JNI_TRUE;
}

} // namespace

jobject PRBJavaThread::getJavaThreadObject(_FindJavaThreadObject mode) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::getJavaThreadObject");
    jobject cached = javaThreadObject.load(std::memory_order_acquire);
    if (cached != nullptr || mode != kFindThreadObject) return cached;
    JNIEnv* env = getEnvId();
    // The VM answers who the current thread is, so only the thread itself may ask.
    if (env == nullptr || env != getEnvIdForCurrentThread()) return nullptr;
    PRBJni::LocalFrame frame(env, 16);
    if (!frame.isOpen()) return nullptr;
    jclass threadClass = PRBJni::findClass(env, "java/lang/Thread");
    jmethodID current =
        PRBJni::findStaticMethod(env, threadClass, "currentThread", "()Ljava/lang/Thread;");
    if (current == nullptr) return nullptr;
    jobject object = env->CallStaticObjectMethod(threadClass, current);
    if (PRBJni::clearException(env) || object == nullptr) return nullptr;
    jobject reference = env->NewGlobalRef(object);
    if (PRBJni::clearException(env) || reference == nullptr) return nullptr;
    jobject old = nullptr;
    if (!javaThreadObject.compare_exchange_strong(old, reference, std::memory_order_acq_rel)) {
        env->DeleteGlobalRef(reference);
        return old;
    }
    return reference;
}

void PRBJavaThread::destroyJavaThreadObject() {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName, "PRBJavaThread::destroyJavaThreadObject");
    PRBGlobalReferences::destroy(javaThreadObject.exchange(nullptr, std::memory_order_acq_rel));
    PRBGlobalReferences::destroy(
        instrumentedStackObject.exchange(nullptr, std::memory_order_acq_rel));
}

unsigned PRBJavaThread::killThread(JNIEnv* env) {
    PRBTraceScope trace(PRBTraceClass::kMain, kName, "PRBJavaThread::killThread");
    const bool own = env == nullptr;
    if (own) env = getEnvId();
    if (env == nullptr) return trace.returns(kNoThreadClass);
    unsigned rc = 0;
    {
        PRBJni::LocalFrame frame(env, 16);
        jclass threadClass = PRBJni::findClass(env, "java/lang/Thread");
        if (threadClass == nullptr) return trace.returns(kNoThreadClass);
        jmethodID stop = PRBJni::findMethod(env, threadClass, "stop", "()V");
        if (stop == nullptr) return trace.returns(kNoStopMethod);
        jobject target = getJavaThreadObject(kFindThreadObject);
        if (target == nullptr) return trace.returns(kStopFailed);
        env->CallVoidMethod(target, stop);
        if (jthrowable thrown = env->ExceptionOccurred()) {
            // Virtual machines that no longer stop threads answer with another exception, which
            // must not reach the application.
            env->ExceptionClear();
            if (own && isThreadDeath(env, thrown)) {
                env->Throw(thrown);
            } else {
                env->Throw(thrown);
                PRBJni::clearException(env);
                rc = kStopFailed;
            }
        }
    }
    return trace.returns(rc);
}
