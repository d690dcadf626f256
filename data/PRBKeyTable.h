// What the numbers under every key mean: the process-wide key table, as constant data.
#ifndef PRB_DATA_PRBKEYTABLE_H
#define PRB_DATA_PRBKEYTABLE_H

#include <array>
#include <cstddef>
#include <cstdint>

// How the values of a key are kept, summed, merged and given rates.
enum class PRBKeyType : std::uint32_t {
    Plain = 0,            // replaces
    Text = 1,             // string data, no numeric slot
    RunningCounter = 2,   // cumulative; rate from the difference to the previous sample
    IntervalCounter = 3,  // restarted at each sample; rate from the value itself
    PercentCounter = 4,   // added; percent of its related key
    Average = 5,          // a pair of doubles: sum and count
    Level = 6,            // a pair of doubles: integral and weight
    Maximum = 7,          // the largest value stays
    Minimum = 8,          // the smallest value stays
    Unknown = 0xFFFFFFFF, // of ids that are no key
};

constexpr bool isPlainType(PRBKeyType t) {
    return t == PRBKeyType::Plain || t == PRBKeyType::Maximum || t == PRBKeyType::Minimum;
}
constexpr bool isCounterType(PRBKeyType t) {
    return t == PRBKeyType::RunningCounter || t == PRBKeyType::IntervalCounter ||
           t == PRBKeyType::PercentCounter;
}
constexpr bool isStatisticType(PRBKeyType t) {
    return t == PRBKeyType::Average || t == PRBKeyType::Level;
}

struct PRBKeyTableEntry {
    PRBKeyType keyType;
    std::uint32_t scaleCode;  // decimal texts are multiplied with 10 to this power
    std::uint32_t relatedKey; // the total or count that a derived value is taken over; 0: none
};

// What a scale code (0 to 3 in the table) multiplies with.
constexpr int prbScaleMultiplier(std::uint32_t code) {
    int multiplier = 1;
    for (; code > 0; --code) multiplier *= 10;
    return multiplier;
}

struct PRBInitKeyRow {
    std::uint32_t key, keyType, scaleCode, relatedKey;
};

constexpr int kNumKeys = 1220; // key ids are below this
constexpr std::size_t InitKeyTableSize = 598;
extern const PRBInitKeyRow InitKeyTable[InitKeyTableSize]; // rising keys

// One entry per key id; unknown keys have the type PRBKeyType::Unknown.
extern const std::array<PRBKeyTableEntry, kNumKeys> PRBKeyTable;

// The entry of a key; null for an unknown key, whatever its number.
inline const PRBKeyTableEntry* prbKeyTableEntry(int key) noexcept {
    if (key < 0 || key >= kNumKeys) return nullptr;
    const PRBKeyTableEntry& entry = PRBKeyTable[static_cast<std::size_t>(key)];
    return entry.keyType == PRBKeyType::Unknown ? nullptr : &entry;
}

#endif
