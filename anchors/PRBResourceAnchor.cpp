#include "anchors/PRBResourceAnchor.h"

#include "anchors/PRBAnchorHash.h"
#include "core/PRBFormat.h"
#include "core/PRBTrace.h"

#include <cstring>

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kFrequent, PRBComponent::kResourceAnchor, operation);
}

void note(const char* what, const PRBResourceAnchor* anchor) {
    if (PRBTrace::isDebugEnabled(PRBComponent::kResourceAnchor))
        PRBTrace::log("PRBResourceAnchor %s called for 0X" PRB_PTR, what, prbPtr(anchor));
}

std::unique_ptr<PRBSample> cloneOf(const std::unique_ptr<PRBSample>& sample) {
    return std::unique_ptr<PRBSample>(sample == nullptr ? nullptr : sample->clone());
}

} // namespace

PRBResourceAnchor::PRBResourceAnchor() { note("constructor 1", this); }

PRBResourceAnchor::PRBResourceAnchor(_SampleType type, const std::string& name)
    : type_(type), resourceName_(name) {
    note("constructor 2", this);
}

PRBResourceAnchor::PRBResourceAnchor(const PRBResourceAnchor& other)
    : PRBCollectable(other),
      type_(other.type_),
      resourceName_(other.resourceName_),
      last_(cloneOf(other.last_)),
      historical_(cloneOf(other.historical_)),
      hashCached_(other.hashCached_),
      cachedHash_(other.cachedHash_) {
    note("copy constructor", this);
}

PRBResourceAnchor& PRBResourceAnchor::operator=(const PRBResourceAnchor& other) {
    auto trace = traced("PRBResourceAnchor::operator=");
    if (this == &other) return *this;
    type_ = other.type_;
    resourceName_ = other.resourceName_;
    static_cast<void>(last_.release());
    static_cast<void>(historical_.release());
    last_ = cloneOf(other.last_);
    historical_ = cloneOf(other.historical_);
    resetPending_ = historyRestarted_ = false;
    return *this;
}

PRBResourceAnchor::~PRBResourceAnchor() { note("destructor", this); }

std::uint32_t PRBResourceAnchor::createHashKey(const char* text) {
    auto trace = traced("PRBResourceAnchor::createHashKey");
    const std::size_t n = text == nullptr ? 0 : std::strlen(text);
    std::uint32_t first = 0, last = 0;
    if (n != 0) std::memcpy(&first, text, n < sizeof first ? n : sizeof first);
    if (n > sizeof last) std::memcpy(&last, text + n - sizeof last, sizeof last);
    return trace.returns(first ^ last);
}

std::uint32_t PRBResourceAnchor::hash() const {
    auto trace = traced("PRBResourceAnchor::hash");
    if (!hashCached_) {
        cachedHash_ = getHashKey();
        hashCached_ = true;
    }
    return trace.returns(cachedHash_);
}

std::uint64_t PRBResourceAnchor::identityHash() const {
    PRBAnchorHash hash;
    hash.add(static_cast<std::uint32_t>(type_));
    hash.add(resourceName_);
    return hash.value();
}

bool PRBResourceAnchor::isEqual(const PRBCollectable* other) const {
    auto trace = traced("PRBResourceAnchor::isEqual");
    if (other == nullptr) return trace.returns(false);
    const auto* anchor = other->isA() == isA() ? static_cast<const PRBResourceAnchor*>(other)
                                               : dynamic_cast<const PRBResourceAnchor*>(other);
    return trace.returns(anchor != nullptr && type_ == anchor->type_ &&
                         resourceName_ == anchor->resourceName_);
}

bool PRBResourceAnchor::doesItMatch(const PRBResourceAnchor& pattern) const {
    auto trace = traced("PRBResourceAnchor::doesItMatch");
    return trace.returns(type_ == pattern.type_ &&
                         (pattern.resourceName_.empty() || resourceName_ == pattern.resourceName_));
}

bool PRBResourceAnchor::isSpecific() const {
    auto trace = traced("PRBResourceAnchor::isSpecific");
    return trace.returns(!resourceName_.empty());
}

PRBSample* PRBResourceAnchor::getLastHistoricalSample() {
    auto trace = traced("PRBResourceAnchor::getLastHistoricalSample");
    if (historical_ != nullptr && !historical_->wereRatesCalculated())
        historical_->calculateRates(nullptr);
    return historical_.get();
}

void PRBResourceAnchor::saveNewSample(PRBSample* sample, unsigned int intervalId) {
    auto trace = traced("PRBResourceAnchor::saveNewSample");
    if (PRBTrace::isDebugEnabled(PRBComponent::kResourceAnchor))
        PRBTrace::log("PRBResourceAnchor::saveNewSample called with this 0X" PRB_PTR
                      " sample at 0X" PRB_PTR,
                      prbPtr(this), prbPtr(sample));
    if (sample == nullptr) return;
    std::unique_ptr<PRBSample> owned(sample);
    const bool interval = sample->isIntervalSample();
    if (intervalId != 0 && intervalId == intervalId_ && last_ != nullptr) {
        last_->mergeSampleData(sample);
        last_->resetRates();
        if (!interval) return;
        if (historical_ != nullptr) {
            historical_->mergeSampleData(sample);
        } else {
            historical_.reset(sample->clone());
        }
        return;
    }
    const bool restarting = resetPending_ || historyRestarted_;
    if (interval || !restarting) sample->calculateRates(last_.get());
    last_ = std::move(owned);
    if (intervalId != 0) intervalId_ = intervalId;
    if (interval) {
        if (historical_ != nullptr) {
            historical_->mergeIntoHistoricalSample(sample);
        } else {
            historical_.reset(sample->clone());
            if (historical_ != nullptr) historical_->resetRates();
        }
    }
    if (restarting) {
        if (!interval) historical_.reset();
        resetPending_ = historyRestarted_ = false;
    }
}

void PRBResourceAnchor::restartHistory() {
    resetPending_ = false;
    historyRestarted_ = true;
}

bool PRBResourceAnchor::saveNewHistoricalSample(PRBSample* sample) {
    auto trace = traced("PRBResourceAnchor::saveNewHistoricalSample");
    if (sample == nullptr) return trace.returns(false);
    const bool kept = !historyRestarted_;
    if (kept) {
        sample->calculateRates(historical_.get());
        historical_.reset(sample);
    }
    if (resetPending_) {
        last_.reset();
        restartHistory();
    } else {
        historyRestarted_ = false;
    }
    return trace.returns(kept);
}

void PRBResourceAnchor::resetHistoricalSample() {
    auto trace = traced("PRBResourceAnchor::resetHistoricalSample");
    historical_.reset();
    if (resetPending_) restartHistory();
}
