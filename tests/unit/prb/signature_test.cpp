#include "prb/Signature.h"

#include <gtest/gtest.h>

using namespace prb;

namespace {

TEST(Signature, ParametersAreReadable) {
    const struct {
        const char* signature;
        const char* readable;
    } cases[] = {
        {"()V", "()"},
        {"(I)V", "(int)"},
        {"(ZBCSIJFD)V", "(boolean, byte, char, short, int, long, float, double)"},
        {"(ILjava/lang/String;[J)V", "(int, String, long[])"},
        {"([[Ljava/util/Map$Entry;Z)Ljava/lang/Object;", "(Map$Entry[][], boolean)"},
        {"(LNoPackage;)V", "(NoPackage)"},
        // Not signatures: shown as they are.
        {"", ""},
        {"I", "I"},
        {"(", "("},
        {"(L", "(L"},
        {"(Q)V", "(Q)V"},
        {"([", "(["},
        {"(Ljava/lang/String", "(Ljava/lang/String"},
    };
    for (const auto& c : cases) EXPECT_EQ(readableSignature(c.signature), c.readable);
}

TEST(Signature, ClassNamesHaveDots) {
    EXPECT_EQ(readableClass("java/util/Map$Entry"), "java.util.Map$Entry");
    EXPECT_EQ(readableClass("[[I"), "int[][]");
    EXPECT_EQ(readableClass("[Ljava/lang/String;"), "java.lang.String[]");
    EXPECT_EQ(readableClass("[Lbroken"), "[Lbroken");
    EXPECT_EQ(readableClass(""), "");
}

TEST(Signature, NothingPrintedCanDriveATerminalOrBreakJson) {
    EXPECT_EQ(printable("plain \u00e9\u4e16\U0001F600"), "plain \u00e9\u4e16\U0001F600");
    EXPECT_EQ(printable("a\033[31mb\n"), "a\\x1B[31mb\\x0A");
    EXPECT_EQ(printable("\xff\xc3"), "\\xFF\\xC3");
    EXPECT_EQ(printable("\xc2\x9b"), "\\xC2\\x9B");          // a C1 control character
    EXPECT_EQ(printable("\xed\xa0\x80"), "\\xED\\xA0\\x80"); // a lone surrogate
    EXPECT_EQ(printable("\xc0\x80"), "\\xC0\\x80");          // the VM's zero
    EXPECT_EQ(printable(std::string_view("\0x", 2)), "\\x00x");
}

} // namespace
