// What the profiler is told of an object: the OBJECT_ALLOC event that answers a request.
#ifndef PRB_BRIDGE_OBJECTEVENTS_H
#define PRB_BRIDGE_OBJECTEVENTS_H

#include <cstdint>

#include <jvmti.h>

#include "jvmpi/jvmpi.h"

namespace bridge {

class ObjectEvents {
public:
    // The type of the objects of a class by the class's name in the profiler interface:
    // JVMPI_NORMAL_OBJECT, JVMPI_CLASS for arrays of objects, JVMPI_INT and so on.
    static jint typeOf(const char* className);

    // Delivers OBJECT_ALLOC for a live object as the answer to a request. The class of an array
    // is the array's own. REQUIRES: a Java thread without a pending exception.
    static jint answerRequest(JNIEnv* jni, jobject object, uint32_t id);
    // The same for an object of which everything is known. `size` in bytes.
    static void deliverRequested(JNIEnv* env, uint32_t id, uint32_t classId, jint type, jint size);
};

} // namespace bridge

#endif
