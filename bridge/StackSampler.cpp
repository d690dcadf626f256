#include "bridge/StackSampler.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

#include "bridge/Clocks.h"
#include "bridge/SampleSignal.h"

namespace bridge {

namespace {

// A thread that was blocked within so many cycles is of the mostly blocked kind.
constexpr std::uint64_t kBlockedKindCycles = 32;
// Idle threads: after each so many looks without CPU time one more cycle is skipped, up to a limit.
constexpr std::uint32_t kQuietLooksPerSkip = 8;
constexpr std::uint32_t kMaxSkip = 16;
// What ended threads leave unsampled is kept up to so many cycles' worth.
constexpr double kMaxOrphanCycles = 100;
// A cycle older than this says that sampling is off.
constexpr std::int64_t kCycleAgeNs = 2'000'000'000;

// OSThread::_state to the profiler interface's status.
constexpr jint kStatusOfOsState[] = {
    0,                         // allocated
    0,                         // initialized
    JVMPI_THREAD_RUNNABLE,     // runnable: also in native calls and at safepoints
    JVMPI_THREAD_MONITOR_WAIT, // waiting to enter a monitor
    JVMPI_THREAD_CONDVAR_WAIT, // sleeping, parked
    JVMPI_THREAD_CONDVAR_WAIT, // Object.wait
    0,                         // breakpointed
    JVMPI_THREAD_CONDVAR_WAIT, // sleeping
};

jint statusOf(int osState) {
    constexpr int known = sizeof kStatusOfOsState / sizeof kStatusOfOsState[0];
    return osState >= 0 && osState < known ? kStatusOfOsState[osState] : 0;
}

bool isSelf(const ThreadRecord& record) {
    // Asked with every allocation: the system is asked once a thread.
    __attribute__((tls_model("initial-exec"))) static constinit thread_local pid_t own = 0;
    if (own == 0) own = gettid();
    return record.tid.load(std::memory_order_relaxed) == own;
}

} // namespace

// One call at a time, with the thread-list lock: taken here, or held already by an open stop, to
// which this call may put an end or which it may begin.
class StackSampler::Call {
public:
    explicit Call(StackSampler& sampler) : sampler_(sampler), mutex_(sampler.callMutex_) {
        if (!sampler_.stopped_) sampler_.threads_.lock().lock();
    }
    ~Call() {
        if (!sampler_.stopped_) sampler_.threads_.lock().unlock();
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    StackSampler& sampler_;
    std::lock_guard<std::mutex> mutex_;
};

StackSampler::StackSampler(ThreadTable& threads, const VmStructs& vm, OwnTraceFn ownTrace)
    : threads_(threads), vm_(vm), ownTrace_(ownTrace) {
    threads_.onEnd(recordEnds, this);
    threads_.onOverdue(stopOverdue, this);
}

StackSampler::~StackSampler() {
    threads_.onOverdue(nullptr, nullptr);
    threads_.onEnd(nullptr, nullptr);
    if (installed_) SampleSignal::uninstall();
}

bool StackSampler::start(std::string& problem) {
    const Call call(*this);
    CodeBlobs code;
    code.resolve(vm_);
    searchesStacks_ = code.searchable();
    installed_ = SampleSignal::install(vm_.asyncGetCallTrace(), code, problem);
    signalReady_ = installed_;
    return installed_;
}

void StackSampler::stop() {
    const std::lock_guard<std::mutex> mutex(callMutex_);
    if (stopped_) {
        releaseAll();
        threads_.lock().unlock();
    }
    if (installed_) SampleSignal::uninstall();
    installed_ = signalReady_ = false;
    lossSeen_ = lossTold_ = false;
}

bool StackSampler::handlerLost(std::string& text) {
    const Call call(*this);
    if (lossTold_ || SampleSignal::number() == 0) return false;
    if (!lossSeen_ && SampleSignal::stillOurs()) return false;
    lossTold_ = true;
    text = "another handler was installed for signal " + std::to_string(SampleSignal::number()) +
           ", which the sampler uses: samples may be missing";
    return true;
}

jlong StackSampler::currentThreadCpuTime() { return ownCpuNs(); }

// ---- Cycles and accounts -----------------------------------------------------------------------

void StackSampler::beginCycle() {
    cycle_++;
    add(counters_.cycles);
    // Under somebody else's handler nobody would answer, and where that is the default action the
    // signal would end the process. He may put ours back.
    if (installed_) {
        signalReady_ = SampleSignal::stillOurs();
        lossSeen_ = lossSeen_ || !signalReady_;
    }
    cycleStartNs_ = monotonicNs();
    if (clock_.tick(cycleStartNs_)) return;
    run_++;
    runStartNs_ = cycleStartNs_;
    orphanCpuNs_ = 0;
    orphansInherited_ = orphansLeft_;
}

void StackSampler::noteStatus(SamplerAccount& account) {
    if (!callerKnown_ || !pthread_equal(caller_, pthread_self())) return;
    if (account.statusCycle == cycle_) beginCycle();
    account.statusCycle = cycle_;
}

// CPU time of the program on this thread since the last look; what our handler used is not the
// program's. `cpuNow` becomes the thread's clock, below 0 if the thread has gone.
std::int64_t StackSampler::spentSinceLook(ThreadRecord& record, std::int64_t& cpuNow) {
    SamplerAccount& account = record.account;
    cpuNow = threadCpuNs(record.tid.load(std::memory_order_relaxed));
    if (cpuNow < 0) return 0;
    const std::int64_t handler = record.slot.handlerCpuNs.load(std::memory_order_relaxed);
    const bool known =
        account.cpuNs >= 0 && (account.run == run_ || account.insertedNs >= runStartNs_);
    const std::int64_t spent =
        known ? cpuNow - account.cpuNs - (handler - account.handlerCpuNs) : 0;
    account.cpuNs = cpuNow;
    account.handlerCpuNs = handler;
    return spent;
}

std::int64_t StackSampler::look(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    std::int64_t cpuNow = 0;
    const std::int64_t spent = spentSinceLook(record, cpuNow);
    if (account.run != run_) {
        const bool isNew = account.run == 0 && account.insertedNs >= runStartNs_;
        account.run = run_;
        account.trace = KeptTrace::kNone;
        account.skipUntil = account.muteUntil = 0;
        if (isNew) {
            // One sample to be asked for, and one that has its trace already.
            const double samples = orphansInherited_ == orphansLeft_ ? 1 : 2;
            const auto most = static_cast<std::int64_t>(samples * clock_.meanNs());
            const std::int64_t grant = std::clamp(orphanCpuNs_, -most, most);
            orphanCpuNs_ -= grant;
            account.credit.earn(grant, clock_.meanNs());
            inherit(record);
        } else {
            account.credit.reset(static_cast<std::uint32_t>(cycleStartNs_ / 64) ^
                                 static_cast<std::uint32_t>(record.tid.load()));
        }
    }
    account.credit.earn(spent, clock_.meanNs());
    if (spent > 0) {
        account.quietLooks = 0;
        account.skipUntil = 0;
    } else {
        account.quietLooks++;
        account.skipUntil =
            cycle_ + 1 + std::min(account.quietLooks / kQuietLooksPerSkip, kMaxSkip);
    }
    return spent;
}

// Whether a waiting thread is owed a sample: one that a trace of its work can be given for, or,
// when it was never seen at work, one that has been owed for so long that it is charged where
// the thread waits.
bool StackSampler::payableNow(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    if (account.listed || account.skipUntil > cycle_ ||
        monotonicNs() - cycleStartNs_ > kCycleAgeNs) {
        return false;
    }
    takeDeferred(record);
    look(record);
    if (account.deferredNs != 0) return false;
    const bool payable = judge(account.credit, account.trace, false, true) != Verdict::kNothing;
    if (!payable) account.wasLate = false;
    return payable;
}

// Whether what the thread does at this moment is what it spends CPU time on.
bool StackSampler::isRunning(ThreadRecord& record, int state, std::int64_t spentNs) const {
    if (state == VmStructs::kBlocked) return false;
    if (state != VmStructs::kInNative && state != VmStructs::kInVm) {
        return true; // in Java, be it running or preempted
    }
    if (spentNs <= 0 && !record.account.credit.due()) return false;
    // In native code or in the VM, perhaps in a system call, which may block and is also where a
    // kernel with lazy preemption prefers to take the processor away. A thread on a processor is
    // told by its clock, which moves on. One that is only ready to run (the kernel's state R) does
    // not count: mostly it has just been woken, and would be charged to the call in which it slept.
    return threadCpuNs(record.tid.load(std::memory_order_relaxed)) > record.account.cpuNs;
}

void StackSampler::decide(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    account.decided = true;
    const void* javaThread = record.javaThread.load(std::memory_order_relaxed);
    if (!signalReady_ || !javaThread || isSelf(record)) return;
    const int state = vm_.threadState(javaThread);
    takeDeferred(record);
    if (clock_.meanNs() <= 0 || account.deferredNs != 0) {
        look(record);
        return;
    }
    if (!account.payable && state == VmStructs::kInNative && account.skipUntil > cycle_ &&
        account.run == run_) {
        return;
    }
    const std::int64_t spent = look(record);
    if (account.wasLate && countLate(record)) return;
    account.wasLate = false;
    const bool running = !account.payable && isRunning(record, state, spent);
    if (!running) account.blockedCycle = cycle_;

    const bool mostlyBlocked =
        account.blockedCycle != 0 && cycle_ - account.blockedCycle <= kBlockedKindCycles;
    switch (judge(account.credit, account.trace, running, mostlyBlocked)) {
    case Verdict::kNothing:
        break;
    case Verdict::kSample:
        enlist(record, true, true);
        break;
    case Verdict::kKeepTrace:
        enlist(record, true, false);
        break;
    case Verdict::kSampleKept:
        countKept(record);
        break;
    case Verdict::kSampleBlocked:
        // Not while it waits in the VM for the end of a safepoint. A thread that waits for a
        // monitor or on a condition can be stopped: it is one wait inside the other.
        if (state != VmStructs::kBlocked || account.payable) enlist(record, false, true);
        break;
    }
}

// Counts a thread with the trace that it left since the last cycle, if it still owes a sample.
bool StackSampler::countLate(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    const bool walked = record.slot.frameCount > 0;
    if (!account.credit.due(walked ? 0 : kPatienceForTrace)) return false;
    if (account.trace == KeptTrace::kFresh) {
        countKept(record);
        return true;
    }
    count(record);
    add(walked ? counters_.chargedBlocked : counters_.droppedSamples);
    return true;
}

void StackSampler::count(ThreadRecord& record) {
    record.account.hasRun = true;
    record.account.credit.charge();
    add(counters_.samples);
}

void StackSampler::countKept(ThreadRecord& record) {
    count(record);
    record.account.trace = KeptTrace::kCounted;
    if (!record.account.wasLate) add(counters_.keptTraces);
}

void StackSampler::recordEnds(void* self, ThreadRecord& record) {
    auto& sampler = *static_cast<StackSampler*>(self);
    SamplerAccount& account = record.account;
    if (account.listed) sampler.unlist(record);
    sampler.bequeath(record);
    sampler.forgetDeferred(record);
    account.deferredNs = 0;
    record.suspended.store(false, std::memory_order_relaxed);
    const double mean = sampler.clock_.meanNs();
    const bool known = account.run == sampler.run_ || account.insertedNs >= sampler.runStartNs_;
    if (mean <= 0 || !known || monotonicNs() - sampler.cycleStartNs_ > kCycleAgeNs) return;
    std::int64_t cpuNow = 0;
    const std::int64_t spent = sampler.spentSinceLook(record, cpuNow);
    const double left = account.credit.balance() * mean + static_cast<double>(spent) +
                        static_cast<double>(sampler.orphanCpuNs_);
    sampler.orphanCpuNs_ = static_cast<std::int64_t>(
        std::clamp(left, -kMaxOrphanCycles * mean, kMaxOrphanCycles * mean));
}

// ---- The profiler interface's functions --------------------------------------------------------

jint StackSampler::status(JNIEnv* env) {
    const Call call(*this);
    ThreadRecord* record = threads_.find(env);
    if (!record) return 0;
    SamplerAccount& account = record->account;
    noteStatus(account);
    const void* javaThread = record->javaThread.load(std::memory_order_relaxed);
    jint status = javaThread ? statusOf(vm_.osThreadState(javaThread)) : 0;
    if (status == JVMPI_THREAD_MONITOR_WAIT || status == JVMPI_THREAD_CONDVAR_WAIT) {
        account.blockedCycle = cycle_;
        const bool bySampler = callerKnown_ && pthread_equal(caller_, pthread_self());
        if (bySampler && !stopped_) account.payable = payableNow(*record);
        if (account.payable) status = JVMPI_THREAD_RUNNABLE;
    } else if (!account.listed) {
        account.payable = false;
    }
    if (record->suspended.load(std::memory_order_relaxed)) status |= JVMPI_THREAD_SUSPENDED;
    return status;
}

void StackSampler::suspend(JNIEnv* env) {
    const Call call(*this);
    ThreadRecord* record = threads_.find(env);
    if (!record || record->account.listed) return;
    SamplerAccount& account = record->account;
    caller_ = pthread_self();
    callerKnown_ = true;
    if (account.suspendCycle == cycle_ || run_ == 0) beginCycle();
    account.suspendCycle = account.statusCycle = cycle_;
    record->suspended.store(true, std::memory_order_relaxed);
    account.listed = true;
    account.nextListed = listed_;
    listed_ = record;
}

jboolean StackSampler::hasRun(JNIEnv* env) {
    const Call call(*this);
    ThreadRecord* record = threads_.find(env);
    if (!record || !record->account.listed) return JNI_FALSE;
    if (!record->account.decided) stopListed();
    return record->account.hasRun ? JNI_TRUE : JNI_FALSE;
}

void StackSampler::callTrace(JVMPI_CallTrace* trace, jint depth) {
    trace->num_frames = 0;
    if (!trace->env_id || depth <= 0) return;
    ThreadRecord* record = threads_.find(trace->env_id);
    if (!record) return;
    if (isSelf(*record)) {
        if (ownTrace_) ownTrace_(trace, depth);
        return;
    }
    const Call call(*this);
    SamplerAccount& account = record->account;
    if (record->env() != trace->env_id || !account.listed) return;
    if (!account.decided) stopListed();
    if (!account.hasRun && !account.asked && signalReady_) {
        // Nobody counts this thread, but it is suspended: it is stopped for its trace alone.
        forgetDeferred(*record);
        enlist(*record, false, false);
        if (asked_) stopAsked(std::int64_t{kAnswerMs} * kNsPerMs, false);
    }
    if (!account.hasRun && !account.asked) return;
    const jint frames = std::min({depth, record->slot.frameCount, kSampleDepth});
    for (jint i = 0; i < frames; i++) {
        trace->frames[i] = {.lineno = -1, .method_id = record->slot.frames[i].method_id};
    }
    trace->num_frames = std::max(frames, 0);
}

void StackSampler::resume(JNIEnv* env) {
    const Call call(*this);
    ThreadRecord* record = threads_.find(env);
    if (!record || !record->account.listed) return;
    record->suspended.store(false, std::memory_order_relaxed);
    if (record->account.asked && SampleSignal::resume(record->slot)) add(counters_.longStops);
    askAgain(*record);
    unlist(*record);
    if (!listed_) stopped_ = false; // the call's end gives the thread-list lock back
}

} // namespace bridge
