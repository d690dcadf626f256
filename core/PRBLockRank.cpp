#include "core/PRBLockRank.h"

#include <cstring>
#if defined(PRB_CHECK_LOCK_ORDER)
#include <cstdio>
#include <cstdlib>
#endif

namespace PRBLockRank {

namespace {

constexpr Row kRows[] = {
    {"_DataReturn", 10, true},
    {"_InterruptSamplerRawMonitor", 20, true},
    {"_HeapDumpRequest", 30, true},
    {"_StopBackgroundThread_COBT", 40, false},
    {"_BackgroundThreadIsStopped", 45, false},
    {"_ActiveThreadTable", 50, false},
    // Held by the sampler over suspend, has-run, trace and resume; never wanted in a collection.
    {"_ThreadTable", 60, true},
    {"Thread Method Frequency Table", 70, false},
    {"_Contention_Table", 70, false},
    {"_ClassTable", 80, false},
    {"_MethodTable", 90, false},
    {"_ArenaTable", 100, false},
    {"_ObjectTable", 110, false},
    {"PendingMethodRemoveQueueLock", 120, false},
    {"_MaskList", 130, false},
    {"_ProfilerError", 140, false},
    {"_InternalTraceTable", 150, false},
    {"_LogFile", 150, false},
};

const Row* rowOf(const char* monitor) {
    for (const Row& row : kRows)
        if (std::strcmp(row.monitor, monitor) == 0) return &row;
    return nullptr;
}

} // namespace

const Row* table(std::size_t& rows) {
    rows = sizeof kRows / sizeof kRows[0];
    return kRows;
}

int rankOf(const char* monitor) {
    const Row* row = rowOf(monitor);
    return row == nullptr ? 0 : row->rank;
}

#if defined(PRB_CHECK_LOCK_ORDER)

namespace {

struct Held {
    const void* monitor;
    const Row* row;
    int depth;
};
// More than the table has rows cannot be held at once, as each rank is held once.
struct Stack {
    Held held[32];
    std::size_t count;
};
thread_local Stack stack;

} // namespace

void acquired(const void* monitor, const char* name) {
    const Row* row = rowOf(name);
    if (row == nullptr) return;
    for (std::size_t i = 0; i < stack.count; ++i) {
        if (stack.held[i].monitor == monitor) {
            ++stack.held[i].depth;
            return;
        }
    }
    for (std::size_t i = 0; i < stack.count; ++i) {
        if (stack.held[i].row->rank < row->rank) continue;
        std::fprintf(stderr, "lock order violated: \"%s\" is taken while \"%s\" is held\n", name,
                     stack.held[i].row->monitor);
        std::abort();
    }
    if (stack.count == sizeof stack.held / sizeof stack.held[0]) std::abort();
    stack.held[stack.count++] = Held{monitor, row, 1};
}

void released(const void* monitor) {
    for (std::size_t i = stack.count; i-- > 0;) {
        if (stack.held[i].monitor != monitor) continue;
        if (--stack.held[i].depth == 0) {
            // Locks may be released in any order.
            std::memmove(&stack.held[i], &stack.held[i + 1], (stack.count - i - 1) * sizeof(Held));
            --stack.count;
        }
        return;
    }
}

void checkVmCall(const char* call) {
    for (std::size_t i = 0; i < stack.count; ++i) {
        if (stack.held[i].row->heldAcrossVmCalls) continue;
        std::fprintf(stderr, "lock order violated: %s is called while \"%s\" is held\n", call,
                     stack.held[i].row->monitor);
        std::abort();
    }
}

#endif

} // namespace PRBLockRank
