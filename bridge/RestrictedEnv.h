// The environment that collection events carry. Inside a collection there is no JNI, but the
// profiler asks for the free bytes of the heap by calling a static Java method that answers a
// long. This environment answers that one question without Java; everything else in it answers
// zero and does nothing.
#ifndef PRB_BRIDGE_RESTRICTEDENV_H
#define PRB_BRIDGE_RESTRICTEDENV_H

#include <jni.h>

namespace bridge {

class RestrictedEnv {
public:
    // The process's one; never destroyed. Any thread may use it, whatever it is given.
    static JNIEnv* env();
    // What calls of static methods that answer a long answer from now on. For the collecting
    // thread.
    static void setAnswer(jlong value);
};

} // namespace bridge

#endif
