// InstrumentedStack: the calling thread as instrumented code sees it.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"
#include "core/PRBMonitorGlobal.h"
#include "core/PRBThreadRegistry.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBReclaimer.h"

PRB_NATIVE(jlong, InstrumentedStack, registerWithProfilerNative)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(InstrumentedStack, registerWithProfilerNative),
                               jlong{0}, [&] { return PRBThreadRegistry::noteHandle(env); });
}

PRB_NATIVE(jshort, InstrumentedStack, getStateNative)(JNIEnv* env, jclass, jlong handle) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(InstrumentedStack, getStateNative), jshort{0}, [&] {
        PRBReclaimer::Reader keep;
        const PRBJavaThread* thread = PRBMonitorGlobal::resolveThreadHandle(env, handle);
        return thread == nullptr ? jshort{0} : static_cast<jshort>(thread->getThreadState());
    });
}

// Traced under another native's name, which the readers of the log know.
PRB_NATIVE(jlong, InstrumentedStack, getCurrentThreadCPUTimeNative)(JNIEnv*, jclass, jlong value) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Profiler, getObjectSize), jlong{0}, [&] {
        return static_cast<jlong>(PRBContext::getThreadCPUTimeInMicroSeconds(value));
    });
}
