// MONITOR_CONTENDED_ENTER, _ENTERED, MONITOR_WAIT and _WAITED, on the thread that blocks.
//
// The VM reports a contended enter when the thread really blocks: an acquisition after some
// spinning is silent. It reports no exit (the event can be enabled and never comes), no parking
// (java.util.concurrent) and no Thread.sleep. A thread in Thread.join waits on the Thread.
// Virtual threads are left out: enter and entered may come on different carriers.
//
// The monitor's object gets an id that it keeps for life. While the profiler's callback runs it
// may ask for that object's allocation (RequestEvent of OBJECT_ALLOC), which names its class.
#ifndef PRB_BRIDGE_MONITOREVENTS_H
#define PRB_BRIDGE_MONITOREVENTS_H

#include <jvmti.h>

#include "jvmpi/jvmpi.h"

namespace bridge {

class MonitorEvents {
public:
    // Looks up what the callbacks need. False if the VM does not have it.
    // REQUIRES: VMInit has come.
    static bool start(JNIEnv* jni);

    // The VM's callbacks; no exception comes out. Times in milliseconds, 0: without limit.
    static void contendedEnter(JNIEnv* jni, jthread thread, jobject object) noexcept;
    static void contendedEntered(JNIEnv* jni, jthread thread, jobject object) noexcept;
    static void wait(JNIEnv* jni, jthread thread, jobject object, jlong timeout) noexcept;
    static void waited(JNIEnv* jni, jthread thread, jobject object) noexcept;

    // Whether the calling thread is inside the profiler's callback for one of these events.
    static bool inCallback();
    // The request of OBJECT_ALLOC in such a callback: answered for the monitor's object, refused
    // for every other.
    static jint requestAllocation(void* objectId);

    // How many frames at the top of the calling thread's stack are Object.wait, to be left out:
    // the method that waits, or fights for its monitor after the wait, is the one that called it.
    // 0 outside the callbacks.
    static jint framesToSkip(const jvmtiFrameInfo* frames, jint count);
    // How many frames framesToSkip() may leave out, to be asked for beyond those wanted.
    static constexpr jint kMostSkipped = 4;
};

} // namespace bridge

#endif
