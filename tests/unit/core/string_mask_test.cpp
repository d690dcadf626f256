#include "core/PRBStringMask.h"

#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

namespace {

bool matches(const char* mask, const char* name, _CaseSensitivity sensitivity = kExactCase) {
    return PRBStringMask(mask, sensitivity) == name;
}

// The definition, word for word and without care for its cost.
bool slow(const std::vector<std::string>& segments, std::size_t i, const std::string& name) {
    if (i >= segments.size()) return name.empty();
    const bool last = i + 1 == segments.size();
    const std::string& s = segments[i];
    if (s == "*") {
        if (last) return true;
        for (std::size_t k = 0; k < name.size(); ++k)
            if (slow(segments, i + 1, name.substr(k))) return true;
        return false;
    }
    if (s == "?") {
        if (name.empty()) return false;
        return last ? name.size() == 1 : slow(segments, i + 1, name.substr(1));
    }
    if (name.compare(0, s.size(), s) != 0) return false;
    if (last) return name.size() == s.size();
    return slow(segments, i + 1, name.substr(s.size()));
}

struct Case {
    const char* mask;
    const char* name;
    bool match;
};

} // namespace

TEST(StringMask, isCutIntoSegments) {
    PRBStringMask mask("a*b?c", kExactCase);
    EXPECT_EQ(mask.getSegments().entries(), 0u); // on first use
    mask.buildMaskSegments();
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < mask.getSegments().entries(); ++i)
        texts.push_back(*static_cast<PRBCollectableString*>(mask.getSegments().at(i)));
    EXPECT_EQ(texts, (std::vector<std::string>{"a", "*", "b", "?", "c"}));
}

TEST(StringMask, matchesAsDefined) {
    const Case cases[] = {
        {"com.x.*", "com.x.A", true},
        {"com.x.*", "com.x.", true},
        {"com.x.*", "com.x", false},
        {"*", "anything", true},
        {"*", "", true},
        {"", "", false},
        {"", "a", false},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"a?c", "abbc", false},
        {"?", "a", true},
        {"?", "", false},
        {"?", "ab", false},
        {"*Servlet", "MyServlet", true},
        {"*Servlet", "Servlet", true},
        {"*Servlet", "MyServlets", false},
        {"Get*", "Get", true},
        {"a**", "a", false},
        {"a**", "ab", true},
        {"a*", "a", true},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"abc", "ab", false},
        {"*a*b", "xaxab", true},
        {"com/x/A?run", "com/x/A.run", true},
    };
    for (const Case& c : cases)
        EXPECT_EQ(matches(c.mask, c.name), c.match) << c.mask << " " << c.name;
}

TEST(StringMask, agreesWithTheDefinitionOnRandomMasks) {
    std::mt19937 random(5);
    auto pick = [&random](const char* from, std::size_t n, std::size_t most) {
        std::string text;
        for (std::size_t length = random() % (most + 1); length > 0; --length)
            text += from[random() % n];
        return text;
    };
    int matched = 0;
    for (int i = 0; i < 20000; ++i) {
        const std::string text = pick("ab*?", 4, 7), name = pick("ab", 2, 7);
        if (text.empty()) continue;
        PRBStringMask mask(text.c_str(), kExactCase);
        mask.buildMaskSegments();
        std::vector<std::string> segments;
        for (std::size_t s = 0; s < mask.getSegments().entries(); ++s)
            segments.push_back(*static_cast<PRBCollectableString*>(mask.getSegments().at(s)));
        const bool expected = slow(segments, 0, name);
        matched += expected ? 1 : 0;
        ASSERT_EQ(mask == name.c_str(), expected) << text << " " << name;
    }
    EXPECT_GT(matched, 1000);
}

TEST(StringMask, ignoresCaseOnlyWhenTold) {
    EXPECT_FALSE(matches("abc", "ABC", kExactCase));
    EXPECT_TRUE(matches("abc", "ABC", kIgnoreCase));
    EXPECT_TRUE(matches("A*c", "abC", kIgnoreCase));
    EXPECT_FALSE(matches("abc", "ABD", kIgnoreCase));
}

TEST(StringMask, aNewTextIsCompiledAnew) {
    PRBStringMask mask("a*", kExactCase);
    EXPECT_TRUE(mask == "abc");
    mask = "b*";
    EXPECT_FALSE(mask == "abc");
    EXPECT_TRUE(mask == "bc");
    PRBStringMask copy(mask), assigned("x", kIgnoreCase);
    assigned = mask;
    EXPECT_TRUE(copy == mask);
    EXPECT_TRUE(assigned == mask);
    EXPECT_FALSE(assigned == PRBStringMask("c*", kExactCase));
    EXPECT_TRUE(copy == "bc");
    EXPECT_FALSE(assigned == "BC"); // the case mode is copied too
    // Masks are compared by their texts alone.
    EXPECT_TRUE(copy == PRBStringMask("b*", kIgnoreCase));
    EXPECT_FALSE(copy == PRBStringMask("B*", kIgnoreCase));
}

TEST(StringMask, knowsGenericTexts) {
    EXPECT_TRUE(PRBStringMask::containsGenericMaskChars("a*"));
    EXPECT_TRUE(PRBStringMask::containsGenericMaskChars("?"));
    EXPECT_FALSE(PRBStringMask::containsGenericMaskChars("abc"));
    EXPECT_FALSE(PRBStringMask::containsGenericMaskChars(nullptr));
}

TEST(StringMask, manyStarsCostNoRecursion) {
    std::string mask, name(5000, 'a');
    for (int i = 0; i < 2000; ++i) mask += "a*";
    EXPECT_TRUE(matches(mask.c_str(), name.c_str()));
    mask += "b";
    EXPECT_FALSE(matches(mask.c_str(), name.c_str()));
    EXPECT_TRUE(matches(std::string(3000, '*').c_str(), name.c_str()));
}
