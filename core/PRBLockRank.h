// The one order in which the agent's locks are taken, asserted in debug and sanitizer builds.
//
// A lock may be taken only while holding locks of lower rank, or itself again. Ranks belong to
// the monitors' names, so that a monitor needs no rank of its own.
#ifndef PRB_CORE_PRBLOCKRANK_H
#define PRB_CORE_PRBLOCKRANK_H

#include <cstddef>

namespace PRBLockRank {

struct Row {
    const char* monitor;
    int rank;
    // May its holder call the VM (JNI, or an interface function that can block or deliver
    // events)? A thread stopped by a collection inside such a call would keep the collector
    // waiting for ever if it held a registry.
    bool heldAcrossVmCalls;
};

// In order, lowest rank first. Answers 0 for a name that has no rank (never checked).
const Row* table(std::size_t& rows);
int rankOf(const char* monitor);

#if defined(PRB_CHECK_LOCK_ORDER)
void acquired(const void* monitor, const char* name); // aborts on a violation, naming both
void released(const void* monitor);
// To be called before a call of the VM that can block or deliver events: aborts when this thread
// holds a monitor that may not be held across it.
void checkVmCall(const char* call);
#else
inline void acquired(const void*, const char*) {}
inline void released(const void*) {}
inline void checkVmCall(const char*) {}
#endif

} // namespace PRBLockRank

#endif
