// Hex dumps, comparisons and error texts.
#include "tests/unit/data/DataTest.h"

#include "core/PRBFormat.h"
#include "data/SnapHex.h"

#include <cerrno>
#include <cstring>

using namespace datatest;

namespace {

std::string dump(const std::string& data, const char* title = nullptr) {
    std::string out = "old";
    EXPECT_EQ(SnapHex(reinterpret_cast<const unsigned char*>(data.data()),
                      static_cast<int>(data.size()), title, &out),
              0);
    return out;
}

} // namespace

TEST(SnapHex, ALineHasOffsetFourGroupsAndTheCharacters) {
    EXPECT_EQ(dump(bytes("41 20 7E 7F 1F 00 FF 61 62 63 64 65 30 31 32 33")),
              "0000-41207E7F 1F00FF61 62636465 30313233 *A ~....abcde0123*\n");
}

TEST(SnapHex, SeventeenBytesGiveTwoLines) {
    const std::string out = dump(std::string(16, 'a') + "b");
    EXPECT_EQ(out, "0000-61616161 61616161 61616161 61616161 *aaaaaaaaaaaaaaaa*\n"
                   "0010-62                                  *b               *\n");
    EXPECT_EQ(out.size(), 120u);
    const std::string second = out.substr(60);
    EXPECT_EQ(second[41], '*');
    EXPECT_EQ(second[42], 'b');
    EXPECT_EQ(second[58], '*');
    EXPECT_EQ(second[59], '\n');
}

TEST(SnapHex, PercentShowsDoubledAndBarsStayInPlace) {
    EXPECT_EQ(dump("a%b"), "0000-612562                              *a%%b            *\n");
    const std::string full = dump(std::string(16, '%'));
    EXPECT_EQ(full, "0000-25252525 25252525 25252525 25252525 *%%%%%%%%%%%%%%%%*\n");
}

TEST(SnapHex, OffsetsGoOnInHexadecimal) {
    const std::string out = dump(std::string(0x110, 'x'));
    EXPECT_EQ(out.substr(60 * 16, 5), "0100-");
    EXPECT_EQ(out.size(), 60u * 17);
}

TEST(SnapHex, NothingIsWrittenForNoLength) {
    EXPECT_EQ(dump(""), "");
    EXPECT_EQ(dump("", "title"), "");
    std::string out = "old";
    SnapHex(reinterpret_cast<const unsigned char*>("x"), -1, "title", &out);
    EXPECT_EQ(out, "");
}

TEST(SnapHex, ATitleGivesALineWithTheAddress) {
    const std::string data = "x";
    char head[64];
    std::snprintf(head, sizeof head, "The title   @" PRB_PTR "\n", prbPtr(data.data()));
    EXPECT_EQ(dump(data, "The title").substr(0, std::strlen(head)), head);
    EXPECT_EQ(dump(data, "").size(), 60u);
}

using SnapHexLog = LogTest;

TEST_F(SnapHexLog, WithoutAStringEachLineGoesToTheLog) {
    const std::string data(17, 'a');
    SnapHex(reinterpret_cast<const unsigned char*>(data.data()), 17, "T%s", nullptr);
    char head[64];
    std::snprintf(head, sizeof head, "T%%s   @" PRB_PTR "\n", prbPtr(data.data()));
    EXPECT_THAT(lines(), testing::ElementsAre(
                             head, "0000-61616161 61616161 61616161 61616161 *aaaaaaaaaaaaaaaa*\n",
                             "0010-61                                  *a               *\n"));
}

TEST(PRBstricmp, IgnoresTheCaseOfAsciiLetters) {
    EXPECT_EQ(PRBstricmp("Appl_Name", "aPPL_nAME"), 0);
    EXPECT_EQ(PRBstricmp("", ""), 0);
    EXPECT_LT(PRBstricmp("abc", "ABD"), 0);
    EXPECT_GT(PRBstricmp("b", "ABD"), 0);
    EXPECT_LT(PRBstricmp("ab", "ABC"), 0);
    EXPECT_GT(PRBstricmp("abc", "AB"), 0);
    EXPECT_GT(PRBstricmp("\xE4", "z"), 0);
    EXPECT_NE(PRBstricmp("\xC4", "\xE4"), 0);
    EXPECT_NE(PRBstricmp("[", "{"), 0);
    EXPECT_EQ(PRBstricmp(nullptr, ""), 0);
}

TEST(PRBGetLastError, HasTheNumberAndTheSystemsMessage) {
    std::string text = "old";
    EXPECT_STREQ(PRBGetLastError(&text, ENOENT), "errno=2, No such file or directory");
    EXPECT_EQ(text, "errno=2, No such file or directory");
    errno = EACCES;
    EXPECT_STREQ(PRBGetLastError(&text, 0), "errno=13, Permission denied");
    EXPECT_STREQ(PRBGetLastError(&text, 99999), "errno=99999, Unknown error 99999");
}
