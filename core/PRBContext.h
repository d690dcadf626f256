// What everybody needs, reached without the process-wide face: the interfaces of the VM, the
// registries, the collection flags, the sampling divisor. Plain pointers that the face
// publishes once and never takes back; constant-initialised, so nothing is destroyed at exit.
#ifndef PRB_CORE_PRBCONTEXT_H
#define PRB_CORE_PRBCONTEXT_H

#include "jvmpi/jvmpi.h"

#include <atomic>
#include <cstdint>

class PRBMonitorHashTable;

// The bits of a collection type.
namespace PRBCollect {
constexpr unsigned kThreads = 0x200;
constexpr unsigned kMethods = 0x400;
constexpr unsigned kContention = 0x800;
constexpr unsigned kHeap = 0x1000;
constexpr unsigned kGarbageCollection = 0x2000;
constexpr unsigned kHeapAllocation = 0x8000;
constexpr unsigned kProfilerErrors = 0x40000;
constexpr unsigned kResourceUsage = 0x80000;
} // namespace PRBCollect

struct PRBContext {
    // Null before initialisation, and before JNI_OnLoad for the JavaVM.
    static std::atomic<JVMPI_Interface*> jvmpi;
    static std::atomic<JavaVM*> javaVm;

    // The six registries; null before initialisation. Lock order: class, method, arena, object.
    static std::atomic<PRBMonitorHashTable*> classTable;
    static std::atomic<PRBMonitorHashTable*> methodTable;
    static std::atomic<PRBMonitorHashTable*> objectTable;
    static std::atomic<PRBMonitorHashTable*> arenaTable;
    static std::atomic<PRBMonitorHashTable*> threadTable;
    static std::atomic<PRBMonitorHashTable*> activeThreadTable;

    static PRBMonitorHashTable* getClassTable() { return get(classTable); }
    static PRBMonitorHashTable* getMethodTable() { return get(methodTable); }
    static PRBMonitorHashTable* getObjectTable() { return get(objectTable); }
    static PRBMonitorHashTable* getArenaTable() { return get(arenaTable); }
    static PRBMonitorHashTable* getThreadTable() { return get(threadTable); }
    static PRBMonitorHashTable* getActiveThreadTable() { return get(activeThreadTable); }
    static JVMPI_Interface* getInterface() { return get(jvmpi); }
    static JavaVM* getJavaVM() { return get(javaVm); }

    // The collection type in force (PRBCollect bits); kept after a stop.
    static unsigned getDataBeingCollected() {
        return dataBeingCollected.load(std::memory_order_relaxed);
    }
    static void setDataBeingCollected(unsigned bits) {
        dataBeingCollected.store(bits, std::memory_order_relaxed);
    }

    // True while a sampler exists and its thread is not idle.
    static int isCPUSamplingActive() {
        const std::atomic<int>* idle = samplerIdle.load(std::memory_order_acquire);
        return idle != nullptr && idle->load(std::memory_order_relaxed) == 0 ? 1 : 0;
    }
    // The sampler's idle flag; null until it is built.
    static std::atomic<const std::atomic<int>*> samplerIdle;

    static void setCPUSamplingInterval(unsigned ms) {
        cpuSamplingIntervalMs.store(ms, std::memory_order_relaxed);
    }
    // One simulated sample is one sampling interval: 1 while the sampler counts samples itself,
    // else the interval in nanoseconds (0 before the first collection that samples).
    static long long getSimulatedSamplingDivisor() {
        if (isCPUSamplingActive()) return 1;
        return static_cast<long long>(cpuSamplingIntervalMs.load(std::memory_order_relaxed)) *
               1000000;
    }

    // The calling thread's CPU time in microseconds. The argument is accepted and ignored. The
    // source (the VM's clock, or the system's when the interface has none) is chosen once per
    // process: a mix would make CPU time run backwards. Works before initialisation.
    static long long getThreadCPUTimeInMicroSeconds(long long threadHandle = 0);

private:
    template <typename T> static T* get(const std::atomic<T*>& p) {
        return p.load(std::memory_order_acquire);
    }
    static std::atomic<unsigned> dataBeingCollected;
    static std::atomic<unsigned> cpuSamplingIntervalMs;
};

#endif
