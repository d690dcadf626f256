// One thread's meeting place with the sampler: a state word that both move, and the trace that the
// thread leaves there. The slot's address travels in the signal's value, so the handler needs no
// thread-local storage. Slots lie in thread records, which are never freed.
#pragma once

#include <atomic>
#include <cstdint>
#include <sys/types.h>

#include "jvmpi/jvmpi.h"

namespace bridge {

// Frames that a sample keeps: what the profiler asks for.
inline constexpr jint kSampleDepth = 50;
// A stopped thread runs on by itself after this time, whatever became of the sampler.
inline constexpr int kLongStopMs = 200;

struct SampleSlot {
    // Who moves the state where. A slot may be asked again only when it is idle: a late handler
    // would otherwise answer a later request.
    enum State : std::uint32_t {
        kIdle,       // sampler -> kAsked, kDeferred
        kAsked,      // handler -> kWalking; sampler, tired of waiting -> kIdle, kDeferred
        kWalking,    // handler -> kStopped; sampler, tired of waiting -> kGivenUp, kWalkingOn
        kStopped,    // sampler -> kResumed; handler, after too long a stop -> kEscaped
        kResumed,    // handler -> kIdle, as its last act
        kGivenUp,    // handler -> kIdle without stopping
        kEscaped,    // the thread runs on by itself, the trace stays; handler -> kEscapedOut;
                     // sampler -> kResumed
        kEscapedOut, // the handler has returned; sampler -> kIdle
        // The thread leaves its trace when it comes to run, without stopping:
        kDeferred,  // handler -> kWalkingOn; sampler, tired of waiting -> kIdle
        kWalkingOn, // handler -> kLeft, as its last act
        kLeft       // the trace is there; sampler -> kIdle
    };

    std::atomic<std::uint32_t> state{kIdle};
    std::atomic<pid_t> tid{0};

    // Written by the handler while it walks, read by the sampler from kStopped or kLeft on until it
    // asks again.
    jint frameCount = 0; // below 0: the code of AsyncGetCallTrace
    JNIEnv* env = nullptr;
    JVMPI_CallFrame frames[kSampleDepth];

    // CPU time (ns) that handlers have used on this thread so far; it is the profiler's, not the
    // program's. The handler adds to it before it leaves.
    std::atomic<std::int64_t> handlerCpuNs{0};

    bool idle() const { return state.load(std::memory_order_acquire) == kIdle; }
};

} // namespace bridge
