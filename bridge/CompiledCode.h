// Code that the VM has compiled before a late attach. It keeps its debug information at safepoints
// only, so that samples in it may show a neighbouring inlined method.
#ifndef PRB_BRIDGE_COMPILEDCODE_H
#define PRB_BRIDGE_COMPILEDCODE_H

#include <jvmti.h>

namespace bridge {

// Has the VM give up all code that it has compiled so far; what is still in use is compiled again,
// with debug information if the event CompiledMethodLoad is on. The program is slower for the
// seconds that this takes. HotSpot 17 does it, once in its life and unless some agent has redefined
// classes before. HotSpot 25 records which code depends on which class and drops nothing else, so
// there, and in the versions between, nothing is done. False: the code is still there.
// REQUIRES: live phase; the class is one of ours, which nobody changes.
bool dropCompiledCode(jvmtiEnv* jvmti, jclass ours);

} // namespace bridge

#endif
