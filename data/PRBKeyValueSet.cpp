#include "data/PRBKeyValueSet.h"

#include "core/PRBTrace.h"

namespace {
constexpr std::size_t kFewPairs = 16; // a record carries a handful of extra values
}

bool PRBKeyValueSet::PRBKeyValuePair::isEqual(const PRBCollectable* other) const {
    return other != nullptr && other->isA() == isA() &&
           static_cast<const PRBKeyValuePair*>(other)->key_ == key_;
}

PRBCollectable* PRBKeyValueSet::PRBKeyValuePair::newSpecies() const { return new PRBKeyValuePair; }
PRBCollectable* PRBKeyValueSet::KeyValuePairString::newSpecies() const {
    return new KeyValuePairString;
}
PRBCollectable* PRBKeyValueSet::KeyValuePairNumeric::newSpecies() const {
    return new KeyValuePairNumeric;
}

PRBKeyValueSet::PRBKeyValuePair* PRBKeyValueSet::PRBKeyValuePair::clone() const {
    return new PRBKeyValuePair(*this);
}
PRBKeyValueSet::PRBKeyValuePair* PRBKeyValueSet::KeyValuePairString::clone() const {
    return new KeyValuePairString(*this);
}
PRBKeyValueSet::PRBKeyValuePair* PRBKeyValueSet::KeyValuePairNumeric::clone() const {
    return new KeyValuePairNumeric(*this);
}

PRBKeyValueSet::PRBKeyValueSet() : index_(kFewPairs) {}

PRBKeyValueSet::PRBKeyValueSet(const PRBKeyValueSet& other) : index_(kFewPairs) { *this = other; }

PRBKeyValueSet& PRBKeyValueSet::operator=(const PRBKeyValueSet& other) {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kKeyValueSet,
                        "PRBKeyValueSet::operator=");
    if (this == &other) return *this;
    index_.clear();
    pairs_.clear();
    pairs_.reserve(other.pairs_.size());
    for (const auto& pair : other.pairs_) add(std::unique_ptr<PRBKeyValuePair>(pair->clone()));
    return *this;
}

void PRBKeyValueSet::defineKeyValuePair(int key, const char* text) {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kKeyValueSet,
                        "PRBKeyValueSet::defineKeyValuePair");
    add(std::unique_ptr<PRBKeyValuePair>(new KeyValuePairString(key, text)));
}

void PRBKeyValueSet::defineKeyValuePair(int key, long long value) {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kKeyValueSet,
                        "PRBKeyValueSet::defineKeyValuePair");
    add(std::unique_ptr<PRBKeyValuePair>(new KeyValuePairNumeric(key, value)));
}

// A pair whose key is there already, or for which there was no memory, is dropped.
void PRBKeyValueSet::add(std::unique_ptr<PRBKeyValuePair> pair) {
    if (pair == nullptr || index_.insert(pair.get()) != pair.get()) return;
    pairs_.push_back(std::move(pair));
}

const PRBKeyValueSet::PRBKeyValuePair* PRBKeyValueSet::find(int key) const {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kKeyValueSet, "PRBKeyValueSet::find");
    PRBKeyValuePair probe(key);
    return static_cast<const PRBKeyValuePair*>(index_.find(&probe));
}

std::unique_ptr<PRBKeyValueSet::Iterator> PRBKeyValueSet::createIterator() const {
    return std::make_unique<Iterator>(*this);
}
