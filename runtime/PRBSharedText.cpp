#include "runtime/PRBSharedText.h"

#include "core/PRBMemoryManager.h"

#include <cstring>

PRBSharedText::~PRBSharedText() {
    Node* node = current_.load(std::memory_order_relaxed);
    while (node != nullptr) {
        Node* previous = node->previous;
        PRBMemoryManager::release(node, node->size);
        node = previous;
    }
}

void PRBSharedText::set(const char* text) {
    if (text == nullptr) text = "";
    Node* seen = current_.load(std::memory_order_acquire);
    if (std::strcmp(seen == nullptr ? "" : seen->text(), text) == 0) return;
    std::size_t length = std::strlen(text) + 1;
    std::size_t size = sizeof(Node) + length;
    auto* node = static_cast<Node*>(PRBMemoryManager::allocate(size));
    if (node == nullptr) return;
    node->size = size;
    std::memcpy(node->text(), text, length);
    do {
        node->previous = seen;
    } while (!current_.compare_exchange_weak(seen, node, std::memory_order_release,
                                             std::memory_order_acquire));
}

const char* PRBSharedText::c_str() const {
    Node* node = current_.load(std::memory_order_acquire);
    return node == nullptr ? "" : node->text();
}
