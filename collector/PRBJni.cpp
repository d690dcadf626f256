#include "collector/PRBJni.h"

#include "core/PRBContext.h"

namespace PRBJni {

bool clearException(JNIEnv* env) {
    if (env == nullptr || !env->ExceptionCheck()) return false;
    env->ExceptionDescribe();
    env->ExceptionClear();
    return true;
}

bool dropException(JNIEnv* env) {
    if (env == nullptr || !env->ExceptionCheck()) return false;
    env->ExceptionClear();
    return true;
}

JNIEnv* currentEnvironment() {
    JavaVM* vm = PRBContext::getJavaVM();
    void* env = nullptr;
    if (vm == nullptr || vm->GetEnv(&env, JNI_VERSION_1_2) != JNI_OK) return nullptr;
    return static_cast<JNIEnv*>(env);
}

jclass findClass(JNIEnv* env, const char* name) {
    if (env == nullptr) return nullptr;
    jclass found = env->FindClass(name);
    return dropException(env) ? nullptr : found;
}

jmethodID findMethod(JNIEnv* env, jclass cls, const char* name, const char* signature) {
    if (env == nullptr || cls == nullptr) return nullptr;
    jmethodID found = env->GetMethodID(cls, name, signature);
    return dropException(env) ? nullptr : found;
}

jmethodID findStaticMethod(JNIEnv* env, jclass cls, const char* name, const char* signature) {
    if (env == nullptr || cls == nullptr) return nullptr;
    jmethodID found = env->GetStaticMethodID(cls, name, signature);
    return dropException(env) ? nullptr : found;
}

std::string toString(JNIEnv* env, jstring text) {
    UtfChars chars(env, text);
    return chars.get() == nullptr ? std::string() : std::string(chars.get());
}

jstring newString(JNIEnv* env, const char* text) {
    if (env == nullptr || text == nullptr) return nullptr;
    jstring made = env->NewStringUTF(text);
    return dropException(env) ? nullptr : made;
}

LocalFrame::LocalFrame(JNIEnv* env, jint capacity) : env_(env) {
    if (env_ != nullptr && env_->PushLocalFrame(capacity) != JNI_OK) {
        dropException(env_);
        env_ = nullptr;
    }
}

LocalFrame::~LocalFrame() { close(nullptr); }

jobject LocalFrame::close(jobject result) {
    if (env_ == nullptr) return nullptr;
    JNIEnv* env = env_;
    env_ = nullptr;
    return env->PopLocalFrame(result);
}

UtfChars::UtfChars(JNIEnv* env, jstring text) : env_(env), text_(text) {
    if (env_ == nullptr || text_ == nullptr) return;
    chars_ = env_->GetStringUTFChars(text_, nullptr);
    if (chars_ == nullptr) dropException(env_);
}

UtfChars::~UtfChars() {
    if (chars_ != nullptr) env_->ReleaseStringUTFChars(text_, chars_);
}

} // namespace PRBJni
