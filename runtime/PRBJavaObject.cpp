#include "runtime/PRBJavaObject.h"

#include "core/PRBTrace.h"

std::atomic<std::uint32_t> PRBJavaObject::decisionEpoch{0};

PRBJavaObject::PRBJavaObject(const PRBJavaObject& other)
    : PRBCollectable(other), decision(static_cast<std::uint32_t>(other.getStatus())) {}

PRBJavaObject& PRBJavaObject::operator=(const PRBJavaObject& other) {
    if (this == &other) return *this;
    PRBCollectable::operator=(other);
    decision.store(static_cast<std::uint32_t>(other.getStatus()), std::memory_order_release);
    newDecisionEpoch();
    return *this;
}

void PRBJavaObject::markUndecided() {
    std::uint32_t word = decision.load(std::memory_order_relaxed);
    while (!decision.compare_exchange_weak(word, ((word & ~3U) + 4U) | PRBMonitored::kUndecided,
                                           std::memory_order_acq_rel)) {
    }
    newDecisionEpoch();
}

int PRBJavaObject::storeDecision(std::uint32_t read, bool monitor) {
    int status = monitor ? PRBMonitored::kMonitor : PRBMonitored::kIgnore;
    std::uint32_t expected = read;
    decision.compare_exchange_strong(expected, (read & ~3U) | static_cast<std::uint32_t>(status),
                                     std::memory_order_acq_rel);
    return status;
}

int PRBJavaObject::resetShouldBeMonitoredStatus() {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kObject,
                        "PRBJavaObject::resetShouldBeMonitoredStatus");
    markUndecided();
    return trace.returns(shouldBeMonitored());
}

int PRBJavaObject::shouldBeMonitored() { return getStatus(); }
