#include "core/PRBJavaRawMonitor.h"

#include "core/PRBContext.h"
#include "core/PRBFormat.h"
#include "core/PRBLockRank.h"
#include "core/PRBTrace.h"

namespace {

std::uintptr_t callingThread() { return static_cast<std::uintptr_t>(pthread_self()); }

} // namespace

PRBJavaRawMonitor::PRBJavaRawMonitor(const char* monitorName, const JVMPI_Interface* interface)
    : jvmpi(interface != nullptr ? interface : PRBContext::getInterface()),
      handle(nullptr),
      entryCount(0),
      owner(0),
      name(monitorName == nullptr ? "" : monitorName) {
    // The VM declares the name writable and does not write to it.
    if (jvmpi != nullptr && jvmpi->RawMonitorCreate != nullptr)
        handle = jvmpi->RawMonitorCreate(name.data());
}

PRBJavaRawMonitor::~PRBJavaRawMonitor() {
    if (usable() && jvmpi->RawMonitorDestroy != nullptr) jvmpi->RawMonitorDestroy(handle);
}

void PRBJavaRawMonitor::enter(int track) {
    bool waitAnnounced = false;
    if (track != 0 && entryCount.load(std::memory_order_relaxed) > 0 &&
        PRBTrace::isDebugEnabled(PRBComponent::kRawMonitor)) {
        std::uintptr_t self = callingThread(), holder = owner.load(std::memory_order_relaxed);
        if (self != holder) {
            PRBTrace::log("Thread " PRB_PTR0
                          " may have to wait for lock %s held by thread " PRB_PTR0,
                          prbPtr(self), name.c_str(), prbPtr(holder));
            waitAnnounced = true;
        }
    }
    PRBLockRank::acquired(this, name.c_str());
    if (usable() && jvmpi->RawMonitorEnter != nullptr) jvmpi->RawMonitorEnter(handle);
    if (waitAnnounced && PRBTrace::isDebugEnabled(PRBComponent::kRawMonitor))
        PRBTrace::writeToLog("Lock was acquired");
    std::int32_t depth = entryCount.load(std::memory_order_relaxed) + 1;
    entryCount.store(depth, std::memory_order_relaxed);
    if (depth == 1 && track != 0) {
        std::uintptr_t self = callingThread();
        owner.store(self, std::memory_order_relaxed);
        if (PRBTrace::isDebugEnabled(PRBComponent::kRawMonitor))
            PRBTrace::log("Lock %s at " PRB_PTR " acquired by thread " PRB_PTR08, name.c_str(),
                          prbPtr(this), prbPtr(self));
    }
}

void PRBJavaRawMonitor::exit(int track) {
    std::int32_t depth = entryCount.load(std::memory_order_relaxed) - 1;
    entryCount.store(depth, std::memory_order_relaxed);
    if (depth == 0 && track != 0) {
        if (PRBTrace::isDebugEnabled(PRBComponent::kRawMonitor))
            PRBTrace::log("Lock %s at " PRB_PTR " released by thread " PRB_PTR08, name.c_str(),
                          prbPtr(this), prbPtr(owner.load(std::memory_order_relaxed)));
        owner.store(0, std::memory_order_relaxed);
    }
    if (usable() && jvmpi->RawMonitorExit != nullptr) jvmpi->RawMonitorExit(handle);
    PRBLockRank::released(this);
}

void PRBJavaRawMonitor::wait(int milliseconds) {
    enter(1);
    if (posted == 0 && usable() && jvmpi->RawMonitorWait != nullptr) {
        // Another thread holds the monitor meanwhile: the nesting and the owner are its own.
        std::int32_t depth = entryCount.exchange(0, std::memory_order_relaxed);
        std::uintptr_t holder = owner.exchange(0, std::memory_order_relaxed);
        jvmpi->RawMonitorWait(handle, static_cast<jlong>(milliseconds));
        entryCount.store(depth, std::memory_order_relaxed);
        owner.store(holder, std::memory_order_relaxed);
    }
    posted = 0;
    exit(1);
}

void PRBJavaRawMonitor::post() {
    enter(1);
    posted = 1;
    if (usable() && jvmpi->RawMonitorNotifyAll != nullptr) jvmpi->RawMonitorNotifyAll(handle);
    exit(1);
}
