#include "bridge/StackSampler.h"

#include <algorithm>
#include <cerrno>

#include <unistd.h>

#include "bridge/Clocks.h"
#include "bridge/SampleSignal.h"

namespace bridge {

namespace {

constexpr std::int64_t kNsPerMs = 1'000'000;
// A thread that was blocked within so many cycles is of the mostly blocked kind.
constexpr std::uint64_t kBlockedKindCycles = 32;
// Idle threads: after each so many looks without CPU time one more cycle is skipped, up to a limit.
constexpr std::uint32_t kQuietLooksPerSkip = 8;
constexpr std::uint32_t kMaxSkip = 16;
// A thread that does not answer is left alone for 2, 4, ... cycles, at most 2 to this power.
constexpr std::uint32_t kMaxDeafPower = 12;
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

void add(std::atomic<std::uint64_t>& counter, std::uint64_t amount = 1) {
    counter.fetch_add(amount, std::memory_order_relaxed);
}

bool isSelf(const ThreadRecord& record) {
    return record.tid.load(std::memory_order_relaxed) == gettid();
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
    installed_ = SampleSignal::install(vm_.asyncGetCallTrace(), vm_.codeRange(), problem);
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
    lossTold_ = false;
}

bool StackSampler::handlerLost(std::string& text) {
    const Call call(*this);
    if (lossTold_ || SampleSignal::number() == 0 || SampleSignal::stillOurs()) return false;
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
    cycleStartNs_ = monotonicNs();
    if (clock_.tick(cycleStartNs_)) return;
    run_++;
    runStartNs_ = cycleStartNs_;
    orphanCpuNs_ = 0;
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
            const auto most = static_cast<std::int64_t>(clock_.meanNs());
            const std::int64_t grant = std::clamp(orphanCpuNs_, -most, most);
            orphanCpuNs_ -= grant;
            account.credit.earn(grant, clock_.meanNs());
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
    look(record);
    return judge(account.credit, account.trace, false, true) != Verdict::kNothing;
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
    if (clock_.meanNs() <= 0) {
        look(record);
        return;
    }
    if (!account.payable && state == VmStructs::kInNative && account.skipUntil > cycle_ &&
        account.run == run_) {
        return;
    }
    const std::int64_t spent = look(record);
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
        count(record);
        account.trace = KeptTrace::kCounted;
        add(counters_.keptTraces);
        break;
    case Verdict::kSampleBlocked:
        // Not while it waits in the VM for the end of a safepoint. A thread that waits for a
        // monitor or on a condition can be stopped: it is one wait inside the other.
        if (state != VmStructs::kBlocked || account.payable) enlist(record, false, true);
        break;
    }
}

void StackSampler::count(ThreadRecord& record) {
    record.account.hasRun = true;
    record.account.credit.charge();
    add(counters_.samples);
}

// ---- Stopping ----------------------------------------------------------------------------------
// From stopAsked() on, until the last resume: no allocation, no lock that a stopped thread can
// hold, no log, no call of the VM.

// Puts a thread on the list of those to be signalled.
void StackSampler::enlist(ThreadRecord& record, bool running, bool wanted) {
    SamplerAccount& account = record.account;
    if (account.muteUntil > cycle_ || !record.slot.idle()) return;
    account.asked = true;
    account.running = running;
    account.wanted = wanted;
    account.nextAsked = asked_;
    asked_ = &record;
}

void StackSampler::stopListed() {
    for (ThreadRecord* record = listed_; record; record = record->account.nextListed) {
        if (!record->account.decided) decide(*record);
    }
    if (asked_) stopAsked();
}

// Signals all that are asked, at once, and gathers their answers.
void StackSampler::stopAsked() {
    const std::int64_t sinceNs = monotonicNs();
    if (!stopped_) stoppedAtNs_ = sinceNs;
    stopped_ = true;
    for (ThreadRecord* record = asked_; record; record = record->account.nextAsked) {
        add(counters_.signals);
        if (SampleSignal::ask(record->slot)) continue;
        record->account.asked = false;
        add(counters_.notSent);
    }
    const std::int64_t untilNs = sinceNs + StackSampler::kAnswerMs * kNsPerMs;
    for (ThreadRecord* record = asked_; record; record = record->account.nextAsked) {
        if (!record->account.asked) continue;
        settle(*record, SampleSignal::awaitAnswer(record->slot, untilNs));
    }
    asked_ = nullptr;
    add(counters_.stopNanos, static_cast<std::uint64_t>(monotonicNs() - sinceNs));
}

void StackSampler::settle(ThreadRecord& record, bool answered) {
    SamplerAccount& account = record.account;
    account.trace = KeptTrace::kNone; // the slot has been, or may be, written to
    if (!answered) {
        account.asked = false;
        account.deafTimes = std::min(account.deafTimes + 1, kMaxDeafPower);
        account.muteUntil = cycle_ + (std::uint64_t{1} << account.deafTimes);
        add(counters_.timeouts);
        if (!SampleSignal::stillOurs()) signalReady_ = false; // nobody will ever answer
        return;
    }
    account.deafTimes = 0;
    const jint frames = record.slot.frameCount;
    if (frames > 0) {
        add(counters_.traces);
        if (account.running) {
            account.trace = account.wanted ? KeptTrace::kCounted : KeptTrace::kFresh;
        }
        if (!account.wanted) return;
        count(record);
        if (!account.running) add(counters_.chargedBlocked);
        return;
    }
    add(counters_.errors[std::min(-frames, SamplerCounters::kErrors - 1)]);
    // The credit stays for the next cycle, but not without end.
    if (account.wanted && account.credit.due(kPatienceForTrace)) {
        count(record);
        add(counters_.droppedSamples);
    }
}

void StackSampler::unlist(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    ThreadRecord** link = &listed_;
    while (*link != &record) link = &(*link)->account.nextListed;
    *link = account.nextListed;
    account.nextListed = nullptr;
    account.listed = account.decided = account.asked = false;
    account.running = account.wanted = account.hasRun = account.payable = false;
}

// A stop that its caller has forgotten ends; answers that were got remain readable.
void StackSampler::releaseAll() {
    for (ThreadRecord* record = listed_; record; record = record->account.nextListed) {
        if (!record->account.asked) continue;
        if (SampleSignal::resume(record->slot)) add(counters_.longStops);
        record->account.asked = false;
    }
    stopped_ = false;
}

void StackSampler::stopOverdue(void* self) {
    auto& sampler = *static_cast<StackSampler*>(self);
    const std::lock_guard<std::mutex> mutex(sampler.callMutex_);
    if (!sampler.stopped_) return;
    if (monotonicNs() - sampler.stoppedAtNs_ < std::int64_t{kLongStopMs} * kNsPerMs) return;
    sampler.releaseAll();
    sampler.threads_.lock().unlock();
}

void StackSampler::recordEnds(void* self, ThreadRecord& record) {
    auto& sampler = *static_cast<StackSampler*>(self);
    SamplerAccount& account = record.account;
    if (account.listed) sampler.unlist(record);
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
        enlist(*record, false, false);
        if (asked_) stopAsked();
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
    unlist(*record);
    if (!listed_) stopped_ = false; // the call's end gives the thread-list lock back
}

} // namespace bridge
