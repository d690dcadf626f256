#include "runtime/PRBMethodFrequency.h"

#include "core/PRBContext.h"
#include "core/PRBRegistryLocks.h"
#include "core/PRBTrace.h"
#include "data/PRBMethodUsageSample.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBReclaimer.h"

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr const char* kName = PRBComponent::kThread;

constexpr unsigned kClassAndMethod = PRBRegistryLocks::kClass | PRBRegistryLocks::kMethod;

bool isMonitored(const PRBJavaClass& cls) {
    return const_cast<PRBJavaClass&>(cls).shouldBeMonitored() == PRBMonitored::kMonitor;
}

} // namespace

bool PRBJavaThread::MethodFrequency::isEqual(const PRBCollectable* other) const {
    return other != nullptr && other->isA() == isA() &&
           static_cast<const MethodFrequency*>(other)->methodId == methodId;
}

void PRBJavaThread::MethodFrequency::contentionEvent(long long time, _MonitorEvent kind) {
    const bool wait = kind == kMonitorWait;
    (wait ? waits : contentions).fetch_add(1, kRelaxed);
    (wait ? waitNs : contentionNs).fetch_add(time, kRelaxed);
    updated.store(1, kRelaxed);
}

void PRBJavaThread::MethodFrequency::heapAllocationEvent(long long size) {
    allocations.fetch_add(1, kRelaxed);
    allocatedBytes.fetch_add(size, kRelaxed);
}

bool PRBJavaThread::MethodFrequency::reportForThisMethod() {
    PRBTraceScope trace(PRBTraceClass::kFrequent, kName,
                        "PRBJavaThread::MethodFrequency::reportForThisMethod");
    if (isNotReportable()) return trace.returns(false);
    PRBRegistryLocks hold(kClassAndMethod);
    const PRBJavaClass* known = cls.load(std::memory_order_acquire);
    return trace.returns(known == nullptr || isMonitored(*known));
}

bool PRBJavaThread::MethodFrequency::isReported() {
    if (isNotReportable()) return false;
    const std::uint64_t epoch = getDecisionEpoch();
    const std::uint64_t noted = reportDecision.load(kRelaxed);
    if (noted != 0 && noted >> 32 == epoch) return (noted & 1U) != 0;
    const bool report = reportForThisMethod();
    // An unknown class may become known without a new epoch.
    if (cls.load(std::memory_order_acquire) != nullptr)
        reportDecision.store(epoch << 32 | 2U | (report ? 1U : 0U), kRelaxed);
    return report;
}

// The counters, taken and zeroed in one step each.
struct PRBJavaThread::MethodFrequency::Taken {
    long long own, callee, contentions, waits, contentionNs, waitNs;
};

PRBJavaThread::MethodFrequency::Taken PRBJavaThread::MethodFrequency::take() {
    // Most are 0 most of the time, and a look is cheaper than an exchange.
    const auto zero = [](std::atomic<long long>& counter) {
        return counter.load(kRelaxed) == 0 ? 0 : counter.exchange(0, kRelaxed);
    };
    updated.store(0, kRelaxed);
    const long long exits = exitCalleeCpu.load(kRelaxed);
    const long long taken = exitCalleeTaken.load(kRelaxed); // written here only
    if (exits != taken) exitCalleeTaken.store(exits, kRelaxed);
    const long long callee = zero(calleeCpu) + exits - taken;
    return {zero(ownCpu), callee, zero(contentions), zero(waits), zero(contentionNs), zero(waitNs)};
}

// False when nothing can be written now; the record is not reportable for good when the method
// or its class cannot be found.
bool PRBJavaThread::MethodFrequency::fillNames() {
    PRBMonitorHashTable* table = PRBContext::getMethodTable();
    if (table == nullptr) return false;
    const PRBJavaMethod key(methodId);
    // What is missing is asked for first: the VM is never called under a registry.
    {
        PRBReclaimer::Reader hold;
        if (auto* asked = static_cast<PRBJavaMethod*>(table->find(&key))) {
            if (asked->getClass() != nullptr) {
                asked->getMethodName();
                asked->getMethodSignature();
            }
        }
    }
    PRBRegistryLocks hold(kClassAndMethod);
    const auto* found = static_cast<const PRBJavaMethod*>(table->find(&key));
    if (found == nullptr) {
        notReportable.store(true, kRelaxed);
        return false;
    }
    const PRBJavaClass* known = cls.load(kRelaxed);
    if (known == nullptr) {
        known = found->peekClass();
        if (known != nullptr) known->lend();
        cls.store(known, std::memory_order_release);
    }
    if (known == nullptr) {
        notReportable.store(true, kRelaxed);
        return false;
    }
    if (!isMonitored(*known)) return false;
    className = known->getClassName();
    method.assign(found->peekMethodName()).push_back('\0');
    signatureAt = method.size();
    method += found->peekMethodSignature();
    return true;
}

int PRBJavaThread::MethodFrequency::createSample(PRBMethodUsageSample& sample, long long nowMs,
                                                 long long value310, long long value315) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName,
                        "PRBJavaThread::MethodFrequency::createSample");
    if (!isReported() || !isUpdated()) return trace.returns(0);
    const Taken taken = take();
    const long long divisor = PRBContext::getSimulatedSamplingDivisor();
    if (divisor == 0) return trace.returns(0);
    const long long own = taken.own / divisor;
    const long long callee = taken.callee / divisor;
    if (own <= 0 && callee <= 0 && taken.contentions <= 0 && taken.waits <= 0)
        return trace.returns(0);
    if (*method.c_str() == '\0' && !fillNames()) return trace.returns(0);

    sample.saveStringData(10, className);
    sample.saveStringData(11, method.c_str());
    sample.saveStringData(320, method.c_str() + signatureAt);
    sample.saveNumericData(314, nowMs);
    sample.saveNumericData(321, own);
    sample.saveNumericData(322, callee);
    if ((PRBContext::getDataBeingCollected() & PRBCollect::kContention) != 0) {
        sample.saveNumericData(304, taken.contentions);
        sample.saveNumericData(306, taken.waits);
        sample.saveNumericData(305, taken.contentionNs / 1000000);
        sample.saveNumericData(307, taken.waitNs / 1000000);
    }
    sample.saveNumericData(310, value310);
    sample.saveNumericData(315, value315);
    return trace.returns(1);
}
