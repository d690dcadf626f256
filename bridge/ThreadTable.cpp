#include "bridge/ThreadTable.h"

#include <thread>

#include "bridge/Clocks.h"

namespace bridge {

namespace {

// The record that this thread looked up last: nearly always its own.
// Initial-exec storage is reached without a call and without allocation.
__attribute__((tls_model("initial-exec"))) thread_local ThreadRecord* lastFound = nullptr;

// Longer than any stop that runs its course.
constexpr int kOverdueMs = kLongStopMs + 50;

} // namespace

// Holds the thread-list lock, and sees to it that a forgotten stop does not keep it for ever.
class ThreadTable::Guard {
public:
    explicit Guard(ThreadTable& table) : table_(table) {
        while (!table_.lock_.tryLockFor(kOverdueMs)) {
            const OverdueHook hook = table_.overdueHook_.load(std::memory_order_acquire);
            if (hook) hook(table_.overdueContext_);
        }
    }
    ~Guard() { table_.lock_.unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    ThreadTable& table_;
};

ThreadTable& threads() {
    // Never destroyed: threads come and go until the process has ended.
    static ThreadTable& table = *new ThreadTable;
    return table;
}

ThreadTable::~ThreadTable() {
    lastFound = nullptr;
    for (ThreadRecord* record : all_) delete record;
}

std::size_t ThreadTable::bucketOf(JNIEnv* env) {
    // Environments lie at a fixed place in heap blocks of more than a kilobyte.
    auto bits = reinterpret_cast<std::uintptr_t>(env) >> 4;
    bits ^= (bits >> 10) ^ (bits >> 20);
    return bits & (kBuckets - 1);
}

ThreadRecord* ThreadTable::findLocked(JNIEnv* env) const {
    ThreadRecord* record = buckets_[bucketOf(env)].load(std::memory_order_acquire);
    while (record && record->env() != env) record = record->next_.load(std::memory_order_acquire);
    return record;
}

ThreadRecord* ThreadTable::find(JNIEnv* env) {
    if (!env) return nullptr;
    if (lastFound && lastFound->env() == env) return lastFound;
    for (;;) {
        const std::uint32_t before = sequence_.load(std::memory_order_acquire);
        if (ThreadRecord* record = findLocked(env)) {
            lastFound = record;
            return record;
        }
        if (!(before & 1) && sequence_.load(std::memory_order_acquire) == before) return nullptr;
        std::this_thread::yield(); // a writer may have led us astray
    }
}

void* ThreadTable::storage(JNIEnv* env) {
    const ThreadRecord* record = find(env);
    if (!record) return nullptr;
    void* value = record->storage_.load(std::memory_order_acquire);
    return record->env() == env ? value : nullptr;
}

void ThreadTable::setStorage(JNIEnv* env, void* value) {
    ThreadRecord* record = find(env);
    if (!record) return;
    record->storage_.store(value, std::memory_order_release);
    if (record->env() != env) { // ended meanwhile: take it back unless somebody overwrote it
        record->storage_.compare_exchange_strong(value, nullptr, std::memory_order_acq_rel);
    }
}

// A free record whose slot no handler can still be using, or a new one.
ThreadRecord* ThreadTable::take() {
    for (std::size_t i = free_.size(); i-- > 0;) {
        ThreadRecord* record = free_[i];
        if (!record->slot.idle()) continue;
        free_[i] = free_.back();
        free_.pop_back();
        return record;
    }
    all_.reserve(all_.size() + 1);
    free_.reserve(all_.size() + 1); // so that ending a thread never allocates
    all_.push_back(new ThreadRecord);
    return all_.back();
}

ThreadTable::Inserted ThreadTable::insert(const ThreadInfo& info) {
    const Guard guard(*this);
    ThreadRecord* record = findLocked(info.env);
    if (record && record->tid.load(std::memory_order_relaxed) != info.tid) {
        end(*record);
        record = nullptr;
    }
    const bool isNew = !record;
    if (isNew) record = take();
    if (isNew || record->name.empty()) record->name = info.name;
    if (isNew || record->group.empty()) record->group = info.group;
    if (isNew || record->parent.empty()) record->parent = info.parent;
    if (isNew || info.object) record->object.store(info.object, std::memory_order_relaxed);
    if (isNew || info.javaThread) {
        record->javaThread.store(info.javaThread, std::memory_order_relaxed);
    }
    if (!isNew) return {record, false};

    record->tid.store(info.tid, std::memory_order_relaxed);
    record->storage_.store(nullptr, std::memory_order_relaxed);
    record->suspended.store(false, std::memory_order_relaxed);
    record->waitsFor.store(nullptr, std::memory_order_relaxed);
    SamplerAccount& account = record->account;
    account = SamplerAccount{};
    account.insertedNs = monotonicNs();
    account.credit.reset(static_cast<std::uint32_t>(account.insertedNs / 64) ^
                         static_cast<std::uint32_t>(info.tid));
    account.cpuNs = threadCpuNs(info.tid);
    account.handlerCpuNs = record->slot.handlerCpuNs.load(std::memory_order_relaxed);
    record->slot.env = info.env;
    record->slot.tid.store(info.tid, std::memory_order_release);

    std::atomic<ThreadRecord*>& bucket = buckets_[bucketOf(info.env)];
    const std::uint32_t sequence = sequence_.load(std::memory_order_relaxed);
    sequence_.store(sequence + 1, std::memory_order_relaxed);
    record->next_.store(bucket.load(std::memory_order_relaxed), std::memory_order_release);
    record->env_.store(info.env, std::memory_order_release);
    bucket.store(record, std::memory_order_release);
    sequence_.store(sequence + 2, std::memory_order_release);
    size_.fetch_add(1, std::memory_order_relaxed);
    return {record, true};
}

void ThreadTable::remove(JNIEnv* env) {
    const Guard guard(*this);
    if (ThreadRecord* record = findLocked(env)) end(*record);
}

void ThreadTable::end(ThreadRecord& record) {
    if (endHook_) endHook_(endContext_, record);
    JNIEnv* env = record.env();
    std::atomic<ThreadRecord*>* link = &buckets_[bucketOf(env)];
    while (link->load(std::memory_order_relaxed) != &record) {
        link = &link->load(std::memory_order_relaxed)->next_;
    }
    const std::uint32_t sequence = sequence_.load(std::memory_order_relaxed);
    sequence_.store(sequence + 1, std::memory_order_relaxed);
    link->store(record.next_.load(std::memory_order_relaxed), std::memory_order_release);
    record.env_.store(nullptr, std::memory_order_release);
    sequence_.store(sequence + 2, std::memory_order_release);
    record.storage_.store(nullptr, std::memory_order_release);
    record.javaThread.store(nullptr, std::memory_order_relaxed);
    record.object.store(nullptr, std::memory_order_relaxed);
    record.slot.tid.store(0, std::memory_order_relaxed);
    free_.push_back(&record);
    size_.fetch_sub(1, std::memory_order_relaxed);
}

bool ThreadTable::describe(JNIEnv* env, ThreadInfo& info) {
    const Guard guard(*this);
    const ThreadRecord* record = findLocked(env);
    if (!record) return false;
    info = {.env = env,
            .tid = record->tid.load(std::memory_order_relaxed),
            .javaThread = record->javaThread.load(std::memory_order_relaxed),
            .object = record->object.load(std::memory_order_relaxed),
            .name = record->name,
            .group = record->group,
            .parent = record->parent};
    return true;
}

jobjectID ThreadTable::object(JNIEnv* env) {
    const ThreadRecord* record = find(env);
    return record ? record->object.load(std::memory_order_relaxed) : nullptr;
}

void ThreadTable::setObject(JNIEnv* env, jobjectID object) {
    if (ThreadRecord* record = find(env)) record->object.store(object, std::memory_order_relaxed);
}

std::vector<JNIEnv*> ThreadTable::environments() {
    const Guard guard(*this);
    std::vector<JNIEnv*> result;
    result.reserve(size());
    for (const ThreadRecord* record : all_) {
        if (record->env()) result.push_back(record->env());
    }
    return result;
}

bool ThreadTable::isStuckInVm(const VmStructs& vm, const ThreadRecord& record) {
    const void* javaThread = record.javaThread.load(std::memory_order_relaxed);
    return javaThread && vm.threadState(javaThread) != VmStructs::kInNative;
}

void ThreadTable::onEnd(EndHook hook, void* context) {
    const Guard guard(*this);
    endHook_ = hook;
    endContext_ = context;
}

void ThreadTable::onOverdue(OverdueHook hook, void* context) {
    const Guard guard(*this);
    overdueContext_ = context;
    overdueHook_.store(hook, std::memory_order_release);
}

} // namespace bridge
