// What every part of the bridge needs: the VM, the JVMTI environment, the options, the phase.
// Built in Agent_OnLoad (or Agent_OnAttach) before the first callback, never destroyed.
#ifndef PRB_BRIDGE_CONTEXT_H
#define PRB_BRIDGE_CONTEXT_H

#include <atomic>

#include <jvmti.h>

#include "bridge/Options.h"
#include "bridge/StackSampler.h"
#include "bridge/VmStructs.h"

namespace bridge {

enum class Phase {
    kOff,     // not loaded, or declined: nothing may be asked of the VM
    kLoading, // until VMInit: events can be enabled, but there is no JNI
    kLive,
    kDead, // from the end of VMDeath on: the VM is not asked for anything any more
};

struct Context {
    JavaVM* vm = nullptr;
    jvmtiEnv* jvmti = nullptr;
    Options options;
    VmStructs vmStructs;
    StackSampler* sampler = nullptr;
    std::atomic<Phase> phase{Phase::kOff};
};

Context& context();

inline bool isLive() { return context().phase.load(std::memory_order_acquire) == Phase::kLive; }
inline bool isDead() { return context().phase.load(std::memory_order_acquire) == Phase::kDead; }

// The calling thread's JNI environment, or null on a thread that is not the VM's. Does not enter
// the VM. On a virtual thread it is the carrier's.
JNIEnv* currentEnv();

} // namespace bridge

#endif
