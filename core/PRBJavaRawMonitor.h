// A named lock over a raw monitor of the VM: the only kind of lock that the agent uses.
#ifndef PRB_CORE_PRBJAVARAWMONITOR_H
#define PRB_CORE_PRBJAVARAWMONITOR_H

#include "core/PRBMemoryManager.h"
#include "jvmpi/jvmpi.h"

#include <atomic>
#include <cstdint>
#include <pthread.h>
#include <string>

// Re-entrant. A `post` that comes before the `wait` is not lost. `track` 0 keeps the nesting
// count but neither the owner nor any log line: for the monitors of the log itself.
class PRBJavaRawMonitor : public PRBMemoryManager {
public:
    // A null interface means the one in PRBContext.
    PRBJavaRawMonitor(const char* name, const JVMPI_Interface* jvmpi);
    ~PRBJavaRawMonitor();
    PRBJavaRawMonitor(const PRBJavaRawMonitor&) = delete;
    PRBJavaRawMonitor& operator=(const PRBJavaRawMonitor&) = delete;

    void enter(int track);
    void exit(int track);
    // Milliseconds; negative waits without limit. Returns at once when a post is pending.
    void wait(int milliseconds);
    void post(); // wakes every waiter

    const std::string& getName() const { return name; }
    int getEntryCount() const { return entryCount.load(std::memory_order_relaxed); }
    std::uintptr_t getOwner() const { return owner.load(std::memory_order_relaxed); }

private:
    // Without a VM, or with one that lacks raw monitors, nothing is locked.
    bool usable() const { return jvmpi != nullptr && handle != nullptr; }

    const JVMPI_Interface* jvmpi;
    JVMPI_RawMonitor handle;
    std::int32_t posted = 0;              // under the monitor
    std::atomic<std::int32_t> entryCount; // the holder's nesting depth
    std::atomic<std::uintptr_t> owner;    // POSIX thread id; 0 when free
    std::string name;
};

// Holds a monitor for a scope.
class PRBMonitorGuard {
public:
    explicit PRBMonitorGuard(PRBJavaRawMonitor& monitor, int track = 1)
        : monitor_(&monitor), track_(track) {
        monitor_->enter(track_);
    }
    ~PRBMonitorGuard() { release(); }
    PRBMonitorGuard(const PRBMonitorGuard&) = delete;
    PRBMonitorGuard& operator=(const PRBMonitorGuard&) = delete;
    void release() {
        if (monitor_ != nullptr) monitor_->exit(track_);
        monitor_ = nullptr;
    }

private:
    PRBJavaRawMonitor* monitor_;
    int track_;
};

#endif
