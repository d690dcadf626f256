// Small owners for what JNI hands out, and the one way to deal with exceptions of Java code that
// the agent calls. Used on the thread of the environment that is passed in; a null environment
// is taken everywhere and does nothing.
#ifndef PRB_COLLECTOR_PRBJNI_H
#define PRB_COLLECTOR_PRBJNI_H

#include <jni.h>

#include <string>

namespace PRBJni {

// True when an exception was pending; it has then been described on the VM's error stream and
// cleared. To be called after every call of Java code: no JNI call may follow with one pending.
bool clearException(JNIEnv* env);
// The same without describing it: for look-ups that are allowed to fail.
bool dropException(JNIEnv* env);

// The calling thread's environment, from the VM that JNI_OnLoad kept; null when the thread is
// not attached, or before that.
JNIEnv* currentEnvironment();

// Look-ups that answer null, with nothing pending, for a class of null or a method or class that
// does not exist.
jclass findClass(JNIEnv* env, const char* name);
jmethodID findMethod(JNIEnv* env, jclass cls, const char* name, const char* signature);
jmethodID findStaticMethod(JNIEnv* env, jclass cls, const char* name, const char* signature);

// The characters of a Java string in modified UTF-8; empty for null.
std::string toString(JNIEnv* env, jstring text);

// A Java string of a text; null when the VM has no memory for one (nothing is left pending).
jstring newString(JNIEnv* env, const char* text);

// Bounds the local references that are made while it lives.
class LocalFrame {
public:
    LocalFrame(JNIEnv* env, jint capacity);
    ~LocalFrame();
    LocalFrame(const LocalFrame&) = delete;
    LocalFrame& operator=(const LocalFrame&) = delete;

    // False when the VM refused the frame; nothing is left pending.
    bool isOpen() const { return env_ != nullptr; }
    // Closes the frame; one reference survives it.
    jobject close(jobject result);

private:
    JNIEnv* env_; // null: no frame to close
};

// Deletes a local reference at the end of a scope: for loops that would outgrow their frame.
template <typename T> class LocalRef {
public:
    LocalRef(JNIEnv* env, T ref) : env_(env), ref_(ref) {}
    ~LocalRef() {
        if (ref_ != nullptr) env_->DeleteLocalRef(ref_);
    }
    LocalRef(const LocalRef&) = delete;
    LocalRef& operator=(const LocalRef&) = delete;
    T get() const { return ref_; }

private:
    JNIEnv* env_;
    T ref_;
};

// The UTF characters of a Java string for a scope; get() is null for a null string and when the
// VM has no memory for them.
class UtfChars {
public:
    UtfChars(JNIEnv* env, jstring text);
    ~UtfChars();
    UtfChars(const UtfChars&) = delete;
    UtfChars& operator=(const UtfChars&) = delete;
    const char* get() const { return chars_; }

private:
    JNIEnv* env_;
    jstring text_;
    const char* chars_ = nullptr;
};

} // namespace PRBJni

#endif
