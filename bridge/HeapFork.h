// Keeps the Java heap out of forked children. The sampler sleeps by way of a child process; with
// the heap shared copy-on-write, the parent's next pass over its heap would copy every page.
#ifndef PRB_BRIDGE_HEAPFORK_H
#define PRB_BRIDGE_HEAPFORK_H

#include "bridge/VmStructs.h"

namespace bridge {

// Marks the reserved range of the heap (MADV_DONTFORK), now and before each fork: where the heap
// has grown since, the VM has mapped fresh pages without the mark. Answers false if the VM does
// not name the range or the kernel refuses: forks then work as before, at a price.
// May be called again after unprotectHeapFromFork(). REQUIRES: the heap exists (VMInit).
bool protectHeapFromFork(const VmStructs& vm);

// Takes the mark off again; forks copy the heap as they did before. Does nothing if it was not
// set.
void unprotectHeapFromFork();

} // namespace bridge

#endif
