// What each class of the catalogue is: type, keys, texts, names.
#include "tests/unit/data/DataTest.h"

#include "data/PRBKeyNames.h"
#include "tests/unit/data/AllSamples.h"

#include <set>

using namespace datatest;

namespace {

struct Row {
    int type;
    const char* name;
    std::unique_ptr<PRBSample> (*create)();
    std::vector<int> numericKeys, stringKeys;
    bool interval;
};

// clang-format off
const Row kRows[] = {
    {1, "PRBAppServerSample", [] { return create<PRBAppServerSample>(); },
          {4, 58, 60, 61, 316, 62, 63, 64, 65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 78,
      240, 241, 242, 207, 129, 130, 131, 260, 261, 77, 79, 80, 81, 82, 83, 84, 85, 86, 92, 87, 88,
      89, 90, 91},
     {5}, false},
    {2, "PRBContainerSample", [] { return create<PRBContainerSample>(); },
          {59, 120, 121, 150, 151, 152, 153, 154, 155, 156, 157, 158, 159, 160, 161, 162, 163,
      164, 165, 166, 167, 168, 169, 170, 171, 172, 173, 17, 212, 213, 174, 175, 176, 177, 178,
      179, 180, 181, 182},
     {6}, false},
    {3, "PRBTransactionSample", [] { return create<PRBTransactionSample>(); },
          {54, 129, 130, 131, 132, 133, 134, 135, 17, 370, 371, 372, 373, 374, 375, 376, 377, 378,
      379, 380, 381, 382, 383, 384, 385, 386, 387, 388},
     {6}, false},
    {4, "PRBObjectPoolSample", [] { return create<PRBObjectPoolSample>(); },
     {56, 122, 123, 124, 125, 126, 127, 128, 136, 17},
     {6}, false},
    {5, "PRBEJBSample", [] { return create<PRBEJBSample>(); },
          {52, 56, 200, 201, 202, 203, 204, 205, 206, 207, 208, 209, 210, 120, 121, 122, 123, 124,
      125, 126, 127, 128, 211, 136, 212, 213},
     {6, 7}, false},
    {6, "PRBEJBMethodSample", [] { return create<PRBEJBMethodSample>(); },
     {53, 220, 120},
     {6, 7, 11}, false},
    {7, "PRBDBConnectPoolSample", [] { return create<PRBDBConnectPoolSample>(); },
     {55, 240, 241, 242, 243, 244, 245, 246, 247, 248, 249, 17, 250, 251},
     {8}, false},
    {8, "PRBApplicationSample", [] { return create<PRBApplicationSample>(); },
     {57, 260, 261, 262, 263, 265, 266, 17, 268, 269},
     {267, 9}, false},
    {9, "PRBServletSample", [] { return create<PRBServletSample>(); },
     {272, 57, 260, 261, 262, 263, 264},
     {267, 9, 270, 271}, false},
    {10, "PRBCThreadSample", [] { return create<PRBCThreadSample>(); },
     {2, 4, 316, 304, 305, 306, 307, 340, 309, 308, 341, 342, 310, 315, 314, 311, 312, 313},
     {301, 302, 303}, true},
    {11, "PRBMethodUsageSample", [] { return create<PRBMethodUsageSample>(); },
     {2, 4, 314, 304, 305, 306, 307, 308, 309, 310, 315, 321, 322},
     {10, 11, 320}, true},
    {12, "PRBContentionSample", [] { return create<PRBContentionSample>(); },
     {2, 4, 314, 304, 305, 306, 307},
     {10, 11, 320, 330}, true},
    {13, "PRBHeapSample", [] { return create<PRBHeapSample>(); },
     {4, 340, 309, 308, 341, 342},
     {10}, false},
    {14, "PRBGarbageCollectionSample", [] { return create<PRBGarbageCollectionSample>(); },
     {4, 314, 350, 352, 341, 342, 354, 355, 356, 357, 353, 358},
     {}, false},
    {17, "PRBProfilerError", [] { return create<PRBProfilerError>(); },
     {360},
     {361}, false},
    {18, "PRBProfilerResourceSample", [] { return create<PRBProfilerResourceSample>(); },
     {4, 314, 400, 401, 402, 403, 404, 405, 406, 407, 408, 409, 410},
     {}, true},
    {31, "PRBWorkloadSumSample", [] { return create<PRBWorkloadSumSample>(); },
          {314, 700, 703, 704, 732, 705, 706, 707, 708, 709, 710, 711, 712, 713, 714, 715, 716,
      717, 718, 719, 720, 721, 722, 723, 724, 725, 726, 727, 728, 729, 730, 731, 4, 733, 734, 735,
      736, 737, 738, 739},
     {}, true},
    {32, "PRBWorkloadDetailSample", [] { return create<PRBWorkloadDetailSample>(); },
     {314, 700, 750, 753, 703, 754, 755, 756, 757, 758, 759, 760, 761, 4, 762},
     {}, true},
    {33, "PRBHTTPSample", [] { return create<PRBHTTPSample>(); },
     {4, 700, 314, 773, 770, 775, 776},
     {701, 702, 777, 771, 772, 774}, false},
    {34, "PRBDataSourceDetSample", [] { return create<PRBDataSourceDetSample>(); },
     {4, 314, 783, 784, 785, 786, 787, 788, 789},
     {8, 781, 782}, true},
    {36, "PRBWorkloadExceptionSample", [] { return create<PRBWorkloadExceptionSample>(); },
          {314, 703, 700, 812, 704, 732, 706, 707, 708, 709, 710, 711, 712, 713, 714, 715, 716,
      717, 718, 719, 720, 721, 722, 723, 724, 725, 726, 727, 728, 729, 730, 731, 4, 813, 733, 734,
      735, 736, 737, 738, 739},
     {}, true},
    {37, "PRBMethodSummarySample", [] { return create<PRBMethodSummarySample>(); },
     {314, 304, 305, 306, 307, 308, 309, 310, 315, 321, 322},
     {10, 11, 320}, true},
    {39, "PRBAppServerOverviewSample", [] { return create<PRBAppServerOverviewSample>(); },
     {833, 62, 63, 836, 839, 840, 841},
     {830, 831, 832, 837, 838}, false},
    {998, "PRBEndSample", [] { return create<PRBEndSample>(); },
     {},
     {}, false},
};
// clang-format on

class SampleClass : public testing::TestWithParam<Row> {};

std::vector<int> withBaseKeys(std::vector<int> keys) {
    keys.insert(keys.begin(), {20, 21});
    return keys;
}

} // namespace

TEST_P(SampleClass, HasItsTypeAndKeysInOrder) {
    const Row& row = GetParam();
    const auto sample = row.create();
    EXPECT_EQ(sample->getSampleType(), row.type);
    EXPECT_EQ(sample->isA(), row.type == 36 ? 32700 : 32757);
    EXPECT_EQ(sample->isIntervalSample(), row.interval);
    std::vector<int> keys(static_cast<std::size_t>(sample->getNumNumericKeys()));
    sample->numericKeys(keys.data());
    EXPECT_EQ(keys, withBaseKeys(row.numericKeys));
    std::vector<int> texts(static_cast<std::size_t>(sample->getNumStringKeys()));
    sample->stringKeys(texts.data());
    EXPECT_EQ(texts, row.stringKeys);
}

TEST_P(SampleClass, MinusOneMakesEachKeyUnset) {
    const auto sample = GetParam().create();
    for (int key : GetParam().numericKeys) {
        sample->saveNumericData(key, 42);
        const long long sent = sample->getNumericValueForStream(static_cast<unsigned>(key));
        const auto type = PRBSample::getKeyTableEntry(key)->keyType;
        EXPECT_EQ(sent, isStatisticType(type) ? 0 : 42) << key;
        sample->saveNumericData(key, -1);
        EXPECT_EQ(sample->getNumericValueForStream(static_cast<unsigned>(key)), -1) << key;
    }
    for (int key : {-1, 0, 3, 1219, 1220, 100000}) sample->saveNumericData(key, 42);
    EXPECT_EQ(decoded(*sample).fields.size(), 2u); // time and duration
}

TEST_P(SampleClass, PlacesEachKeyOnce) {
    const Row& row = GetParam();
    const auto sample = row.create();
    const int* placement = sample->getKeyPlacementArray();
    std::vector<int> found(row.numericKeys.size(), -1);
    for (int key = 0; key < kNumKeys; ++key)
        if (placement[key] >= 0) found.at(static_cast<std::size_t>(placement[key])) = key;
    EXPECT_EQ(found, row.numericKeys);
    EXPECT_EQ(row.create()->getKeyPlacementArray(), placement);
}

TEST_P(SampleClass, KeysAreKnownAndOfTheRightKind) {
    const Row& row = GetParam();
    for (int key : row.numericKeys)
        EXPECT_NE(PRBSample::getKeyTableEntry(key)->keyType, PRBKeyType::Text) << key;
    for (int key : row.stringKeys)
        EXPECT_EQ(PRBSample::getKeyTableEntry(key)->keyType, PRBKeyType::Text) << key;
}

TEST_P(SampleClass, KeepsOneTextPerStringKey) {
    const Row& row = GetParam();
    const auto sample = row.create();
    for (int key : row.stringKeys) {
        EXPECT_EQ(sample->getStringData(key), "");
        sample->saveStringData(key, std::to_string(key).c_str());
    }
    for (int key : {5, 6, 7, 8, 9, 10, 11, 301, 361, 777, 12345, -1}) {
        const bool own = std::count(row.stringKeys.begin(), row.stringKeys.end(), key) != 0;
        if (!own) sample->saveStringData(key, "ignored");
        EXPECT_EQ(sample->getStringData(key), own ? std::to_string(key) : "") << key;
    }
    for (int key : row.stringKeys) {
        EXPECT_EQ(sample->getStringData(key), std::to_string(key));
        sample->saveStringData(key, nullptr);
        EXPECT_EQ(sample->getStringData(key), "");
    }
}

TEST_P(SampleClass, ClonesAndCopiesAreEqualAndIndependent) {
    const Row& row = GetParam();
    const auto sample = row.create();
    for (int key : withBaseKeys(row.numericKeys)) sample->saveNumericData(key, key + 1);
    for (int key : row.stringKeys) sample->saveStringData(key, std::to_string(key).c_str());
    const std::string before = streamed(*sample);
    const std::unique_ptr<PRBSample> clone(sample->clone());
    const std::unique_ptr<PRBCollectable> copied(sample->copy());
    EXPECT_EQ(typeid(*clone), typeid(*sample));
    for (int key : withBaseKeys(row.numericKeys)) sample->saveNumericData(key, 0);
    for (int key : row.stringKeys) sample->saveStringData(key, "changed");
    EXPECT_EQ(hex(streamed(*clone)), hex(before));
    EXPECT_EQ(hex(streamed(static_cast<PRBSample&>(*copied))), hex(before));
    const std::unique_ptr<PRBCollectable> fresh(sample->newSpecies());
    EXPECT_EQ(typeid(*fresh), typeid(*sample));
    EXPECT_EQ(streamed(static_cast<PRBSample&>(*fresh)).size(), 40u);
}

TEST_P(SampleClass, TracesUnderItsOwnName) {
    const Row& row = GetParam();
    const PRBSampleClass* description = prbSampleClass(row.type);
    ASSERT_NE(description, nullptr);
    EXPECT_STREQ(description->name, row.name);
}

INSTANTIATE_TEST_SUITE_P(Catalogue, SampleClass, testing::ValuesIn(kRows),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(SampleClasses, AssignmentTakesValuesAndTexts) {
    PRBMethodUsageSample source, target;
    source.saveNumericData(321, 5);
    source.saveStringData(10, "A");
    target.saveNumericData(322, 6);
    target.saveStringData(11, "old");
    target = source;
    source.saveNumericData(321, 7);
    source.saveStringData(10, "B");
    EXPECT_EQ(target.getNumericValueForStream(321), 5);
    EXPECT_EQ(target.getNumericValueForStream(322), -1);
    EXPECT_EQ(target.getStringData(10), "A");
    EXPECT_EQ(target.getStringData(11), "");
    target = *&target;
    EXPECT_EQ(target.getStringData(10), "A");
    PRBProfilerError error(3u, "text"), other;
    other = error;
    EXPECT_EQ(other.getStringData(361), "text");
    PRBWorkloadSumSample named, copy;
    named.setResourceName("checkout");
    copy = named;
    EXPECT_EQ(copy.getResourceName(), "checkout");
    EXPECT_EQ(PRBWorkloadSumSample(named).getResourceName(), "checkout");
}

TEST(SampleClasses, EachHasItsTraceComponent) {
    const std::pair<int, const char*> components[] = {
        {8, "PRBCAASA"},  {1, "PRBCAPSA"},  {12, "PRBCCNSA"}, {2, "PRBCCOSA"},   {7, "PRBCDBSA"},
        {34, "PRBCDSSA"}, {5, "PRBCEJSA"},  {6, "PRBCEMSA"},  {998, "PRBCENSA"}, {14, "PRBCGCSA"},
        {13, "PRBCHESA"}, {33, "PRBCHSSA"}, {37, "PRBCMSSA"}, {11, "PRBCMUSA"},  {4, "PRBCOPSA"},
        {18, "PRBCPRSA"}, {39, "PRBCSOSA"}, {9, "PRBCSVSA"},  {10, "PRBCTHSA"},  {3, "PRBCTRSA"},
        {32, "PRBCWDSA"}, {36, "PRBCWESA"}, {31, "PRBCWSSA"}, {17, "PRBCPRER"}};
    EXPECT_EQ(std::size(components), std::size(kRows));
    for (const auto& [type, component] : components)
        EXPECT_STREQ(prbSampleClass(type)->component, component) << type;
}

using SampleClassLog = LogTest;

TEST_F(SampleClassLog, OperationsAreTracedUnderTheComponent) {
    PRBEJBSample sample;
    trace(0x800, "PRBCEJSA");
    sample.buildFromDataString("");
    EXPECT_THAT(lines(), testing::ElementsAre("PRBEJBSample::buildFromDataString Entry",
                                              "PRBEJBSample::buildFromDataString Exit"));
}

TEST(ResourceNames, AreTheTextsThatIdentifyTheResource) {
    const struct {
        int type;
        const char* name;
    } cases[] = {{1, "5"},   {2, "6"},      {3, "6"},    {4, "6"},    {5, "7"},      {6, "11"},
                 {7, "8"},   {8, "9"},      {9, "270"},  {10, "301"}, {11, "10.11"}, {12, "10"},
                 {13, "10"}, {14, ""},      {17, ""},    {18, ""},    {33, "777"},   {34, "8"},
                 {36, ""},   {37, "10.11"}, {39, "830"}, {998, ""},   {31, ""},      {32, ""}};
    EXPECT_EQ(std::size(cases), std::size(kRows));
    for (const auto& c : cases) {
        for (const Row& row : kRows) {
            if (row.type != c.type) continue;
            const auto sample = row.create();
            for (int key : row.stringKeys) sample->saveStringData(key, std::to_string(key).c_str());
            EXPECT_EQ(sample->getResourceName(), c.name) << c.type;
        }
    }
    PRBWorkloadDetailSample detail;
    detail.setResourceName("checkout");
    EXPECT_EQ(detail.getResourceName(), "checkout");
    detail.setResourceName(nullptr);
    EXPECT_EQ(detail.getResourceName(), "");
}

TEST(KeywordTables, BelongToTheServerClassesOnly) {
    for (const Row& row : kRows)
        EXPECT_EQ(row.create()->getZAMKeywordTable() != nullptr, row.type >= 2 && row.type <= 9)
            << row.type;
}

TEST(KeyNames, AreShortAndPerSampleType) {
    EXPECT_STREQ(prbKeyName(10, 2), "threadId");
    EXPECT_STREQ(prbKeyName(10, 309), "allocatedBytes");
    EXPECT_STREQ(prbKeyName(13, 309), "liveBytes");
    EXPECT_STREQ(prbKeyName(2, 159), "entityBeanCreates");
    EXPECT_STREQ(prbKeyName(8, 9), "appl_name");
    EXPECT_STREQ(prbKeyName(8, 20), "time");
    EXPECT_EQ(prbKeyName(10, 1219), nullptr);
    EXPECT_EQ(prbKeyName(0, 2000), nullptr);
}

TEST(KeyNames, EveryKeyThatTheAgentWritesHasOneAndNoTwoOfATypeAreTheSame) {
    for (int type : {10, 11, 12, 13, 14, 17, 18, 37, 998}) {
        const auto sample = PRBSample::buildFromType(static_cast<_SampleType>(type));
        std::vector<int> keys(static_cast<std::size_t>(sample->getNumNumericKeys()));
        sample->numericKeys(keys.data());
        std::vector<int> texts(static_cast<std::size_t>(sample->getNumStringKeys()));
        sample->stringKeys(texts.data());
        keys.insert(keys.end(), texts.begin(), texts.end());
        std::set<std::string> names;
        for (int key : keys) {
            if (key == 358 || (key >= 404 && key <= 410)) continue; // written by nothing
            const char* name = prbKeyName(type, key);
            ASSERT_NE(name, nullptr) << type << ' ' << key;
            EXPECT_TRUE(names.insert(name).second) << name;
        }
    }
}

TEST(KeyNames, SampleTypesHaveNames) {
    EXPECT_STREQ(prbSampleTypeName(11), "Method");
    EXPECT_STREQ(prbSampleTypeName(17), "Profiler Error");
    EXPECT_STREQ(prbSampleTypeName(18), "Profiler Resource");
    EXPECT_EQ(prbSampleTypeName(67), nullptr);
    EXPECT_EQ(prbSampleClass(35), nullptr);
}
