// What the VM calls when it loads the library: as a profiler agent (JVM_OnLoad) and as a JNI
// library (JNI_OnLoad). Neither builds anything; InitProfiler brings the agent up later.
#include "core/PRBMonitorGlobal.h"

#include <jni.h>

JavaVM* pJavaVM = nullptr;
JVMPI_Interface* PRBjvmpi_interface = nullptr;

extern "C" JNIEXPORT jint JNICALL JVM_OnLoad(JavaVM*, char* options, void*) noexcept {
    try {
        if (options != nullptr) PRBMonitorGlobal::setStartupOptions(options);
    } catch (...) {
        // Without memory for a copy the agent starts without the text.
    }
    return 0;
}

extern "C" JNIEXPORT jint JNICALL JNI_OnLoad(JavaVM* vm, void*) {
    pJavaVM = vm;
    PRBContext::javaVm.store(vm, std::memory_order_release);
    return JNI_VERSION_1_2;
}
