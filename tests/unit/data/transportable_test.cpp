// Key/value sets and the record that carries them.
#include "tests/unit/data/DataTest.h"

#include "core/PRBFormat.h"
#include "data/PRBTransportableData.h"
#include "data/PRBWorkloadSamples.h"

#include <cstdio>
#include <memory>

using namespace datatest;
using Pair = PRBKeyValueSet::PRBKeyValuePair;
using StringPair = PRBKeyValueSet::KeyValuePairString;
using NumericPair = PRBKeyValueSet::KeyValuePairNumeric;

TEST(KeyValuePair, ABarePairHasNoValue) {
    Pair pair(9);
    EXPECT_EQ(pair.isA(), 0x7FA3);
    EXPECT_EQ(pair.hash(), 9u);
    EXPECT_EQ(pair.getKeyType(), 2);
    EXPECT_EQ(pair.getIntValue(), -1);
    EXPECT_EQ(pair.getStringValue(), nullptr);
}

TEST(KeyValuePair, KindsHaveTheirOwnTypeAndValue) {
    StringPair text(3, "abc");
    EXPECT_EQ(text.getKeyType(), 0);
    EXPECT_STREQ(text.getStringValue(), "abc");
    EXPECT_EQ(text.getIntValue(), -1);
    NumericPair number(4, -77);
    EXPECT_EQ(number.getKeyType(), 1);
    EXPECT_EQ(number.getIntValue(), -77);
    EXPECT_EQ(number.getStringValue(), nullptr);
    EXPECT_EQ(text.isA(), 0x7FA3);
    EXPECT_EQ(number.isA(), 0x7FA3);
    EXPECT_EQ(NumericPair(-1, 0).hash(), 0xFFFFFFFFu);
}

TEST(KeyValuePair, IsEqualByKeyWhateverTheKind) {
    StringPair text(3, "abc");
    NumericPair same(3, 5), different(4, 5);
    PRBCollectable stranger;
    EXPECT_TRUE(text.isEqual(&same));
    EXPECT_TRUE(same.isEqual(&text));
    EXPECT_FALSE(text.isEqual(&different));
    EXPECT_FALSE(text.isEqual(&stranger));
    EXPECT_FALSE(text.isEqual(nullptr));
}

TEST(KeyValuePair, ClonesKeepKindAndValue) {
    std::unique_ptr<Pair> text(StringPair(3, "abc").clone());
    EXPECT_EQ(text->getKeyType(), 0);
    EXPECT_EQ(text->key(), 3);
    EXPECT_STREQ(text->getStringValue(), "abc");
    std::unique_ptr<Pair> number(NumericPair(4, 8).clone());
    EXPECT_EQ(number->getKeyType(), 1);
    EXPECT_EQ(number->getIntValue(), 8);
    std::unique_ptr<PRBCollectable> copied(NumericPair(4, 8).copy());
    EXPECT_EQ(static_cast<Pair*>(copied.get())->getIntValue(), 8);
    std::unique_ptr<PRBCollectable> fresh(StringPair(3, "abc").newSpecies());
    EXPECT_STREQ(static_cast<Pair*>(fresh.get())->getStringValue(), "");
}

TEST(KeyValueSet, FindsByKeyAndAnswersNullForOthers) {
    PRBKeyValueSet set;
    EXPECT_EQ(set.find(7), nullptr);
    set.defineKeyValuePair(7, "seven");
    set.defineKeyValuePair(8, 88LL);
    ASSERT_NE(set.find(7), nullptr);
    EXPECT_STREQ(set.find(7)->getStringValue(), "seven");
    EXPECT_EQ(set.find(8)->getIntValue(), 88);
    EXPECT_EQ(set.find(9), nullptr);
}

TEST(KeyValueSet, IteratesInTheOrderOfDefinition) {
    PRBKeyValueSet set;
    const std::vector<int> keys{2000, -3, 15, 7, 2001, 100000, 0};
    for (int key : keys) set.defineKeyValuePair(key, static_cast<long long>(key));
    auto next = set.createIterator();
    std::vector<int> seen;
    while (const Pair* pair = (*next)()) seen.push_back(pair->key());
    EXPECT_EQ(seen, keys);
    EXPECT_EQ((*next)(), nullptr);
}

TEST(KeyValueSet, TheFirstDefinitionOfAKeyStays) {
    PRBKeyValueSet set;
    set.defineKeyValuePair(7, "first");
    set.defineKeyValuePair(7, 2);
    EXPECT_EQ(set.entries(), 1u);
    EXPECT_STREQ(set.find(7)->getStringValue(), "first");
}

TEST(KeyValueSet, CopiesOwnTheirPairs) {
    auto source = std::make_unique<PRBKeyValueSet>();
    for (int key = 0; key < 1000; ++key) source->defineKeyValuePair(key, std::string(40, 'x'));
    PRBKeyValueSet copied(*source), assigned;
    assigned.defineKeyValuePair(5, "old");
    assigned = *source;
    assigned = *&assigned;
    source.reset();
    EXPECT_EQ(copied.entries(), 1000u);
    EXPECT_STREQ(copied.find(999)->getStringValue(), std::string(40, 'x').c_str());
    EXPECT_STREQ(assigned.find(5)->getStringValue(), std::string(40, 'x').c_str());
}

TEST(PlainRecord, HasNoKeysAndNoValues) {
    PRBTransportableData record;
    EXPECT_EQ(record.isA(), 0x7FF5);
    EXPECT_EQ(record.getNumNumericKeys(), 0);
    EXPECT_EQ(record.getNumStringKeys(), 0);
    EXPECT_EQ(record.getDataType(), 0);
    record.saveNumericData(5, 6);
    record.saveStringData(5, "six");
    record.buildFromDataString("appl_name=x");
    EXPECT_EQ(record.getNumericData(5), 0);
    EXPECT_EQ(record.getNumericValueForStream(5), 0);
    EXPECT_EQ(record.getStringData(5), "");
    int untouched = 42;
    record.numericKeys(&untouched);
    record.stringKeys(&untouched);
    EXPECT_EQ(untouched, 42);
    EXPECT_EQ(hex(streamed(record)), "00000000");
}

TEST(PlainRecord, CallsZeroAndTheEmptyTextNull) {
    PRBTransportableData record;
    EXPECT_TRUE(record.valueIsNull(0LL));
    EXPECT_FALSE(record.valueIsNull(-1LL));
    EXPECT_TRUE(record.valueIsNull(std::string()));
    EXPECT_FALSE(record.valueIsNull(std::string(" ")));
}

namespace {

// A plain record with keys: one value each of 0, -1 and 5.
class KeyedRecord : public PRBTransportableData {
public:
    int getNumNumericKeys() const override { return 3; }
    int getNumStringKeys() const override { return 2; }
    void numericKeys(int* keys) const override {
        for (int key : {30, 10, 20}) *keys++ = key;
    }
    void stringKeys(int* keys) const override {
        for (int key : {50, 40}) *keys++ = key;
    }
    long long getNumericData(int key) const override { return key == 30 ? 0 : key == 10 ? -1 : 5; }
    const std::string& getStringData(int key) const override {
        return key == 50 ? emptyText() : text_;
    }

private:
    std::string text_ = "forty";
};

} // namespace

TEST(PlainRecord, StreamsMinusOneButNeitherZeroNorEmptyTexts) {
    EXPECT_EQ(hex(streamed(KeyedRecord())), "00000000"
                                            "000000010000000AFFFFFFFFFFFFFFFF"
                                            "00000001000000140000000000000005"
                                            "0000000200000028"
                                            "00000005666F727479");
}

TEST(PlainRecord, DataArraysHoldAllKeysInOrder) {
    int numbers = -1, texts = -1;
    int *numberKeys, *textKeys;
    long long* values;
    std::string* strings;
    KeyedRecord().getDataArrays(numbers, texts, &numberKeys, &values, &textKeys, &strings);
    EXPECT_EQ(std::vector<int>(numberKeys, numberKeys + numbers), (std::vector{30, 10, 20}));
    EXPECT_EQ(std::vector<long long>(values, values + numbers), (std::vector{0LL, -1LL, 5LL}));
    EXPECT_EQ(std::vector<int>(textKeys, textKeys + texts), (std::vector{50, 40}));
    EXPECT_EQ(std::vector<std::string>(strings, strings + texts),
              (std::vector<std::string>{"", "forty"}));
    delete[] numberKeys;
    delete[] values;
    delete[] textKeys;
    delete[] strings;
    PRBTransportableData().getDataArrays(numbers, texts, &numberKeys, &values, &textKeys, &strings);
    EXPECT_EQ(numbers, 0);
    EXPECT_EQ(texts, 0);
    delete[] numberKeys;
    delete[] values;
    delete[] textKeys;
    delete[] strings;
}

TEST(PlainRecord, WritesEveryPairOfItsSet) {
    PRBKeyValueSet set;
    set.defineKeyValuePair(5, 0);
    set.defineKeyValuePair(6, "");
    set.defineKeyValuePair(7, -1);
    set.defineKeyValuePair(4, "x");
    PRBTransportableData record;
    record.save(set);
    EXPECT_EQ(hex(streamed(record)), "00000000"
                                     "00000001000000050000000000000000"
                                     "000000020000000600000000"
                                     "0000000100000007FFFFFFFFFFFFFFFF"
                                     "00000002000000040000000178");
}

TEST(PlainRecord, SaveReplacesTheSetByACopy) {
    PRBTransportableData record;
    EXPECT_EQ(record.getKeyValueSet(), nullptr);
    {
        PRBKeyValueSet first, second;
        first.defineKeyValuePair(1, 1);
        second.defineKeyValuePair(2, 2);
        record.save(first);
        record.save(second);
    }
    EXPECT_EQ(record.getKeyValueSet()->find(1), nullptr);
    EXPECT_EQ(record.getKeyValueSet()->find(2)->getIntValue(), 2);
}

TEST(PlainRecord, CopyAndAssignmentTakeEncodingsAndADeepCopyOfTheSet) {
    PRBTransportableData target;
    PRBKeyValueSet old;
    old.defineKeyValuePair(1, 1);
    target.save(old);
    std::unique_ptr<PRBTransportableData> copied;
    {
        PRBTransportableData source;
        PRBKeyValueSet set;
        set.defineKeyValuePair(2, "two");
        source.save(set);
        source.setToBeSentAs(_CharacterEncoding{3});
        target = source;
        copied.reset(source.clone());
    }
    for (const PRBTransportableData* record : {&target, copied.get()}) {
        EXPECT_EQ(record->getToBeSentAs(), 3);
        EXPECT_EQ(record->getKeyValueSet()->entries(), 1u);
        EXPECT_STREQ(record->getKeyValueSet()->find(2)->getStringValue(), "two");
    }
    target = PRBTransportableData();
    EXPECT_EQ(target.getKeyValueSet(), nullptr);
    EXPECT_EQ(target.getToBeSentAs(), 0);
}

TEST(PlainRecord, AssignmentTakesTheEncodingThatTheTextsCameIn) {
    const std::string record = bytes("0003 0002 0000000D");
    PRBBuffer buffer(record.data(), record.size());
    const auto built = PRBTransportableData::buildFromBuffer(buffer);
    ASSERT_NE(built, nullptr);
    PRBTransportableData target;
    target = *built;
    EXPECT_EQ(target.getSourceEncoding(), 3);
    EXPECT_EQ(std::unique_ptr<PRBTransportableData>(built->clone())->getSourceEncoding(), 3);
}

TEST(PlainRecord, TheEncodingIsTheFirstShort) {
    PRBTransportableData record;
    record.setToBeSentAs(_CharacterEncoding{0x12345});
    EXPECT_EQ(hex(streamed(record)), "23450000");
}

TEST(PlainRecord, SendPassesTheConnectionsCodeOn) {
    struct : PRBSocketConnection {
        PRBReturnCode send(PRBBuffer& buffer) override {
            sent = buffer;
            return 12u;
        }
        std::string sent;
    } connection;
    EXPECT_EQ(PRBTransportableData().send(connection), 12u);
    EXPECT_EQ(hex(connection.sent), "00000000");
}

TEST(Conversion, ChangesNoCharacter) {
    const char text[] = "a\xE4%\x01";
    EXPECT_EQ(
        PRBTransportableData::convertString(text, _CharacterEncoding{1}, _CharacterEncoding{2}),
        text);
    EXPECT_EQ(
        PRBTransportableData::convertString(nullptr, _CharacterEncoding{1}, _CharacterEncoding{7}),
        "");
}

using RecordLog = LogTest;

TEST_F(RecordLog, ConversionIsNotedOnlyWhenTheEncodingsDiffer) {
    debugOn("PRBCTRAN");
    PRBTransportableData::convertString("a%", _CharacterEncoding{0}, _CharacterEncoding{2});
    PRBTransportableData::convertString("a%", _CharacterEncoding{3}, _CharacterEncoding{3});
    EXPECT_THAT(lines(), testing::IsEmpty());
    PRBTransportableData::convertString("a%", _CharacterEncoding{1}, _CharacterEncoding{2});
    const auto noted = lines();
    ASSERT_EQ(noted.size(), 5u);
    EXPECT_EQ(noted[0], "PRBCTRAN translated string from 1 to 0");
    EXPECT_THAT(noted[1], testing::StartsWith("Original String   @"));
    EXPECT_THAT(noted[2], testing::StartsWith("0000-6125"));
    EXPECT_THAT(noted[2], testing::HasSubstr("*a%% "));
    EXPECT_THAT(noted[3], testing::StartsWith("Translated String   @"));
    EXPECT_EQ(noted[4], noted[2]);
    PRBTrace::level = 0;
    PRBTransportableData::convertString("a%", _CharacterEncoding{1}, _CharacterEncoding{2});
    EXPECT_THAT(lines(), testing::IsEmpty());
}

TEST_F(RecordLog, StreamingNotesTheFormat) {
    debugOn("PRBCTRAN");
    PRBTransportableData record;
    record.setToBeSentAs(_CharacterEncoding{4});
    streamed(record);
    EXPECT_THAT(lines(), testing::ElementsAre("Data to be sent in 4 format"));
}

TEST_F(RecordLog, TextsAreConvertedOnTheWayOutAndIn) {
    debugOn("PRBCTRAN");
    PRBHTTPSample sample;
    sample.saveStringData(777, "shop");
    PRBKeyValueSet set;
    set.defineKeyValuePair(2000, "extra");
    sample.save(set);
    sample.setToBeSentAs(_CharacterEncoding{3});
    const Decoded sent = decoded(sample);
    EXPECT_EQ(sent.encoding, 3u);
    EXPECT_EQ(sent.of(777), "t:shop");
    EXPECT_EQ(sent.of(2000), "t:extra");
    const auto out = lines();
    EXPECT_EQ(std::count(out.begin(), out.end(), "PRBCTRAN translated string from 0 to 3"), 2);

    const std::string record = bytes("0003 0002 0000000D 00000002 0000000A 00000001 41");
    PRBBuffer buffer(record.data(), record.size());
    const auto built = PRBTransportableData::buildFromBuffer(buffer);
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->getSourceEncoding(), 3);
    EXPECT_EQ(built->getStringData(10), "A");
    EXPECT_EQ(lines().front(), "PRBCTRAN translated string from 3 to 0");
    PRBWireError error;
    const auto checked =
        PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error);
    EXPECT_EQ(checked->getSourceEncoding(), 3);
    EXPECT_EQ(lines().front(), "PRBCTRAN translated string from 3 to 0");
}

TEST_F(RecordLog, DumpToLogWritesTheAddressAndTheBytes) {
    PRBTransportableData record;
    record.dumpToLog();
    char head[80];
    std::snprintf(head, sizeof head, "Contents of PRBTransportableData at " PRB_PTR,
                  prbPtr(&record));
    const auto written = lines();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(written[0], head);
    EXPECT_THAT(written[1], testing::StartsWith("0000-00000000 "));
}

TEST(BuildFromBuffer, UnknownDataAndSampleTypesGiveNoRecord) {
    for (const char* record :
         {"0000 0000", "0000 0003 00000001", "0000 0002 00000002", "0000 0002 00000063"}) {
        const std::string content = bytes(record);
        PRBBuffer buffer(content.data(), content.size());
        EXPECT_EQ(PRBTransportableData::buildFromBuffer(buffer), nullptr) << record;
    }
}

TEST(BuildFromBuffer, AFieldTypeOtherThan1IsReadAsAText) {
    const std::string record = bytes("0000 0002 0000000D"
                                     "00000007 0000000A 00000002 4142"
                                     "00000001 00000004 0000000000000003");
    PRBBuffer buffer(record.data(), record.size());
    const auto built = PRBTransportableData::buildFromBuffer(buffer);
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->getStringData(10), "AB");
    EXPECT_EQ(built->getNumericData(4), 3);
}
