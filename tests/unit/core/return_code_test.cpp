#include "core/PRBReturnCode.h"

#include <fstream>
#include <gtest/gtest.h>
#include <string>

TEST(ReturnCode, everyCodeHasItsTextByteForByte) {
    std::ifstream list(PRB_SOURCE_DIR "/tests/unit/core/return_codes.txt");
    std::string text;
    unsigned code = 0;
    for (; std::getline(list, text); ++code)
        EXPECT_EQ(PRBReturnCode::getDescription(code), text) << code;
    EXPECT_EQ(code, 133u);
}

TEST(ReturnCode, codesBeyondTheTableAreUnknown) {
    EXPECT_STREQ(PRBReturnCode::getDescription(132),
                 "Agent build level is downlevel from Workload Analysis");
    EXPECT_STREQ(PRBReturnCode::getDescription(133), "Unknown");
    EXPECT_STREQ(PRBReturnCode::getDescription(4294967295u), "Unknown");
}

TEST(ReturnCode, isOkUntilItIsGivenACode) {
    PRBReturnCode rc;
    EXPECT_TRUE(rc.OK());
    EXPECT_FALSE(rc.bad());
    EXPECT_STREQ(rc.getDescription(), "OK");
    rc = 43u;
    EXPECT_FALSE(rc.OK());
    EXPECT_TRUE(rc.bad());
    EXPECT_EQ(static_cast<unsigned>(rc), 43u);
    EXPECT_STREQ(rc.getDescription(), "Unable to start the new process");
}
