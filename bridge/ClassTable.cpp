#include "bridge/ClassTable.h"

#include <utility>

namespace bridge {

void ClassTable::put(ClassRecord::Pointer record) {
    ClassRecord::Pointer old; // freed after the lock is
    std::lock_guard<std::mutex> guard(mutex_);
    if (ClassRecord::Pointer* known = classes_.find(record->id())) {
        old = *known;
        dropMethods(*old);
    }
    putLocked(std::move(record));
}

bool ClassTable::putNew(ClassRecord::Pointer record) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (classes_.find(record->id())) return false;
    putLocked(std::move(record));
    return true;
}

void ClassTable::putLocked(ClassRecord::Pointer record) {
    for (size_t i = 0; i < record->methodCount(); i++)
        if (jmethodID method = record->method(i).method_id) methods_.put(method, record->id());
    recordBytes_ += record->bytes();
    const uint32_t id = record->id();
    classes_.put(id, std::move(record));
}

ClassRecord::Pointer ClassTable::find(uint32_t id) const {
    std::lock_guard<std::mutex> guard(mutex_);
    const ClassRecord::Pointer* known = classes_.find(id);
    return known ? *known : nullptr;
}

ClassRecord::Pointer ClassTable::remove(uint32_t id) {
    std::lock_guard<std::mutex> guard(mutex_);
    const ClassRecord::Pointer* known = classes_.find(id);
    if (!known) return nullptr;
    ClassRecord::Pointer record = *known;
    dropMethods(*record);
    classes_.erase(id);
    return record;
}

// A method whose address went over to a class that was loaded since stays that class's.
void ClassTable::dropMethods(const ClassRecord& record) {
    for (size_t i = 0; i < record.methodCount(); i++) {
        const jmethodID method = record.method(i).method_id;
        const uint32_t* owner = methods_.find(method);
        if (owner && *owner == record.id()) methods_.erase(method);
    }
    recordBytes_ -= record.bytes();
}

uint32_t ClassTable::classOf(jmethodID method) const {
    std::lock_guard<std::mutex> guard(mutex_);
    const uint32_t* id = methods_.find(method);
    return id ? *id : 0;
}

size_t ClassTable::classes() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return classes_.size();
}

size_t ClassTable::methods() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return methods_.size();
}

size_t ClassTable::bytes() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return recordBytes_ + classes_.bytes() + methods_.bytes();
}

} // namespace bridge
