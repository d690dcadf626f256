#include "core/PRBJavaProperty.h"

#include "collector/PRBJni.h"
#include "core/PRBTrace.h"

namespace {

constexpr unsigned kNoSystemClass = 67;
constexpr unsigned kNoGetProperty = 68;
constexpr unsigned kNoProperty = 69;
constexpr unsigned kJavaException = 73;
constexpr jint kFrame = 16;

unsigned getProperty(JNIEnv* env, const char* name, std::string& value) {
    jclass system = PRBJni::findClass(env, "java/lang/System");
    if (system == nullptr) return kNoSystemClass;
    jmethodID method = PRBJni::findStaticMethod(env, system, "getProperty",
                                                "(Ljava/lang/String;)Ljava/lang/String;");
    if (method == nullptr) return kNoGetProperty;
    jstring key = env->NewStringUTF(name);
    if (PRBJni::clearException(env)) return kJavaException;
    auto text = static_cast<jstring>(env->CallStaticObjectMethod(system, method, key));
    if (PRBJni::clearException(env)) return kJavaException;
    PRBJni::UtfChars characters(env, text);
    if (characters.get() == nullptr) return kNoProperty;
    value = characters.get();
    return 0;
}

} // namespace

std::string PRBJavaProperty(JNIEnv* env, const char* name, PRBReturnCode& rc) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kMonitorGlobal,
                        "PRBMonitorGlobal::getJavaProperty");
    std::string value;
    PRBJni::LocalFrame frame(env, kFrame);
    rc = frame.isOpen() ? getProperty(env, name, value) : kJavaException;
    return value;
}
