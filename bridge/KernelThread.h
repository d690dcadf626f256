// What the kernel says of a thread of this process.
#pragma once

#include <sys/types.h>

namespace bridge {

// True if the thread runs or is ready to: state R of /proc/self/task/<tid>/stat (proc(5)). False
// when it is blocked, gone, or the file cannot be read. About 10 us; allocates and locks nothing.
bool isOnRunQueue(pid_t tid);

} // namespace bridge
