// One cycle of the sampler: list the threads, stop and look (PRBSamplerWindow), charge.
#include "core/PRBContext.h"
#include "core/PRBFormat.h"
#include "core/PRBLookup.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBProfilerCPUSampler.h"
#include "runtime/PRBReclaimer.h"

namespace {

constexpr const char* kName = PRBComponent::kCpuSampler;
// Object records that a collection has left behind, deleted per cycle.
constexpr std::size_t kReclaimedObjects = 4096;

bool canSample(const JVMPI_Interface* jvmpi) {
    return jvmpi != nullptr && jvmpi->GetThreadStatus != nullptr &&
           jvmpi->SuspendThread != nullptr && jvmpi->ResumeThread != nullptr &&
           jvmpi->ThreadHasRun != nullptr && jvmpi->GetCallTrace != nullptr;
}

} // namespace

void PRBProfilerCPUSampler::runCycle() {
    PRBMonitorHashTable* threadTable = PRBContext::getThreadTable();
    if (PRBContext::getMethodTable() == nullptr || PRBContext::getClassTable() == nullptr ||
        threadTable == nullptr)
        return;
    cycleCount.fetch_add(1, std::memory_order_relaxed);
    const bool debug = PRBTrace::isDebugEnabled(kName);
    if (debug) PRBTrace::writeToLog("Scanning threads");
    if (!canSample(jvmpi)) return;
    JNIEnv* self = PRBJavaThread::getEnvIdForCurrentThread();
    const bool methods = (PRBContext::getDataBeingCollected() & PRBCollect::kMethods) != 0;
    {
        // Threads of the list that are purged meanwhile, and methods that are unloaded, stay
        // valid until the samples are charged.
        PRBReclaimer::Reader hold;
        int suspended = 0;
        int active = 0;
        {
            // Taken before the first suspension, so no suspended thread can own it.
            PRBTableLock lock(*threadTable);
            const int threads = listThreads(*threadTable);
            PRBSamplerWindow window(*jvmpi, list, threads, slots, self, methods);
            window.run();
            suspended = window.getSuspended();
            active = window.getActive();
        }
        if (suspended > 0 && slots != nullptr) {
            if (debug)
                PRBTrace::log("The number of threads that were suspended and resumed was %i - the "
                              "number of active threads was %i",
                              suspended, active);
            charge(suspended);
        }
    }
    if (PRBMonitorHashTable* objects = PRBContext::getObjectTable())
        objects->reclaim(kReclaimedObjects);
}

// The threads that may be sampled, into `list`; answers how many.
int PRBProfilerCPUSampler::listThreads(PRBMonitorHashTable& table) {
    if (!reserve(static_cast<int>(table.entries()))) return 0;
    int count = 0;
    PRBHashSet::Iterator walk(table);
    while (auto* thread = static_cast<PRBJavaThread*>(walk()))
        if (thread->isThisBackgroundThread() == 0 && thread->getThreadState() != kThreadEnded &&
            count < capacity)
            list[count++] = PRBSamplerWindow::candidate(*thread);
    return count;
}

bool PRBProfilerCPUSampler::reserve(int threads) {
    if (threads <= capacity) return true;
    releaseBuffers();
    const int wanted = threads + threads / 2;
    const auto n = static_cast<std::size_t>(wanted);
    slots = static_cast<PRBSamplerWindow::TraceSlot*>(
        PRBMemoryManager::allocate(n * sizeof(PRBSamplerWindow::TraceSlot)));
    list = static_cast<PRBSamplerWindow::Candidate*>(
        PRBMemoryManager::allocate(n * sizeof(PRBSamplerWindow::Candidate)));
    capacity = wanted;
    if (slots != nullptr && list != nullptr) return true;
    releaseBuffers();
    return false;
}

void PRBProfilerCPUSampler::releaseBuffers() {
    const auto n = static_cast<std::size_t>(capacity);
    if (slots != nullptr) PRBMemoryManager::release(slots, n * sizeof(PRBSamplerWindow::TraceSlot));
    if (list != nullptr) PRBMemoryManager::release(list, n * sizeof(PRBSamplerWindow::Candidate));
    slots = nullptr;
    list = nullptr;
    capacity = 0;
}

// Classes that were loaded before the agent heard of loads come into the model only when somebody
// asks for them; without this the samples of their methods would be lost, and with them the
// names of callers. A method that the VM refuses stays unknown. REQUIRES: no lock held.
void PRBProfilerCPUSampler::makeKnown(const JVMPI_CallFrame* frames, int count) {
    PRBMonitorHashTable& methodTable = *PRBContext::getMethodTable();
    for (int i = 0; i < count; ++i) {
        const jmethodID method = frames[i].method_id;
        const auto bits = reinterpret_cast<std::uintptr_t>(method);
        jmethodID& seen = knownMethods[(bits ^ bits >> 12) / sizeof(void*) % kKnownMethods];
        if (method == nullptr || seen == method) continue;
        const PRBJavaMethod key(method);
        if (methodTable.find(&key) == nullptr && PRBLookup::getClassForMethod(method) == nullptr)
            continue;
        seen = method;
    }
}

// REQUIRES: a PRBReclaimer::Reader since before the threads were listed; no lock held.
void PRBProfilerCPUSampler::charge(int suspended) {
    PRBMonitorHashTable& methodTable = *PRBContext::getMethodTable();
    const bool methods = (PRBContext::getDataBeingCollected() & PRBCollect::kMethods) != 0;
    const bool debug = PRBTrace::isDebugEnabled(kName);
    for (int i = 0; i < suspended; ++i) {
        const PRBSamplerWindow::TraceSlot& slot = slots[i];
        if (slot.frameCount == 0) continue;
        PRBJavaThread* thread = list[i].thread;
        if (debug)
            PRBTrace::log("Got stack data for thread " PRB_PTR, prbPtr(thread->getThreadId()));
        makeKnown(slot.frames, slot.frameCount);
        const PRBJavaMethod key(slot.frames[0].method_id);
        auto* top = static_cast<PRBJavaMethod*>(methodTable.find(&key));
        if (top != nullptr && top->shouldBeMonitored() == PRBMonitored::kMonitor) {
            thread->countSampledCpu();
            busyCount.fetch_add(1, std::memory_order_relaxed);
            if (methods) thread->saveMethodFrequency(slot.frames, slot.frameCount);
            if (debug)
                PRBTrace::log("Recorded thread busy for thread " PRB_PTR,
                              prbPtr(thread->getEnvId()));
        } else if (debug) {
            PRBTrace::log("Thread busy for thread " PRB_PTR " was ignored",
                          prbPtr(thread->getEnvId()));
        }
    }
}

// The unit of these two times changes from nanoseconds to samples.
void PRBProfilerCPUSampler::forgetTimesOfThreads() {
    PRBMonitorHashTable* table = PRBContext::getThreadTable();
    if (table == nullptr) return;
    PRBTableLock hold(*table);
    PRBHashSet::Iterator walk(*table);
    while (auto* thread = static_cast<PRBJavaThread*>(walk())) thread->forgetUnsampledTimes();
}
