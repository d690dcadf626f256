// CreateSystemThread: daemon threads of the VM that run the profiler's code.
#ifndef PRB_BRIDGE_SYSTEMTHREADS_H
#define PRB_BRIDGE_SYSTEMTHREADS_H

#include <jvmti.h>

namespace bridge {

class RawMonitor;

class SystemThreads {
public:
    using Body = void (*)(void*);

    // Starts a thread that runs body(null); before the VM is up the thread is noted and started
    // by startQueued(). Answers JVMPI_SUCCESS or JVMPI_FAIL. The name is copied; priorities
    // outside 1 to 10 are moved to the nearest.
    static jint create(const char* name, jint priority, Body body);

    // VMInit: starts what was asked for before.
    static void startQueued(JNIEnv* jni);

    // RawMonitor::wait, from which a system thread does not return once the VM dies.
    static void wait(RawMonitor& monitor, jlong milliseconds);

    // The last act of VMDeath: puts the system threads to sleep inside the VM. Otherwise the VM
    // would wait 300 ms for them at its end, as for every thread that is in native code. Waits
    // until they sleep, which takes a sampling interval at most, but no longer than 50 ms.
    static void sleepForGood();
};

} // namespace bridge

#endif
