#include "bridge/HandleSlots.h"

#include "bridge/Jvmti.h"

namespace bridge {
namespace {

// A collection may move an object between two looks.
constexpr int kTries = 20;

struct References {
    jobject local;
    jobject global;
    jweak weak;

    bool complete() const { return local && global && weak; }
    // The address that all three agree on, or null.
    const void* agreed() const {
        for (int i = 0; i < kTries; i++) {
            const void* address = HandleSlots::peek(local);
            if (address && address == HandleSlots::peek(global) &&
                address == HandleSlots::peek(weak))
                return address;
        }
        return nullptr;
    }
};

References refer(JNIEnv* jni, jobject object) {
    return {object, jni->NewGlobalRef(object), jni->NewWeakGlobalRef(object)};
}

void release(JNIEnv* jni, const References& references) {
    if (references.global) jni->DeleteGlobalRef(references.global);
    if (references.weak) jni->DeleteWeakGlobalRef(references.weak);
}

} // namespace

bool HandleSlots::verify(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> object(jni, jni->FindClass("java/lang/Object"));
    LocalRef<jclass> thread(jni, jni->FindClass("java/lang/Thread"));
    if (!object || !thread) return false;
    const References one = refer(jni, object.get());
    const References other = refer(jni, thread.get());
    const void* at = one.complete() ? one.agreed() : nullptr;
    const void* otherAt = other.complete() ? other.agreed() : nullptr;
    release(jni, one);
    release(jni, other);
    return at && otherAt && at != otherAt;
}

} // namespace bridge
