// The methods that one thread entered lately, and whether each is monitored: spares the method
// registry's lock on most method entries.
#ifndef PRB_RUNTIME_PRBTHREADDECISIONS_H
#define PRB_RUNTIME_PRBTHREADDECISIONS_H

#include "core/PRBMemoryManager.h"
#include "runtime/PRBJavaThread.h"

#include <cstdint>

// Direct mapped, for its own thread only. Holds final decisions and no pointers; an entry counts
// only in the decision epoch that it was made in.
struct PRBJavaThread::DecisionCache : public PRBMemoryManager {
    static constexpr unsigned kSlots = 512;
    struct Slot {
        jmethodID method;
        std::uint32_t epoch;
        bool monitored;
    };
    Slot slots[kSlots] = {};

    Slot& of(jmethodID method) {
        auto bits = reinterpret_cast<std::uintptr_t>(method);
        return slots[((bits >> 3) ^ (bits >> 12)) % kSlots];
    }
};

#endif
