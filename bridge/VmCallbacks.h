// The VM's callbacks: thin forwards from JVMTI to the bridge's parts, each of which lets no
// exception through.
#ifndef PRB_BRIDGE_VMCALLBACKS_H
#define PRB_BRIDGE_VMCALLBACKS_H

#include <string>

#include <jvmti.h>

namespace bridge {

// Takes the capabilities and switches the events on that the bridge cannot do without. Answers
// an empty text, or what the VM refuses.
std::string installCallbacks(jvmtiEnv* jvmti);
// The bridge declines after all: compilers go on as they did before.
void dropDebugInformation();

// Begins the live phase: from VMInit, or from late attach.
void beginLive(JNIEnv* jni);

// Between two collections the sampler's signal, the debug information of compiled code and the
// heap's mark against forks are given back; threads and classes are followed as before, so that
// the next collection knows them. REQUIRES: the live phase.
void rest();
// Takes them again. Answers an empty text, or why no collection can run.
std::string wake();

} // namespace bridge

#endif
