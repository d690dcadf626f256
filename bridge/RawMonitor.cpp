#include "bridge/RawMonitor.h"

#include <cstring>
#include <ctime>
#include <new>

namespace bridge {
namespace {

// A chain of owners longer than this is taken for a cycle and waited out.
constexpr int kChainLimit = 32;
// How often the collecting thread looks again at an owner that is not stuck.
constexpr long kLookAgainNs = 50 * 1000;
// Some two microseconds of looking at an owner before sleeping.
constexpr int kSpins = 40;
// Waits longer than this (a year) are waits without limit.
constexpr jlong kLongestWaitMs = jlong{365} * 24 * 3600 * 1000;

// Guards the two lists of recycled memory; held for a few instructions.
pthread_mutex_t poolMutex = PTHREAD_MUTEX_INITIALIZER;
MonitorThread* freeThreads = nullptr;
RawMonitor* freeMonitors = nullptr;

std::atomic<void* (*)()> currentJavaThread{nullptr};
std::atomic<bool (*)(void*)> isStuckInVm{nullptr};
std::atomic<uint64_t> borrows{0};

class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexGuard() { pthread_mutex_unlock(&mutex_); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

private:
    pthread_mutex_t& mutex_;
};

// What the key holds, without a call: monitors are entered with every event.
__attribute__((tls_model("initial-exec"))) constinit thread_local MonitorThread* known = nullptr;

void recycleThread(void* record) {
    auto* thread = static_cast<MonitorThread*>(record);
    known = nullptr;
    thread->javaThread.store(nullptr, std::memory_order_relaxed);
    MutexGuard guard(poolMutex);
    thread->nextFree = freeThreads;
    freeThreads = thread;
}

// A key and not a C++ thread-local: threads detach from the VM in destructors of keys, and the
// profiler's events of such a thread must find a record even then.
pthread_key_t threadKey() {
    static const pthread_key_t key = [] {
        pthread_key_t made = 0;
        // Out of keys: every thread then gets a fresh record with each use of a monitor, which
        // breaks re-entrancy; there is no way to go on.
        if (pthread_key_create(&made, recycleThread) != 0) std::terminate();
        return made;
    }();
    return key;
}

timespec deadlineIn(long ns) {
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    const long sum = deadline.tv_nsec + ns % 1000000000;
    deadline.tv_sec += static_cast<time_t>(ns / 1000000000 + sum / 1000000000);
    deadline.tv_nsec = sum % 1000000000;
    return deadline;
}

timespec deadlineInMs(jlong ms) {
    timespec deadline = deadlineIn(static_cast<long>(ms % 1000) * 1000000);
    deadline.tv_sec += static_cast<time_t>(ms / 1000);
    return deadline;
}

} // namespace

MonitorThread& MonitorThread::current() {
    if (known) return *known;
    const pthread_key_t key = threadKey();
    MonitorThread* record = nullptr;
    {
        MutexGuard guard(poolMutex);
        record = freeThreads;
        if (record) freeThreads = record->nextFree;
    }
    if (!record) record = new MonitorThread;
    record->nextFree = nullptr;
    record->collecting = false;
    record->owned = 0;
    pthread_setspecific(key, record);
    known = record;
    return *record;
}

void MonitorThread::forgetJavaThread() noexcept {
    if (known) known->javaThread.store(nullptr, std::memory_order_release);
}

void setMonitorVm(const MonitorVm& vm) noexcept {
    currentJavaThread.store(vm.currentJavaThread, std::memory_order_release);
    isStuckInVm.store(vm.isStuckInVm, std::memory_order_release);
}

CollectionScope::CollectionScope() {
    MonitorThread& self = MonitorThread::current();
    before_ = self.collecting;
    self.collecting = true;
}

CollectionScope::~CollectionScope() { MonitorThread::current().collecting = before_; }

RawMonitor::RawMonitor() {
    pthread_mutex_init(&mutex_, nullptr);
    pthread_condattr_t monotonic;
    pthread_condattr_init(&monotonic);
    pthread_condattr_setclock(&monotonic, CLOCK_MONOTONIC);
    pthread_cond_init(&freed_, &monotonic);
    pthread_cond_init(&notified_, &monotonic);
    pthread_condattr_destroy(&monotonic);
}

RawMonitor* RawMonitor::create(const char* name) noexcept {
    RawMonitor* monitor = nullptr;
    {
        MutexGuard guard(poolMutex);
        monitor = freeMonitors;
        if (monitor) freeMonitors = monitor->nextFree_;
    }
    if (!monitor) monitor = new (std::nothrow) RawMonitor;
    if (!monitor) return nullptr;
    monitor->nextFree_ = nullptr;
    memset(monitor->name_, 0, sizeof monitor->name_);
    if (name) strncpy(monitor->name_, name, sizeof monitor->name_ - 1);
    monitor->alive_.store(true, std::memory_order_release);
    return monitor;
}

void RawMonitor::destroy(RawMonitor* monitor) noexcept {
    if (!monitor) return;
    MonitorThread& self = MonitorThread::current();
    {
        MutexGuard guard(monitor->mutex_);
        MonitorThread* owner = monitor->owner_.load(std::memory_order_acquire);
        if ((owner && owner != &self) || monitor->lender_ || monitor->waiting_ ||
            monitor->entering_.load(std::memory_order_acquire))
            return;
        if (!monitor->alive_.exchange(false, std::memory_order_acq_rel)) return;
        monitor->depth_ = 0;
        if (owner) self.owned--;
        monitor->owner_.store(nullptr, std::memory_order_release);
    }
    MutexGuard guard(poolMutex);
    monitor->nextFree_ = freeMonitors;
    freeMonitors = monitor;
}

void RawMonitor::enter() {
    if (!alive_.load(std::memory_order_acquire)) return;
    MonitorThread& self = MonitorThread::current();
    if (owner_.load(std::memory_order_relaxed) == &self) {
        depth_++;
        return;
    }
    // A thread may have been attached or detached since it last owned nothing. Asked again each
    // time: a stale JavaThread would be freed memory.
    if (self.owned == 0 || !self.javaThread.load(std::memory_order_relaxed))
        if (const auto ask = currentJavaThread.load(std::memory_order_acquire))
            self.javaThread.store(ask(), std::memory_order_release);
    MonitorThread* nobody = nullptr;
    if (!owner_.compare_exchange_strong(nobody, &self, std::memory_order_seq_cst)) enterSlow(self);
    self.owned++;
    if (!lender_) depth_ = 1;
}

// The sleeper announces itself in entering_ before its last try, the leaver frees owner_ before
// it looks at entering_ (both sequentially consistent): one of them sees the other.
void RawMonitor::enterSlow(MonitorThread& self) {
    // Most owners go on within a microsecond: to sleep and be woken costs both several.
    for (int i = 0; i < kSpins && !self.collecting; i++) {
        MonitorThread* nobody = nullptr;
        if (!owner_.load(std::memory_order_relaxed) &&
            owner_.compare_exchange_strong(nobody, &self, std::memory_order_seq_cst))
            return;
        __builtin_ia32_pause();
    }
    MutexGuard guard(mutex_);
    entering_.fetch_add(1, std::memory_order_seq_cst);
    self.waitsFor.store(this, std::memory_order_release);
    for (;;) {
        MonitorThread* nobody = nullptr;
        if (owner_.compare_exchange_strong(nobody, &self, std::memory_order_seq_cst)) break;
        if (self.collecting) {
            if (borrow(self)) break;
            const timespec again = deadlineIn(kLookAgainNs);
            pthread_cond_timedwait(&freed_, &mutex_, &again);
        } else {
            pthread_cond_wait(&freed_, &mutex_);
        }
    }
    self.waitsFor.store(nullptr, std::memory_order_release);
    entering_.fetch_sub(1, std::memory_order_seq_cst);
}

bool RawMonitor::borrow(MonitorThread& self) {
    MonitorThread* owner = owner_.load(std::memory_order_acquire);
    if (!owner || owner == &self || !isStuck(*owner, 0)) return false;
    // A stuck owner can neither leave nor enter deeper before the safepoint ends.
    if (owner_.load(std::memory_order_acquire) != owner) return false;
    lender_ = owner;
    lenderDepth_ = depth_;
    depth_ = 1;
    owner_.store(&self, std::memory_order_release);
    borrows.fetch_add(1, std::memory_order_relaxed);
    return true;
}

// Reads without locks; every step is checked again after the one that makes it final: once the
// last thread of a chain is stuck, nothing along the chain moves until the safepoint ends.
bool RawMonitor::isStuck(const MonitorThread& thread, int depth) {
    if (depth == kChainLimit) return false;
    const auto stuckInVm = isStuckInVm.load(std::memory_order_acquire);
    if (!stuckInVm) return false;
    if (void* javaThread = thread.javaThread.load(std::memory_order_acquire))
        if (stuckInVm(javaThread)) return true;
    const RawMonitor* wanted = thread.waitsFor.load(std::memory_order_acquire);
    if (!wanted) return false;
    const MonitorThread* owner = wanted->owner_.load(std::memory_order_acquire);
    if (!owner || owner == &thread) return false;
    const MonitorThread& real = owner->collecting && wanted->lender_ ? *wanted->lender_ : *owner;
    return isStuck(real, depth + 1) && thread.waitsFor.load(std::memory_order_acquire) == wanted &&
           wanted->owner_.load(std::memory_order_acquire) == owner;
}

void RawMonitor::release(MonitorThread& self) {
    self.owned--;
    if (lender_) {
        // Nobody is woken: the real owner still has the monitor.
        MutexGuard guard(mutex_);
        MonitorThread* owner = lender_;
        depth_ = lenderDepth_;
        lender_ = nullptr;
        owner_.store(owner, std::memory_order_release);
        return;
    }
    owner_.store(nullptr, std::memory_order_seq_cst);
    if (entering_.load(std::memory_order_seq_cst) != 0) {
        MutexGuard guard(mutex_);
        pthread_cond_signal(&freed_);
    }
}

void RawMonitor::exit() {
    MonitorThread& self = MonitorThread::current();
    if (owner_.load(std::memory_order_relaxed) != &self) return;
    if (--depth_ == 0) release(self);
}

void RawMonitor::wait(jlong milliseconds) {
    MonitorThread& self = MonitorThread::current();
    if (owner_.load(std::memory_order_relaxed) != &self || lender_) return;
    const bool limited = milliseconds > 0 && milliseconds < kLongestWaitMs;
    const uint32_t depth = depth_;
    {
        MutexGuard guard(mutex_);
        const uint64_t seen = notifications_;
        waiting_++;
        timespec deadline{};
        if (limited) deadline = deadlineInMs(milliseconds);
        depth_ = 0;
        self.owned--;
        owner_.store(nullptr, std::memory_order_seq_cst);
        if (entering_.load(std::memory_order_seq_cst) != 0) pthread_cond_signal(&freed_);
        int result = 0;
        while (notifications_ == seen && result == 0)
            result = limited ? pthread_cond_timedwait(&notified_, &mutex_, &deadline)
                             : pthread_cond_wait(&notified_, &mutex_);
        waiting_--;
    }
    enter();
    depth_ = depth;
}

void RawMonitor::notifyAll() {
    if (!alive_.load(std::memory_order_acquire)) return;
    MutexGuard guard(mutex_);
    notifications_++;
    if (waiting_ != 0) pthread_cond_broadcast(&notified_);
}

bool RawMonitor::ownedBySelf() const {
    return owner_.load(std::memory_order_relaxed) == &MonitorThread::current();
}

bool RawMonitor::anyOwnedBySelf() noexcept { return MonitorThread::current().owned != 0; }

uint64_t RawMonitor::borrowed() noexcept { return borrows.load(std::memory_order_relaxed); }

} // namespace bridge
