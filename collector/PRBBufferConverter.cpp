#include "collector/PRBBufferConverter.h"

jbyteArray PRBBufferConverter::convertBufferCollectionToJavaByteArray(JNIEnv* env,
                                                                      const PRBSampleList& list) {
    static_assert(PRBRecordArray::kMost == 0x7FFFFFFF, "a jsize");
    const auto total = static_cast<jsize>(list.size());
    if (total == 0) return nullptr;
    jbyteArray array = env->NewByteArray(total);
    if (array == nullptr || env->ExceptionCheck()) return nullptr;
    env->SetByteArrayRegion(array, 0, total, reinterpret_cast<const jbyte*>(list.data()));
    return env->ExceptionCheck() ? nullptr : array; // zeros are no poll
}
