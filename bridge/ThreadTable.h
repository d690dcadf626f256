// The bridge's threads, found by JNIEnv*. A record is inserted at ThreadStart (or at VMInit and
// attach for older threads) and removed at ThreadEnd. Records come from a pool that never shrinks,
// so a borrowed pointer stays readable for ever; env() tells whose it is now, null for nobody's.
//
// The VM gives a dead thread's environment to a new thread within milliseconds; storage is
// therefore cleared at both ends.
//
// Locking: writers and everybody who looks into a JavaThread hold the thread-list lock (lock()).
// Look-ups by environment take no lock: chains of atomic pointers that never dangle, under a
// sequence count that tells the reader to look again if a writer was there.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

#include <jni.h>

#include "bridge/RunCredit.h"
#include "bridge/SampleSlot.h"
#include "bridge/ThreadListLock.h"
#include "bridge/VmStructs.h"
#include "jvmpi/jvmpi.h"

namespace bridge {

class ThreadRecord;

// What is known of a thread when it is announced. Names are modified UTF-8 as the VM gives them.
struct ThreadInfo {
    JNIEnv* env = nullptr;
    pid_t tid = 0;
    void* javaThread = nullptr;
    jobjectID object = nullptr;
    std::string name;
    std::string group;
    std::string parent;
};

// What the sampler keeps about a thread between cycles. Guarded by the thread-list lock.
struct SamplerAccount {
    RunCredit credit;
    std::int64_t insertedNs = 0;    // CLOCK_MONOTONIC
    std::int64_t cpuNs = 0;         // CPU clock at the last look, at first that of the insertion
    std::int64_t handlerCpuNs = 0;  // SampleSlot::handlerCpuNs at the last look
    std::uint64_t run = 0;          // the sampler's run that cpuNs belongs to; 0: never looked at
    std::uint64_t statusCycle = 0;  // the cycle of the last status
    std::uint64_t suspendCycle = 0; // the cycle of the last suspend
    std::uint64_t blockedCycle = 0; // the last cycle that saw it blocked or waiting; 0: none
    std::uint64_t skipUntil = 0;    // cycle before which an idle thread's clock is not read again
    std::uint64_t muteUntil = 0;    // cycle before which a thread that never answers is left alone
    std::uint32_t quietLooks = 0;   // looks in a row without any CPU time
    std::uint32_t deafTimes = 0;    // requests in a row without an answer
    KeptTrace trace = KeptTrace::kNone; // what the slot holds
    std::int64_t deferredNs = 0;        // since when its trace is awaited (CLOCK_MONOTONIC); 0: not
    bool deferredRunning = false;       // what `running` was when it was asked for
    // Of the present cycle, from SuspendThread to ResumeThread:
    bool listed = false;  // on the sampler's list
    bool decided = false; // looked at; hasRun is the answer
    bool asked = false;   // sent a signal; the slot belongs to the handler until it is released
    bool running = false; // was taken for running when it was asked
    bool wanted = false;  // asked because a sample is due, not for a trace to count later
    bool hasRun = false;
    bool payable = false; // a waiting thread that is reported runnable, to be charged
    bool wasLate = false; // its sample is one that it left since the last cycle
    ThreadRecord* nextListed = nullptr;
    ThreadRecord* nextAsked = nullptr;
};

class ThreadTable;

class ThreadRecord {
public:
    // Null when the record is free. Anything but env(), slot and storage is to be read under the
    // thread-list lock, or by the thread itself.
    JNIEnv* env() const { return env_.load(std::memory_order_acquire); }

    std::atomic<pid_t> tid{0};
    std::atomic<void*> javaThread{nullptr};
    std::atomic<jobjectID> object{nullptr};
    std::string name;
    std::string group;
    std::string parent;
    // Set by SuspendThread, cleared by ResumeThread; 0x8000 of the thread's status.
    std::atomic<bool> suspended{false};
    // For the bridge's raw monitors: the monitor that this thread waits for, or null.
    std::atomic<void*> waitsFor{nullptr};

    SampleSlot slot;
    SamplerAccount account;

private:
    friend class ThreadTable;
    std::atomic<JNIEnv*> env_{nullptr};
    std::atomic<void*> storage_{nullptr};
    std::atomic<ThreadRecord*> next_{nullptr}; // in the bucket's chain
};

class ThreadTable {
public:
    ThreadTable() = default;
    // REQUIRES: no thread uses the table any more. The bridge's own table is never destroyed.
    ~ThreadTable();
    ThreadTable(const ThreadTable&) = delete;
    ThreadTable& operator=(const ThreadTable&) = delete;

    struct Inserted {
        ThreadRecord* record;
        bool isNew; // false: the environment's thread was known, nothing but missing data changed
    };
    // Adds a thread. The same environment with the same tid is the same thread (the VM announces
    // "main" again after VMInit); with another tid it is a new one and the old record ends first.
    Inserted insert(const ThreadInfo& info);
    // ThreadEnd: the thread's record ends; later look-ups answer null.
    void remove(JNIEnv* env);

    // The record of a live environment, or null. No lock; any thread.
    ThreadRecord* find(JNIEnv* env);
    // Thread-local storage: null for unknown or ended environments, which ignore a set.
    void* storage(JNIEnv* env);
    void setStorage(JNIEnv* env, void* value);
    // Copies what was given at insertion. False for unknown environments.
    bool describe(JNIEnv* env, ThreadInfo& info);
    jobjectID object(JNIEnv* env);
    void setObject(JNIEnv* env, jobjectID object);
    // The live environments at this moment, in no order.
    std::vector<JNIEnv*> environments();
    std::size_t size() const { return size_.load(std::memory_order_relaxed); }

    // True if the thread sits in the VM (its state is not "in native"), so that it cannot run agent
    // code while a safepoint lasts: its monitors may be borrowed by the collecting thread.
    // REQUIRES: inside a safepoint, or the thread cannot end; `vm` is ready().
    static bool isStuckInVm(const VmStructs& vm, const ThreadRecord& record);

    ThreadListLock& lock() { return lock_; }

    // Called under the lock just before a record ends, so that the sampler forgets it.
    using EndHook = void (*)(void* context, ThreadRecord& record);
    void onEnd(EndHook hook, void* context);
    // Called, without the lock, when somebody has waited for it for longer than a stop may last:
    // the sampler then ends a stop that its caller has forgotten.
    using OverdueHook = void (*)(void* context);
    void onOverdue(OverdueHook hook, void* context);

private:
    static constexpr std::size_t kBuckets = 1024; // a power of two

    class Guard;
    static std::size_t bucketOf(JNIEnv* env);
    ThreadRecord* findLocked(JNIEnv* env) const;
    ThreadRecord* take();
    void end(ThreadRecord& record);

    ThreadListLock lock_;
    std::atomic<std::uint32_t> sequence_{0}; // odd while a writer changes the chains
    std::atomic<ThreadRecord*> buckets_[kBuckets] = {};
    std::atomic<std::size_t> size_{0};
    std::vector<ThreadRecord*> free_; // ended; reused when their slot is idle
    std::vector<ThreadRecord*> all_;  // owned
    EndHook endHook_ = nullptr;
    void* endContext_ = nullptr;
    std::atomic<OverdueHook> overdueHook_{nullptr};
    void* overdueContext_ = nullptr;
};

// The process's one table; lives as long as the process.
ThreadTable& threads();

} // namespace bridge
