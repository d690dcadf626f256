// Objects that the VM tells about because the walk of a heap dump asked for them.
#ifndef PRB_COLLECTOR_PRBHEAPDUMPREPLAY_H
#define PRB_COLLECTOR_PRBHEAPDUMPREPLAY_H

#include "jvmpi/jvmpi.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <pthread.h>
#include <vector>

// While one exists, allocation events on its thread go to it, and nowhere else: they tell what a
// dump holds already, and are no allocations of a class or a thread. Walks are serial, so one
// note of the walking thread serves the process.
class PRBHeapDumpReplay {
public:
    // As the event told it.
    struct Object {
        jobjectID id;
        jobjectID cls; // null for arrays of primitives
        JNIEnv* thread;
        jint arena;
        jint isArray;
        jint size; // bytes
    };

    // Of one replay; a VM that tells more than it is asked is not heard further.
    static constexpr std::size_t kMost = 4096;

    explicit PRBHeapDumpReplay(std::vector<Object>& told) : told_(told) {
        current.store(this, std::memory_order_relaxed);
        walker.store(self(), std::memory_order_relaxed);
    }
    ~PRBHeapDumpReplay() {
        walker.store(0, std::memory_order_relaxed);
        current.store(nullptr, std::memory_order_relaxed);
    }
    PRBHeapDumpReplay(const PRBHeapDumpReplay&) = delete;
    PRBHeapDumpReplay& operator=(const PRBHeapDumpReplay&) = delete;

    // For the handler of allocation events: the replay of the calling thread, null as a rule.
    static PRBHeapDumpReplay* ofCaller() {
        const std::uintptr_t thread = walker.load(std::memory_order_relaxed);
        return thread != 0 && thread == self() ? current.load(std::memory_order_relaxed) : nullptr;
    }
    void take(const JVMPI_Event& event) {
        const auto& alloc = event.u.obj_alloc;
        if (told_.size() == kMost) return;
        told_.push_back({alloc.obj_id, alloc.class_id, event.env_id, alloc.arena_id, alloc.is_array,
                         alloc.size});
    }

private:
    static std::uintptr_t self() { return static_cast<std::uintptr_t>(pthread_self()); }
    inline static std::atomic<std::uintptr_t> walker{0};
    inline static std::atomic<PRBHeapDumpReplay*> current{nullptr};
    std::vector<Object>& told_;
};

#endif
