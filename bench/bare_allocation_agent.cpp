// The floor of allocation tracking: an agent that has the VM tell every allocation and does
// nothing with it.
#include <jvmti.h>

namespace {

void JNICALL allocated(jvmtiEnv*, JNIEnv*, jthread, jobject, jclass, jlong) {}

} // namespace

extern "C" JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char*, void*) {
    void* env = nullptr;
    if (vm->GetEnv(&env, JVMTI_VERSION_11) != JNI_OK) return JNI_ERR;
    auto* jvmti = static_cast<jvmtiEnv*>(env);
    jvmtiCapabilities needed{};
    needed.can_generate_sampled_object_alloc_events = 1;
    jvmtiEventCallbacks callbacks{};
    callbacks.SampledObjectAlloc = allocated;
    const bool done =
        jvmti->AddCapabilities(&needed) == JVMTI_ERROR_NONE &&
        jvmti->SetHeapSamplingInterval(0) == JVMTI_ERROR_NONE &&
        jvmti->SetEventCallbacks(&callbacks, sizeof callbacks) == JVMTI_ERROR_NONE &&
        jvmti->SetEventNotificationMode(JVMTI_ENABLE, JVMTI_EVENT_SAMPLED_OBJECT_ALLOC, nullptr) ==
            JVMTI_ERROR_NONE;
    return done ? JNI_OK : JNI_ERR;
}
