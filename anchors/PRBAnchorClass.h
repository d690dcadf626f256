// How an anchor class is described, and the one mechanism that makes a class of a description.
#ifndef PRB_ANCHORS_PRBANCHORCLASS_H
#define PRB_ANCHORS_PRBANCHORCLASS_H

#include "anchors/PRBResourceAnchor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

// An identifying field that a class adds to those of its base.
struct PRBAnchorField {
    enum Kind : std::uint8_t {
        Text,         // empty in a pattern: matches any
        OptionalText, // the same, but a resource may have none and is specific all the same
        Number,       // unsigned 32 bits; all ones in a pattern: matches any
        Long,         // 64 bits; all ones in a pattern: matches any
    };
    // Where the field of a sample's anchor comes from, beside the sample's keys.
    static constexpr int kNoKey = -1; // no sample has it
    static constexpr int kResourceName = 0;

    const char* name = nullptr; // as in its accessors, without "get" and "set"
    Kind kind = Text;
    int sampleKey = kNoKey;

    constexpr bool isText() const { return kind == Text || kind == OptionalText; }
    constexpr std::uint64_t wild() const { return kind == Long ? ~0ull : 0xFFFFFFFFull; }
};

// Everything that is fixed about an anchor class. Constant data; see PRBAnchorCatalogue.h.
struct PRBAnchorClass {
    // Identity operations that a class has of its own; the others are its base's.
    enum Override : unsigned { H = 1, E = 2, M = 4, S = 8, Poll = 16 };
    static constexpr unsigned kMaxFields = 7;
    static constexpr unsigned kMaxNumbers = 6;

    std::uint16_t identifier = 0;         // 0: an abstract class
    const PRBAnchorClass* base = nullptr; // null: PRBResourceAnchor
    _SampleType sampleType{0};
    unsigned overrides = 0;
    // Its resources have no resource name: isSpecific does not ask for one. For classes whose
    // isSpecific is that of a described class.
    bool unnamed = false;
    int nameKey = PRBAnchorField::kResourceName; // the sample's key of the resource name

    std::array<PRBAnchorField, kMaxFields> fields{}; // its own; others have no name
    unsigned numFields = 0;
    unsigned firstText = 0, numTexts = 0;     // of its own among all, and how many in all
    unsigned firstNumber = 0, numNumbers = 0; // likewise
    unsigned inherited = 0;                   // its overrides and those of its bases

    // The place of an own field among the texts or the numbers of the class.
    constexpr unsigned slot(unsigned field) const {
        unsigned at = fields[field].isText() ? firstText : firstNumber;
        for (unsigned i = 0; i < field; ++i)
            if (fields[i].isText() == fields[field].isText()) ++at;
        return at;
    }
};

struct PRBAnchorTraits {
    bool unnamed = false;
    int nameKey = PRBAnchorField::kResourceName;
};

// A row whose base is PRBResourceAnchor.
constexpr PRBAnchorClass prbAnchorClass(std::uint16_t identifier, std::nullptr_t, int sampleType,
                                        unsigned overrides,
                                        std::initializer_list<PRBAnchorField> fields,
                                        const PRBAnchorTraits& traits = {},
                                        PRBAnchorClass row = {}) {
    row.identifier = identifier;
    row.sampleType = static_cast<_SampleType>(sampleType);
    row.overrides = overrides;
    row.inherited |= overrides;
    row.unnamed = traits.unnamed;
    row.nameKey = traits.nameKey;
    row.fields = {};
    row.numFields = 0;
    row.firstText = row.numTexts;
    row.firstNumber = row.numNumbers;
    for (const PRBAnchorField& field : fields) {
        row.fields[row.numFields++] = field;
        ++(field.isText() ? row.numTexts : row.numNumbers);
    }
    return row;
}

// A row with a base of its own, whose fields and operations it has as well.
constexpr PRBAnchorClass prbAnchorClass(std::uint16_t identifier, const PRBAnchorClass* base,
                                        int sampleType, unsigned overrides,
                                        std::initializer_list<PRBAnchorField> fields,
                                        const PRBAnchorTraits& traits = {}) {
    PRBAnchorClass row =
        prbAnchorClass(identifier, nullptr, sampleType, overrides, fields, traits, *base);
    row.base = base;
    return row;
}

// The place of the field with a name; a name or kind that the class does not have is an error of
// the compiler.
consteval unsigned prbAnchorSlot(const PRBAnchorClass& row, std::string_view name, bool text) {
    for (unsigned i = 0; i < row.numFields; ++i)
        if (name == row.fields[i].name && text == row.fields[i].isText()) return row.slot(i);
    throw "no such field";
}

// What all described classes share: the fields of the class and of its bases, and the identity
// operations over them. Two anchors are equal or match only within one class; an anchor matches
// when each of its own fields, then each of its bases', then resource name and sample type equal
// the pattern's or the pattern's is wild (for the sample type: 0).
class PRBDescribedAnchor : public PRBResourceAnchor {
public:
    std::uint16_t isA() const override { return class_->identifier; }
    bool isEqual(const PRBCollectable* other) const override;
    std::uint32_t getHashKey() const override;
    bool doesItMatch(const PRBResourceAnchor& pattern) const override;
    bool isSpecific() const override;
    PRBResourceAnchor* clone() const override = 0;
    const char* getAdditionalPollParameters() const override;
    std::uint64_t identityHash() const override;

    const PRBAnchorClass& description() const { return *class_; }
    // Takes the resource name and every field from a sample; what the sample does not have is
    // 0 or empty.
    void identify(const PRBSample& sample);
    // Makes every field wild, the resource name and the sample type too.
    void makeWild();

protected:
    explicit PRBDescribedAnchor(const PRBAnchorClass& description);
    PRBDescribedAnchor(const PRBDescribedAnchor& other);
    PRBDescribedAnchor& operator=(const PRBDescribedAnchor& other);

    const std::string& textAt(unsigned slot) const { return texts_[slot]; }
    std::string& textAt(unsigned slot) { return texts_[slot]; }
    std::uint64_t numberAt(unsigned slot) const { return numbers_[slot]; }
    std::uint64_t& numberAt(unsigned slot) { return numbers_[slot]; }

private:
    bool has(unsigned operation) const { return (class_->inherited & operation) != 0; }

    const PRBAnchorClass* class_;
    std::array<std::uint64_t, PRBAnchorClass::kMaxNumbers> numbers_{};
    std::unique_ptr<std::string[]> texts_;
    mutable std::unique_ptr<std::string> pollParameters_;
};

// The class of a row. `Base` is the class of the row's base, or PRBDescribedAnchor. A new anchor
// has the row's sample type; its other fields are 0 or empty.
template <class Derived, const PRBAnchorClass& Row, class Base> class PRBAnchorOf : public Base {
public:
    PRBAnchorOf() : Base(Row) {}
    explicit PRBAnchorOf(const std::string& name) : Base(Row) { this->setResourceName(name); }

    static Derived pattern() { // matches every anchor of the class
        Derived anchor;
        anchor.makeWild();
        return anchor;
    }
    PRBResourceAnchor* clone() const override {
        return new Derived(static_cast<const Derived&>(*this));
    }
    PRBCollectable* newSpecies() const override { return new Derived; }

protected:
    static constexpr const PRBAnchorClass& kRow = Row;
    explicit PRBAnchorOf(const PRBAnchorClass& description) : Base(description) {}
};

#endif
