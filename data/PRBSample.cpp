#include "data/PRBSample.h"

#include "core/PRBTrace.h"
#include "data/PRBArithmetic.h"
#include "data/PRBBuffer.h"
#include "data/PRBKeyList.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kMember, PRBComponent::kSample, operation);
}

PRBSample::_NumericValue* allocateSlots(unsigned count) {
    const std::size_t size = count * sizeof(PRBSample::_NumericValue);
    if (size == 0) return nullptr;
    void* block = PRBMemoryManager::allocate(size);
    if (block == nullptr) return nullptr;
    return static_cast<PRBSample::_NumericValue*>(std::memset(block, 0, size));
}

} // namespace

PRBSample::PRBSample(unsigned numIntKeys, const unsigned* intKeys)
    : slots_(allocateSlots(numIntKeys)),
      numIntKeys_(numIntKeys),
      intKeys_(intKeys),
      slotsAllocated_(true) {
    if (slots_ == nullptr) numIntKeys_ = 0;
}

PRBSample::PRBSample(const PRBSample& other)
    : PRBTransportableData(other),
      time_(other.time_),
      duration_(other.duration_),
      slots_(allocateSlots(other.numIntKeys_)),
      numIntKeys_(other.numIntKeys_),
      intKeys_(other.intKeys_),
      slotsAllocated_(true) {
    if (slots_ == nullptr) numIntKeys_ = 0;
    std::copy_n(other.slots_, numIntKeys_, slots_);
}

PRBSample::PRBSample(unsigned numIntKeys, const unsigned* intKeys, OwnSlots)
    : numIntKeys_(numIntKeys), intKeys_(intKeys), slotsAllocated_(false) {}

PRBSample::PRBSample(const PRBSample& other, OwnSlots)
    : PRBTransportableData(other),
      time_(other.time_),
      duration_(other.duration_),
      numIntKeys_(other.numIntKeys_),
      intKeys_(other.intKeys_),
      slotsAllocated_(false) {}

PRBSample::~PRBSample() {
    if (slotsAllocated_) PRBMemoryManager::release(slots_, numIntKeys_ * sizeof(_NumericValue));
}

PRBSample& PRBSample::operator=(const PRBSample& other) {
    auto trace = traced("PRBSample::operator=");
    if (this == &other) return *this;
    PRBTransportableData::operator=(other);
    time_ = other.time_;
    duration_ = other.duration_;
    if (intKeys_ == other.intKeys_ && numIntKeys_ == other.numIntKeys_)
        std::copy_n(other.slots_, numIntKeys_, slots_);
    return *this;
}

int PRBSample::getNumNumericKeys() const {
    return PRBTransportableData::getNumNumericKeys() + NumSampleIntKeys +
           static_cast<int>(numIntKeys_);
}

void PRBSample::numericKeys(int* keys) const {
    PRBTransportableData::numericKeys(keys);
    keys += PRBTransportableData::getNumNumericKeys();
    keys = std::copy_n(SampleIntKeys, NumSampleIntKeys, keys);
    for (unsigned i = 0; i < numIntKeys_; ++i) keys[i] = static_cast<int>(intKeys_[i]);
}

void PRBSample::streamID(PRBBuffer& buffer) const {
    auto trace = traced("PRBSample::streamID");
    PRBTransportableData::streamID(buffer);
    buffer.streamInt(static_cast<unsigned>(getSampleType()));
}

const PRBSample::_NumericValue* PRBSample::getNumericValueEntry(int key) const {
    const int* placement = getKeyPlacementArray();
    if (placement == nullptr || key < 0 || key >= kNumKeys) return nullptr;
    const int index = placement[key];
    return index < 0 || static_cast<unsigned>(index) >= numIntKeys_ ? nullptr : slots_ + index;
}

PRBSample::_NumericValue* PRBSample::getNumericValueEntry(int key) {
    return const_cast<_NumericValue*>(std::as_const(*this).getNumericValueEntry(key));
}

void PRBSample::saveNumericData(int key, long long value) {
    auto trace = traced("PRBSample::saveNumericData");
    if (key == kTimeKey) {
        time_ = PRBTime(value);
        return;
    }
    if (key == kDurationKey) {
        duration_ = static_cast<std::uint32_t>(value);
        return;
    }
    _NumericValue* slot = getNumericValueEntry(key);
    const PRBKeyTableEntry* entry = getKeyTableEntry(key);
    if (slot == nullptr || entry == nullptr) {
        PRBTransportableData::saveNumericData(key, value);
        return;
    }
    slot->plain.isSet = value != -1;
    if (value == -1) return;
    if (isPlainType(entry->keyType)) slot->plain.value = value;
    if (isCounterType(entry->keyType)) slot->counter.counted = value;
}

long long PRBSample::getNumericData(int key) const {
    auto trace = traced("PRBSample::getNumericData");
    if (key == kTimeKey) return trace.returns(static_cast<long long>(time_.seconds()));
    if (key == kDurationKey) return trace.returns(static_cast<long long>(duration_));
    const _NumericValue* slot = getNumericValueEntry(key);
    const PRBKeyTableEntry* entry = getKeyTableEntry(key);
    if (slot == nullptr || entry == nullptr)
        return trace.returns(PRBTransportableData::getNumericData(key));
    long long value = -1;
    if (isPlainType(entry->keyType) && slot->plain.isSet != 0) value = slot->plain.value;
    if (isCounterType(entry->keyType) && slot->counter.isDerived != 0)
        value = slot->counter.interval;
    if (isStatisticType(entry->keyType) && slot->statistic.isDerived != 0)
        value = slot->statistic.derived;
    return trace.returns(value);
}

long long PRBSample::getNumericValueForStream(unsigned key) const {
    auto trace = traced("PRBSample::getNumericValueForStream");
    const int id = static_cast<int>(key);
    if (id == kTimeKey || id == kDurationKey) return trace.returns(getNumericData(id));
    const _NumericValue* slot = getNumericValueEntry(id);
    const PRBKeyTableEntry* entry = getKeyTableEntry(id);
    if (slot == nullptr || entry == nullptr) return trace.returns(getNumericData(id));
    if (slot->plain.isSet == 0) return trace.returns(-1LL);
    if (isPlainType(entry->keyType))
        return trace.returns(static_cast<long long>(slot->plain.value));
    if (isCounterType(entry->keyType))
        return trace.returns(static_cast<long long>(slot->counter.counted));
    return trace.returns(0LL);
}

void PRBSample::sumNumericData(int key, long long value) {
    auto trace = traced("PRBSample::sumNumericData");
    _NumericValue* slot = getNumericValueEntry(key);
    const PRBKeyTableEntry* entry = getKeyTableEntry(key);
    if (slot == nullptr || entry == nullptr) return;
    if (isPlainType(entry->keyType)) {
        const bool keep = slot->plain.isSet != 0 &&
                          ((entry->keyType == PRBKeyType::Maximum && value <= slot->plain.value) ||
                           (entry->keyType == PRBKeyType::Minimum && value >= slot->plain.value));
        if (!keep) slot->plain.value = value;
        slot->plain.isSet = 1;
    } else if (isCounterType(entry->keyType)) {
        slot->counter.counted = slot->counter.isSet != 0
                                    ? PRBArithmetic::wrappingSum(slot->counter.counted, value)
                                    : value;
        slot->counter.isSet = 1;
    }
}

void PRBSample::saveStatInfoData(unsigned key, double first, double second) {
    auto trace = traced("PRBSample::saveStatInfoData");
    _NumericValue* slot = getNumericValueEntry(static_cast<int>(key));
    const PRBKeyTableEntry* entry = getKeyTableEntry(static_cast<int>(key));
    if (slot == nullptr || entry == nullptr || !isStatisticType(entry->keyType)) return;
    slot->statistic.first = first;
    slot->statistic.second = second;
    slot->statistic.isSet = 1;
}

void PRBSample::sumStatInfoData(unsigned key, double first, double second) {
    auto trace = traced("PRBSample::sumStatInfoData");
    _NumericValue* slot = getNumericValueEntry(static_cast<int>(key));
    const PRBKeyTableEntry* entry = getKeyTableEntry(static_cast<int>(key));
    if (slot == nullptr || entry == nullptr || !isStatisticType(entry->keyType)) return;
    if (slot->statistic.isSet != 0) {
        first += slot->statistic.first;
        second += slot->statistic.second;
    }
    slot->statistic.first = first;
    slot->statistic.second = second;
    slot->statistic.isSet = 1;
}

void PRBSample::mergeNumericData(const PRBSample* other, unsigned key, _NumericValue* slot) {
    auto trace = traced("PRBSample::mergeNumericData");
    const int id = static_cast<int>(key);
    const PRBKeyTableEntry* entry = getKeyTableEntry(id);
    const _NumericValue* theirs = other == nullptr ? nullptr : other->getNumericValueEntry(id);
    if (slot == nullptr || entry == nullptr || theirs == nullptr || theirs->plain.isSet == 0)
        return;
    if (isPlainType(entry->keyType)) sumNumericData(id, theirs->plain.value);
    if (isCounterType(entry->keyType)) sumNumericData(id, theirs->counter.counted);
    if (isStatisticType(entry->keyType))
        sumStatInfoData(key, theirs->statistic.first, theirs->statistic.second);
}

void PRBSample::mergeSampleData(const PRBSample* other) {
    auto trace = traced("PRBSample::mergeSampleData");
    if (other == nullptr || slots_ == nullptr) return;
    for (unsigned i = 0; i < numIntKeys_; ++i)
        mergeNumericData(other, intKeys_[i], getNumericValueEntry(static_cast<int>(intKeys_[i])));
    PRBKeyList keys(getNumStringKeys());
    stringKeys(keys.data());
    for (int key : keys) {
        const std::string& text = other->getStringData(key);
        if (!getStringData(key).empty() || text.empty()) continue;
        if (PRBTrace::isDebugEnabled(PRBComponent::kSample))
            PRBTrace::log("Merging string data %s for key %i for sample type %i", text.c_str(), key,
                          static_cast<int>(getSampleType()));
        saveStringData(key, text.c_str());
    }
}

void PRBSample::mergeIntoHistoricalSample(const PRBSample* other) {
    auto trace = traced("PRBSample::mergeIntoHistoricalSample");
    mergeSampleData(other);
    resetRates();
}
