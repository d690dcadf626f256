#include "bridge/IdTable.h"

namespace bridge {

uint32_t IdTable::add(uint32_t& next, uint32_t end, jweak reference) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (next >= end) return 0;
    references_.put(next, reference);
    return next++;
}

uint32_t IdTable::addClass(jweak reference) { return add(nextClass_, kFirstObject, reference); }
uint32_t IdTable::addObject(jweak reference) { return add(nextObject_, kEndObject, reference); }

void IdTable::remove(uint32_t id) {
    std::lock_guard<std::mutex> guard(mutex_);
    const jweak* reference = references_.find(id);
    if (!reference) return;
    dead_.push_back(*reference);
    references_.erase(id);
}

IdTable::Use::Use(IdTable& table, uint32_t id) : table_(table) {
    std::lock_guard<std::mutex> guard(table.mutex_);
    const jweak* known = table.references_.find(id);
    reference_ = known ? *known : nullptr;
    table.uses_++;
}

IdTable::Use::~Use() {
    std::lock_guard<std::mutex> guard(table_.mutex_);
    table_.uses_--;
}

std::vector<jweak> IdTable::takeDead() {
    std::vector<jweak> taken;
    std::lock_guard<std::mutex> guard(mutex_);
    // A use that begins later cannot find them any more.
    if (uses_ == 0) taken.swap(dead_);
    return taken;
}

std::vector<jweak> IdTable::references() const {
    std::vector<jweak> all;
    std::lock_guard<std::mutex> guard(mutex_);
    all.reserve(references_.size());
    references_.forEach([&all](uint32_t, jweak reference) { all.push_back(reference); });
    return all;
}

size_t IdTable::copy(size_t& place, Entry* to, size_t room) const {
    std::lock_guard<std::mutex> guard(mutex_);
    size_t count = 0;
    place = references_.forEachFrom(place, [&](uint32_t id, jweak reference) {
        to[count++] = {id, reference};
        return count < room;
    });
    return count;
}

size_t IdTable::size() const {
    std::lock_guard<std::mutex> guard(mutex_);
    return references_.size();
}

} // namespace bridge
