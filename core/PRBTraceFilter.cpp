#include "core/PRBTraceFilter.h"

#include "core/PRBCollections.h"

#include <cstring>

namespace {

// Every component of the agent, without the "PRBC" that they all begin with.
constexpr char kComponents[][5] = {
    "MNGL", "LOG",  "PLOG", "RETC", "PRER", "MASK", "MEMM", "JVRM", "JVTH", "JVCL", "JVMT", "JVOB",
    "JVOA", "CPUS", "CLCO", "BUFF", "TRAN", "KYST", "SAMP", "TIME", "UTIL", "RSCA", "AASA", "APSA",
    "CNSA", "COSA", "DBSA", "DSSA", "EBSA", "EJSA", "EMSA", "ENSA", "GCSA", "HESA", "HSSA", "MSSA",
    "MUSA", "OPSA", "PRSA", "SOSA", "SVSA", "THSA", "TRSA", "WBSA", "WDSA", "WESA", "WSSA",
};
constexpr char kFamily[] = {'P', 'R', 'B', 'C'};

constexpr std::uint32_t keyOf(const char* name) { // of the part after the family
    std::uint32_t key = 0;
    for (int i = 0; i < 4; ++i)
        key = key << 8 | (*name != '\0' ? static_cast<unsigned char>(*name++) : 0U);
    return key;
}

constexpr std::size_t slotOf(std::uint32_t key, std::uint32_t multiplier) {
    return (key * multiplier) >> 24;
}
static_assert(PRBTraceFilter::kSlots == 1 << 8);

// The first odd multiplier that gives each component a slot of its own; a new component may need
// another one.
constexpr std::uint32_t kMultiplier = 76919;
static_assert([] {
    bool taken[PRBTraceFilter::kSlots] = {};
    for (const auto& name : kComponents) {
        bool& slot = taken[slotOf(keyOf(name), kMultiplier)];
        if (slot) return false;
        slot = true;
    }
    return true;
}());

// The component that each slot belongs to; 0 for none.
constexpr auto kKeys = [] {
    std::array<std::uint32_t, PRBTraceFilter::kSlots> keys{};
    for (const auto& name : kComponents) keys[slotOf(keyOf(name), kMultiplier)] = keyOf(name);
    return keys;
}();

// The slot of one of the agent's own components; kSlots for any other name.
std::size_t slotOf(const char* component) {
    // No component is longer than eight characters or shorter than seven.
    const std::size_t length = strnlen(component, 9);
    if (length < 7 || length > 8 || std::memcmp(component, kFamily, sizeof kFamily) != 0)
        return PRBTraceFilter::kSlots;
    const std::uint32_t key = keyOf(component + sizeof kFamily);
    const std::size_t slot = slotOf(key, kMultiplier);
    return kKeys[slot] == key ? slot : PRBTraceFilter::kSlots;
}

bool listMatches(const PRBSlist& list, const char* component) {
    const std::size_t length = std::strlen(component);
    PRBSlistIterator next(list);
    while (PRBCollectable* item = next()) {
        const auto& entry = *static_cast<const PRBCollectableString*>(item);
        if (entry.size() <= length && std::memcmp(entry.data(), component, entry.size()) == 0)
            return true;
    }
    return false;
}

} // namespace

void PRBTraceFilter::store(const PRBSlist* list, std::memory_order order) {
    if (list != nullptr) {
        for (const auto& name : kComponents) {
            char component[sizeof kFamily + sizeof name];
            std::memcpy(component, kFamily, sizeof kFamily);
            std::memcpy(component + sizeof kFamily, name, sizeof name);
            decided_[slotOf(component)].store(listMatches(*list, component),
                                              std::memory_order_relaxed);
        }
    }
    list_.store(list, order);
}

bool PRBTraceFilter::matches(const char* component) const {
    const PRBSlist* list = load();
    if (list == nullptr || component == nullptr) return false;
    const std::size_t slot = slotOf(component);
    return slot != kSlots ? decided_[slot].load(std::memory_order_relaxed)
                          : listMatches(*list, component);
}

bool PRBTraceFilter::passes(const char* component) const {
    return component == nullptr || load() == nullptr || matches(component);
}
