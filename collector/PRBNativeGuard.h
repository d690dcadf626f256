// The one way in which a native method of the Java package runs.
#ifndef PRB_COLLECTOR_PRBNATIVEGUARD_H
#define PRB_COLLECTOR_PRBNATIVEGUARD_H

#include "collector/PRBJni.h"
#include "core/PRBTrace.h"

#include <jni.h>

#include <type_traits>
#include <utility>

// The trace name of a native method; its symbol unless said otherwise.
#define PRB_NATIVE_NAME(javaClass, method)                                                         \
    "Java_com_tessel_prb_workanalysis_" #javaClass "_" #method

namespace PRBNativeGuard {

// Runs the body between the native's trace lines and answers what it answers; the neutral value
// when it throws, since nothing may be thrown into the VM. Numbers are traced, references not.
template <typename Result, typename Body>
Result run(const char* name, Result neutral, Body&& body) noexcept {
    try {
        PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector, name);
        Result result = std::forward<Body>(body)();
        if constexpr (std::is_integral_v<Result>) trace.returns(result);
        return result;
    } catch (...) {
        return neutral;
    }
}

template <typename Body> void run(const char* name, Body&& body) noexcept {
    try {
        PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector, name);
        std::forward<Body>(body)();
    } catch (...) {
        return;
    }
}

// The same in a local frame of its own; a reference that is answered survives the frame. A frame
// that the VM refuses gives the neutral answer.
template <typename Result, typename Body>
Result runInFrame(const char* name, JNIEnv* env, jint capacity, Result neutral,
                  Body&& body) noexcept {
    return run(name, neutral, [&] {
        PRBJni::LocalFrame frame(env, capacity);
        if (!frame.isOpen()) return neutral;
        Result result = std::forward<Body>(body)();
        if constexpr (std::is_pointer_v<Result>)
            return static_cast<Result>(frame.close(result));
        else
            return result;
    });
}

} // namespace PRBNativeGuard

#endif
