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

// Begins the live phase: from VMInit, or from late attach.
void beginLive(JNIEnv* jni);

} // namespace bridge

#endif
