// How a sample class is described, and the one mechanism that makes a class of a description.
#ifndef PRB_DATA_PRBSAMPLECLASS_H
#define PRB_DATA_PRBSAMPLECLASS_H

#include "core/PRBTrace.h"
#include "data/PRBSample.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

// A single key or an inclusive range of keys.
struct PRBKeySpan {
    unsigned first, last;
    constexpr PRBKeySpan(int key)
        : first(static_cast<unsigned>(key)), last(static_cast<unsigned>(key)) {}
    constexpr PRBKeySpan(int from, int to)
        : first(static_cast<unsigned>(from)), last(static_cast<unsigned>(to)) {}
};

// The keys of a class in the order in which they are streamed, ranges written out:
// prbMakeKeys<4, 314, PRBKeySpan{400, 410}>().
template <PRBKeySpan... Spans> constexpr auto prbMakeKeys() {
    std::array<unsigned, (std::size_t{0} + ... + (Spans.last - Spans.first + 1))> keys{};
    std::size_t n = 0;
    const PRBKeySpan spans[] = {Spans..., 0};
    for (std::size_t s = 0; s < sizeof...(Spans); ++s)
        for (unsigned key = spans[s].first; key <= spans[s].last; ++key) keys[n++] = key;
    return keys;
}

// Everything that is fixed about a sample class. Constant data; see PRBSampleCatalogue.h.
struct PRBSampleClass {
    _SampleType type;
    const char* name;      // as traces name the class
    const char* component; // its trace component
    const unsigned* numericKeys;
    unsigned numNumericKeys;
    const unsigned* stringKeys;
    unsigned numStringKeys;
    const PRBKeyword* keywords; // null: the class is not built from keyword lines
    // The string key that names the resource, 0 when none does; with a second one the name is
    // "<first>.<second>".
    int resourceKey, resourceKey2;
    bool interval; // the counters restart at each sample
    // Counters that this class keeps cumulative although their type says interval.
    const unsigned* cumulativeKeys;
    unsigned numCumulativeKeys;
};

// Made at the first use of a class and not at compile time: 4880 bytes for each class would be
// a tenth of the library.
std::array<int, kNumKeys> prbPlacement(const PRBSampleClass& description);

// What all described classes share. Values and texts lie in the derived object. Streaming takes
// them from there directly: a class whose values come from elsewhere derives from PRBSample.
class PRBCatalogueSample : public PRBSample {
public:
    static constexpr unsigned kMaxNumericKeys = 64;

    int getNumStringKeys() const override;
    void stringKeys(int* keys) const override;
    void stream(PRBBuffer& buffer) const override;
    void saveNumericData(int key, long long value) override;
    void saveStringData(int key, const char* text) override;
    void saveText(int key, std::string_view text) override;
    const std::string& getStringData(int key) const override;
    const int* getKeyPlacementArray() const override { return placement_; }
    const PRBKeyword* getZAMKeywordTable() const override { return class_->keywords; }
    _SampleType getSampleType() const override { return class_->type; }
    std::string getResourceName() const override;
    void calculateRates(const PRBSample* previous) override;
    bool isIntervalSample() const override { return class_->interval; }

    const PRBSampleClass& description() const { return *class_; }

protected:
    // The placement array is that of the description's keys.
    PRBCatalogueSample(const PRBSampleClass& description, const int* placement);
    PRBCatalogueSample(const PRBCatalogueSample& other);
    PRBCatalogueSample& operator=(const PRBCatalogueSample& other);
    // Called by the derived constructor once its members are there. REQUIRES: as many as the
    // description has keys.
    void attach(_NumericValue* slots, std::string* texts) {
        attachSlots(slots);
        texts_ = texts;
    }
    std::string* text(int key) const; // null for a key that is no string key of the class

    // Entry and exit lines of an operation, under the class's own name and component.
    class Trace {
    public:
        Trace(const PRBSampleClass& description, const char* operation)
            : class_(PRBTrace::isTraceEnabled(PRBTraceClass::kMember, description.component)
                         ? &description
                         : nullptr),
              operation_(operation) {
            if (__builtin_expect(class_ != nullptr, 0)) write("Entry");
        }
        ~Trace() {
            if (__builtin_expect(class_ != nullptr, 0)) write("Exit");
        }
        Trace(const Trace&) = delete;
        Trace& operator=(const Trace&) = delete;

    private:
        void write(const char* what) const;
        const PRBSampleClass* class_;
        const char* operation_;
    };

private:
    const PRBSampleClass* class_;
    const int* placement_;
    std::string* texts_ = nullptr; // one per string key, in key order
};

// The class of a description: holds the values and texts, and knows how to copy itself.
// `Base` is PRBCatalogueSample or a common base of several classes that derives from it.
template <class Derived, const PRBSampleClass& Description, class Base = PRBCatalogueSample>
class PRBSampleOf : public Base {
    static_assert(Description.numNumericKeys <= PRBCatalogueSample::kMaxNumericKeys);

public:
    PRBSampleOf() : Base(Description, keyPlacement()) {
        this->attach(slots_.data(), texts_.data());
    }
    PRBSampleOf(const PRBSampleOf& other)
        : Base(other), slots_(other.slots_), texts_(other.texts_) {
        this->attach(slots_.data(), texts_.data());
    }
    PRBSampleOf& operator=(const PRBSampleOf& other) {
        Base::operator=(other); // the slots too
        texts_ = other.texts_;
        return *this;
    }

    Derived* cloneSample() const { return new Derived(static_cast<const Derived&>(*this)); }
    PRBSample* clone() const override { return cloneSample(); }
    PRBCollectable* newSpecies() const override { return new Derived; }

    static const int* keyPlacement() {
        static const std::array<int, kNumKeys> pKeyPlacementArray = prbPlacement(Description);
        return pKeyPlacementArray.data();
    }

private:
    std::array<PRBSample::_NumericValue, Description.numNumericKeys> slots_{};
    std::array<std::string, Description.numStringKeys> texts_;
};

#endif
