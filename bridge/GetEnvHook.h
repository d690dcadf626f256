// Makes JavaVM::GetEnv answer the profiler interface. There is one JavaVM in a process, so one
// hook serves every thread and library, also those that got hold of the VM before.
#ifndef PRB_BRIDGE_GETENVHOOK_H
#define PRB_BRIDGE_GETENVHOOK_H

#include <jni.h>

namespace bridge {

// Replaces the VM's function table by a copy whose GetEnv answers JVMPI_VERSION_1 with the
// profiler interface and hands every other version on. Called once, while loading.
void installGetEnvHook(JavaVM* vm);

// The VM's own GetEnv. Never enters the VM; works with and without the hook.
jint vmGetEnv(JavaVM* vm, void** env, jint version);

} // namespace bridge

#endif
