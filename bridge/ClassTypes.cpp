#include "bridge/ClassTypes.h"

#include <new>

namespace bridge {

ClassTypes::~ClassTypes() {
    for (const std::atomic<Page*>& page : pages_) delete page.load(std::memory_order_relaxed);
}

void ClassTypes::put(uint32_t classId, jint type) {
    if (classId >= kMost) return;
    std::atomic<Page*>& place = pages_[classId / kPage];
    Page* page = place.load(std::memory_order_acquire);
    if (!page) {
        Page* fresh = new (std::nothrow) Page;
        if (!fresh) return;
        if (place.compare_exchange_strong(page, fresh, std::memory_order_acq_rel))
            page = fresh;
        else
            delete fresh; // another thread was faster; `page` is its page
    }
    page->types[classId % kPage].store(static_cast<uint8_t>(type + 1), std::memory_order_relaxed);
}

} // namespace bridge
