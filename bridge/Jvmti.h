// Owners of what JVMTI and JNI hand out.
#ifndef PRB_BRIDGE_JVMTI_H
#define PRB_BRIDGE_JVMTI_H

#include <jvmti.h>

namespace bridge {

// Memory from JVMTI, given back at the end. Pass out() to the call that fills it.
template <class T> class JvmtiMemory {
public:
    explicit JvmtiMemory(jvmtiEnv* jvmti) : jvmti_(jvmti) {}
    ~JvmtiMemory() {
        if (memory_) jvmti_->Deallocate(reinterpret_cast<unsigned char*>(memory_));
    }
    JvmtiMemory(const JvmtiMemory&) = delete;
    JvmtiMemory& operator=(const JvmtiMemory&) = delete;

    T** out() { return &memory_; }
    T* get() const { return memory_; }
    T& operator[](jint index) const { return memory_[index]; }

private:
    jvmtiEnv* jvmti_;
    T* memory_ = nullptr;
};

using JvmtiText = JvmtiMemory<char>;

// A JNI local reference, deleted at the end; the VM's calls hand out many more than a frame's 16.
template <class T> class LocalRef {
public:
    LocalRef(JNIEnv* jni, T object) : jni_(jni), object_(object) {}
    ~LocalRef() {
        if (object_) jni_->DeleteLocalRef(object_);
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;

    T get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

private:
    JNIEnv* jni_;
    T object_;
};

// After a call of JVMTI that answered `count` local references: checked JNI wants to hear that
// there is room for them and for more.
inline void roomForLocals(JNIEnv* jni, jint count) {
    constexpr jint kMore = 32;
    constexpr jint kMost = 65536; // the VM grants no more at once
    jni->EnsureLocalCapacity(count < kMost - kMore ? count + kMore : kMost);
}

// Keeps the caller's pending Java exception out of the way: JNI allows next to nothing while one
// is pending, and the profiler asks at any time. Exceptions of our own calls are dropped.
class ExceptionShelter {
public:
    explicit ExceptionShelter(JNIEnv* jni) : jni_(jni), pending_(jni->ExceptionOccurred()) {
        if (pending_) jni_->ExceptionClear();
    }
    ~ExceptionShelter() {
        jni_->ExceptionClear();
        if (!pending_) return;
        jni_->Throw(pending_);
        jni_->DeleteLocalRef(pending_);
    }
    ExceptionShelter(const ExceptionShelter&) = delete;
    ExceptionShelter& operator=(const ExceptionShelter&) = delete;

private:
    JNIEnv* jni_;
    jthrowable pending_;
};

} // namespace bridge

#endif
