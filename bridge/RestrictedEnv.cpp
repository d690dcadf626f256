#include "bridge/RestrictedEnv.h"

#include <atomic>
#include <cstddef>

namespace bridge {
namespace {

std::atomic<jlong> answer{-1};

// In the C calling convention the caller clears its arguments away, so that one function can stand
// in for all that answer in the same registers: integers and pointers in one pair, floating point
// in the other.
jlong JNICALL nothing() { return 0; }
jdouble JNICALL noNumber() { return 0; }

constexpr size_t kFloatingPoint[] = {
    offsetof(JNINativeInterface_, CallFloatMethod),
    offsetof(JNINativeInterface_, CallFloatMethodV),
    offsetof(JNINativeInterface_, CallFloatMethodA),
    offsetof(JNINativeInterface_, CallDoubleMethod),
    offsetof(JNINativeInterface_, CallDoubleMethodV),
    offsetof(JNINativeInterface_, CallDoubleMethodA),
    offsetof(JNINativeInterface_, CallNonvirtualFloatMethod),
    offsetof(JNINativeInterface_, CallNonvirtualFloatMethodV),
    offsetof(JNINativeInterface_, CallNonvirtualFloatMethodA),
    offsetof(JNINativeInterface_, CallNonvirtualDoubleMethod),
    offsetof(JNINativeInterface_, CallNonvirtualDoubleMethodV),
    offsetof(JNINativeInterface_, CallNonvirtualDoubleMethodA),
    offsetof(JNINativeInterface_, CallStaticFloatMethod),
    offsetof(JNINativeInterface_, CallStaticFloatMethodV),
    offsetof(JNINativeInterface_, CallStaticFloatMethodA),
    offsetof(JNINativeInterface_, CallStaticDoubleMethod),
    offsetof(JNINativeInterface_, CallStaticDoubleMethodV),
    offsetof(JNINativeInterface_, CallStaticDoubleMethodA),
    offsetof(JNINativeInterface_, GetFloatField),
    offsetof(JNINativeInterface_, GetDoubleField),
    offsetof(JNINativeInterface_, GetStaticFloatField),
    offsetof(JNINativeInterface_, GetStaticDoubleField),
};

jlong JNICALL callLong(JNIEnv*, jclass, jmethodID, ...) {
    return answer.load(std::memory_order_relaxed);
}
jlong JNICALL callLongV(JNIEnv*, jclass, jmethodID, va_list) {
    return answer.load(std::memory_order_relaxed);
}
jlong JNICALL callLongA(JNIEnv*, jclass, jmethodID, const jvalue*) {
    return answer.load(std::memory_order_relaxed);
}

struct Environment {
    JNINativeInterface_ functions{};
    JNIEnv env{};

    Environment() {
        void** slots = reinterpret_cast<void**>(&functions);
        constexpr size_t kReserved = offsetof(JNINativeInterface_, GetVersion) / sizeof(void*);
        for (size_t i = kReserved; i < sizeof functions / sizeof(void*); i++)
            slots[i] = reinterpret_cast<void*>(nothing);
        for (const size_t offset : kFloatingPoint)
            slots[offset / sizeof(void*)] = reinterpret_cast<void*>(noNumber);
        functions.CallStaticLongMethod = callLong;
        functions.CallStaticLongMethodV = callLongV;
        functions.CallStaticLongMethodA = callLongA;
        env.functions = &functions;
    }
};

} // namespace

JNIEnv* RestrictedEnv::env() {
    static Environment& the = *new Environment;
    return &the.env;
}

void RestrictedEnv::setAnswer(jlong value) { answer.store(value, std::memory_order_relaxed); }

} // namespace bridge
