#include "data/PRBSampleClass.h"

#include "data/PRBBuffer.h"

#include <bit>
#include <cstring>

namespace {

template <class T> unsigned char* putBig(unsigned char* out, T value) {
    static_assert(std::endian::native == std::endian::little);
    if constexpr (sizeof value == 2) value = __builtin_bswap16(value);
    if constexpr (sizeof value == 4) value = __builtin_bswap32(value);
    if constexpr (sizeof value == 8) value = __builtin_bswap64(value);
    std::memcpy(out, &value, sizeof value);
    return out + sizeof value;
}

unsigned char* putNumber(unsigned char* out, std::uint32_t key, long long value) {
    if (value == -1) return out; // no value
    out = putBig(out, std::uint32_t{PRBBuffer::kNumericField});
    out = putBig(out, key);
    return putBig(out, static_cast<std::uint64_t>(value));
}

} // namespace

std::array<int, kNumKeys> prbPlacement(const PRBSampleClass& description) {
    std::array<int, kNumKeys> placement;
    PRBSample::createKeyPlacementArray(placement.data(), description.numericKeys,
                                       static_cast<int>(description.numNumericKeys));
    return placement;
}

PRBCatalogueSample::PRBCatalogueSample(const PRBSampleClass& description, const int* placement)
    : PRBSample(description.numNumericKeys, description.numericKeys, OwnSlots{}),
      class_(&description),
      placement_(placement) {}

PRBCatalogueSample::PRBCatalogueSample(const PRBCatalogueSample& other)
    : PRBSample(other, OwnSlots{}), class_(other.class_), placement_(other.placement_) {}

PRBCatalogueSample& PRBCatalogueSample::operator=(const PRBCatalogueSample& other) {
    if (this != &other) PRBSample::operator=(other);
    return *this;
}

void PRBCatalogueSample::Trace::write(const char* what) const {
    PRBTrace::log("%s::%s %s", class_->name, operation_, what);
}

std::string* PRBCatalogueSample::text(int key) const {
    for (unsigned i = 0; i < class_->numStringKeys; ++i)
        if (class_->stringKeys[i] == static_cast<unsigned>(key)) return texts_ + i;
    return nullptr;
}

int PRBCatalogueSample::getNumStringKeys() const {
    return PRBSample::getNumStringKeys() + static_cast<int>(class_->numStringKeys);
}

void PRBCatalogueSample::stringKeys(int* keys) const {
    PRBSample::stringKeys(keys);
    keys += PRBSample::getNumStringKeys();
    for (unsigned i = 0; i < class_->numStringKeys; ++i)
        keys[i] = static_cast<int>(class_->stringKeys[i]);
}

// The base's, in one look-up; the base has the trace lines and the keys of every sample.
void PRBCatalogueSample::saveNumericData(int key, long long value) {
    const auto id = static_cast<unsigned>(key);
    const int index = id < static_cast<unsigned>(kNumKeys) ? placement_[id] : -1;
    if (index >= 0 && __builtin_expect(PRBTrace::level.load(std::memory_order_relaxed) == 0, 1)) {
        _NumericValue& slot = slots()[index];
        const PRBKeyType type = PRBKeyTable[id].keyType;
        if (isPlainType(type)) {
            slot.plain.isSet = value != -1;
            if (value != -1) slot.plain.value = value;
            return;
        }
        if (isCounterType(type)) {
            slot.counter.isSet = value != -1;
            if (value != -1) slot.counter.counted = value;
            return;
        }
    }
    PRBSample::saveNumericData(key, value);
}

void PRBCatalogueSample::saveText(int key, std::string_view value) {
    Trace trace(*class_, "saveStringData");
    if (std::string* own = text(key)) {
        own->assign(value);
    } else {
        PRBSample::saveStringData(key, std::string(value).c_str());
    }
}

void PRBCatalogueSample::saveStringData(int key, const char* value) {
    Trace trace(*class_, "saveStringData");
    if (std::string* own = text(key)) {
        *own = value == nullptr ? "" : value;
    } else {
        PRBSample::saveStringData(key, value);
    }
}

const std::string& PRBCatalogueSample::getStringData(int key) const {
    Trace trace(*class_, "getStringData");
    const std::string* own = text(key);
    return own != nullptr ? *own : PRBSample::getStringData(key);
}

std::string PRBCatalogueSample::getResourceName() const {
    Trace trace(*class_, "getResourceName");
    const std::string* first = text(class_->resourceKey);
    if (first == nullptr) return {};
    const std::string* second = text(class_->resourceKey2);
    return second == nullptr ? *first : *first + '.' + *second;
}

void PRBCatalogueSample::calculateRates(const PRBSample* previous) {
    Trace trace(*class_, "calculateRates");
    PRBSample::calculateRates(previous);
    deriveRates(previous, class_->cumulativeKeys, class_->numCumulativeKeys);
}

// The same bytes as the general way, which goes through one virtual call per key and one traced
// operation per primitive: that way is taken when its traces may be wanted, or when the texts
// are to be converted.
void PRBCatalogueSample::stream(PRBBuffer& buffer) const {
    if (PRBTrace::level.load(std::memory_order_relaxed) != 0 ||
        getToBeSentAs() != PlatformNativeFormat) {
        PRBSample::stream(buffer);
        return;
    }
    unsigned char head[8 + PRBBuffer::kNumericFieldSize * (2 + kMaxNumericKeys)];
    unsigned char* out = putBig(head, static_cast<std::uint16_t>(PlatformNativeFormat));
    out = putBig(out, static_cast<std::uint16_t>(PRBCatalogueSample::getDataType()));
    out = putBig(out, static_cast<std::uint32_t>(class_->type));
    out = putNumber(out, kTimeKey, getSampleTime().seconds());
    out = putNumber(out, kDurationKey, getDuration());
    const _NumericValue* slot = slots();
    for (unsigned i = 0; i < class_->numNumericKeys; ++i, ++slot) {
        if (slot->plain.isSet == 0) continue;
        const unsigned key = class_->numericKeys[i];
        const PRBKeyType type = PRBKeyTable[key].keyType;
        const long long value = isCounterType(type) ? slot->counter.counted
                                : isPlainType(type) ? slot->plain.value
                                                    : 0;
        out = putNumber(out, key, value);
    }
    const auto headSize = static_cast<std::size_t>(out - head);
    std::size_t size = headSize + keyValueSetSize();
    for (unsigned i = 0; i < class_->numStringKeys; ++i)
        if (!texts_[i].empty()) size += PRBBuffer::kStringFieldHead + texts_[i].size();
    buffer.reserve(buffer.size() + size);
    buffer.append(reinterpret_cast<const char*>(head), headSize);
    for (unsigned i = 0; i < class_->numStringKeys; ++i) {
        if (texts_[i].empty()) continue;
        unsigned char field[PRBBuffer::kStringFieldHead];
        out = putBig(field, std::uint32_t{PRBBuffer::kStringField});
        out = putBig(out, static_cast<std::uint32_t>(class_->stringKeys[i]));
        putBig(out, static_cast<std::uint32_t>(texts_[i].size()));
        buffer.append(reinterpret_cast<const char*>(field), sizeof field);
        buffer.append(texts_[i]);
    }
    streamKeyValueSet(buffer);
}
