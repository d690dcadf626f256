#include "collector/PRBJavaCollector.h"

#include "collector/PRBJni.h"

PRBJavaCollector::PRBJavaCollector(JNIEnv* env, jobject javaCollector) {
    if (env == nullptr || javaCollector == nullptr) return;
    functions_ = env->functions;
    object_ = env->NewGlobalRef(javaCollector);
    if (PRBJni::dropException(env) || object_ == nullptr) return;
    PRBJni::LocalRef<jclass> cls(env, env->GetObjectClass(object_));
    if (cls.get() == nullptr) return;
    class_ = static_cast<jclass>(env->NewGlobalRef(cls.get()));
    if (PRBJni::dropException(env) || class_ == nullptr) return;

    getBuildLevel_ = PRBJni::findStaticMethod(env, class_, "getBuildLevel", "()I");
    if (getBuildLevel_ != nullptr) {
        buildLevel_ = env->CallStaticIntMethod(class_, getBuildLevel_);
        if (PRBJni::clearException(env)) buildLevel_ = 0;
    }
    getFreeBytes_ = PRBJni::findStaticMethod(env, class_, "getFreeBytes", "()J");
    getTotalBytes_ = PRBJni::findStaticMethod(env, class_, "getTotalBytes", "()J");
    writeToLog_ = PRBJni::findStaticMethod(env, class_, "writeToLog", "(Ljava/lang/String;)V");
    isGCCollectionActive_ = PRBJni::findMethod(env, class_, "isGCCollectionActive", "()Z");
}

void PRBJavaCollector::release(JNIEnv* env) {
    if (env == nullptr) return;
    if (class_ != nullptr) env->DeleteGlobalRef(class_);
    if (object_ != nullptr) env->DeleteGlobalRef(object_);
    class_ = nullptr;
    object_ = nullptr;
    getBuildLevel_ = getFreeBytes_ = getTotalBytes_ = writeToLog_ = isGCCollectionActive_ = nullptr;
}

jlong PRBJavaCollector::callLong(JNIEnv* env, jmethodID method) const {
    if (env == nullptr || method == nullptr) return -1;
    jlong answer = env->CallStaticLongMethod(class_, method);
    return threw(env) ? -1 : answer;
}

bool PRBJavaCollector::threw(JNIEnv* env) const {
    return env->functions == functions_ && PRBJni::clearException(env);
}

jlong PRBJavaCollector::getFreeBytes(JNIEnv* env) const { return callLong(env, getFreeBytes_); }

jlong PRBJavaCollector::getTotalBytes(JNIEnv* env) const { return callLong(env, getTotalBytes_); }

void PRBJavaCollector::writeToLog(JNIEnv* env, const char* text) const {
    if (env == nullptr || text == nullptr || writeToLog_ == nullptr) return;
    jstring line = PRBJni::newString(env, text);
    if (line == nullptr) return;
    env->CallStaticVoidMethod(class_, writeToLog_, line);
    PRBJni::clearException(env);
}

bool PRBJavaCollector::isGCCollectionActive(JNIEnv* env) const {
    if (env == nullptr || isGCCollectionActive_ == nullptr) return false;
    jboolean answer = env->CallBooleanMethod(object_, isGCCollectionActive_);
    return !PRBJni::clearException(env) && answer == JNI_TRUE;
}
