#include "core/PRBCollectable.h"

#include <atomic>

namespace {

// The one registered creation function, that of identifier 0. An atomic pointer rather than an
// object with a destructor: threads of the host may still run while statics are destroyed.
std::atomic<PRBCollectableFactory::Create> registered{nullptr};

struct Registration {
    Registration() { registered.store(rwCreatePRBCollectable, std::memory_order_release); }
    ~Registration() { registered.store(nullptr, std::memory_order_release); }
};
const Registration registration;

} // namespace

PRBCollectable* PRBCollectable::newSpecies() const { return new PRBCollectable; }
PRBCollectable* PRBCollectable::copy() const { return new PRBCollectable(*this); }

int PRBCollectable::compareTo(const PRBCollectable* other) const {
    if (this == other) return 0;
    return reinterpret_cast<std::uintptr_t>(this) > reinterpret_cast<std::uintptr_t>(other) ? 1
                                                                                            : -1;
}

std::uint32_t PRBCollectable::hash() const {
    std::uint32_t address = foldPointer(this);
    return address ^ (address >> 3);
}

PRBCollectable* PRBCollectableString::newSpecies() const { return new PRBCollectableString; }
PRBCollectable* PRBCollectableString::copy() const { return new PRBCollectableString(*this); }

int PRBCollectableString::compareTo(const PRBCollectable* other) const {
    const auto* text = dynamic_cast<const PRBCollectableString*>(other);
    if (text == nullptr) return PRBCollectable::compareTo(other);
    int order = compare(*text);
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

std::uint32_t PRBCollectableString::hash() const {
    // FNV-1a: the same value for the same text on both word sizes.
    std::uint32_t value = 2166136261u;
    for (char c : *this) value = (value ^ static_cast<unsigned char>(c)) * 16777619u;
    return value;
}

bool PRBCollectableString::isEqual(const PRBCollectable* other) const {
    const auto* text = dynamic_cast<const PRBCollectableString*>(other);
    return text != nullptr && static_cast<const std::string&>(*this) == *text;
}

PRBCollectable* PRBCollectableFactory::create(std::uint16_t identifier) {
    Create make = registered.load(std::memory_order_acquire);
    return identifier == 0 && make != nullptr ? make() : nullptr;
}

PRBCollectable* rwCreatePRBCollectable() { return new PRBCollectable; }
