#include "runtime/PRBUnloadedRecords.h"

#include "core/PRBMemoryManager.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBReclaimer.h"

#include <atomic>

namespace PRBUnloadedRecords {

namespace {

// Keeps the dead classes reachable, so that a leak checker tells them from lost memory.
struct DeadClass : public PRBMemoryManager {
    PRBJavaClass* cls;
    DeadClass* next;
};
std::atomic<DeadClass*> dead{nullptr};
std::atomic<std::size_t> deadCount{0};

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

} // namespace

void retireClass(PRBJavaClass* cls) {
    if (cls == nullptr) return;
    cls->markDead();
    if (cls->wasLent())
        keep(cls);
    else
        PRBReclaimer::retire(cls, destroyUnlessLent);
}

void retireMethod(PRBJavaMethod* method) { PRBReclaimer::retire(method); }

std::size_t deadClasses() { return deadCount.load(std::memory_order_relaxed); }

} // namespace PRBUnloadedRecords
