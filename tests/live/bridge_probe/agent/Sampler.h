// A system thread that does with the VM's threads what the profiler's sampler does.
#pragma once

#include <atomic>
#include <cstdint>

#include "jvmpi/jvmpi.h"

namespace probe {

extern std::atomic<bool> samplerMayRun;
extern std::atomic<bool> samplerRan; // the body was entered
extern std::atomic<uint64_t> cycles;
extern std::atomic<uint64_t> traces;
extern std::atomic<uint64_t> tracesOfBusy; // of the thread called "busy"
extern std::atomic<uint64_t> framesSeen;
extern std::atomic<uint64_t> framesUnknown; // their methods have no class
extern JVMPI_RawMonitor samplerMonitor;     // notified when samplerMayRun becomes true

void samplerBody(void* argument);

} // namespace probe
