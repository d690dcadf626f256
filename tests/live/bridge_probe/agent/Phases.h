// What the probe asks of the bridge while it is loaded, before the VM is up, and after its death.
#pragma once

#include <cstdint>

#include "jvmpi/jvmpi.h"

namespace probe {

extern bool lateMode; // the events are enabled in the driver's start, not in JVM_OnLoad
extern uint64_t counted;

void enableAll();
// After JVM_SHUT_DOWN, at the process's exit: everything is refused and nothing fails.
void afterDeath();
// Counts `counted` up under a monitor that is entered twice, notified and waited on.
void countUnderMonitor(jlong times);

} // namespace probe
