#include "runtime/PRBMonitorContentionEvent.h"

#include "core/PRBRegistryLocks.h"
#include "core/PRBTrace.h"
#include "core/PRBVm.h"
#include "data/PRBContentionSample.h"
#include "runtime/PRBClock.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBReclaimer.h"

namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;
constexpr const char* kName = PRBComponent::kThread;

const PRBJavaClass* findClass(jobjectID id) {
    PRBMonitorHashTable* table = PRBContext::getClassTable();
    const PRBJavaClass key(id);
    return table == nullptr ? nullptr : static_cast<const PRBJavaClass*>(table->find(&key));
}

void logFailure(jint result) {
    if (!PRBTrace::isTraceEnabled(PRBTraceClass::kInternal, kName)) return;
    const char* how = result == JVMPI_FAIL            ? "JVMPI_FAIL"
                      : result == JVMPI_NOT_AVAILABLE ? "JVMPI_NOT_AVAILABLE"
                                                      : "Unknown Error";
    PRBTrace::log("createSample RequestEvent JVMPI_EVENT_CLASS_LOAD returned %s", how);
}

} // namespace

bool PRBJavaThread::MonitorContentionEvent::isEqual(const PRBCollectable* other) const {
    if (other == nullptr || other->isA() != isA()) return false;
    const auto* event = static_cast<const MonitorContentionEvent*>(other);
    return event->monitorClassId == monitorClassId && event->methodId == methodId;
}

void PRBJavaThread::MonitorContentionEvent::startTheClock(_MonitorEvent kind, timeval& start) {
    clockKind.store(kind, kRelaxed);
    clockStart.store(PRBClock::toMicros(start), std::memory_order_release);
}

void PRBJavaThread::MonitorContentionEvent::addTime(_MonitorEvent kind, long long ns) {
    (kind == kMonitorWait ? waitNs : contentionNs).fetch_add(ns, kRelaxed);
}

void PRBJavaThread::MonitorContentionEvent::stopTheClock(_MonitorEvent kind, timeval& now) {
    const long long start = clockStart.exchange(kStopped, std::memory_order_acq_rel);
    if (start == kStopped) return;
    (kind == kMonitorWait ? waits : contentions).fetch_add(1, kRelaxed);
    addTime(kind, (PRBClock::toMicros(now) - start) * 1000);
}

void PRBJavaThread::MonitorContentionEvent::accountRunningClock() {
    const long long now = PRBClock::toMicros(PRBClock::now());
    long long start = clockStart.load(std::memory_order_acquire);
    const auto kind = static_cast<_MonitorEvent>(clockKind.load(kRelaxed));
    if (start != kStopped &&
        clockStart.compare_exchange_strong(start, now, std::memory_order_acq_rel))
        addTime(kind, (now - start) * 1000);
}

// The class of the monitor, by its id; asks the VM for a class that is not known.
const PRBJavaClass* PRBJavaThread::MonitorContentionEvent::findMonitorClass() const {
    if (const PRBJavaClass* known = findClass(monitorClassId)) return known;
    if (monitorClassId == nullptr) return nullptr;
    PRBVm::GcDisabled disabled; // keeps the id valid
    const jint result = PRBVm::requestEvent(JVMPI_EVENT_CLASS_LOAD, monitorClassId);
    if (result == JVMPI_SUCCESS) return findClass(monitorClassId);
    logFailure(result);
    return nullptr;
}

int PRBJavaThread::MonitorContentionEvent::createSample(PRBContentionSample& sample,
                                                        long long nowMs) {
    PRBTraceScope trace(PRBTraceClass::kDetail, kName,
                        "PRBJavaThread::MonitorContentionEvent::createSample");
    accountRunningClock();
    PRBMonitorHashTable* table = PRBContext::getMethodTable();
    if (table == nullptr) return trace.returns(0);
    const PRBJavaMethod key(methodId);
    // What is missing is asked for first: the VM is never called under a registry.
    {
        PRBReclaimer::Reader hold;
        if (auto* method = static_cast<PRBJavaMethod*>(table->find(&key))) {
            if (method->getClass() != nullptr) {
                method->getMethodName();
                method->getMethodSignature();
            }
        }
    }
    const PRBJavaClass* known;
    {
        PRBRegistryLocks locks(PRBRegistryLocks::kClass | PRBRegistryLocks::kMethod);
        const auto* method = static_cast<const PRBJavaMethod*>(table->find(&key));
        if (method == nullptr) return trace.returns(0);
        known = methodClass.load(std::memory_order_acquire);
        if (known == nullptr) {
            known = method->peekClass();
            if (known != nullptr) known->lend();
            methodClass.store(known, std::memory_order_release);
        }
        if (known == nullptr ||
            const_cast<PRBJavaClass*>(known)->shouldBeMonitored() != PRBMonitored::kMonitor)
            return trace.returns(0);
        sample.saveStringData(10, known->getClassName());
        sample.saveStringData(11, method->peekMethodName());
        sample.saveStringData(320, method->peekMethodSignature());
    }
    sample.saveNumericData(314, nowMs);
    sample.saveNumericData(304, contentions.exchange(0, kRelaxed));
    sample.saveNumericData(305, contentionNs.exchange(0, kRelaxed) / 1000000);
    sample.saveNumericData(306, waits.exchange(0, kRelaxed));
    sample.saveNumericData(307, waitNs.exchange(0, kRelaxed) / 1000000);
    const PRBJavaClass* monitorClass =
        monitorClassId == known->getClassId() ? known : findMonitorClass();
    if (monitorClass != nullptr) sample.saveStringData(330, monitorClass->getClassName());
    return trace.returns(1);
}
