// The derived values of a sample: intervals, rates, averages and percents. None is streamed;
// receivers ask for them after calculateRates.
#include "core/PRBTrace.h"
#include "data/PRBArithmetic.h"
#include "data/PRBSample.h"

#include <algorithm>

using PRBArithmetic::rounded;
using PRBArithmetic::scaled;
using PRBArithmetic::wrappingDifference;

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kMember, PRBComponent::kSample, operation);
}

constexpr int kMillisecondsKey = 314; // when a sample was taken

} // namespace

void PRBSample::calculateRates(const PRBSample*) {
    auto trace = traced("PRBSample::calculateRates");
}

// Milliseconds between two samples; 0 without a previous one.
long long PRBSample::elapsedMs(const PRBSample* previous) const {
    if (previous == nullptr) return 0;
    const _NumericValue* own = getNumericValueEntry(kMillisecondsKey);
    const _NumericValue* before = previous->getNumericValueEntry(kMillisecondsKey);
    if (own != nullptr && before != nullptr && own->plain.isSet != 0 && before->plain.isSet != 0)
        return wrappingDifference(own->plain.value, before->plain.value);
    return rounded(
        (static_cast<double>(time_.seconds()) - static_cast<double>(previous->time_.seconds())) *
        1000);
}

// What a counter gained since the previous sample; a running one that is smaller than before
// has been restarted.
long long PRBSample::intervalOf(int key, const PRBSample* previous, bool running) const {
    const _NumericValue* slot = getNumericValueEntry(key);
    if (slot == nullptr || slot->counter.isSet == 0) return 0;
    const long long counted = slot->counter.counted;
    if (!running || previous == nullptr) return counted;
    const _NumericValue* before = previous->getNumericValueEntry(key);
    if (before == nullptr || before->counter.isSet == 0 || before->counter.counted > counted)
        return counted;
    return wrappingDifference(counted, before->counter.counted);
}

void PRBSample::deriveRates(const PRBSample* previous, const unsigned* cumulative,
                            unsigned numCumulative) {
    auto trace = traced("PRBSample::deriveRates");
    const auto isRunning = [&](unsigned key) {
        for (unsigned i = 0; i < numCumulative; ++i)
            if (cumulative[i] == key) return true;
        const PRBKeyTableEntry* entry = getKeyTableEntry(static_cast<int>(key));
        return entry != nullptr && entry->keyType == PRBKeyType::RunningCounter;
    };
    const long long elapsed = elapsedMs(previous);
    for (unsigned i = 0; i < numIntKeys_; ++i) {
        const int key = static_cast<int>(intKeys_[i]);
        const PRBKeyTableEntry* entry = getKeyTableEntry(key);
        _NumericValue* slot = getNumericValueEntry(key);
        if (entry == nullptr || slot == nullptr || slot->plain.isSet == 0) continue;
        if (isStatisticType(entry->keyType)) {
            auto& pair = slot->statistic;
            const double weight = getTotalNumSamplesForStatinfo(intKeys_[i], previous);
            pair.isDerived = weight != 0;
            if (pair.isDerived != 0)
                pair.derived = rounded(getTotalForStatinfo(intKeys_[i], previous) / weight);
        }
        if (!isCounterType(entry->keyType)) continue;
        auto& counter = slot->counter;
        const bool running = isRunning(intKeys_[i]);
        counter.interval = intervalOf(key, previous, running);
        const bool percent = entry->keyType == PRBKeyType::PercentCounter;
        const bool overElapsed = entry->relatedKey == 0 || entry->relatedKey == kMillisecondsKey;
        const long long total =
            overElapsed ? std::max(elapsed, 0LL) : getTotalCount(intKeys_[i], previous);
        if (total == 0 || (running && previous == nullptr)) {
            counter.derived = -1;
            counter.isDerived = 0;
            continue;
        }
        const long long factor = percent ? 100 : overElapsed ? 1000 : 1;
        counter.derived = scaled(counter.interval, factor, total);
        counter.isDerived = 1;
    }
}

void PRBSample::resetRates() {
    auto trace = traced("PRBSample::resetRates");
    for (unsigned i = 0; i < numIntKeys_; ++i) {
        const int key = static_cast<int>(intKeys_[i]);
        const PRBKeyTableEntry* entry = getKeyTableEntry(key);
        _NumericValue* slot = getNumericValueEntry(key);
        if (entry == nullptr || slot == nullptr) continue;
        if (isCounterType(entry->keyType)) {
            slot->counter.isDerived = 0;
            slot->counter.interval = slot->counter.derived = 0;
        } else if (isStatisticType(entry->keyType)) {
            slot->statistic.isDerived = 0;
            slot->statistic.derived = 0;
        }
    }
}

bool PRBSample::wereRatesCalculated() const {
    bool canHave = false;
    for (unsigned i = 0; i < numIntKeys_; ++i) {
        const int key = static_cast<int>(intKeys_[i]);
        const PRBKeyTableEntry* entry = getKeyTableEntry(key);
        const _NumericValue* slot = getNumericValueEntry(key);
        if (entry == nullptr || slot == nullptr) continue;
        if (!isCounterType(entry->keyType) && !isStatisticType(entry->keyType)) continue;
        canHave = true;
        if (slot->counter.isDerived != 0) return true; // the flag stands at one place in both
    }
    return !canHave;
}

long long PRBSample::getRate(int key) const {
    auto trace = traced("PRBSample::getRate");
    const PRBKeyTableEntry* entry = getKeyTableEntry(key);
    const _NumericValue* slot = getNumericValueEntry(key);
    if (entry == nullptr || slot == nullptr || !isCounterType(entry->keyType) ||
        entry->keyType == PRBKeyType::PercentCounter)
        return trace.returns(0LL);
    return trace.returns(
        slot->counter.isDerived != 0 ? static_cast<long long>(slot->counter.derived) : -1LL);
}

long long PRBSample::getPercent(int key) const {
    auto trace = traced("PRBSample::getPercent");
    const PRBKeyTableEntry* entry = getKeyTableEntry(key);
    const _NumericValue* slot = getNumericValueEntry(key);
    if (entry == nullptr || slot == nullptr || entry->keyType != PRBKeyType::PercentCounter)
        return trace.returns(0LL);
    return trace.returns(
        slot->counter.isDerived != 0 ? static_cast<long long>(slot->counter.derived) : -1LL);
}

namespace {

// A component of a pair, 0 while the pair is not set.
double component(const PRBSample::_NumericValue* slot, bool second) {
    if (slot == nullptr || slot->statistic.isSet == 0) return 0;
    return second ? slot->statistic.second : slot->statistic.first;
}

bool isStatistic(unsigned key) {
    const PRBKeyTableEntry* entry = PRBSample::getKeyTableEntry(static_cast<int>(key));
    return entry != nullptr && isStatisticType(entry->keyType);
}

} // namespace

double PRBSample::getTotalForStatinfo(unsigned key, const PRBSample* previous) const {
    const int id = static_cast<int>(key);
    if (!isStatistic(key)) return 0;
    return component(getNumericValueEntry(id), false) -
           (previous == nullptr ? 0 : component(previous->getNumericValueEntry(id), false));
}

double PRBSample::getTotalNumSamplesForStatinfo(unsigned key, const PRBSample* previous) const {
    const int id = static_cast<int>(key);
    if (!isStatistic(key)) return 0;
    return component(getNumericValueEntry(id), true) -
           (previous == nullptr ? 0 : component(previous->getNumericValueEntry(id), true));
}

long long PRBSample::getTotalCount(unsigned key, const PRBSample* previous) const {
    const PRBKeyTableEntry* entry = getKeyTableEntry(static_cast<int>(key));
    if (entry == nullptr || entry->relatedKey == 0) return 0;
    const int related = static_cast<int>(entry->relatedKey);
    const PRBKeyTableEntry* total = getKeyTableEntry(related);
    if (total == nullptr || !isCounterType(total->keyType)) return 0;
    return intervalOf(related, previous, total->keyType == PRBKeyType::RunningCounter);
}
