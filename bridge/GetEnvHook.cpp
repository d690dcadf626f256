#include "bridge/GetEnvHook.h"

#include "bridge/Context.h"
#include "bridge/Interface.h"

namespace bridge {
namespace {

const JNIInvokeInterface_* original = nullptr; // set once before the hook is in place
JNIInvokeInterface_ hooked;

jint JNICALL getEnv(JavaVM* vm, void** env, jint version) {
    if (version != JVMPI_VERSION_1) return original->GetEnv(vm, env, version);
    if (!env) return JNI_ERR;
    // The bridge found at VMInit that it cannot work here.
    if (context().phase.load(std::memory_order_acquire) == Phase::kOff) return JNI_EVERSION;
    *env = &profilerInterface();
    return JNI_OK;
}

} // namespace

void installGetEnvHook(JavaVM* vm) {
    if (original) return;
    original = vm->functions;
    hooked = *original;
    hooked.GetEnv = getEnv;
    // Other threads may be reading the pointer on late attach.
    __atomic_store_n(&vm->functions, &hooked, __ATOMIC_RELEASE);
}

jint vmGetEnv(JavaVM* vm, void** env, jint version) {
    return original ? original->GetEnv(vm, env, version) : vm->functions->GetEnv(vm, env, version);
}

} // namespace bridge
