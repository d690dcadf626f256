// The base of all samples: slots, saving, summing, merging, streaming, keyword lines.
#include "tests/unit/data/DataTest.h"

#include "data/PRBEndSample.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBServerSamples.h"
#include "data/PRBWorkloadSamples.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <limits>
#include <memory>

using namespace datatest;
using Slot = PRBSample::_NumericValue;

namespace {

// One key of each type, and the one that percents are taken of.
const unsigned kTestKeys[] = {4, 78, 304, 311, 120, 128, 402, 1044, 310};

class TestSample : public PRBSample {
public:
    TestSample() : PRBSample(std::size(kTestKeys), kTestKeys) {
        createKeyPlacementArray(placement_.data(), kTestKeys, std::size(kTestKeys));
    }
    TestSample* clone() const override { return new TestSample(*this); }
    _SampleType getSampleType() const override { return _SampleType{77}; }
    const int* getKeyPlacementArray() const override { return placement_.data(); }
    int getNumStringKeys() const override { return 2; }
    void stringKeys(int* keys) const override {
        keys[0] = 5;
        keys[1] = 6;
    }
    void saveStringData(int key, const char* text) override { texts_[key == 6] = text; }
    const std::string& getStringData(int key) const override { return texts_[key == 6]; }

    using PRBSample::deriveRates;
    using PRBSample::getNumericValueEntry;

private:
    std::array<int, kNumKeys> placement_;
    std::array<std::string, 2> texts_;
};

// A sample whose time and duration are no values either.
class BareSample : public TestSample {
public:
    int getNumNumericKeys() const override { return 0; }
    void numericKeys(int*) const override {}
};

const unsigned kUnknownKeys[] = {1219};

// A class with a key that the key table does not have.
class UnknownKeySample : public PRBSample {
public:
    UnknownKeySample() : PRBSample(1, kUnknownKeys) {
        createKeyPlacementArray(placement_.data(), kUnknownKeys, 1);
    }
    UnknownKeySample* clone() const override { return new UnknownKeySample(*this); }
    _SampleType getSampleType() const override { return _SampleType{78}; }
    const int* getKeyPlacementArray() const override { return placement_.data(); }
    using PRBSample::getNumericValueEntry;

private:
    std::array<int, kNumKeys> placement_;
};

const int kPlain = 4, kRunning = 78, kInterval = 304, kPercent = 311, kAverage = 120, kLevel = 128,
          kMaximum = 402, kMinimum = 1044, kUnknown = 1219;

} // namespace

TEST(SampleSlot, HasTheSameLayoutOnBothWordSizes) {
    EXPECT_EQ(sizeof(Slot), 32u);
    EXPECT_EQ(offsetof(Slot, plain.isSet), 0u);
    EXPECT_EQ(offsetof(Slot, plain.value), 4u);
    EXPECT_EQ(offsetof(Slot, counter.isDerived), 4u);
    EXPECT_EQ(offsetof(Slot, counter.counted), 8u);
    EXPECT_EQ(offsetof(Slot, counter.interval), 16u);
    EXPECT_EQ(offsetof(Slot, counter.derived), 24u);
    EXPECT_EQ(offsetof(Slot, statistic.isDerived), 4u);
    EXPECT_EQ(offsetof(Slot, statistic.derived), 8u);
    EXPECT_EQ(offsetof(Slot, statistic.first), 16u);
    EXPECT_EQ(offsetof(Slot, statistic.second), 24u);
}

TEST(Sample, KeysAreTimeDurationAndTheClassKeys) {
    const TestSample sample;
    ASSERT_EQ(sample.getNumNumericKeys(), 11);
    std::vector<int> keys(11);
    sample.numericKeys(keys.data());
    EXPECT_EQ(keys, (std::vector{20, 21, 4, 78, 304, 311, 120, 128, 402, 1044, 310}));
    EXPECT_EQ(sample.getDataType(), 2);
    EXPECT_EQ(sample.isA(), 0x7FF5);
    EXPECT_EQ(sample.getZAMKeywordTable(), nullptr);
    EXPECT_EQ(sample.getResourceName(), "");
    EXPECT_FALSE(sample.isIntervalSample());
    EXPECT_FALSE(sample.shouldCreateSummarySamples());
}

TEST(Sample, PlacementMapsKeysToSlotsAndOthersToNone) {
    const TestSample sample;
    const int* placement = sample.getKeyPlacementArray();
    for (int key = 0; key < kNumKeys; ++key) {
        int expected = -1;
        for (int i = 0; i < 9; ++i)
            if (kTestKeys[i] == static_cast<unsigned>(key)) expected = i;
        EXPECT_EQ(placement[key], expected);
    }
    EXPECT_EQ(+sample.getNumericValueEntry(5), nullptr);
    EXPECT_EQ(+sample.getNumericValueEntry(-1), nullptr);
    EXPECT_EQ(+sample.getNumericValueEntry(kNumKeys), nullptr);
    EXPECT_EQ(+sample.getNumericValueEntry(78), sample.getNumericValueEntry(4) + 1);
}

TEST(Sample, SlotsStartAsZeros) {
    const TestSample sample;
    const unsigned char zeros[32] = {};
    for (unsigned key : kTestKeys)
        EXPECT_EQ(std::memcmp(sample.getNumericValueEntry(static_cast<int>(key)), zeros, 32), 0);
}

TEST(Sample, SlotsAreCountedAsMemoryOfTheAgent) {
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    {
        TestSample sample;
        EXPECT_GE(PRBMemoryManager::getCurrentAllocation(), before + 9 * 32);
    }
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
}

TEST(Sample, Key20IsTheTimeAndKey21TheDuration) {
    const long long before = std::time(nullptr);
    TestSample sample;
    EXPECT_GE(sample.getNumericData(20), before);
    EXPECT_LE(sample.getNumericData(20), std::time(nullptr));
    EXPECT_EQ(sample.getNumericData(21), 0);
    sample.saveNumericData(20, -12345678901);
    sample.saveNumericData(21, 0x100000005);
    EXPECT_EQ(sample.getNumericData(20), -12345678901);
    EXPECT_EQ(sample.getSampleTime().seconds(), -12345678901);
    EXPECT_EQ(sample.getNumericData(21), 5);
    EXPECT_EQ(sample.getNumericValueForStream(21), 5);
    sample.saveNumericData(21, -1);
    EXPECT_EQ(sample.getNumericValueForStream(21), 4294967295);
}

TEST(Sample, SavesValuesByType) {
    TestSample sample;
    for (int key : {kPlain, kRunning, kInterval, kPercent, kAverage, kLevel, kMaximum, kMinimum}) {
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), -1) << key;
        EXPECT_EQ(sample.getNumericData(key), -1) << key;
        sample.saveNumericData(key, 42);
        EXPECT_EQ(+sample.getNumericValueEntry(key)->plain.isSet, 1u) << key;
    }
    for (int key : {kPlain, kMaximum, kMinimum}) {
        EXPECT_EQ(+sample.getNumericValueEntry(key)->plain.value, 42);
        EXPECT_EQ(sample.getNumericData(key), 42);
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), 42);
    }
    for (int key : {kRunning, kInterval, kPercent}) {
        EXPECT_EQ(+sample.getNumericValueEntry(key)->counter.counted, 42);
        EXPECT_EQ(sample.getNumericData(key), -1); // no interval calculated
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), 42);
    }
    for (int key : {kAverage, kLevel}) {
        EXPECT_EQ(+sample.getNumericValueEntry(key)->statistic.first, 0);
        EXPECT_EQ(+sample.getNumericValueEntry(key)->statistic.derived, 0);
        EXPECT_EQ(sample.getNumericData(key), -1);
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), 0);
    }
}

TEST(Sample, MinusOneMakesAKeyUnset) {
    TestSample sample;
    for (int key : {kPlain, kInterval, kAverage}) {
        sample.saveNumericData(key, 42);
        sample.saveNumericData(key, -1);
        EXPECT_EQ(sample.getNumericData(key), -1);
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), -1);
    }
    EXPECT_EQ(decoded(sample).fields.size(), 2u);
}

TEST(Sample, IgnoresKeysWithoutSlotOrEntry) {
    TestSample sample;
    for (int key : {5, 321, kUnknown, -1, 1220, 100000}) {
        sample.saveNumericData(key, 42);
        sample.sumNumericData(key, 42);
        EXPECT_EQ(sample.getNumericData(key), 0) << key;
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(key)), 0) << key;
    }
    EXPECT_EQ(decoded(sample).fields.size(), 2u);
}

TEST(Sample, AKeyWithoutEntryInTheTableKeepsNothing) {
    UnknownKeySample sample, other;
    sample.saveNumericData(kUnknown, 42);
    sample.sumNumericData(kUnknown, 42);
    sample.saveStatInfoData(kUnknown, 1, 2);
    other.getNumericValueEntry(kUnknown)->plain.isSet = 1;
    sample.mergeSampleData(&other);
    sample.calculateRates(&other);
    const unsigned char zeros[32] = {};
    EXPECT_EQ(std::memcmp(sample.getNumericValueEntry(kUnknown), zeros, 32), 0);
    EXPECT_EQ(sample.getNumericData(kUnknown), 0);
    EXPECT_EQ(sample.getNumericValueForStream(kUnknown), 0);
}

TEST(Sample, SumsByType) {
    const struct {
        int key;
        long long sum;
    } cases[] = {{kMaximum, 5},  {kMinimum, 3}, {kRunning, 8},
                 {kInterval, 8}, {kPercent, 8}, {kPlain, 3}};
    TestSample sample;
    for (const auto& c : cases) {
        sample.sumNumericData(c.key, 5);
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(c.key)), 5);
        sample.sumNumericData(c.key, 3);
        EXPECT_EQ(sample.getNumericValueForStream(static_cast<unsigned>(c.key)), c.sum) << c.key;
    }
    sample.sumNumericData(kMaximum, 6);
    sample.sumNumericData(kMinimum, 2);
    EXPECT_EQ(sample.getNumericData(kMaximum), 6);
    EXPECT_EQ(sample.getNumericData(kMinimum), 2);
    sample.sumNumericData(kAverage, 9);
    EXPECT_EQ(+sample.getNumericValueEntry(kAverage)->statistic.isSet, 0u);
    const long long time = sample.getNumericData(20);
    sample.sumNumericData(20, 1000);
    EXPECT_EQ(sample.getNumericData(20), time);
    sample.saveNumericData(kRunning, std::numeric_limits<long long>::max());
    sample.sumNumericData(kRunning, 1);
    EXPECT_EQ(sample.getNumericValueForStream(kRunning), std::numeric_limits<long long>::min());
}

TEST(Sample, StatisticsAreSavedAndSummedByComponent) {
    TestSample sample;
    for (unsigned key : {120u, 128u}) {
        const Slot* slot = sample.getNumericValueEntry(static_cast<int>(key));
        sample.sumStatInfoData(key, 1.5, 2);
        EXPECT_EQ(+slot->statistic.first, 1.5);
        EXPECT_EQ(+slot->statistic.isSet, 1u);
        sample.sumStatInfoData(key, 10, 20.25);
        EXPECT_EQ(+slot->statistic.first, 11.5);
        EXPECT_EQ(+slot->statistic.second, 22.25);
        sample.saveStatInfoData(key, 3, 4);
        EXPECT_EQ(+slot->statistic.first, 3);
        EXPECT_EQ(+slot->statistic.second, 4);
        EXPECT_EQ(sample.getNumericData(static_cast<int>(key)), -1);
    }
    sample.saveStatInfoData(kPlain, 3, 4);
    sample.sumStatInfoData(kRunning, 3, 4);
    sample.saveStatInfoData(321, 3, 4);
    EXPECT_EQ(sample.getNumericData(kPlain), -1);
    EXPECT_EQ(sample.getNumericValueForStream(kRunning), -1);
}

TEST(Sample, MergesNumbersByTypeAndKeepsItsOwnTexts) {
    TestSample own, other;
    for (int key : {kPlain, kRunning, kInterval, kPercent, kMaximum, kMinimum}) {
        own.saveNumericData(key, 5);
        other.saveNumericData(key, 3);
    }
    own.saveStatInfoData(kAverage, 1, 2);
    other.saveStatInfoData(kAverage, 10, 20);
    other.saveStatInfoData(kLevel, 7, 8);
    own.saveStringData(5, "own");
    other.saveStringData(5, "other");
    other.saveStringData(6, "theirs");
    own.saveNumericData(20, 1000);
    own.mergeSampleData(&other);
    const struct {
        unsigned key;
        long long value;
    } expected[] = {{4, 3}, {78, 8}, {304, 8}, {311, 8}, {402, 5}, {1044, 3}};
    for (const auto& e : expected) EXPECT_EQ(own.getNumericValueForStream(e.key), e.value) << e.key;
    EXPECT_EQ(+own.getNumericValueEntry(kAverage)->statistic.first, 11);
    EXPECT_EQ(+own.getNumericValueEntry(kAverage)->statistic.second, 22);
    EXPECT_EQ(+own.getNumericValueEntry(kLevel)->statistic.first, 7);
    EXPECT_EQ(own.getStringData(5), "own");
    EXPECT_EQ(own.getStringData(6), "theirs");
    EXPECT_EQ(own.getNumericData(20), 1000);
}

TEST(Sample, MergingWithNothingChangesNothing) {
    TestSample own, empty;
    own.saveNumericData(kPlain, 5);
    own.saveNumericData(kRunning, 6);
    own.mergeSampleData(nullptr);
    own.mergeSampleData(&empty);
    EXPECT_EQ(own.getNumericData(kPlain), 5);
    EXPECT_EQ(own.getNumericValueForStream(kRunning), 6);
    PRBEndSample end;
    end.mergeSampleData(&own);
    EXPECT_EQ(decoded(end).fields.size(), 2u);
}

using SampleLog = LogTest;

TEST_F(SampleLog, MergedTextsAreNoted) {
    TestSample own, other;
    other.saveStringData(6, "100%s");
    debugOn("PRBCSAMP");
    own.mergeSampleData(&other);
    EXPECT_THAT(lines(),
                testing::ElementsAre("Merging string data 100%s for key 6 for sample type 77"));
    own.mergeSampleData(&other);
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(SampleLog, OperationsAreTracedAtTheMemberClass) {
    TestSample sample;
    trace(0x800, "PRBCSAMP");
    sample.calculateRates(nullptr);
    EXPECT_THAT(lines(), testing::ElementsAre("PRBSample::calculateRates Entry",
                                              "PRBSample::calculateRates Exit"));
}

TEST(Sample, MergingIntoAHistoricalSampleClearsTheRates) {
    TestSample own, other;
    own.saveNumericData(kInterval, 5);
    other.saveNumericData(kInterval, 3);
    own.getNumericValueEntry(kInterval)->counter.isDerived = 1;
    own.mergeIntoHistoricalSample(&other);
    EXPECT_EQ(own.getNumericValueForStream(kInterval), 8);
    EXPECT_EQ(own.getNumericData(kInterval), -1);
}

TEST(Sample, CopiesAreIndependent) {
    TestSample source;
    source.saveNumericData(20, 99);
    source.saveNumericData(21, 7);
    source.saveNumericData(kPlain, 5);
    source.saveStringData(5, "text");
    PRBKeyValueSet set;
    set.defineKeyValuePair(2000, 1);
    source.save(set);
    std::unique_ptr<TestSample> clone(source.clone());
    TestSample assigned;
    assigned = source;
    source.saveNumericData(kPlain, 6);
    for (const TestSample* copy : {clone.get(), &assigned}) {
        const Decoded d = decoded(*copy);
        EXPECT_EQ(d.fields,
                  (std::vector<std::pair<int, std::string>>{
                      {20, "n:99"}, {21, "n:7"}, {4, "n:5"}, {5, "t:text"}, {2000, "n:1"}}));
    }
}

TEST(SampleStream, ARecordWithoutAnyValueIs8Bytes) {
    EXPECT_EQ(hex(streamed(BareSample())), "000000020000004D");
}

TEST(SampleStream, AFreshSampleIs40BytesWithTimeAndDuration) {
    PRBMethodUsageSample sample;
    sample.saveNumericData(20, 0x01020304);
    EXPECT_EQ(hex(streamed(sample)), "000000020000000B"
                                     "00000001000000140000000001020304"
                                     "00000001000000150000000000000000");
}

TEST(SampleStream, ZeroIsSentAndMinusOneIsNot) {
    TestSample sample;
    sample.saveNumericData(20, -1);
    sample.saveNumericData(kPlain, 0);
    sample.saveNumericData(kRunning, 5);
    sample.saveNumericData(kRunning, -1);
    EXPECT_EQ(hex(streamed(sample)), "000000020000004D"
                                     "00000001000000150000000000000000"
                                     "00000001000000040000000000000000");
    PRBMethodUsageSample usage; // the classes' own, quicker way
    usage.saveNumericData(20, -1);
    usage.saveNumericData(304, 0);
    usage.saveNumericData(2, -1);
    usage.sumNumericData(4, -1);
    EXPECT_EQ(hex(streamed(usage)), "000000020000000B"
                                    "00000001000000150000000000000000"
                                    "00000001000001300000000000000000");
}

TEST(SampleStream, NumbersThenTextsThenPairs) {
    PRBMethodUsageSample sample;
    PRBKeyValueSet set;
    set.defineKeyValuePair(2001, "pair");
    set.defineKeyValuePair(1, 2);
    sample.save(set);
    sample.saveNumericData(20, 1);
    sample.saveStringData(320, "()V");
    sample.saveStringData(10, "A");
    sample.saveNumericData(322, 9);
    sample.saveNumericData(4, 8);
    const Decoded d = decoded(sample);
    EXPECT_EQ(d.fields, (std::vector<std::pair<int, std::string>>{{20, "n:1"},
                                                                  {21, "n:0"},
                                                                  {4, "n:8"},
                                                                  {322, "n:9"},
                                                                  {10, "t:A"},
                                                                  {320, "t:()V"},
                                                                  {2001, "t:pair"},
                                                                  {1, "n:2"}}));
}

TEST(SampleStream, StatisticsThatAreSetAreSentAsZero) {
    PRBEJBMethodSample sample;
    sample.saveStatInfoData(120, 17, 3);
    EXPECT_EQ(decoded(sample).of(120), "n:0");
    sample.calculateRates(nullptr); // nor is what is derived from them
    EXPECT_EQ(sample.getNumericData(120), 6);
    EXPECT_EQ(sample.getNumericValueForStream(120), 0);
    EXPECT_EQ(decoded(sample).of(120), "n:0");
}

using SampleStreamLog = LogTest;

// With tracing on the record goes through the traced operations: the bytes stay the same.
TEST_F(SampleStreamLog, TracingDoesNotChangeTheBytes) {
    PRBMethodUsageSample sample;
    sample.saveNumericData(2, 7);
    sample.saveNumericData(315, 100);
    sample.saveStringData(11, "price");
    PRBKeyValueSet set;
    set.defineKeyValuePair(2001, "pair");
    sample.save(set);
    const std::string quick = streamed(sample);
    trace(0x1E00, "PRBCBUFF");
    EXPECT_EQ(hex(streamed(sample)), hex(quick));
    EXPECT_THAT(lines(), testing::Contains("PRBBuffer::streamLong Entry"));
}
