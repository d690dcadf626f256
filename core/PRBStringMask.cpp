#include "core/PRBStringMask.h"

#include "core/PRBTrace.h"

#include <cstring>
#include <vector>

namespace {

constexpr int kTrace = PRBTraceClass::kMember;
constexpr const char* kName = PRBComponent::kMask;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool isGeneric(char c) { return c == '*' || c == '?'; }

} // namespace

PRBStringMask::PRBStringMask(const char* text, _CaseSensitivity sensitivity)
    : caseSensitivity(sensitivity), mask(text == nullptr ? "" : text), segments(0) {
    PRBTraceScope trace(kTrace, kName, "PRBStringMask constructor");
}

PRBStringMask::PRBStringMask(const PRBStringMask& other)
    : PRBCollectable(other),
      caseSensitivity(other.caseSensitivity),
      mask(other.mask),
      segments(0) {}

PRBStringMask& PRBStringMask::operator=(const PRBStringMask& other) {
    if (this == &other) return *this;
    caseSensitivity = other.caseSensitivity;
    return *this = other.mask.c_str();
}

PRBStringMask& PRBStringMask::operator=(const char* text) {
    mask = text == nullptr ? "" : text;
    segments.clearAndDestroy();
    return *this;
}

PRBStringMask::~PRBStringMask() { segments.clearAndDestroy(); }

bool PRBStringMask::containsGenericMaskChars(const char* text) {
    return text != nullptr && std::strpbrk(text, "*?") != nullptr;
}

void PRBStringMask::buildMaskSegments() const {
    PRBTraceScope trace(kTrace, kName, "PRBStringMask::buildMaskSegments");
    segments.clearAndDestroy();
    for (std::size_t i = 0, n; i < mask.size(); i += n) {
        n = 1;
        if (!isGeneric(mask[i]))
            while (i + n < mask.size() && !isGeneric(mask[i + n])) ++n;
        segments.insert(new PRBCollectableString(mask, i, n));
    }
}

bool PRBStringMask::operator==(const char* name) const {
    PRBTraceScope trace(kTrace, kName, "PRBStringMask::operator==");
    if (mask.empty() || name == nullptr) return false;
    if (segments.entries() == 0) buildMaskSegments();
    return matchesSegments(name, 0);
}

// REQUIRES: the text is at least as long as the literal.
bool PRBStringMask::literalAt(const char* text, const std::string& literal) const {
    if (caseSensitivity != kIgnoreCase)
        return std::memcmp(literal.data(), text, literal.size()) == 0;
    for (std::size_t i = 0; i < literal.size(); ++i)
        if (lower(text[i]) != lower(literal[i])) return false;
    return true;
}

// Segment by segment from the last to the first: here[p] says whether the segments from the
// present one on match the name from position p on. So a mask of many stars costs segments
// times length, and no recursion.
bool PRBStringMask::matchesSegments(const char* name, int index) const {
    std::size_t n = segments.entries(), length = std::strlen(name);
    if (index < 0 || static_cast<std::size_t>(index) >= n) return length == 0;
    std::vector<char> here(length + 1, 0), after(length + 1, 0);
    after[length] = 1;
    for (std::size_t i = n; i-- > static_cast<std::size_t>(index);) {
        const auto& segment = *static_cast<const PRBCollectableString*>(segments.at(i));
        bool last = i == n - 1;
        if (segment == "*") {
            // Not the last: some remainder that is not empty has to match what follows.
            char any = last ? 1 : 0;
            here[length] = any;
            for (std::size_t p = length; p-- > 0;) {
                any = any != 0 || after[p] != 0 ? 1 : 0;
                here[p] = any;
            }
        } else {
            bool one = segment == "?";
            std::size_t width = segment.size();
            for (std::size_t p = 0; p <= length; ++p)
                here[p] = width <= length - p && (one || literalAt(name + p, segment)) &&
                                  after[p + width] != 0
                              ? 1
                              : 0;
        }
        here.swap(after);
    }
    return after[0] != 0;
}
