#include "bridge/JavaDriver.h"

#include <vector>

#include <dlfcn.h>

#include "bridge/BridgeLink.h"
#include "bridge/CollectorThreads.h"
#include "bridge/Context.h"
#include "bridge/Jvmti.h"
#include "bridge/Report.h"

namespace bridge {
namespace {

constexpr jint kAccNative = 0x100; // JVMS 4.6

#define PRB_PACKAGE "com/tessel/prb/workanalysis/"
constexpr char kDriverClass[] = PRB_PACKAGE "ProfilerDriver";

// Where a class's natives come from.
enum class Natives { kLibrary, kBridge };
struct BoundClass {
    const char* name;
    Natives natives;
};
constexpr BoundClass kClasses[] = {
    {PRB_PACKAGE "Profiler", Natives::kLibrary},
    {PRB_PACKAGE "Collector", Natives::kLibrary},
    {PRB_PACKAGE "Globals", Natives::kLibrary},
    {PRB_PACKAGE "BackgroundThread", Natives::kLibrary},
    {PRB_PACKAGE "InstrumentedStack", Natives::kLibrary},
    {PRB_PACKAGE "InstrumentedMethodEntry", Natives::kLibrary},
    {PRB_PACKAGE "AgentConnection", Natives::kLibrary},
    {PRB_PACKAGE "TransportableData", Natives::kLibrary},
    {PRB_PACKAGE "StaticConfigDataSampleSource", Natives::kLibrary},
    {PRB_PACKAGE "BridgeLink", Natives::kBridge},
};
#undef PRB_PACKAGE

// The pending exception as a text, cleared.
std::string takeException(JNIEnv* jni) {
    LocalRef<jthrowable> thrown(jni, jni->ExceptionOccurred());
    if (!thrown) return "no reason is given";
    jni->ExceptionClear();
    LocalRef<jclass> throwable(jni, jni->FindClass("java/lang/Throwable"));
    const jmethodID toString =
        throwable ? jni->GetMethodID(throwable.get(), "toString", "()Ljava/lang/String;") : nullptr;
    std::string result = "an exception that cannot be named";
    if (toString) {
        LocalRef<jstring> text(jni,
                               static_cast<jstring>(jni->CallObjectMethod(thrown.get(), toString)));
        const char* chars =
            text && !jni->ExceptionCheck() ? jni->GetStringUTFChars(text.get(), nullptr) : nullptr;
        if (chars) {
            result = chars;
            jni->ReleaseStringUTFChars(text.get(), chars);
        }
    }
    jni->ExceptionClear();
    return result;
}

void* addressOf(const BoundClass& owner, const std::string& method, void* library) {
    if (owner.natives == Natives::kBridge) return bridgeNative(method);
    return dlsym(library, JavaDriver::nativeName(owner.name, method).c_str());
}

// Registers every native that the class declares. Answers an empty text, or what is wrong.
std::string bind(JNIEnv* jni, const BoundClass& owner, void* library) {
    jvmtiEnv* jvmti = context().jvmti;
    LocalRef<jclass> found(jni, jni->FindClass(owner.name));
    if (!found) return std::string(owner.name) + " is not in the jar: " + takeException(jni);
    jint count = 0;
    JvmtiMemory<jmethodID> methods(jvmti);
    if (jvmti->GetClassMethods(found.get(), &count, methods.out()) != JVMTI_ERROR_NONE)
        return std::string(owner.name) + " cannot be linked";
    for (jint i = 0; i < count; i++) {
        jint modifiers = 0;
        if (jvmti->GetMethodModifiers(methods[i], &modifiers) != JVMTI_ERROR_NONE ||
            !(modifiers & kAccNative))
            continue;
        JvmtiText name(jvmti);
        JvmtiText signature(jvmti);
        if (jvmti->GetMethodName(methods[i], name.out(), signature.out(), nullptr) !=
            JVMTI_ERROR_NONE)
            return std::string("a native of ") + owner.name + " has no name";
        void* address = addressOf(owner, name.get(), library);
        if (!address)
            return std::string("libprbprof.so has no native ") + owner.name + "." + name.get() +
                   ": jar and library are not of one release";
        const JNINativeMethod native{name.get(), signature.get(), address};
        if (jni->RegisterNatives(found.get(), &native, 1) != 0)
            return std::string(owner.name) + "." + name.get() +
                   " cannot be bound: " + takeException(jni);
    }
    return {};
}

std::string callOnLoad(void* library) {
    using OnLoad = jint(JNICALL*)(JavaVM*, void*);
    const auto onLoad = reinterpret_cast<OnLoad>(dlsym(library, "JNI_OnLoad"));
    if (!onLoad) return "libprbprof.so has no JNI_OnLoad";
    if (onLoad(context().vm, nullptr) < 0) return "libprbprof.so refuses this JVM";
    return {};
}

// The driver's methods; there once the natives are bound.
struct Driver {
    jclass type = nullptr; // a global reference
    jmethodID start = nullptr;
    jmethodID stop = nullptr;
    jmethodID stopAtShutdown = nullptr;
    jmethodID capture = nullptr;
    bool hooked = false; // it stops by a shutdown hook
};
Driver driver;

struct MethodRow {
    jmethodID Driver::*method;
    const char* name;
    const char* signature;
};
constexpr MethodRow kMethods[] = {
    {&Driver::start, "start", "(Ljava/lang/String;)V"},
    {&Driver::stop, "stop", "()V"},
    {&Driver::stopAtShutdown, "stopAtShutdown", "()V"},
    {&Driver::capture, "capture", "()Ljava/lang/String;"},
};

// Binds every native and finds the driver. Answers an empty text, or what is wrong.
std::string prepare(JNIEnv* jni, void* library) {
    if (driver.type) return {};
    if (std::string problem = callOnLoad(library); !problem.empty()) return problem;
    for (const BoundClass& owner : kClasses)
        if (std::string problem = bind(jni, owner, library); !problem.empty()) return problem;
    LocalRef<jclass> found(jni, jni->FindClass(kDriverClass));
    if (!found) return std::string(kDriverClass) + " is not in the jar: " + takeException(jni);
    Driver ready;
    for (const MethodRow& row : kMethods) {
        ready.*row.method = jni->GetStaticMethodID(found.get(), row.name, row.signature);
        if (!(ready.*row.method))
            return std::string(kDriverClass) + " is not of this release: " + takeException(jni);
    }
    ready.type = static_cast<jclass>(jni->NewGlobalRef(found.get()));
    if (!ready.type) return "memory is short";
    driver = ready;
    return {};
}

std::string launch(JNIEnv* jni, void* library) {
    if (std::string problem = prepare(jni, library); !problem.empty()) return problem;
    LocalRef<jstring> text(jni, jni->NewStringUTF(context().options.text().c_str()));
    if (!text) return "the option text cannot be passed on: " + takeException(jni);
    jni->CallStaticVoidMethod(driver.type, driver.start, text.get());
    if (jni->ExceptionCheck()) return "the Java driver failed: " + takeException(jni);
    if (driver.hooked || !collectorEndsBeforeVmDeath()) return {};
    jni->CallStaticVoidMethod(driver.type, driver.stopAtShutdown);
    if (jni->ExceptionCheck()) return "the Java driver has no end: " + takeException(jni);
    driver.hooked = true;
    return {};
}

} // namespace

void JavaDriver::start(JNIEnv* jni, void* library) {
    ExceptionShelter shelter(jni);
    const std::string problem = launch(jni, library);
    if (!problem.empty()) report("%s; the program runs unprofiled", problem.c_str());
}

std::string JavaDriver::capture(JNIEnv* jni) {
    if (!driver.type) return {};
    ExceptionShelter shelter(jni);
    LocalRef<jstring> path(
        jni, static_cast<jstring>(jni->CallStaticObjectMethod(driver.type, driver.capture)));
    if (!path || jni->ExceptionCheck()) return {};
    const char* text = jni->GetStringUTFChars(path.get(), nullptr);
    if (!text) return {};
    std::string result = text;
    jni->ReleaseStringUTFChars(path.get(), text);
    return result;
}

void JavaDriver::end(JNIEnv* jni) {
    if (!driver.type) return;
    ExceptionShelter shelter(jni);
    jni->CallStaticVoidMethod(driver.type, driver.stop);
    if (jni->ExceptionCheck())
        report("the Java driver failed to stop: %s; the capture lacks its end",
               takeException(jni).c_str());
}

void JavaDriver::stop(JNIEnv* jni) {
    if (!driver.hooked) end(jni);
}

std::string JavaDriver::nativeName(const std::string& className, const std::string& method) {
    static const char hex[] = "0123456789abcdef";
    std::string result = "Java_";
    const std::string whole = className + "/" + method;
    for (size_t i = 0; i < whole.size(); i++) {
        const auto c = static_cast<unsigned char>(whole[i]);
        if (c == '/') {
            result += '_';
        } else if (c == '_') {
            result += "_1";
        } else if (c < 0x80 && c != '$') {
            result += static_cast<char>(c);
        } else {
            // Modified UTF-8 has one to three bytes for each 16-bit unit.
            unsigned unit = c;
            if ((c & 0xe0) == 0xc0 && i + 1 < whole.size()) {
                unit = (c & 0x1fu) << 6 | (static_cast<unsigned char>(whole[i + 1]) & 0x3fu);
                i += 1;
            } else if ((c & 0xf0) == 0xe0 && i + 2 < whole.size()) {
                unit = (c & 0x0fu) << 12 | (static_cast<unsigned char>(whole[i + 1]) & 0x3fu) << 6 |
                       (static_cast<unsigned char>(whole[i + 2]) & 0x3fu);
                i += 2;
            }
            result += "_0";
            for (int shift = 12; shift >= 0; shift -= 4) result += hex[unit >> shift & 15u];
        }
    }
    return result;
}

} // namespace bridge
