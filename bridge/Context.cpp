#include "bridge/Context.h"

#include "bridge/GetEnvHook.h"

namespace bridge {

Context& context() {
    static Context& the = *new Context;
    return the;
}

JNIEnv* currentEnv() {
    JavaVM* vm = context().vm;
    void* env = nullptr;
    if (!vm || vmGetEnv(vm, &env, JNI_VERSION_1_2) != JNI_OK) return nullptr;
    return static_cast<JNIEnv*>(env);
}

} // namespace bridge
