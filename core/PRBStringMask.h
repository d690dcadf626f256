// A mask over names: "*" stands for any run of characters, "?" for exactly one.
#ifndef PRB_CORE_PRBSTRINGMASK_H
#define PRB_CORE_PRBSTRINGMASK_H

#include "core/PRBCollections.h"

#include <string>

enum _CaseSensitivity : int { kExactCase = 0, kIgnoreCase = 1 };

// Compiled into segments on first use: each "*" and "?" is one, each run of other characters is
// one. A mask that other threads match against is compiled before they can see it.
//
// A "*" that is not the last segment never stands for nothing at the end of a name: "a**" does
// not match "a", although "a*" does.
class PRBStringMask : public PRBCollectable {
public:
    PRBStringMask(const char* text, _CaseSensitivity sensitivity);
    PRBStringMask(const PRBStringMask& other);
    PRBStringMask& operator=(const PRBStringMask& other);
    PRBStringMask& operator=(const char* text);

    std::uint16_t isA() const override { return 32733; }
    ~PRBStringMask() override;
    // Does the mask match the name? An empty mask matches nothing.
    virtual bool operator==(const char* name) const;
    bool operator==(const PRBStringMask& other) const { return mask == other.mask; } // the texts

    static bool containsGenericMaskChars(const char* text);
    void buildMaskSegments() const;
    // Do the segments from this index on match the whole name?
    bool matchesSegments(const char* name, int index) const;

    const std::string& getMask() const { return mask; }
    const PRBOrdered& getSegments() const { return segments; }

private:
    bool literalAt(const char* text, const std::string& literal) const;

    _CaseSensitivity caseSensitivity;
    std::string mask;
    mutable PRBOrdered segments; // of PRBCollectableString
};

#endif
