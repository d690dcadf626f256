#include "tests/unit/data/DataTest.h"

#include "data/PRBRecordReader.h"

using namespace datatest;

TEST(Buffer, PrimitivesAreBigEndian) {
    PRBBuffer b;
    b.streamShortInt(0x1234);
    b.streamInt(0x89ABCDEFul);
    b.streamLong(0x0000000100000002LL);
    b.streamLong(-2);
    EXPECT_EQ(hex(b), "123489ABCDEF0000000100000002FFFFFFFFFFFFFFFE");
}

TEST(Buffer, AnIntegerIsTheLow32BitsOfItsArgument) {
    PRBBuffer b;
    b.streamInt(static_cast<unsigned long>(0x1122334455667788ull));
    EXPECT_EQ(hex(b), "55667788");
}

TEST(Buffer, NumericFieldsAre16BytesAndStringFields12AndTheText) {
    PRBBuffer b;
    b.streamIntField(5, 7);
    EXPECT_EQ(hex(b), "00000001"
                      "00000005"
                      "0000000000000007");
    PRBBuffer s;
    s.streamStringField(6, "abc");
    EXPECT_EQ(hex(s), "00000002"
                      "00000006"
                      "00000003"
                      "616263");
    PRBBuffer n;
    n.streamStringField(-1, nullptr);
    EXPECT_EQ(hex(n), "00000002"
                      "FFFFFFFF"
                      "00000000");
}

TEST(Buffer, ReadersAdvanceThroughWhatWritersWrote) {
    PRBBuffer b;
    b.streamShortInt(0xFFFE);
    b.streamIntField(-7, 0x0000000100000002LL);
    b.streamStringField(9, "xy");
    EXPECT_EQ(b.getNextShortIntField(), 0xFFFE);
    EXPECT_EQ(b.getNextFieldType(), 1);
    EXPECT_EQ(b.getNextKey(), -7);
    EXPECT_EQ(b.getNextLongField(), 0x0000000100000002LL);
    EXPECT_EQ(b.getNextFieldType(), 2);
    EXPECT_EQ(b.getNextKey(), 9);
    EXPECT_EQ(b.getNextStringField(), "xy");
    EXPECT_EQ(b.getNextFieldType(), 0);
}

TEST(Buffer, TheEndGivesType0AndConsumesNothing) {
    PRBBuffer b;
    EXPECT_EQ(b.getNextFieldType(), 0);
    b.streamInt(2);
    EXPECT_EQ(b.getNextFieldType(), 2);
    EXPECT_EQ(b.getNextFieldType(), 0);
    b.streamInt(1); // what is appended later is still read
    EXPECT_EQ(b.getNextFieldType(), 1);
}

TEST(Buffer, EmbeddedZeroBytesAreRead) {
    const std::string content = bytes("00000003 61 00 62");
    PRBBuffer b(content.data(), content.size());
    EXPECT_EQ(b.getNextStringField(), std::string("a\0b", 3));
}

TEST(Buffer, IsACollectableString) {
    PRBBuffer a, b;
    a.streamInt(1);
    b.streamInt(1);
    EXPECT_TRUE(a.isEqual(&b));
    EXPECT_EQ(a.hash(), b.hash());
    std::unique_ptr<PRBCollectable> copied(a.copy()), fresh(a.newSpecies());
    EXPECT_EQ(*static_cast<PRBBuffer*>(copied.get()), bytes("00000001"));
    EXPECT_TRUE(static_cast<PRBBuffer*>(fresh.get())->empty());
}

namespace {

struct Connection : PRBSocketConnection {
    PRBReturnCode send(PRBBuffer& buffer) override {
        sent = buffer;
        return 44u;
    }
    std::string sent;
};

} // namespace

TEST(Buffer, SendHandsTheWholeBufferToTheConnectionAndAnswersItsCode) {
    Connection connection;
    PRBBuffer b(connection, "seed");
    b.streamShortInt(1);
    b.getNextShortIntField();
    EXPECT_EQ(b.send(), 44u);
    EXPECT_EQ(connection.sent, std::string("seed\0\1", 6));
    PRBBuffer empty(connection);
    EXPECT_EQ(empty.send(), 44u);
    EXPECT_EQ(connection.sent, "");
}

TEST(Buffer, SendWithoutConnectionAnswers0) {
    PRBBuffer b;
    b.streamInt(1);
    EXPECT_EQ(b.send(), 0u);
}

#ifdef NDEBUG
TEST(Buffer, ReadersBeyondTheEndReadZerosAndShorterTexts) {
    const std::string content = bytes("01");
    PRBBuffer b(content.data(), content.size());
    EXPECT_EQ(b.getNextShortIntField(), 0x0100);
    EXPECT_EQ(b.getNextIntField(), 0);
    EXPECT_EQ(b.getNextLongField(), 0);
    EXPECT_EQ(b.getNextStringField(), "");
    const std::string text = bytes("7FFFFFFF 61 62");
    PRBBuffer s(text.data(), text.size());
    EXPECT_EQ(s.getNextStringField(), "ab");
    EXPECT_EQ(s.getNextFieldType(), 0);
}
#else
TEST(BufferDeathTest, ReadersBeyondTheEndAssert) {
    PRBBuffer b;
    EXPECT_DEATH(b.getNextIntField(), "buffer from elsewhere");
    const std::string text = bytes("7FFFFFFF 61 62");
    PRBBuffer s(text.data(), text.size());
    EXPECT_DEATH(s.getNextStringField(), "buffer from elsewhere");
}
#endif

using BufferTraces = LogTest;

TEST_F(BufferTraces, EveryOperationWritesEntryAndExitAtTheMostFrequentClass) {
    trace(0x1000, "PRBCBUFF");
    PRBBuffer b;
    b.streamShortInt(3);
    EXPECT_THAT(lines(), testing::ElementsAre("PRBBuffer::streamShortInt Entry",
                                              "PRBBuffer::streamShortInt Exit"));
    b.getNextShortIntField();
    EXPECT_THAT(lines(),
                testing::ElementsAre("PRBBuffer::getNextShortIntField Entry",
                                     "PRBBuffer::getNextShortIntField Exit with return value 3"));
    b.streamStringField(4, "ab");
    EXPECT_THAT(lines(), testing::ElementsAre(
                             "PRBBuffer::streamStringField Entry", "PRBBuffer::streamInt Entry",
                             "PRBBuffer::streamInt Exit", "PRBBuffer::streamInt Entry",
                             "PRBBuffer::streamInt Exit", "PRBBuffer::streamInt Entry",
                             "PRBBuffer::streamInt Exit", "PRBBuffer::streamStringField Exit"));
    b.getNextFieldType();
    EXPECT_THAT(lines(),
                testing::ElementsAre("PRBBuffer::getNextFieldType Entry",
                                     "PRBBuffer::getNextIntField Entry",
                                     "PRBBuffer::getNextIntField Exit with return value 2",
                                     "PRBBuffer::getNextFieldType Exit with return value 2"));
    b.getNextKey();
    EXPECT_EQ(lines().back(), "PRBBuffer::getNextKey Exit with return value 4");
    b.getNextStringField();
    EXPECT_EQ(lines().front(), "PRBBuffer::getNextStringField Entry");
    b.streamIntField(1, -9);
    EXPECT_EQ(lines().back(), "PRBBuffer::streamIntField Exit");
    b.getNextFieldType();
    b.getNextKey();
    lines();
    b.getNextLongField();
    EXPECT_THAT(lines(),
                testing::ElementsAre("PRBBuffer::getNextLongField Entry",
                                     "PRBBuffer::getNextLongField Exit with return value -9"));
    b.streamLong(1);
    EXPECT_EQ(lines().front(), "PRBBuffer::streamLong Entry");
    b.send();
    EXPECT_THAT(lines(), testing::ElementsAre("PRBBuffer::send Entry",
                                              "PRBBuffer::send Exit with return value 0"));
}

TEST_F(BufferTraces, AreSilentBelowThatClass) {
    trace(0xE00, "PRBCBUFF");
    PRBBuffer b;
    b.streamInt(1);
    EXPECT_THAT(lines(), testing::IsEmpty());
}
