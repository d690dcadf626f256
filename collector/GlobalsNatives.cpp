// Globals: what the Java side asks about the library and the process.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"
#include "collector/PRBWorkloadCollector.h"
#include "core/PRBMonitorGlobal.h"

#include <string>

namespace {

constexpr jint kOldestJavaBuildLevel = 1203318;

jboolean toJava(bool value) { return value ? JNI_TRUE : JNI_FALSE; }

} // namespace

PRB_NATIVE(jboolean, Globals, determineIfProfilerPresent)(JNIEnv*, jclass) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Globals, determineIfProfilerPresent),
                               jboolean{JNI_FALSE},
                               [] { return toJava(PRBMonitorGlobal::isProfilerActive()); });
}

// Asked before anything else is known to work, hence without trace lines.
PRB_NATIVE(jint, Globals, getNativeLibraryBuildLevel)(JNIEnv*, jclass) {
    return PRBMonitorGlobal::getBuildLevel();
}

PRB_NATIVE(jboolean, Globals, testJavaCompatibleBuildLevel)(JNIEnv*, jclass, jint level) {
    return PRBNativeGuard::run(PRB_NATIVE_NAME(Globals, testJavaCompatibleBuildLevel),
                               jboolean{JNI_FALSE},
                               [&] { return toJava(level >= kOldestJavaBuildLevel); });
}

PRB_NATIVE(jstring, Globals, getWorkloadConfigurationFileNameFromProfiler)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(
        PRB_NATIVE_NAME(Globals, getWorkloadConfigurationFileNameFromProfiler), jstring{}, [&] {
            const std::string name = PRBMonitorGlobal::getConfigFileFromStartupParms();
            return name.empty() ? jstring{} : PRBJni::newString(env, name.c_str());
        });
}

PRB_NATIVE(jstring, Globals, getCurrentWorkingDirectoryNative)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(
        PRB_NATIVE_NAME(Globals, getCurrentWorkingDirectoryNative), jstring{}, [&] {
            return PRBJni::newString(env,
                                     PRBWorkloadCollector::getCurrentWorkingDirectory().c_str());
        });
}

// There is no console to write to outside of z/OS.
PRB_NATIVE(void, Globals, writeToMVSConsoleNative)(JNIEnv*, jclass, jstring) {
    PRBNativeGuard::run(PRB_NATIVE_NAME(Globals, writeToMVSConsole), [] {});
}
