// The profiler's view of running threads: GetThreadStatus, SuspendThread, ThreadHasRun,
// GetCallTrace, ResumeThread, GetCurrentThreadCpuTime.
//
// The profiler asks for statuses and suspends thread by thread; really stopping each at once would
// keep the first ones stopped for long, and would leave stopped threads behind while statuses are
// asked. Suspending therefore only notes the thread; the first ThreadHasRun or GetCallTrace stops
// all that must be stopped in one go (SampleSignal), and traces are read from the slots until the
// resumes. Nothing here enters the VM, except the callback for the calling thread's own trace.
//
// Which threads have run (RunCredit.h has the arithmetic). A look adds the CPU time since the
// thread's last look, less what our own handler used, to the thread's account. Then:
//   due, and in Java code or on a processor   stopped and counted, with what it runs;
//   due, but blocked or waiting               counted with the last trace that was seen while it
//                                             ran and is not yet counted; without one it keeps its
//                                             credit: one more cycle's worth, then the last trace
//                                             counts again; ten, then it is stopped where it is;
//   not due, running, of the kind that is
//   mostly blocked, and without such a trace  stopped for a trace to count later;
//   else                                      not touched.
// Nobody stands still for a thread that has no processor at the moment: who has not answered within
// kStopUs is left behind, leaves its trace without stopping when it comes to run, and is counted
// with it in the next cycle.
//
// So a thread that works for 0.2 ms and then blocks, over and over, is charged its CPU time and no
// more, and charged to its work, although nearly every look finds it blocked. A thread that waits
// (for a monitor or a condition) is never suspended by the profiler; when a sample of its work is
// due, GetThreadStatus reports it runnable for this one cycle.
//
// A thread that ends leaves what is not sampled to the next new thread, with the trace if it had
// left one, so that a program of short threads is charged in full and for what they do.
//
// A cycle begins when the thread that suspends asks a status that it has asked in this cycle
// before: cycles without any runnable thread count as well.
//
// Any function may be called from any thread, in any order; unknown environments get neutral
// answers (status 0, not run, no frames). One stop at a time; a second caller waits.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include <pthread.h>

#include <jni.h>

#include "bridge/RunCredit.h"
#include "bridge/ThreadTable.h"
#include "bridge/VmStructs.h"
#include "jvmpi/jvmpi.h"

namespace bridge {

// Since the start of the process; written with relaxed stores, readable at any time.
struct SamplerCounters {
    std::atomic<std::uint64_t> cycles{0};         // batches of threads looked at
    std::atomic<std::uint64_t> signals{0};        // threads asked to stop
    std::atomic<std::uint64_t> samples{0};        // "has run" answers
    std::atomic<std::uint64_t> traces{0};         // stacks walked with at least one frame
    std::atomic<std::uint64_t> keptTraces{0};     // samples that used an earlier trace
    std::atomic<std::uint64_t> chargedBlocked{0}; // samples of threads off the processor
    std::atomic<std::uint64_t> leftTraces{0}; // traces of threads that answered too late to stop
    std::atomic<std::uint64_t> timeouts{0};   // threads that did not answer at all
    std::atomic<std::uint64_t> notSent{0};    // signals that the kernel refused
    std::atomic<std::uint64_t> longStops{0};  // stops that ended by themselves after 200 ms
    std::atomic<std::uint64_t> droppedSamples{0}; // samples given up: the stack cannot be walked
    std::atomic<std::uint64_t> stopNanos{0};      // first signal to last acknowledgement
    static constexpr int kErrors = 12;
    // Walks that failed, by AsyncGetCallTrace's code: [n] counts -n, [0] an empty stack, and the
    // last one whatever is beyond.
    std::atomic<std::uint64_t> errors[kErrors]{};
};

class StackSampler {
public:
    // Fills the trace of the calling thread itself (JVMTI GetStackTrace); may enter the VM.
    using OwnTraceFn = void (*)(JVMPI_CallTrace* trace, jint depth);

    static constexpr int kStopUs = 80;      // the wait for running threads to stop
    static constexpr int kAnswerMs = 50;    // the same for a thread that somebody wants stopped
    static constexpr int kDeferredMs = 500; // and for a trace without a stop

    StackSampler(ThreadTable& threads, const VmStructs& vm, OwnTraceFn ownTrace);
    // REQUIRES: nothing is stopped and no thread calls.
    ~StackSampler();
    StackSampler(const StackSampler&) = delete;
    StackSampler& operator=(const StackSampler&) = delete;

    // Takes a signal and installs the handler. False if no signal is free: `problem` says so in
    // one line. Until then (and after a failure) no thread is ever stopped.
    bool start(std::string& problem);
    // False in a VM whose compiled code cannot be told from dead code: calls out of Java code that
    // hide their caller are counted without a stack.
    bool searchesStacks() const { return searchesStacks_; }
    // Gives the signal back: no thread is stopped any more, and threads that are stopped go on.
    // start() may be called again.
    void stop();
    // True, once, when somebody else's handler has replaced ours since; `text` says so in a line.
    bool handlerLost(std::string& text);

    jint status(JNIEnv* env);
    void suspend(JNIEnv* env);
    jboolean hasRun(JNIEnv* env);
    // `depth` beyond kSampleDepth is cut for other threads.
    void callTrace(JVMPI_CallTrace* trace, jint depth);
    void resume(JNIEnv* env);
    // Nanoseconds of CPU time of the calling thread.
    static jlong currentThreadCpuTime();

    const SamplerCounters& counters() const { return counters_; }

private:
    static constexpr std::int64_t kNsPerMs = 1'000'000;
    static void add(std::atomic<std::uint64_t>& counter, std::uint64_t amount = 1) {
        counter.fetch_add(amount, std::memory_order_relaxed);
    }
    class Call;
    // Intrusive lists: nothing allocates while threads are stopped.
    using Link = ThreadRecord* SamplerAccount::*;

    void beginCycle();
    void noteStatus(SamplerAccount& account);
    std::int64_t look(ThreadRecord& record);
    std::int64_t spentSinceLook(ThreadRecord& record, std::int64_t& cpuNow);
    bool payableNow(ThreadRecord& record);
    bool isRunning(ThreadRecord& record, int state, std::int64_t spentNs) const;
    void decide(ThreadRecord& record);
    void count(ThreadRecord& record);
    void countKept(ThreadRecord& record);
    bool countLate(ThreadRecord& record);
    void enlist(ThreadRecord& record, bool running, bool wanted);
    void stopListed();
    void stopAsked(std::int64_t patienceNs, bool deferLate);
    static bool hasProcessor(const ThreadRecord& record);
    void settle(ThreadRecord& record);
    bool keepTrace(ThreadRecord& record, bool running);
    void silent(ThreadRecord& record);
    void defer(ThreadRecord& record);
    void takeDeferred(ThreadRecord& record);
    void forgetDeferred(ThreadRecord& record);
    void bequeath(ThreadRecord& record);
    void inherit(ThreadRecord& record);
    void askAgain(ThreadRecord& record);
    void unlist(ThreadRecord& record);
    void releaseAll();
    static void recordEnds(void* self, ThreadRecord& record);
    static void stopOverdue(void* self);

    ThreadTable& threads_;
    const VmStructs& vm_;
    const OwnTraceFn ownTrace_;
    SamplerCounters counters_;

    // Held for the length of one call; never by a thread that is stopped, because threads are
    // stopped only by the holder. Taken before the thread-list lock.
    std::mutex callMutex_;
    bool stopped_ = false; // guarded by callMutex_: a stop is open, the thread-list lock is held
    std::int64_t stoppedAtNs_ = 0;
    bool searchesStacks_ = true;
    bool installed_ = false;
    bool signalReady_ = false; // signals are answered, as far as we know
    bool lossSeen_ = false;    // in some cycle another handler was in the place of ours
    bool lossTold_ = false;

    // Guarded by the thread-list lock.
    ThreadRecord* listed_ = nullptr; // suspended and not yet resumed; the last one first
    ThreadRecord* asked_ = nullptr;  // the present batch, not yet sent or not yet answered
    CycleClock clock_;
    std::uint64_t cycle_ = 1;
    std::uint64_t run_ = 0;
    std::int64_t runStartNs_ = 0;
    std::int64_t cycleStartNs_ = 0;
    std::int64_t orphanCpuNs_ = 0; // CPU time that ended threads have left unsampled
    // What they ran then, as far as it is known; beyond so many the oldest is forgotten.
    struct OrphanTrace {
        jint frameCount;
        jmethodID methods[kSampleDepth];
    };
    static constexpr std::uint32_t kMostOrphans = 8;
    OrphanTrace orphanTraces_[kMostOrphans];
    std::uint32_t orphansLeft_ = 0;      // ever; the next goes to this one, modulo
    std::uint32_t orphansInherited_ = 0; // ever
    pthread_t caller_{};                 // who suspends threads: the profiler's sampler
    bool callerKnown_ = false;
};

} // namespace bridge
