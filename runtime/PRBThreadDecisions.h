// The methods that one thread entered lately, whether each is monitored, and its frequency record:
// spares the locks of the method registry and of the frequency table on most calls.
#ifndef PRB_RUNTIME_PRBTHREADDECISIONS_H
#define PRB_RUNTIME_PRBTHREADDECISIONS_H

#include "core/PRBMemoryManager.h"
#include "runtime/PRBJavaThread.h"

#include <cstdint>

// Direct mapped, for its own thread only. Holds final decisions, which count only in the decision
// epoch that they were made in; and records, which count only in the stack period that they were
// looked up in: a record that leaves the table is kept until the stack has been empty.
struct PRBJavaThread::DecisionCache : public PRBMemoryManager {
    static constexpr unsigned kSlots = 512;
    struct Slot {
        jmethodID method;
        std::uint32_t epoch;
        bool monitored;
        MethodFrequency* record;
        std::uint64_t period;
    };
    Slot slots[kSlots] = {};

    Slot& of(jmethodID method) {
        auto bits = reinterpret_cast<std::uintptr_t>(method);
        return slots[((bits >> 3) ^ (bits >> 12)) % kSlots];
    }
};

#endif
