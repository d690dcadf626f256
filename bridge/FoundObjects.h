// The objects without an id of their own that dumps of level 1 named because they refer to an
// object that has one. The profiler may ask for them by the ids in the dump; they are not tagged,
// and nothing keeps them alive.
//
// Such an id answers for a minute, and for the last sixteen dumps at most: a profiler that looks
// for references fetches what it found at once.
//
// Java threads only. The lock is held over NewLocalRef, and never taken by the collecting thread.
#ifndef PRB_BRIDGE_FOUNDOBJECTS_H
#define PRB_BRIDGE_FOUNDOBJECTS_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

#include <jni.h>

namespace bridge {

class FoundObjects {
public:
    static constexpr int64_t kKeptNs = 60'000'000'000;
    static constexpr size_t kMost = 16;

    // Takes the references over; the ids are `first` and those after it. `now` is of the
    // monotonic clock.
    void add(JNIEnv* jni, uint32_t first, std::vector<jweak> references, int64_t now);
    // A new local reference, or null for an unknown id and a dead object.
    jobject object(JNIEnv* jni, uint32_t id);
    // Forgets what is too old.
    void sweep(JNIEnv* jni, int64_t now);

    size_t size() const; // references kept

private:
    struct Dump {
        uint32_t first;
        int64_t since;
        std::vector<jweak> references;
    };
    static void free(JNIEnv* jni, const std::vector<Dump>& dumps);

    mutable std::mutex mutex_;
    std::deque<Dump> dumps_; // oldest first
};

FoundObjects& foundObjects();

} // namespace bridge

#endif
