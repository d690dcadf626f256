#include "anchors/PRBAnchorClass.h"

#include "anchors/PRBAnchorHash.h"
#include "core/PRBTrace.h"

#include <algorithm>

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kFrequent, PRBComponent::kResourceAnchor, operation);
}

std::uint32_t folded(std::uint64_t number) {
    return static_cast<std::uint32_t>(number ^ number >> 32);
}

} // namespace

PRBDescribedAnchor::PRBDescribedAnchor(const PRBAnchorClass& description)
    : PRBResourceAnchor(description.sampleType, {}), class_(&description) {
    if (class_->numTexts != 0) texts_ = std::make_unique<std::string[]>(class_->numTexts);
}

PRBDescribedAnchor::PRBDescribedAnchor(const PRBDescribedAnchor& other)
    : PRBResourceAnchor(other), class_(other.class_), numbers_(other.numbers_) {
    if (class_->numTexts == 0) return;
    texts_ = std::make_unique<std::string[]>(class_->numTexts);
    std::copy_n(other.texts_.get(), class_->numTexts, texts_.get());
}

PRBDescribedAnchor& PRBDescribedAnchor::operator=(const PRBDescribedAnchor& other) {
    auto trace = traced("PRBDescribedAnchor::operator=");
    if (this == &other) return *this;
    // Assigned through a common base, anchors of different classes share the base's fields,
    // which come first in both.
    const unsigned numbers = std::min(class_->numNumbers, other.class_->numNumbers);
    const unsigned texts = std::min(class_->numTexts, other.class_->numTexts);
    std::copy_n(other.numbers_.begin(), numbers, numbers_.begin());
    std::copy_n(other.texts_.get(), texts, texts_.get());
    PRBResourceAnchor::operator=(other);
    return *this;
}

// The key of a class with one of its own is that of its own fields, together with its base's
// unless that is the resource name's.
std::uint32_t PRBDescribedAnchor::getHashKey() const {
    auto trace = traced("PRBDescribedAnchor::getHashKey");
    if (!has(PRBAnchorClass::H)) return trace.returns(PRBResourceAnchor::getHashKey());
    std::uint32_t key = 0;
    for (const PRBAnchorClass* row = class_; row != nullptr; row = row->base) {
        if ((row->overrides & PRBAnchorClass::H) == 0) continue;
        for (unsigned i = 0; i < row->numFields; ++i)
            key ^= row->fields[i].isText() ? createHashKey(texts_[row->slot(i)].c_str())
                                           : folded(numbers_[row->slot(i)]);
    }
    return trace.returns(key);
}

std::uint64_t PRBDescribedAnchor::identityHash() const {
    PRBAnchorHash hash;
    hash.add(static_cast<std::uint32_t>(getSampleType()));
    hash.add(getResourceName());
    for (unsigned i = 0; i < class_->numNumbers; ++i) hash.add(numbers_[i]);
    for (unsigned i = 0; i < class_->numTexts; ++i) hash.add(texts_[i]);
    return hash.value();
}

bool PRBDescribedAnchor::isEqual(const PRBCollectable* other) const {
    auto trace = traced("PRBDescribedAnchor::isEqual");
    if (!has(PRBAnchorClass::E)) return trace.returns(PRBResourceAnchor::isEqual(other));
    if (other == nullptr || other->isA() != isA()) return trace.returns(false);
    const auto& anchor = static_cast<const PRBDescribedAnchor&>(*other);
    return trace.returns(
        std::equal(numbers_.begin(), numbers_.begin() + class_->numNumbers,
                   anchor.numbers_.begin()) &&
        std::equal(texts_.get(), texts_.get() + class_->numTexts, anchor.texts_.get()) &&
        PRBResourceAnchor::isEqual(other));
}

bool PRBDescribedAnchor::doesItMatch(const PRBResourceAnchor& pattern) const {
    auto trace = traced("PRBDescribedAnchor::doesItMatch");
    if (!has(PRBAnchorClass::M)) return trace.returns(PRBResourceAnchor::doesItMatch(pattern));
    if (pattern.isA() != isA()) return trace.returns(false);
    const auto& other = static_cast<const PRBDescribedAnchor&>(pattern);
    for (const PRBAnchorClass* row = class_; row != nullptr; row = row->base) {
        for (unsigned i = 0; i < row->numFields; ++i) {
            const unsigned at = row->slot(i);
            const PRBAnchorField& field = row->fields[i];
            if (field.isText()
                    ? !other.texts_[at].empty() && other.texts_[at] != texts_[at]
                    : other.numbers_[at] != field.wild() && other.numbers_[at] != numbers_[at])
                return trace.returns(false);
        }
    }
    return trace.returns(
        (pattern.getResourceName().empty() || pattern.getResourceName() == getResourceName()) &&
        (pattern.getSampleType() == 0 || pattern.getSampleType() == getSampleType()));
}

bool PRBDescribedAnchor::isSpecific() const {
    auto trace = traced("PRBDescribedAnchor::isSpecific");
    if (!has(PRBAnchorClass::S)) return trace.returns(PRBResourceAnchor::isSpecific());
    for (const PRBAnchorClass* row = class_; row != nullptr; row = row->base) {
        if ((row->overrides & PRBAnchorClass::S) == 0) continue;
        for (unsigned i = 0; i < row->numFields; ++i) {
            const PRBAnchorField& field = row->fields[i];
            const unsigned at = row->slot(i);
            if (field.kind == PRBAnchorField::OptionalText) continue;
            if (field.isText() ? texts_[at].empty() : numbers_[at] == field.wild())
                return trace.returns(false);
        }
    }
    return trace.returns(class_->unnamed || PRBResourceAnchor::isSpecific());
}

const char* PRBDescribedAnchor::getAdditionalPollParameters() const {
    if ((class_->overrides & PRBAnchorClass::Poll) == 0) return nullptr;
    std::string text;
    for (unsigned i = 0; i < class_->numFields && isSpecific(); ++i) {
        const PRBAnchorField& field = class_->fields[i];
        const unsigned at = class_->slot(i);
        if (i != 0) text += ',';
        text += field.name;
        text += '=';
        text += field.isText() ? texts_[at] : std::to_string(numbers_[at]);
    }
    pollParameters_ = std::make_unique<std::string>(std::move(text));
    return pollParameters_->c_str();
}

void PRBDescribedAnchor::identify(const PRBSample& sample) {
    const auto textOf = [&sample](int key) {
        return key == PRBAnchorField::kResourceName ? sample.getResourceName()
                                                    : sample.getStringData(key);
    };
    setResourceName(textOf(class_->nameKey));
    for (const PRBAnchorClass* row = class_; row != nullptr; row = row->base) {
        for (unsigned i = 0; i < row->numFields; ++i) {
            const PRBAnchorField& field = row->fields[i];
            const unsigned at = row->slot(i);
            if (field.sampleKey == PRBAnchorField::kNoKey) continue;
            if (field.isText()) {
                texts_[at] = textOf(field.sampleKey);
                continue;
            }
            const long long value =
                sample.getNumericValueForStream(static_cast<unsigned>(field.sampleKey));
            numbers_[at] = value == -1 ? 0 : static_cast<std::uint64_t>(value);
            if (field.kind == PRBAnchorField::Number) numbers_[at] &= 0xFFFFFFFF;
        }
    }
}

void PRBDescribedAnchor::makeWild() {
    setSampleType(_SampleType{0});
    setResourceName({});
    for (unsigned i = 0; i < class_->numTexts; ++i) texts_[i].clear();
    for (const PRBAnchorClass* row = class_; row != nullptr; row = row->base)
        for (unsigned i = 0; i < row->numFields; ++i)
            if (!row->fields[i].isText()) numbers_[row->slot(i)] = row->fields[i].wild();
}
