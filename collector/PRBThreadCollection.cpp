#include "collector/PRBThreadCollection.h"

#include "runtime/PRBJavaThread.h"

#include <cstdint>

namespace {

std::uint32_t idBits(jobjectID id) {
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(id));
}

} // namespace

PRBThreadCollection::PRBThreadCollection() {
    threads_.reserve(snapshot_.size());
    for (std::size_t i = 0; i < snapshot_.size(); ++i)
        if (!snapshot_[i]->isThisBackgroundThread()) threads_.push_back(snapshot_[i]);
}

PRBJavaThread* PRBThreadCollection::findThread(jobjectID id) const {
    for (PRBJavaThread* thread : threads_)
        if (idBits(thread->getThreadId()) == idBits(id)) return thread;
    return nullptr;
}
