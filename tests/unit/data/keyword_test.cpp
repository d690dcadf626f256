// Samples from keyword lines, and the numbers in them.
#include "tests/unit/data/AllSamples.h"
#include "tests/unit/data/DataTest.h"

#include <ctime>
#include <limits>

using namespace datatest;

TEST(KeywordLines, FillTheSampleByTheKeysType) {
    PRBApplicationSample sample;
    sample.buildFromSampleString("appl_name=shop\n"
                                 "numReloads=17\n"
                                 "summary=4294967295\n"
                                 "responseTime=(12.5, 4)\n"
                                 "concurrentRequests=7/2\n");
    EXPECT_EQ(sample.getStringData(9), "shop");
    EXPECT_EQ(sample.getNumericValueForStream(266), 17);
    EXPECT_EQ(sample.getNumericData(17), 4294967295);
    EXPECT_EQ(sample.getTotalForStatinfo(263, nullptr), 12.5);
    EXPECT_EQ(sample.getTotalNumSamplesForStatinfo(263, nullptr), 4);
    EXPECT_EQ(sample.getTotalForStatinfo(262, nullptr), 7);
    EXPECT_EQ(sample.getTotalNumSamplesForStatinfo(262, nullptr), 2);
}

TEST(KeywordLines, AreSplitAtTheFirstEqualsSign) {
    PRBServletSample sample;
    sample.buildFromDataString("svlt_name=a=b=c\njspPath==x");
    EXPECT_EQ(sample.getStringData(270), "a=b=c");
    EXPECT_EQ(sample.getStringData(271), "=x");
}

TEST(KeywordLines, WithoutKeywordOrValueAreSkipped) {
    PRBApplicationSample sample;
    sample.buildFromDataString("appl_name=\nvhost_name\n=x\nnumReloads=3");
    EXPECT_EQ(sample.getStringData(9), "");
    EXPECT_EQ(sample.getStringData(267), "");
    EXPECT_EQ(sample.getNumericValueForStream(266), 3);
}

TEST(KeywordLines, MatchWhateverTheCase) {
    PRBApplicationSample sample;
    sample.buildFromDataString("APPL_Name=shop");
    EXPECT_EQ(sample.getStringData(9), "shop");
}

TEST(KeywordLines, EndAtTheFirstEmptyLine) {
    PRBApplicationSample sample;
    sample.buildFromDataString("numReloads=3\n\nnumReloads=4\nappl_name=x");
    EXPECT_EQ(sample.getNumericValueForStream(266), 3);
    EXPECT_EQ(sample.getStringData(9), "");
    sample.buildFromDataString("\nnumReloads=4");
    EXPECT_EQ(sample.getNumericValueForStream(266), 3);
    sample.buildFromDataString(nullptr);
    sample.buildFromDataString("");
    EXPECT_EQ(sample.getNumericValueForStream(266), 3);
}

TEST(KeywordLines, AreNotReadByClassesWithoutTable) {
    PRBMethodUsageSample sample;
    sample.buildFromDataString("appl_name=x\nsummary=3");
    EXPECT_EQ(decoded(sample).fields.size(), 2u);
}

TEST(KeywordLines, AnyTextIsHarmless) {
    PRBContainerSample sample;
    std::string text;
    for (int i = 1; i < 256; ++i) text += static_cast<char>(i);
    sample.buildFromDataString(text.c_str());
    sample.buildFromDataString(("creates=" + std::string(100000, '9')).c_str());
    EXPECT_EQ(sample.getNumericValueForStream(159), std::numeric_limits<long long>::max());
    sample.buildFromDataString((std::string(100000, 'k') + "=1").c_str());
    sample.buildFromDataString("summary=-1"); // the value that means none
    EXPECT_EQ(sample.getNumericData(17), -1);
}

TEST(KeywordLines, ABuiltSampleHasTheTimeOfItsBuilding) {
    PRBApplicationSample sample;
    sample.saveNumericData(20, 5);
    const long long before = std::time(nullptr);
    sample.buildFromSampleString("numReloads=1");
    EXPECT_GE(sample.getNumericData(20), before);
}

TEST(KeywordLines, TheStaticFormKnowsOnlyReceivableTypes) {
    for (int type = 2; type <= 9; ++type)
        EXPECT_EQ(PRBSample::buildFromSampleString(static_cast<_SampleType>(type), "summary=1"),
                  nullptr);
    const auto thread = PRBSample::buildFromSampleString(kSampleThread, "summary=1");
    ASSERT_NE(thread, nullptr);
    EXPECT_EQ(thread->getSampleType(), kSampleThread);
}

using KeywordLog = LogTest;

TEST_F(KeywordLog, UnknownKeywordsAreNotedAndKeysAndValuesDumped) {
    debugOn("PRBCSAMP");
    PRBEJBMethodSample sample;
    sample.buildFromDataString("num%s=1\nnum_calls=2");
    const auto noted = lines();
    ASSERT_EQ(noted.size(), 11u);
    EXPECT_EQ(noted[0], "Unable to find entry in ZAM Keyword table for num%s");
    EXPECT_EQ(noted[1], "Dump of keys and values for sample type 6 follows");
    EXPECT_THAT(noted[2], testing::StartsWith("Numeric Keys   @"));
    EXPECT_THAT(noted[3], testing::StartsWith("0000-35000000 DC000000 78000000 "));
    EXPECT_THAT(noted[4], testing::StartsWith("Numeric Values   @"));
    EXPECT_THAT(noted[5], testing::StartsWith("0000-00000000 00000000 00000000 00000000 "));
    EXPECT_THAT(noted[7], testing::StartsWith("0020-01000000 00000000 02000000 00000000 "));
    EXPECT_THAT(noted[10], testing::StartsWith("0050-"));
}

TEST(NumberTexts, Integers) {
    const struct {
        const char* text;
        long long value;
    } cases[] = {{"0", 0},
                 {"17", 17},
                 {" \t+17abc", 17},
                 {"-17", -17},
                 {"9007199254740993", 9007199254740993},
                 {"9223372036854775807", std::numeric_limits<long long>::max()},
                 {"9223372036854775808", std::numeric_limits<long long>::max()},
                 {"-9223372036854775808", std::numeric_limits<long long>::min()},
                 {"-99999999999999999999", std::numeric_limits<long long>::min()},
                 {"2.5", 3},
                 {"2.49", 2},
                 {"-2.5", -3},
                 {".5", 1},
                 {"5.", 5},
                 {"1e3", 1000},
                 {"1e", 1},
                 {"1e999", std::numeric_limits<long long>::max()},
                 {"-1e999", std::numeric_limits<long long>::min()},
                 {"1e-999", 0},
                 {"1,5", 1},
                 {"0x10", 0},
                 {"", 0},
                 {"-", 0},
                 {".", 0},
                 {"+-3", 0},
                 {"abc", 0},
                 {"inf", 0},
                 {"nan", 0},
                 {nullptr, 0}};
    for (const auto& c : cases)
        EXPECT_EQ(PRBSample::convertStringValueToInt(c.text), c.value)
            << (c.text == nullptr ? "null" : c.text);
    EXPECT_EQ(PRBSample::convertStringValueToInt("2.5", 266), 3);
}

TEST(NumberTexts, Doubles) {
    EXPECT_EQ(PRBSample::convertStringValueToDouble("2.5x"), 2.5);
    EXPECT_EQ(PRBSample::convertStringValueToDouble("-1e-3"), -0.001);
    EXPECT_EQ(PRBSample::convertStringValueToDouble("x"), 0);
    EXPECT_EQ(PRBSample::convertStringValueToDouble(nullptr), 0);
    EXPECT_EQ(PRBSample::convertStringValueToDouble(("0." + std::string(400, '0') + "1").c_str()),
              0);
    EXPECT_EQ(PRBSample::convertStringValueToDouble(("1" + std::string(400, '0')).c_str()),
              std::numeric_limits<double>::infinity());
}

TEST(NumberTexts, Pairs) {
    const struct {
        const char* text;
        double first, second;
    } cases[] = {{"12.5 4", 12.5, 4}, {"12.5,4", 12.5, 4}, {"[ 12.5 ; 4 ]", 12.5, 4},
                 {"(1:2)", 1, 2},     {"{1/2}", 1, 2},     {"12.5", 12.5, 1},
                 {"(12.5)", 12.5, 1}, {"", 0, 0},          {"x 3", 0, 0},
                 {nullptr, 0, 0},     {"-1 -2", -1, -2}};
    for (const auto& c : cases) {
        double first = 99, second = 99;
        PRBSample::convertPerfLoadValue(c.text, first, second);
        EXPECT_EQ(first, c.first) << (c.text == nullptr ? "null" : c.text);
        EXPECT_EQ(second, c.second) << (c.text == nullptr ? "null" : c.text);
    }
}
