// What a pass returns, as Java sees it.
#ifndef PRB_COLLECTOR_PRBBUFFERCONVERTER_H
#define PRB_COLLECTOR_PRBBUFFERCONVERTER_H

#include "collector/PRBSampleList.h"

#include <jni.h>

namespace PRBBufferConverter {

// A Java array that holds, for each sample in order, its length as 4 big-endian bytes and its
// bytes; null for an empty list. Null as well, with the VM's OutOfMemoryError left pending for
// Java, when the array cannot be had. REQUIRES: nothing is pending.
jbyteArray convertBufferCollectionToJavaByteArray(JNIEnv* env, const PRBSampleList& list);

} // namespace PRBBufferConverter

#endif
