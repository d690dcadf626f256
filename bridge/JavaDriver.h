// The Java side: binds the natives of com.tessel.prb.workanalysis, starts the driver when the VM
// is up and stops it when the VM goes down.
//
// The classes come from the jar that was put on the boot class path while loading. No library is
// loaded through Java, which newer JVMs remark on: the natives are looked up in the agent's
// library by their JNI names and registered. Which natives there are is asked of the classes
// themselves.
#ifndef PRB_BRIDGE_JAVADRIVER_H
#define PRB_BRIDGE_JAVADRIVER_H

#include <string>

#include <jni.h>

namespace bridge {

class JavaDriver {
public:
    // Starts a collection; the first time calls the library's JNI_OnLoad and binds the natives.
    // What goes wrong is said in one line and the program runs on unprofiled.
    static void start(JNIEnv* jni, void* library);
    // The absolute path of the capture that is being written; empty when no collection runs.
    static std::string capture(JNIEnv* jni);
    // Ends the collection, if one runs: returns when its last poll is written.
    static void end(JNIEnv* jni);
    // VMDeath: takes the last poll; returns when it is written. Does nothing if start() did not
    // succeed, or where the driver has a shutdown hook instead (CollectorThreads.h).
    static void stop(JNIEnv* jni);

    // The short JNI name of a native method (JNI, "Resolving Native Method Names"). The class
    // name is with slashes; both are modified UTF-8.
    static std::string nativeName(const std::string& className, const std::string& method);
};

} // namespace bridge

#endif
