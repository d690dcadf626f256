#include "runtime/PRBGlobalReferences.h"

#include "core/PRBMemoryManager.h"
#include "runtime/PRBJavaThread.h"

#include <atomic>

namespace PRBGlobalReferences {

namespace {

struct Node : public PRBMemoryManager {
    jobject reference;
    Node* next;
};
std::atomic<Node*> later{nullptr};
std::atomic<std::size_t> count{0};

} // namespace

void destroy(jobject reference) {
    if (reference == nullptr) return;
    if (JNIEnv* env = PRBJavaThread::getEnvIdForCurrentThread()) {
        env->DeleteGlobalRef(reference);
        return;
    }
    auto* node = new Node;
    if (node == nullptr) return; // the VM keeps the object
    node->reference = reference;
    node->next = later.load(std::memory_order_relaxed);
    count.fetch_add(1, std::memory_order_relaxed);
    while (!later.compare_exchange_weak(node->next, node, std::memory_order_release,
                                        std::memory_order_relaxed)) {
    }
}

void drain(JNIEnv* env) {
    if (env == nullptr || later.load(std::memory_order_relaxed) == nullptr) return;
    Node* node = later.exchange(nullptr, std::memory_order_acquire);
    while (node != nullptr) {
        Node* next = node->next;
        env->DeleteGlobalRef(node->reference);
        delete node;
        count.fetch_sub(1, std::memory_order_relaxed);
        node = next;
    }
}

std::size_t pending() { return count.load(std::memory_order_relaxed); }

} // namespace PRBGlobalReferences
