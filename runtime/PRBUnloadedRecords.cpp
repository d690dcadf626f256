#include "runtime/PRBUnloadedRecords.h"

#include "core/PRBMemoryManager.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBReclaimer.h"

#include <atomic>
#include <mutex>
#include <utility>

namespace PRBUnloadedRecords {

namespace {

// Keeps the dead classes reachable, so that a leak checker tells them from lost memory.
struct DeadClass : public PRBMemoryManager {
    PRBJavaClass* cls = nullptr;
    DeadClass* next = nullptr;
    std::uint32_t emptied = 0; // of one that waits: how often objects had been emptied before
};
std::atomic<DeadClass*> dead{nullptr};
std::atomic<std::size_t> deadCount{0};

std::atomic<std::uint32_t> emptied{0};
std::atomic<std::uint32_t> released{0}; // `emptied` when release() last looked
std::atomic<std::size_t> waitingCount{0};
constinit std::mutex waitingMutex;      // nothing is called under it
constinit DeadClass* waiting = nullptr; // the newest first

void keep(PRBJavaClass* cls) {
    auto* node = new DeadClass;
    if (node == nullptr) return;
    node->cls = cls;
    node->next = dead.load(std::memory_order_relaxed);
    while (!dead.compare_exchange_weak(node->next, node, std::memory_order_release,
                                       std::memory_order_relaxed)) {
    }
    deadCount.fetch_add(1, std::memory_order_relaxed);
}

// Nobody reads any more who may have found the class; one of them may have lent it meanwhile.
void destroyUnlessLent(void* record) {
    auto* cls = static_cast<PRBJavaClass*>(record);
    if (cls->wasLent())
        keep(cls);
    else
        delete cls;
}

void await(PRBJavaClass* cls) {
    auto* node = new DeadClass;
    if (node == nullptr) return;
    node->cls = cls;
    std::lock_guard<std::mutex> guard(waitingMutex);
    node->emptied = emptied.load(std::memory_order_acquire);
    node->next = std::exchange(waiting, node);
    waitingCount.fetch_add(1, std::memory_order_relaxed);
}

// Those whose objects are gone, as a list.
DeadClass* takeReleased() {
    std::lock_guard<std::mutex> guard(waitingMutex);
    const std::uint32_t now = emptied.load(std::memory_order_acquire);
    if (released.exchange(now, std::memory_order_relaxed) == now) return nullptr;
    DeadClass** link = &waiting;
    while (*link != nullptr && (*link)->emptied == now) link = &(*link)->next;
    DeadClass* const taken = std::exchange(*link, nullptr);
    for (const DeadClass* node = taken; node != nullptr; node = node->next)
        waitingCount.fetch_sub(1, std::memory_order_relaxed);
    return taken;
}

} // namespace

void retireClass(PRBJavaClass* cls) {
    if (cls == nullptr) return;
    cls->markDead();
    if (cls->wasLent())
        keep(cls);
    else if (cls->wasLentToObject())
        await(cls);
    else
        PRBReclaimer::retire(cls, destroyUnlessLent);
}

void retireMethod(PRBJavaMethod* method) { PRBReclaimer::retire(method); }

void objectsEmptied() { emptied.fetch_add(1, std::memory_order_acq_rel); }

void release() {
    if (waitingCount.load(std::memory_order_relaxed) == 0) return;
    for (DeadClass* node = takeReleased(); node != nullptr;) {
        DeadClass* const gone = node;
        node = node->next;
        PRBReclaimer::retire(gone->cls, destroyUnlessLent);
        delete gone;
    }
}

std::size_t deadClasses() { return deadCount.load(std::memory_order_relaxed); }

std::size_t waitingClasses() { return waitingCount.load(std::memory_order_relaxed); }

} // namespace PRBUnloadedRecords
