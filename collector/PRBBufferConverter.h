// The framing of what a pass returns.
#ifndef PRB_COLLECTOR_PRBBUFFERCONVERTER_H
#define PRB_COLLECTOR_PRBBUFFERCONVERTER_H

#include "core/PRBCollections.h"

#include <jni.h>

namespace PRBBufferConverter {

// Takes every PRBBuffer out of the list and answers a Java array that holds, for each in order,
// its length as 4 big-endian bytes and its bytes; null for an empty list. Null as well, with the
// VM's OutOfMemoryError left pending for Java, when the array cannot be had, and null with
// nothing pending above the 2 GB that a Java array can hold. The list is empty afterwards.
// REQUIRES: the list holds PRBBuffers only; nothing is pending.
jbyteArray convertBufferCollectionToJavaByteArray(JNIEnv* env, PRBSlist& list);

} // namespace PRBBufferConverter

#endif
