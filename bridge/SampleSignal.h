// Stops single threads by a real-time signal, at any instruction. The handler walks the stack into
// the thread's slot and waits on the slot's word until the sampler lets it go, or until
// kLongStopMs have passed.
//
// The handler and everything between ask() and resume() allocates, locks and logs nothing, and
// calls nothing of the VM but AsyncGetCallTrace. The handler itself uses no thread-local storage
// but errno, which it restores.
#pragma once

#include <cstdint>
#include <string>

#include "bridge/CodeBlobs.h"
#include "bridge/SampleSlot.h"

namespace bridge {

class SampleSignal {
public:
    // Takes SIGRTMIN+6 or the next real-time signal that nobody handles. False if there is none:
    // `problem` says so in one line. One installation at a time in a process. `code` serves to
    // walk stacks whose top is not Java code (range unknown: return addresses are guessed).
    static bool install(AsyncGetCallTraceFn walk, const CodeBlobs& code, std::string& problem);
    // From now on the signal is ignored: one that is still under way must not end the process.
    static void uninstall();
    // The number taken; 0 when not installed.
    static int number();
    // False if somebody else has put another disposition in place.
    static bool stillOurs();

    // Asks the slot's thread to stop. False if the slot is not idle or the kernel refuses (errno
    // is set: EAGAIN when too many signals are queued, ESRCH when the thread has gone).
    static bool ask(SampleSlot& slot);
    // The same for a trace alone: the thread leaves it in the slot without stopping.
    static bool askLeave(SampleSlot& slot);
    // Waits until the thread has answered or `untilNs` (CLOCK_MONOTONIC) has passed. True if there
    // is an answer in the slot; else the request is taken back, or (kDefer, which waits without
    // sleeping and is for a short time only) changed into one for a trace alone.
    enum class Late { kWithdraw, kDefer };
    static bool awaitAnswer(SampleSlot& slot, std::int64_t untilNs, Late late);
    // Takes the trace that a thread has left; the slot is idle and the trace stays readable until
    // the next request. False if there is none (yet).
    static bool takeLeft(SampleSlot& slot);
    // Takes a request for a trace back. False if the thread is just answering it.
    static bool withdraw(SampleSlot& slot);
    // Lets a thread that answered go on. True if it had escaped from too long a stop.
    static bool resume(SampleSlot& slot);
};

} // namespace bridge
