// The type of each class's objects (JVMPI_NORMAL_OBJECT, JVMPI_INT, ...) by class id, for the
// allocation event: a look at the class table would take its lock and compare names.
//
// Any thread may call; no lock. What is not known yet is looked up once by the caller.
#ifndef PRB_BRIDGE_CLASSTYPES_H
#define PRB_BRIDGE_CLASSTYPES_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "jvmpi/jvmpi.h"

namespace bridge {

class ClassTypes {
public:
    // What find() answers for a class that it does not know.
    static constexpr jint kUnknown = -1;

    ClassTypes() = default;
    // REQUIRES: nobody uses it any more.
    ~ClassTypes();
    ClassTypes(const ClassTypes&) = delete;
    ClassTypes& operator=(const ClassTypes&) = delete;

    jint find(uint32_t classId) const {
        const Page* page =
            classId < kMost ? pages_[classId / kPage].load(std::memory_order_acquire) : nullptr;
        if (!page) return kUnknown;
        return jint{page->types[classId % kPage].load(std::memory_order_relaxed)} - 1;
    }
    // Ids from kMost on are not kept, nor is anything while memory is short.
    void put(uint32_t classId, jint type);

    static constexpr uint32_t kMost = 1u << 22;

private:
    static constexpr uint32_t kPage = 1u << 12;
    struct Page {
        std::atomic<uint8_t> types[kPage] = {}; // the type plus one; 0: not known
    };
    std::atomic<Page*> pages_[kMost / kPage] = {};
};

} // namespace bridge

#endif
