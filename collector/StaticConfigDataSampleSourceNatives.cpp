// StaticConfigDataSampleSource: the environment of the process.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"

#include <unistd.h>

namespace {

jsize countEntries(char** entries) {
    jsize n = 0;
    while (entries[n] != nullptr) ++n;
    return n;
}

// The array has an element for every entry, and the last stays null: the Java side stops there.
jobjectArray toArray(JNIEnv* env, char** entries, jsize count) {
    jclass type = PRBJni::findClass(env, "java/lang/String");
    if (type == nullptr) return nullptr;
    PRBJni::LocalFrame frame(env, count);
    if (!frame.isOpen() || count == 0) return nullptr;
    jobjectArray array = env->NewObjectArray(count, type, nullptr);
    if (array == nullptr || env->ExceptionCheck()) return nullptr;
    for (jsize i = 0; i + 1 < count && entries[i] != nullptr; ++i) {
        PRBJni::LocalRef<jstring> entry(env, PRBJni::newString(env, entries[i]));
        if (entry.get() == nullptr) continue;
        env->SetObjectArrayElement(array, i, entry.get());
        PRBJni::clearException(env);
    }
    return static_cast<jobjectArray>(frame.close(array));
}

} // namespace

PRB_NATIVE(jobjectArray, StaticConfigDataSampleSource, getEnvVars)(JNIEnv* env, jclass) {
    return PRBNativeGuard::run(
        PRB_NATIVE_NAME(StaticConfigDataSampleSource, getEnvVars), jobjectArray{}, [&] {
            return environ == nullptr ? jobjectArray{}
                                      : toArray(env, environ, countEntries(environ));
        });
}
