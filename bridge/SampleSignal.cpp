#include "bridge/SampleSignal.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <forward_list>

#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include "bridge/Clocks.h"
#include "bridge/Futex.h"

namespace bridge {

namespace {

constexpr int kFirstChoice = 6; // SIGRTMIN+6: below are those that libraries like to take

#if defined(__x86_64__)
constexpr int kPc = REG_RIP;
constexpr int kSp = REG_RSP;
#elif defined(__i386__)
constexpr int kPc = REG_EIP;
constexpr int kSp = REG_UESP; // REG_ESP is the kernel's copy from before the trap
#else
#error "the sampler knows x86 only"
#endif

// AsyncGetCallTrace's codes for a stack whose top frame it cannot make out: typically the program
// counter is in a prologue or epilogue, where the frame is not there yet or no more.
constexpr jint kUnknownNotJava = -3;
constexpr jint kNotWalkableNotJava = -4;
constexpr jint kUnknownJava = -5;
constexpr jint kNotWalkableJava = -6;
// How many words above the stack pointer are searched for a return address into Java code: enough
// for a leaf call through the C library into the kernel's clock page. That far up there always is
// stack: below every Java frame lie those that started the thread.
constexpr int kSearchWords = 96;
// The same while it is unknown what Java code is: the first two do nearly all of it.
constexpr int kGuessWords = 6;
// Walks that are tried at most.
constexpr int kMostWalks = 8;

// Constant while a handler can be entered. One that was entered before the signal was given back
// may still run when it is taken again.
std::atomic<AsyncGetCallTraceFn> walker{nullptr};
std::atomic<const CodeBlobs*> javaCode{nullptr};
std::atomic<int> signalNumber{0};
std::atomic<pid_t> process{0}; // a forked child has the handler, but not this id
std::atomic<int> ignored{0};   // the signal that uninstall() left ignored

// ---- In the signal handler: no allocation, no lock, no log ------------------------------------

bool topFrameUnknown(jint frames) {
    return frames == kUnknownNotJava || frames == kNotWalkableNotJava || frames == kUnknownJava ||
           frames == kNotWalkableJava;
}

// The stack words that are read may lie in other frames' red zones and padding.
#if defined(__SANITIZE_ADDRESS__)
__attribute__((no_sanitize("address")))
#endif
void walk(SampleSlot& slot, ucontext_t* context, AsyncGetCallTraceFn walkStack) {
    JVMPI_CallTrace trace{slot.env, 0, slot.frames};
    walkStack(&trace, kSampleDepth, context);
    const CodeBlobs& code = *javaCode.load(std::memory_order_acquire);
    if (topFrameUnknown(trace.num_frames) && code.searchable()) {
        // In a prologue, an epilogue, or C code without a frame pointer that Java code called
        // directly. Pretend that the function has returned: the pc is the return address, less one
        // to lie within the call instruction.
        greg_t* registers = context->uc_mcontext.gregs;
        const greg_t pc = registers[kPc];
        const greg_t sp = registers[kSp];
        const auto* stack = reinterpret_cast<const std::uintptr_t*>(sp);
        const jint firstResult = trace.num_frames;
        const CodeRange& range = code.range();
        const bool known = range.known();
        int walksLeft = kMostWalks;
        for (int k = 0; k < (known ? kSearchWords : kGuessWords); k++) {
            if (known && !range.contains(stack[k])) continue;
            if (!code.isAlive(stack[k] - 1)) continue;
            registers[kPc] = static_cast<greg_t>(stack[k] - 1);
            registers[kSp] = static_cast<greg_t>(reinterpret_cast<std::uintptr_t>(stack + k + 1));
            trace.num_frames = 0;
            walkStack(&trace, kSampleDepth, context);
            if (trace.num_frames > 0 || --walksLeft == 0) break;
        }
        registers[kPc] = pc;
        registers[kSp] = sp;
        if (trace.num_frames <= 0) trace.num_frames = firstResult;
    }
    slot.frameCount = trace.num_frames;
}

// Until the sampler resumes us; a sampler that takes too long has lost its right to.
void waitStopped(SampleSlot& slot) {
    const std::int64_t until = monotonicNs() + std::int64_t{kLongStopMs} * 1'000'000;
    while (slot.state.load(std::memory_order_acquire) == SampleSlot::kStopped) {
        const std::int64_t left = until - monotonicNs();
        if (left > 0) {
            futexWait(slot.state, SampleSlot::kStopped, left);
            continue;
        }
        std::uint32_t stopped = SampleSlot::kStopped;
        slot.state.compare_exchange_strong(stopped, SampleSlot::kEscaped,
                                           std::memory_order_acq_rel);
    }
}

// Whether the thread is to walk: the request still stands.
bool accept(SampleSlot& slot) {
    std::uint32_t asked = SampleSlot::kAsked;
    while (asked == SampleSlot::kAsked || asked == SampleSlot::kDeferred) {
        const std::uint32_t walking =
            asked == SampleSlot::kAsked ? SampleSlot::kWalking : SampleSlot::kWalkingOn;
        if (slot.state.compare_exchange_strong(asked, walking, std::memory_order_acq_rel)) {
            return true;
        }
    }
    return false;
}

// The handler's last act: afterwards the slot is the sampler's.
void leave(SampleSlot& slot) {
    std::uint32_t state = SampleSlot::kEscaped;
    if (slot.state.compare_exchange_strong(state, SampleSlot::kEscapedOut,
                                           std::memory_order_acq_rel)) {
        return;
    }
    slot.state.store(state == SampleSlot::kWalkingOn ? SampleSlot::kLeft : SampleSlot::kIdle,
                     std::memory_order_release);
}

void onSample(int, siginfo_t* info, void* context) {
    if (info->si_code != SI_QUEUE || info->si_pid != process.load(std::memory_order_relaxed))
        return;
    const int savedErrno = errno;
    const std::int64_t enteredNs = ownCpuNs();
    auto* slot = static_cast<SampleSlot*>(info->si_value.sival_ptr);
    const AsyncGetCallTraceFn walkStack = walker.load(std::memory_order_relaxed);
    const auto self = static_cast<pid_t>(syscall(SYS_gettid));
    // A signal that arrives after its request was withdrawn, or at another thread's slot, is stale.
    if (slot && walkStack && slot->tid.load(std::memory_order_acquire) == self && accept(*slot)) {
        walk(*slot, static_cast<ucontext_t*>(context), walkStack);
        std::uint32_t walking = SampleSlot::kWalking;
        if (slot->state.compare_exchange_strong(walking, SampleSlot::kStopped,
                                                std::memory_order_acq_rel)) {
            futexWake(slot->state);
            waitStopped(*slot);
        }
        // Only this thread's handlers write the sum; the clock is read as late as can be, so that
        // a blocked thread does not seem to run because of us.
        slot->handlerCpuNs.store(slot->handlerCpuNs.load(std::memory_order_relaxed) +
                                     (ownCpuNs() - enteredNs),
                                 std::memory_order_relaxed);
        leave(*slot);
    }
    errno = savedErrno;
}

// ------------------------------------------------------------------------------------------------

// Of every install(): never freed, not at the end of the process either.
const CodeBlobs& kept(const CodeBlobs& code) {
    static std::forward_list<CodeBlobs>& all = *new std::forward_list<CodeBlobs>;
    return all.emplace_front(code);
}

} // namespace

bool SampleSignal::install(AsyncGetCallTraceFn walk, const CodeBlobs& code, std::string& problem) {
    if (number() != 0) {
        problem = "the sampling signal is taken already";
        return false;
    }
    for (int candidate = SIGRTMIN + kFirstChoice; candidate <= SIGRTMAX; candidate++) {
        struct sigaction present {};
        if (sigaction(candidate, nullptr, &present) != 0) continue;
        const bool free = !(present.sa_flags & SA_SIGINFO) &&
                          (present.sa_handler == SIG_DFL ||
                           (present.sa_handler == SIG_IGN && candidate == ignored.load()));
        if (!free) continue;
        javaCode.store(&kept(code), std::memory_order_release);
        walker.store(walk, std::memory_order_relaxed);
        process.store(getpid(), std::memory_order_relaxed);
        struct sigaction ours {};
        ours.sa_sigaction = onSample;
        ours.sa_flags = SA_SIGINFO | SA_RESTART;
        sigemptyset(&ours.sa_mask);
        if (sigaction(candidate, &ours, nullptr) != 0) continue;
        signalNumber.store(candidate, std::memory_order_release);
        return true;
    }
    problem =
        "no real-time signal is free for sampling: every one from SIGRTMIN+6 up has a handler";
    return false;
}

void SampleSignal::uninstall() {
    const int taken = number();
    if (taken == 0) return;
    if (stillOurs()) {
        struct sigaction ignore {};
        ignore.sa_handler = SIG_IGN;
        if (sigaction(taken, &ignore, nullptr) == 0) ignored.store(taken);
    }
    signalNumber.store(0, std::memory_order_release);
}

int SampleSignal::number() { return signalNumber.load(std::memory_order_acquire); }

bool SampleSignal::stillOurs() {
    struct sigaction present {};
    return sigaction(number(), nullptr, &present) == 0 && (present.sa_flags & SA_SIGINFO) &&
           present.sa_sigaction == onSample;
}

// ---- Between the first ask and the last resume: no allocation, no lock, no log ----------------

namespace {

bool send(SampleSlot& slot, SampleSlot::State request) {
    std::uint32_t idle = SampleSlot::kIdle;
    if (!slot.state.compare_exchange_strong(idle, request, std::memory_order_acq_rel)) {
        errno = EBUSY;
        return false;
    }
    siginfo_t info{};
    info.si_signo = SampleSignal::number();
    info.si_code = SI_QUEUE;
    info.si_pid = process.load(std::memory_order_relaxed);
    info.si_uid = getuid();
    info.si_value.sival_ptr = &slot;
    if (syscall(SYS_rt_tgsigqueueinfo, info.si_pid, slot.tid.load(std::memory_order_relaxed),
                info.si_signo, &info) == 0) {
        return true;
    }
    slot.state.store(SampleSlot::kIdle, std::memory_order_release);
    return false;
}

} // namespace

bool SampleSignal::ask(SampleSlot& slot) { return send(slot, SampleSlot::kAsked); }

bool SampleSignal::askLeave(SampleSlot& slot) { return send(slot, SampleSlot::kDeferred); }

bool SampleSignal::takeLeft(SampleSlot& slot) {
    std::uint32_t left = SampleSlot::kLeft;
    return slot.state.compare_exchange_strong(left, SampleSlot::kIdle, std::memory_order_acq_rel);
}

bool SampleSignal::withdraw(SampleSlot& slot) {
    std::uint32_t deferred = SampleSlot::kDeferred;
    return slot.state.compare_exchange_strong(deferred, SampleSlot::kIdle,
                                              std::memory_order_acq_rel);
}

bool SampleSignal::awaitAnswer(SampleSlot& slot, std::int64_t untilNs, Late late) {
    const bool defer = late == Late::kDefer;
    const std::uint32_t afterAsked = defer ? SampleSlot::kDeferred : SampleSlot::kIdle;
    const std::uint32_t afterWalking = defer ? SampleSlot::kWalkingOn : SampleSlot::kGivenUp;
    for (;;) {
        std::uint32_t state = slot.state.load(std::memory_order_acquire);
        if (state != SampleSlot::kAsked && state != SampleSlot::kWalking) return true;
        const std::int64_t left = untilNs - monotonicNs();
        if (left > 0) {
            // Who sleeps gives its processor away, and has it back when somebody else's time is
            // over: milliseconds later, with threads stopped.
            if (defer)
                __builtin_ia32_pause();
            else
                futexWait(slot.state, state, left);
            continue;
        }
        const std::uint32_t next = state == SampleSlot::kAsked ? afterAsked : afterWalking;
        if (slot.state.compare_exchange_strong(state, next, std::memory_order_acq_rel)) {
            return false;
        }
    }
}

bool SampleSignal::resume(SampleSlot& slot) {
    std::uint32_t state = slot.state.load(std::memory_order_acquire);
    for (;;) {
        switch (state) {
        case SampleSlot::kStopped:
            if (slot.state.compare_exchange_weak(state, SampleSlot::kResumed,
                                                 std::memory_order_acq_rel)) {
                futexWake(slot.state);
                return false;
            }
            break;
        case SampleSlot::kEscaped:
            if (slot.state.compare_exchange_weak(state, SampleSlot::kResumed,
                                                 std::memory_order_acq_rel)) {
                return true;
            }
            break;
        case SampleSlot::kEscapedOut:
            slot.state.store(SampleSlot::kIdle, std::memory_order_release);
            return true;
        default:
            return false;
        }
    }
}

} // namespace bridge
