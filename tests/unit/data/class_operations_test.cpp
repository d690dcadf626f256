// What single classes can do beyond the common mechanism.
#include "tests/unit/data/AllSamples.h"
#include "tests/unit/data/DataTest.h"

using namespace datatest;

TEST(Container, TheFirstRowOfAKeywordWins) {
    PRBContainerSample sample;
    sample.buildFromDataString("creates=5\nREMOVES=6\ninstantiates=7");
    EXPECT_EQ(sample.getNumericValueForStream(159), 5);
    EXPECT_EQ(sample.getNumericValueForStream(174), -1);
    EXPECT_EQ(sample.getNumericValueForStream(160), 6);
    EXPECT_EQ(sample.getNumericValueForStream(157), 7);
}

TEST(ConnectionPool, TheLaterLineOfAKeyWins) {
    PRBDBConnectPoolSample sample;
    sample.buildFromDataString("dbname=first\ncont_name=second");
    EXPECT_EQ(sample.getStringData(8), "second");
    sample.buildFromDataString("cont_name=second\ndbname=first");
    EXPECT_EQ(sample.getStringData(8), "first");
}

TEST(EJB, KeywordsOfKeysThatTheClassLacksAreIgnored) {
    PRBEJBSample sample;
    sample.buildFromDataString("statelessBeansLive=(3,1)\nbean_type=2");
    EXPECT_EQ(sample.getNumericValueForStream(150), 0);
    EXPECT_EQ(sample.getNumericValueForStream(200), 2);
    EXPECT_EQ(decoded(sample).fields.size(), 3u);
}

TEST(AppServer, RollUpValuesGoToTheirKeys) {
    PRBAppServerSample sample;
    sample.saveRollUpValues(1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
    const std::pair<unsigned, long long> expected[] = {{78, 1},  {207, 2}, {129, 3}, {130, 4},
                                                       {131, 5}, {240, 6}, {241, 7}, {242, 8},
                                                       {260, 9}, {261, 10}};
    for (const auto& [key, value] : expected)
        EXPECT_EQ(sample.getNumericValueForStream(key), value) << key;
}

using ClassLog = LogTest;

TEST_F(ClassLog, RollUpValuesAreSavedInTheirOrder) {
    struct Recorder : PRBAppServerSample {
        void saveNumericData(int key, long long) override { keys.push_back(key); }
        std::vector<int> keys;
    } sample;
    sample.saveRollUpValues(1, 2, 3, 4, 5, 6, 7, 8, 9, 10);
    EXPECT_EQ(sample.keys, (std::vector{78, 240, 241, 242, 207, 129, 130, 131, 260, 261}));
}

TEST(Heap, PackageNamesAreTheClassNamesBeforeTheLastSlash) {
    EXPECT_EQ(PRBHeapSample::convertClassNameToPackageName("java/lang/String"), "java/lang");
    EXPECT_EQ(PRBHeapSample::convertClassNameToPackageName("Main"), "Main");
    EXPECT_EQ(PRBHeapSample::convertClassNameToPackageName("/Main"), "");
    EXPECT_EQ(PRBHeapSample::convertClassNameToPackageName("a/"), "a");
    EXPECT_EQ(PRBHeapSample::convertClassNameToPackageName(""), "");
    EXPECT_EQ(PRBHeapSample::convertClassNameToPackageName(nullptr), "");
}

namespace {

PRBHTTPSample http(long long order, const char* tag) {
    PRBHTTPSample sample;
    for (int key : {4, 700, 314, 776}) sample.saveNumericData(key, key + order);
    sample.saveNumericData(770, order);
    for (int key : {701, 702, 777, 771, 772, 774})
        sample.saveStringData(key, (tag + std::to_string(key)).c_str());
    return sample;
}

} // namespace

TEST(HTTP, TheSmallerOrderTakesOverTextsAndTheKeysBeforeIt) {
    PRBHTTPSample own = http(50, "own"), other = http(20, "other");
    own.mergeSampleData(&other);
    for (int key : {777, 771, 772, 701, 702})
        EXPECT_EQ(own.getStringData(key), "other" + std::to_string(key));
    EXPECT_EQ(own.getStringData(774), "own774");
    EXPECT_EQ(own.getNumericData(4), 24);
    EXPECT_EQ(own.getNumericData(700), 720);
    EXPECT_EQ(own.getNumericData(314), 334);
    EXPECT_EQ(own.getNumericData(770), 20);
    // Once 770 is taken over, the other's is no longer smaller.
    EXPECT_EQ(own.getNumericData(776), 826);
}

TEST(HTTP, ALargerOrEqualOrderChangesNothing) {
    for (long long order : {50, 70}) {
        PRBHTTPSample own = http(50, "own"), other = http(order, "other");
        own.mergeSampleData(&other);
        EXPECT_EQ(own.getStringData(777), "own777");
        EXPECT_EQ(own.getNumericData(4), 54);
        EXPECT_EQ(own.getNumericData(770), 50);
    }
}

TEST(HTTP, TheLargerOf773And775StayWhateverTheOrder) {
    PRBHTTPSample own = http(50, "own"), other = http(70, "other");
    own.saveNumericData(773, 5);
    own.saveNumericData(775, 9);
    other.saveNumericData(773, 6);
    other.saveNumericData(775, 8);
    own.mergeSampleData(&other);
    EXPECT_EQ(own.getNumericData(773), 6);
    EXPECT_EQ(own.getNumericData(775), 9);
    PRBHTTPSample earlier = http(20, "earlier");
    earlier.saveNumericData(773, 1);
    own.mergeSampleData(&earlier);
    EXPECT_EQ(own.getNumericData(773), 6);
    EXPECT_EQ(own.getNumericData(775), 9);
}

TEST(HTTP, AnEmptySampleTakesOnlyTexts) {
    PRBHTTPSample own, other = http(20, "other");
    own.mergeSampleData(&other);
    own.mergeSampleData(nullptr);
    EXPECT_EQ(own.getNumericData(770), -1);
    EXPECT_EQ(own.getNumericData(4), -1);
    EXPECT_EQ(own.getStringData(777), "other777"); // the base fills what is empty
}

TEST(MethodSummary, SumsTheUsageOfTheThreads) {
    PRBMethodUsageSample one, two;
    one.saveStringData(10, "A");
    one.saveStringData(11, "b");
    one.saveStringData(320, "()V");
    one.saveNumericData(2, 77);
    one.saveNumericData(314, 1000);
    one.saveNumericData(321, 5);
    two = one;
    two.saveNumericData(321, 6);
    two.saveNumericData(314, 2000);
    two.saveNumericData(322, 1);
    PRBMethodSummarySample sum;
    sum.saveStringData(10, "old");
    sum = one;
    sum = two;
    EXPECT_EQ(sum.getStringData(10), "A");
    EXPECT_EQ(sum.getStringData(11), "b");
    EXPECT_EQ(sum.getStringData(320), "()V");
    EXPECT_EQ(sum.getNumericValueForStream(321), 11);
    EXPECT_EQ(sum.getNumericValueForStream(322), 1);
    EXPECT_EQ(sum.getNumericValueForStream(314), 2000);
    EXPECT_EQ(sum.getNumericData(2), 0); // no key of the summary
}

TEST(ProfilerError, HoldsCodeAndText) {
    const PRBProfilerError error(43u, "fork: %s");
    EXPECT_EQ(error.getNumericData(360), 43);
    EXPECT_EQ(error.getStringData(361), "fork: %s");
    const PRBProfilerError silent(PRBReturnCode(1u), nullptr);
    EXPECT_EQ(silent.getStringData(361), "");
    EXPECT_EQ(decoded(silent).of(360), "n:1");
}

TEST_F(ClassLog, ProfilerErrorsAreNoted) {
    debugOn("PRBCPRER");
    PRBProfilerError(43u, "fork: %s");
    PRBProfilerError(7u, nullptr);
    EXPECT_THAT(lines(), testing::ElementsAre("Profiler error 43 detected.  Text = fork: %s",
                                              "Profiler error 7 detected.  Text = "));
}

TEST(End, CarriesTimeAndDurationOnly) {
    const Decoded d = decoded(PRBEndSample());
    EXPECT_EQ(d.sampleType, 998);
    ASSERT_EQ(d.fields.size(), 2u);
    EXPECT_EQ(d.fields[0].first, 20);
    EXPECT_EQ(d.fields[1].first, 21);
}
