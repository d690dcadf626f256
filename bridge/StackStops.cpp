// The sampler's stops: asking threads, gathering answers, letting go.
#include "bridge/StackSampler.h"

#include <algorithm>

#include "bridge/Clocks.h"
#include "bridge/SampleSignal.h"

namespace bridge {

namespace {

// A thread that does not answer is left alone for 2, 4, ... cycles, at most 2 to this power.
constexpr std::uint32_t kMaxDeafPower = 12;

} // namespace

// From stopAsked() on, until the last resume: no allocation, no lock that a stopped thread can
// hold, no log, no call of the VM.

// Puts a thread on the list of those to be signalled.
void StackSampler::enlist(ThreadRecord& record, bool running, bool wanted) {
    SamplerAccount& account = record.account;
    if (account.muteUntil > cycle_ || account.deferredNs != 0) return;
    if (!record.slot.idle() && !SampleSignal::takeLeft(record.slot)) return;
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
    if (asked_) stopAsked(std::int64_t{kStopUs} * 1000, true);
}

// Signals all that are asked, at once, and gathers their answers. Who is late is left to answer
// without stopping, or is let off.
void StackSampler::stopAsked(std::int64_t patienceNs, bool deferLate) {
    const std::int64_t sinceNs = monotonicNs();
    if (!stopped_) stoppedAtNs_ = sinceNs;
    stopped_ = true;
    for (ThreadRecord* record = asked_; record; record = record->account.nextAsked) {
        add(counters_.signals);
        if (SampleSignal::ask(record->slot)) continue;
        record->account.asked = false;
        add(counters_.notSent);
    }
    const auto late = deferLate ? SampleSignal::Late::kDefer : SampleSignal::Late::kWithdraw;
    for (ThreadRecord* record = asked_; record; record = record->account.nextAsked) {
        if (!record->account.asked) continue;
        const std::int64_t untilNs =
            deferLate && !hasProcessor(*record) ? sinceNs : sinceNs + patienceNs;
        if (SampleSignal::awaitAnswer(record->slot, untilNs, late)) {
            settle(*record);
            continue;
        }
        record->account.asked = false;
        if (deferLate)
            defer(*record);
        else
            silent(*record);
    }
    asked_ = nullptr;
    add(counters_.stopNanos, static_cast<std::uint64_t>(monotonicNs() - sinceNs));
}

// A thread's clock moves on while it runs. Threads that wait for a processor are not waited for.
bool StackSampler::hasProcessor(const ThreadRecord& record) {
    return threadCpuNs(record.tid.load(std::memory_order_relaxed)) > record.account.cpuNs;
}

// A stopped thread's answer.
void StackSampler::settle(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    account.deafTimes = 0;
    if (keepTrace(record, account.running)) {
        if (!account.wanted) return;
        if (account.trace == KeptTrace::kFresh) account.trace = KeptTrace::kCounted;
        count(record);
        if (!account.running) add(counters_.chargedBlocked);
        return;
    }
    // The credit stays for the next cycle, but not without end.
    if (account.wanted && account.credit.due(kPatienceForTrace)) {
        count(record);
        add(counters_.droppedSamples);
    }
}

// Notes what the slot holds after an answer. False if the stack could not be walked.
bool StackSampler::keepTrace(ThreadRecord& record, bool running) {
    const jint frames = record.slot.frameCount;
    record.account.trace = frames > 0 && running ? KeptTrace::kFresh : KeptTrace::kNone;
    if (frames > 0) {
        add(counters_.traces);
        return true;
    }
    add(counters_.errors[std::min(-frames, SamplerCounters::kErrors - 1)]);
    return false;
}

// No answer, and none is waited for any more.
void StackSampler::silent(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    account.trace = KeptTrace::kNone; // the slot may yet be written to
    account.deafTimes = std::min(account.deafTimes + 1, kMaxDeafPower);
    account.muteUntil = cycle_ + (std::uint64_t{1} << account.deafTimes);
    add(counters_.timeouts);
    if (!SampleSignal::stillOurs()) signalReady_ = false; // nobody will ever answer
}

// No answer yet: mostly the thread waits for a processor.
void StackSampler::defer(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    account.trace = KeptTrace::kNone;
    account.deferredNs = monotonicNs();
    account.deferredRunning = account.running;
}

// Takes the trace that was left since the last cycle as one that was seen and is not yet counted.
void StackSampler::takeDeferred(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    if (account.deferredNs == 0) return;
    if (SampleSignal::takeLeft(record.slot)) {
        account.deferredNs = 0;
        account.deafTimes = 0;
        add(counters_.leftTraces);
        keepTrace(record, account.deferredRunning);
        account.wasLate = account.run == run_;
        return;
    }
    if (monotonicNs() - account.deferredNs < kDeferredMs * kNsPerMs) return;
    if (!SampleSignal::withdraw(record.slot)) return;
    account.deferredNs = 0;
    silent(record);
}

// Its credit stays.
void StackSampler::forgetDeferred(ThreadRecord& record) {
    if (record.account.deferredNs == 0) return;
    if (SampleSignal::takeLeft(record.slot) || SampleSignal::withdraw(record.slot)) {
        record.account.deferredNs = 0;
    }
}

// The thread ends, and no cycle has come since it left a trace.
void StackSampler::bequeath(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    if (account.deferredNs == 0 || !SampleSignal::takeLeft(record.slot)) return;
    account.deferredNs = 0;
    add(counters_.leftTraces);
    const jint frames = std::min(record.slot.frameCount, kSampleDepth);
    if (frames <= 0 || !account.deferredRunning || account.run != run_ || !account.credit.due())
        return;
    OrphanTrace& left = orphanTraces_[orphansLeft_++ % kMostOrphans];
    left.frameCount = frames;
    for (jint i = 0; i < frames; i++) left.methods[i] = record.slot.frames[i].method_id;
    if (orphansLeft_ - orphansInherited_ > kMostOrphans) orphansInherited_++;
}

// A new thread that owes a sample of an ended one gives it with that one's trace.
void StackSampler::inherit(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    if (orphansInherited_ == orphansLeft_ || !account.credit.due() || account.deferredNs != 0 ||
        !record.slot.idle()) {
        return;
    }
    const OrphanTrace& left = orphanTraces_[orphansInherited_++ % kMostOrphans];
    record.slot.frameCount = left.frameCount;
    for (jint i = 0; i < left.frameCount; i++) record.slot.frames[i].method_id = left.methods[i];
    account.trace = KeptTrace::kFresh;
    account.wasLate = account.deferredRunning = true;
}

// A thread that was late and owes another sample is asked for it right away, or one that never has
// a processor when it is looked at could be sampled in every second cycle only.
void StackSampler::askAgain(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    if (!account.wasLate || !account.credit.due() || !signalReady_) return;
    const void* javaThread = record.javaThread.load(std::memory_order_relaxed);
    if (!javaThread || vm_.threadState(javaThread) != VmStructs::kInJava) return;
    add(counters_.signals);
    if (!SampleSignal::askLeave(record.slot)) {
        add(counters_.notSent);
        return;
    }
    account.running = true;
    defer(record);
}

void StackSampler::unlist(ThreadRecord& record) {
    SamplerAccount& account = record.account;
    ThreadRecord** link = &listed_;
    while (*link != &record) link = &(*link)->account.nextListed;
    *link = account.nextListed;
    account.nextListed = nullptr;
    account.listed = account.decided = account.asked = false;
    account.running = account.wanted = account.hasRun = account.payable = account.wasLate = false;
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

} // namespace bridge
