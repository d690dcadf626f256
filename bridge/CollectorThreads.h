// Which collectors end before the VM tells that it dies.
//
// On its way out HotSpot first stops the threads of the collector and then posts VMDeath. For
// Serial, Parallel and G1 that changes nothing: the VM thread collects. ZGC and Shenandoah
// collect on those threads alone, so that Java code that VMDeath runs may wait for memory for
// ever, and the process with it (seen: ZGC with another thread that allocates).
#ifndef PRB_BRIDGE_COLLECTORTHREADS_H
#define PRB_BRIDGE_COLLECTORTHREADS_H

#include <string>

namespace bridge {

// Whether this process's collector is of the kind that ends early. Reads the names of the
// process's threads; false where /proc cannot be read. REQUIRES: VMInit has come.
bool collectorEndsBeforeVmDeath();

// The same for one thread's name as the kernel has it, cut to 15 characters.
bool isEarlyEndingCollectorThread(const std::string& name);

} // namespace bridge

#endif
