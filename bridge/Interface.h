// The profiler interface that the VM's GetEnv hands out: one static table whose functions are
// thin forwards to the bridge's parts. Here is also the table of the events that the parts
// deliver.
//
// Before the VM is up and after it is dead every function answers "fail" or does nothing,
// except those that do not need the VM: raw monitors, thread-local storage and the CPU clock
// always work.
#ifndef PRB_BRIDGE_INTERFACE_H
#define PRB_BRIDGE_INTERFACE_H

#include "bridge/EventTable.h"
#include "jvmpi/jvmpi.h"

namespace bridge {

// The table that GetEnv answers; NotifyEvent in it is the profiler's to set.
JVMPI_Interface& profilerInterface();

// The process's events.
EventTable& events();

} // namespace bridge

#endif
