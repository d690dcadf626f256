// Loads the bridge's parts into a VM, at its start or later. Whatever is wrong, the program runs:
// the reason is said in one line, and the VM's GetEnv stays as it was.
//
// Called by one thread at a time: the one that starts the VM, or the one that serves attachers.
#ifndef PRB_BRIDGE_LOADER_H
#define PRB_BRIDGE_LOADER_H

#include <jni.h>

namespace bridge {

class Loader {
public:
    // False if the bridge declines. May then be called again while touchedVm() is false.
    static bool load(JavaVM* vm, const char* optionText, bool attaching);
    static bool touchedVm();
    // Puts the Java side's jar on the boot class path if the options want it and it is not there.
    // False: it cannot be had, and the reason was said.
    static bool needJar();
};

} // namespace bridge

#endif
