// The bridge's entry points. Loading always counts as successful: what is wrong was said in a line.
#include <jvmti.h>

#include "bridge/AttachRequest.h"
#include "bridge/Loader.h"
#include "bridge/Report.h"

extern "C" {

JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM* vm, char* options, void*) {
    static bool entered = false;
    try {
        if (entered)
            bridge::report("the bridge is loaded already; the second -agentpath is ignored");
        else
            bridge::Loader::load(vm, options, false);
    } catch (...) {
        bridge::report("memory is short; the program runs unprofiled");
    }
    entered = true;
    return JNI_OK;
}

JNIEXPORT jint JNICALL Agent_OnAttach(JavaVM* vm, char* options, void*) {
    try {
        bridge::AttachRequest::serve(vm, options);
    } catch (...) {
        bridge::report("memory is short; nothing was done");
    }
    return JNI_OK;
}

// Nothing is torn down: the profiler's threads run until the process ends.
JNIEXPORT void JNICALL Agent_OnUnload(JavaVM*) {}
}
