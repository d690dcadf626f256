#include "anchors/PRBResourceAnchor.h"
#include "core/PRBReturnCode.h"
#include "data/PRBProfilerError.h"

#include <fstream>
#include <gtest/gtest.h>
#include <memory>
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

TEST(ProfilerError, carriesItsCodeAndText) {
    const PRBProfilerError error(PRBReturnCode(43u), "no process");
    EXPECT_EQ(error.getSampleType(), 17);
    EXPECT_EQ(error.getNumericData(360), 43);
    EXPECT_EQ(error.getStringData(361), "no process");
    const PRBProfilerError silent(PRBReturnCode(4294967295u), nullptr);
    EXPECT_EQ(silent.getNumericData(360), 4294967295);
    EXPECT_EQ(silent.getStringData(361), "");
}

TEST(ProfilerError, copiesHaveATextOfTheirOwn) {
    auto original = std::make_unique<PRBProfilerError>(PRBReturnCode(43u), "no process");
    PRBProfilerError copy(*original), assigned(PRBReturnCode(1u), "before");
    assigned = *original;
    std::unique_ptr<PRBSample> cloned(original->clone());
    original->saveStringData(361, "changed");
    original.reset();
    for (const PRBSample* error :
         {static_cast<const PRBSample*>(&copy), static_cast<const PRBSample*>(&assigned),
          static_cast<const PRBSample*>(cloned.get())}) {
        EXPECT_EQ(error->getSampleType(), 17);
        EXPECT_EQ(error->getNumericData(360), 43);
        EXPECT_EQ(error->getStringData(361), "no process");
    }
}

TEST(ProfilerError, hasTheResourceOfSamplesInGeneral) {
    const PRBProfilerError error(PRBReturnCode(43u), "no process");
    std::unique_ptr<PRBResourceAnchor> anchor(error.getResourceAnchor());
    ASSERT_NE(anchor, nullptr);
    EXPECT_EQ(anchor->isA(), 32761); // of the base of all
    EXPECT_EQ(anchor->getSampleType(), 17);
    EXPECT_EQ(anchor->getResourceName(), error.getResourceName());
}
