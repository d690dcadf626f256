// Records whose bytes come from elsewhere: what is read of them, and what is said of bad ones.
#include "tests/unit/data/DataTest.h"

#include "data/PRBCThreadSample.h"
#include "data/PRBMethodUsageSample.h"
#include "data/PRBRecordReader.h"

#include <memory>
#include <random>

using namespace datatest;

namespace {

const char kThreadRecord[] = "0000 0002 0000000A"
                             "00000001 00000002 0000000000000007"
                             "00000002 0000012D 00000004 6D61696E";

std::string problem(const std::string& record) {
    PRBRecordReader reader(record.data(), record.size());
    for (PRBRecordReader::Field field; reader.next(field);) {
    }
    EXPECT_EQ(PRBBuffer::isWellFormed(record.data(), record.size()), !reader.error().isSet());
    return reader.error().text();
}

} // namespace

TEST(RecordReader, YieldsHeaderAndFields) {
    const std::string record = bytes(kThreadRecord);
    PRBRecordReader reader(record.data(), record.size());
    EXPECT_EQ(reader.encoding(), 0u);
    EXPECT_EQ(reader.dataType(), 2u);
    EXPECT_TRUE(reader.isSample());
    EXPECT_EQ(reader.sampleType(), 10);
    PRBRecordReader::Field field;
    ASSERT_TRUE(reader.next(field));
    EXPECT_EQ(field.kind, PRBRecordReader::Kind::Number);
    EXPECT_EQ(field.key, 2);
    EXPECT_EQ(field.number, 7);
    EXPECT_EQ(field.offset, 8u);
    ASSERT_TRUE(reader.next(field));
    EXPECT_EQ(field.kind, PRBRecordReader::Kind::Text);
    EXPECT_EQ(field.key, 301);
    EXPECT_EQ(field.text, "main");
    EXPECT_EQ(field.offset, 24u);
    EXPECT_FALSE(reader.next(field));
    EXPECT_FALSE(reader.error().isSet());
    EXPECT_EQ(reader.error().text(), "");
}

TEST(RecordReader, KeepsUnknownSampleTypesKeysAndEncodings) {
    const std::string record = bytes("0005 0002 000F4240"
                                     "00000001 FFFFFFFE FFFFFFFFFFFFFFFF"
                                     "00000002 7FFFFFFF 00000003 00FF25");
    PRBRecordReader reader(record.data(), record.size());
    EXPECT_EQ(reader.encoding(), 5u);
    EXPECT_EQ(reader.sampleType(), 1000000);
    PRBRecordReader::Field field;
    ASSERT_TRUE(reader.next(field));
    EXPECT_EQ(field.key, -2);
    EXPECT_EQ(field.number, -1);
    ASSERT_TRUE(reader.next(field));
    EXPECT_EQ(field.key, 0x7FFFFFFF);
    EXPECT_EQ(field.text, std::string_view("\0\xFF%", 3));
    EXPECT_FALSE(reader.next(field));
    EXPECT_FALSE(reader.error().isSet());
}

TEST(RecordReader, ReadsPlainRecords) {
    const std::string record = bytes("0000 0000 00000001 00000005 0000000000000000");
    PRBRecordReader reader(record.data(), record.size());
    EXPECT_FALSE(reader.isSample());
    EXPECT_EQ(reader.sampleType(), 0);
    PRBRecordReader::Field field;
    ASSERT_TRUE(reader.next(field));
    EXPECT_EQ(field.key, 5);
    EXPECT_FALSE(reader.next(field));
    EXPECT_FALSE(reader.error().isSet());
}

TEST(RecordReader, SaysWhereARecordIsWrongAndWhatWasExpected) {
    const struct {
        const char* record;
        const char* text;
    } cases[] = {
        {"", "offset 0: expected a record header of 4 bytes: text encoding, data type"},
        {"0000 00", "offset 0: expected a record header of 4 bytes: text encoding, data type"},
        {"0000 0003", "offset 2: expected data type 2 (sample) or 0 (plain record)"},
        {"0000 0002 000000", "offset 4: expected a sample type of 4 bytes"},
        {"0000 0000 000000", "offset 4: expected a field type of 4 bytes"},
        {"0000 0002 00000001 00000003", "offset 8: expected field type 1 (number) or 2 (text)"},
        {"0000 0002 00000001 00000000", "offset 8: expected field type 1 (number) or 2 (text)"},
        {"0000 0002 00000001 00000001 0000", "offset 12: expected a key of 4 bytes"},
        {"0000 0002 00000001 00000001 00000005 00000000000000",
         "offset 16: expected a number of 8 bytes"},
        {"0000 0002 00000001 00000002 00000005 000000",
         "offset 16: expected a text length of 4 bytes"},
        {"0000 0002 00000001 00000002 00000005 00000003 6162",
         "offset 16: expected a text length within the record"},
        {"0000 0002 00000001 00000002 00000005 FFFFFFFF 6162",
         "offset 16: expected a text length within the record"},
        {"0000 0002 00000001 00000001 00000005 0000000000000001 0000",
         "offset 24: expected a field type of 4 bytes"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(problem(bytes(c.record)), c.text) << c.record;
    }
    PRBRecordReader none(nullptr, 100);
    EXPECT_TRUE(none.error().isSet());
}

TEST(RecordReader, AnswersNothingMoreAfterAnError) {
    const std::string record = bytes("0000 0002 00000001 00000003 00000000");
    PRBRecordReader reader(record.data(), record.size());
    PRBRecordReader::Field field;
    EXPECT_FALSE(reader.next(field));
    EXPECT_FALSE(reader.next(field));
    EXPECT_EQ(reader.error().offset, 8u);
}

TEST(RecordReader, EveryCutOfARecordIsRefusedExceptBetweenFields) {
    const std::string record = bytes(kThreadRecord);
    for (std::size_t n = 0; n <= record.size(); ++n) {
        const bool whole = n == 8 || n == 24 || n == record.size();
        // A copy of exactly n bytes, so that a sanitizer sees any read beyond them.
        const std::vector<char> cut(record.begin(), record.begin() + static_cast<long>(n));
        EXPECT_EQ(PRBBuffer::isWellFormed(cut.data(), n), whole) << n;
    }
}

TEST(CheckedReader, BuildsTheSample) {
    const std::string record = bytes(kThreadRecord);
    PRBWireError error;
    const auto built =
        PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error);
    ASSERT_NE(built, nullptr);
    EXPECT_FALSE(error.isSet());
    ASSERT_NE(dynamic_cast<PRBCThreadSample*>(built.get()), nullptr);
    EXPECT_EQ(built->getNumericValueForStream(2), 7);
    EXPECT_EQ(built->getStringData(301), "main");
}

TEST(CheckedReader, PassesOverKeysThatTheClassDoesNotHave) {
    const std::string record = bytes("0000 0002 0000000A"
                                     "00000001 00000141 0000000000000007"
                                     "00000001 7FFFFFFF 0000000000000007"
                                     "00000002 00000064 00000001 61"
                                     "00000001 00000004 0000000000000009");
    PRBWireError error;
    const auto built =
        PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error);
    ASSERT_NE(built, nullptr);
    EXPECT_EQ(built->getNumericValueForStream(4), 9);
    EXPECT_EQ(built->getNumericData(321), 0);
    EXPECT_EQ(built->getStringData(100), "");
}

TEST(CheckedReader, RefusesWhatIsNoSampleOfAKnownType) {
    const struct {
        const char* record;
        const char* text;
    } cases[] = {
        {"0000 0000", "offset 2: expected data type 2 (sample)"},
        {"0000 0001", "offset 2: expected data type 2 (sample) or 0 (plain record)"},
        {"0000 0002 00000002", "offset 4: expected a sample type that has a class"},
        {"0000 0002 0000000A 00000001", "offset 12: expected a key of 4 bytes"},
    };
    for (const auto& c : cases) {
        const std::string record = bytes(c.record);
        PRBWireError error;
        EXPECT_EQ(PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error),
                  nullptr);
        EXPECT_EQ(error.text(), c.text);
    }
}

TEST(CheckedReader, AgreesWithTheUncheckedOneOnWellFormedRecords) {
    PRBMethodUsageSample sample;
    sample.saveNumericData(20, 1234567890);
    sample.saveNumericData(2, 17);
    sample.saveNumericData(321, 5);
    sample.saveStringData(10, "com/example/Pricing");
    const std::string record = streamed(sample);
    PRBBuffer buffer(record.data(), record.size());
    PRBWireError error;
    const auto checked =
        PRBTransportableData::buildFromBufferChecked(record.data(), record.size(), error);
    const auto unchecked = PRBTransportableData::buildFromBuffer(buffer);
    ASSERT_NE(checked, nullptr);
    ASSERT_NE(unchecked, nullptr);
    EXPECT_EQ(hex(streamed(*checked)), hex(record));
    EXPECT_EQ(hex(streamed(*unchecked)), hex(record));
}

// Whatever the bytes: an error or a record, and the same answer from both ways to ask.
TEST(CheckedReader, SurvivesChangedBytes) {
    const std::string good = bytes(kThreadRecord);
    std::mt19937 random(20240501);
    int records = 0, errors = 0;
    for (int i = 0; i < 20000; ++i) {
        std::vector<char> bad(good.begin(), good.end());
        for (unsigned changes = 1 + random() % 4; changes > 0; --changes)
            bad[random() % bad.size()] = static_cast<char>(random());
        bad.resize(bad.size() - random() % 3);
        PRBWireError error;
        const auto built =
            PRBTransportableData::buildFromBufferChecked(bad.data(), bad.size(), error);
        EXPECT_EQ(built == nullptr, error.isSet());
        EXPECT_LE(error.offset, bad.size());
        ++(built == nullptr ? errors : records);
    }
    EXPECT_GT(records, 0);
    EXPECT_GT(errors, 0);
}
