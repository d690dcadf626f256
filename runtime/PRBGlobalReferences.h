// Deleting JNI global references from where no usable environment is at hand.
#ifndef PRB_RUNTIME_PRBGLOBALREFERENCES_H
#define PRB_RUNTIME_PRBGLOBALREFERENCES_H

#include <cstddef>
#include <jni.h>

namespace PRBGlobalReferences {

// Through the calling thread's own environment, or later when it has none. Any lock may be held
// only if the thread is not attached; else REQUIRES: no registry held. Null is ignored.
void destroy(jobject reference);
// Deletes what was put off; called by natives, which have an environment.
void drain(JNIEnv* env);
std::size_t pending();

} // namespace PRBGlobalReferences

#endif
