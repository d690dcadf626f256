#include "runtime/PRBThreadSnapshot.h"

#include "core/PRBMemoryManager.h"
#include "core/PRBMonitorHashTable.h"
#include "runtime/PRBJavaThread.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <new>

namespace {

std::atomic<const PRBThreadSnapshot*> current{nullptr};

// Environments are addresses in structures of some hundred bytes.
std::size_t slotOf(const JNIEnv* env) {
    auto bits = reinterpret_cast<std::uintptr_t>(env);
    return static_cast<std::size_t>((bits >> 4) * 0x9E3779B1U >> 7);
}

} // namespace

PRBThreadSnapshot* PRBThreadSnapshot::make(std::size_t threads, std::size_t active) {
    std::size_t slots = std::bit_ceil(std::max<std::size_t>(16, active * 2));
    // NOLINTNEXTLINE(bugprone-sizeof-expression): an array of pointers
    std::size_t bytes = sizeof(PRBThreadSnapshot) + (threads + slots) * sizeof(PRBJavaThread*);
    void* block = PRBMemoryManager::allocate(bytes);
    if (block == nullptr) return nullptr;
    auto* snapshot = new (block) PRBThreadSnapshot;
    snapshot->bytes_ = bytes;
    snapshot->mask_ = slots - 1;
    snapshot->threads_ = reinterpret_cast<PRBJavaThread**>(snapshot + 1);
    snapshot->byEnv_ = snapshot->threads_ + threads;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): an array of pointers
    std::memset(snapshot->byEnv_, 0, slots * sizeof(PRBJavaThread*));
    return snapshot;
}

void PRBThreadSnapshot::destroy(void* snapshot) {
    PRBMemoryManager::release(snapshot, static_cast<PRBThreadSnapshot*>(snapshot)->bytes_);
}

bool PRBThreadSnapshot::publish(PRBMonitorHashTable& threads, PRBMonitorHashTable& active) {
    PRBThreadSnapshot* next = make(threads.entries(), active.entries());
    if (next == nullptr) return false;
    PRBHashSet::Iterator every(threads);
    while (auto* thread = static_cast<PRBJavaThread*>(every()))
        next->threads_[next->size_++] = thread;
    PRBHashSet::Iterator running(active);
    while (auto* thread = static_cast<PRBJavaThread*>(running())) {
        std::size_t slot = slotOf(thread->getEnvId()) & next->mask_;
        while (next->byEnv_[slot] != nullptr) slot = (slot + 1) & next->mask_;
        next->byEnv_[slot] = thread;
    }
    const PRBThreadSnapshot* old = current.exchange(next, std::memory_order_seq_cst);
    PRBReclaimer::retire(const_cast<PRBThreadSnapshot*>(old), destroy);
    return true;
}

void PRBThreadSnapshot::retire(PRBJavaThread* thread) { PRBReclaimer::retire(thread); }

bool PRBThreadSnapshot::isLive(const PRBJavaThread* thread) { return Reader().contains(thread); }

PRBThreadSnapshot::Reader::Reader() : view_(current.load(std::memory_order_seq_cst)) {}

std::size_t PRBThreadSnapshot::Reader::size() const { return view_ == nullptr ? 0 : view_->size_; }

PRBJavaThread* PRBThreadSnapshot::Reader::operator[](std::size_t i) const {
    return view_->threads_[i];
}

PRBJavaThread* PRBThreadSnapshot::Reader::findLive(JNIEnv* env) const {
    if (view_ == nullptr || env == nullptr) return nullptr;
    std::size_t slot = slotOf(env) & view_->mask_;
    while (PRBJavaThread* thread = view_->byEnv_[slot]) {
        if (thread->getEnvId() == env && thread->getThreadState() != kThreadEnded) return thread;
        slot = (slot + 1) & view_->mask_;
    }
    return nullptr;
}

bool PRBThreadSnapshot::Reader::contains(const PRBJavaThread* thread) const {
    if (view_ == nullptr || thread == nullptr) return false;
    return std::find(view_->threads_, view_->threads_ + view_->size_, thread) !=
           view_->threads_ + view_->size_;
}
