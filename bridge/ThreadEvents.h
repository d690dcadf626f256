// The VM's threads: keeps the thread table in step with the VM and delivers THREAD_START and
// THREAD_END.
#ifndef PRB_BRIDGE_THREADEVENTS_H
#define PRB_BRIDGE_THREADEVENTS_H

#include <jvmti.h>

#include "jvmpi/jvmpi.h"

namespace bridge {

class ThreadEvents {
public:
    // Finds the fields needed and checks the VM's insides with the calling thread as the
    // specimen. False: the bridge cannot work in this VM, and VmStructs::problem() says why.
    // REQUIRES: the live phase has begun; called on a Java thread in native code.
    static bool start(JNIEnv* jni);
    // Takes in the threads that exist already.
    static void addExisting(JNIEnv* jni);

    // The VM's callbacks, each on the thread in question.
    static void started(JNIEnv* jni, jthread thread);
    static void ended(JNIEnv* jni);

    // Rows of the event table.
    static jint announceAll();
    static void forgetAnnouncements();
    static jint request(void* threadId);
};

} // namespace bridge

#endif
