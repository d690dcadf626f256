#include "tests/live/bridge_probe/Probe.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace probe {

JavaVM* vm = nullptr;
JVMPI_Interface* jvmpi = nullptr;
std::atomic<int> failures{0};

namespace {

FILE* logFile = nullptr;
std::mutex logMutex;

} // namespace

void check(bool right, const char* format, ...) {
    if (right) return; // thousands of checks: only what fails is of interest
    std::lock_guard<std::mutex> guard(logMutex);
    if (++failures > 100) return;
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

void noteEnd() { note(failures == 0 ? "done" : "done with failures"); }

JNIEnv* self() {
    void* env = nullptr;
    return vm->GetEnv(&env, JNI_VERSION_1_2) == JNI_OK ? static_cast<JNIEnv*>(env) : nullptr;
}

void* asArgument(jlong id) { return reinterpret_cast<void*>(static_cast<uintptr_t>(id)); }

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

void runNamed(std::span<const NamedCheck> checks, JNIEnv* jni, const std::string& name,
              jobject argument) {
    for (const NamedCheck& row : checks)
        if (name == row.name) return row.run(jni, argument);
    check(false, "no check %s", name.c_str());
}

} // namespace probe

using namespace probe;

extern "C" {

JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM* loadedBy, char* options, void*) {
    vm = loadedBy;
    const char* path = getenv("PRB_PROBE_LOG");
    logFile = fopen(path ? path : "/dev/null", "w");
    if (!logFile) return JNI_ERR;
    void* table = nullptr;
    if (vm->GetEnv(&table, JVMPI_VERSION_1) != JNI_OK) {
        check(false, "GetEnv gives no profiler interface");
        return JNI_OK;
    }
    jvmpi = static_cast<JVMPI_Interface*>(table);
    loaded(options ? options : "");
    return JNI_OK;
}

JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* loadedBy, void*) {
    check(loadedBy == vm, "JNI_OnLoad names another VM");
    return JNI_VERSION_1_2;
}

JNIEXPORT void JNICALL Java_com_tessel_prb_workanalysis_Profiler_check(JNIEnv* jni, jclass,
                                                                       jstring name,
                                                                       jobject argument) {
    runCheck(jni, textOf(jni, name), argument);
}

JNIEXPORT jlong JNICALL Java_com_tessel_prb_workanalysis_Profiler_number(JNIEnv* jni, jclass,
                                                                         jstring name,
                                                                         jobject argument) {
    return answer(jni, textOf(jni, name), argument);
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
