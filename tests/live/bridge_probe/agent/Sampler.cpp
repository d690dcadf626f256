#include "tests/live/bridge_probe/agent/Sampler.h"

#include <algorithm>
#include <mutex>
#include <vector>

#include <unistd.h>

#include "tests/live/bridge_probe/Probe.h"
#include "tests/live/bridge_probe/agent/Model.h"

namespace probe {

std::atomic<bool> samplerMayRun{false};
std::atomic<bool> samplerRan{false};
std::atomic<uint64_t> cycles{0};
std::atomic<uint64_t> traces{0};
std::atomic<uint64_t> tracesOfBusy{0};
std::atomic<uint64_t> framesSeen{0};
std::atomic<uint64_t> framesUnknown{0};
JVMPI_RawMonitor samplerMonitor = nullptr;

namespace {

constexpr char kSampler[] = "probe sampler";

// A thread that is blocked is counted with the last trace that was seen while it ran; its classes
// may have gone since.
bool isGone(jmethodID method) {
    std::lock_guard<std::mutex> guard(mutex);
    return std::find(methodsOfUnloaded.begin(), methodsOfUnloaded.end(), method) !=
           methodsOfUnloaded.end();
}

void sampleOnce() {
    struct Slot {
        JNIEnv* env;
        bool busy;
        jint count;
        JVMPI_CallFrame frames[50];
    };
    std::vector<Slot> slots;
    {
        std::lock_guard<std::mutex> guard(mutex);
        for (const auto& [env, thread] : threadsByEnv)
            if (thread.name != kSampler) slots.push_back({env, thread.name == "busy", 0, {}});
    }
    for (size_t i = 0; i < slots.size();) {
        const jint status = jvmpi->GetThreadStatus(slots[i].env) & ~JVMPI_THREAD_INTERRUPTED;
        if (status == JVMPI_THREAD_RUNNABLE) {
            jvmpi->SuspendThread(slots[i++].env);
        } else {
            slots[i] = slots.back();
            slots.pop_back();
        }
    }
    for (Slot& slot : slots) {
        if (!jvmpi->ThreadHasRun(slot.env)) continue;
        JVMPI_CallTrace trace{slot.env, 0, slot.frames};
        jvmpi->GetCallTrace(&trace, 50);
        slot.count = trace.num_frames;
    }
    for (Slot& slot : slots) jvmpi->ResumeThread(slot.env);
    for (const Slot& slot : slots) {
        if (slot.count == 0) continue;
        traces++;
        if (slot.busy) tracesOfBusy++;
        for (jint i = 0; i < slot.count; i++) {
            framesSeen++;
            const jmethodID method = slot.frames[i].method_id;
            if (!jvmpi->GetMethodClass(method) && !isGone(method)) framesUnknown++;
        }
    }
    cycles++;
}

} // namespace

void samplerBody(void* argument) {
    check(argument == nullptr, "a system thread's body gets an argument");
    samplerRan = true;
    check(self() != nullptr, "a system thread has no environment");
    jvmpi->RawMonitorEnter(samplerMonitor);
    while (!samplerMayRun) jvmpi->RawMonitorWait(samplerMonitor, 1000);
    jvmpi->RawMonitorExit(samplerMonitor);
    while (samplerMayRun) {
        usleep(3000);
        sampleOnce();
    }
    note("sampler ends");
}

} // namespace probe
