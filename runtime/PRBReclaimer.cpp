#include "runtime/PRBReclaimer.h"

#include "core/PRBMemoryManager.h"

struct PRBReclaimer::Node : public PRBMemoryManager {
    Node* next = nullptr;
    void* thing = nullptr;
    Destroy destroy = nullptr;
    std::uint32_t retiredIn = 0; // epoch
};

std::atomic<std::uint32_t> PRBReclaimer::epoch{0};
std::atomic<std::uint32_t> PRBReclaimer::readers[2] = {};
std::atomic<PRBReclaimer::Node*> PRBReclaimer::retired{nullptr};
std::atomic<std::uint32_t> PRBReclaimer::count{0};
std::atomic<std::uint32_t> PRBReclaimer::many{kMany};
std::atomic<bool> PRBReclaimer::reclaiming{false};

PRBReclaimer::Reader::Reader() {
    // A reader that read an epoch and was then held up must not count itself into a later one's
    // counter unnoticed: it counts itself, and looks again.
    for (;;) {
        epoch_ = epoch.load(std::memory_order_seq_cst);
        readers[epoch_ & 1U].fetch_add(1, std::memory_order_seq_cst);
        if (epoch.load(std::memory_order_seq_cst) == epoch_) return;
        readers[epoch_ & 1U].fetch_sub(1, std::memory_order_seq_cst);
    }
}

PRBReclaimer::Reader::~Reader() { readers[epoch_ & 1U].fetch_sub(1, std::memory_order_seq_cst); }

void PRBReclaimer::retire(void* thing, Destroy destroy) {
    if (thing == nullptr) return;
    auto* node = new Node;
    if (node == nullptr) return; // no memory to delete it later: it stays
    node->thing = thing;
    node->destroy = destroy;
    node->retiredIn = epoch.load(std::memory_order_seq_cst);
    count.fetch_add(1, std::memory_order_relaxed);
    Node* head = retired.load(std::memory_order_relaxed);
    do {
        node->next = head;
    } while (!retired.compare_exchange_weak(head, node, std::memory_order_release,
                                            std::memory_order_relaxed));
}

// From e to e + 1 once nobody reads in e - 1. REQUIRES: this thread is the one that reclaims.
bool PRBReclaimer::advance() {
    std::uint32_t now = epoch.load(std::memory_order_seq_cst);
    if (readers[(now + 1U) & 1U].load(std::memory_order_seq_cst) != 0) return false;
    epoch.store(now + 1U, std::memory_order_seq_cst);
    return true;
}

void PRBReclaimer::reclaim() {
    if (count.load(std::memory_order_relaxed) == 0) return;
    if (reclaiming.exchange(true, std::memory_order_acquire)) return;
    Node* list = retired.exchange(nullptr, std::memory_order_acquire);
    if (advance()) advance();
    std::uint32_t now = epoch.load(std::memory_order_seq_cst);
    Node* due = nullptr;
    while (list != nullptr) {
        Node* node = list;
        list = node->next;
        if (now - node->retiredIn >= 2U) {
            node->next = due;
            due = node;
            continue;
        }
        Node* head = retired.load(std::memory_order_relaxed);
        do {
            node->next = head;
        } while (!retired.compare_exchange_weak(head, node, std::memory_order_release,
                                                std::memory_order_relaxed));
    }
    reclaiming.store(false, std::memory_order_release);
    while (due != nullptr) {
        Node* node = due;
        due = node->next;
        node->destroy(node->thing);
        delete node;
        count.fetch_sub(1, std::memory_order_relaxed);
    }
    // A long data return puts it off: what is left is not walked over with every event.
    many.store(pending() + kMany, std::memory_order_relaxed);
}

void PRBReclaimer::reclaimIfMany() {
    if (pending() >= many.load(std::memory_order_relaxed)) reclaim();
}

std::uint32_t PRBReclaimer::pending() { return count.load(std::memory_order_relaxed); }
