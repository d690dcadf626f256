// Records behind their lengths in one block.
#include "tests/unit/data/AllSamples.h"
#include "tests/unit/data/DataTest.h"

#include "data/PRBRecordArray.h"

using namespace datatest;

namespace {

std::string bytesOf(const PRBRecordArray& array) {
    return {reinterpret_cast<const char*>(array.data()), array.size()};
}

} // namespace

TEST(RecordArray, PutsEachRecordBehindItsLength) {
    PRBRecordArray array;
    EXPECT_EQ(array.data(), nullptr);
    EXPECT_EQ(array.size(), 0u);
    PRBEndSample end;
    end.saveNumericData(20, 1);
    PRBProfilerError error;
    error.saveNumericData(20, -1);
    error.saveStringData(361, "no");
    EXPECT_TRUE(array.add(end));
    EXPECT_TRUE(array.add(error));
    EXPECT_EQ(hex(bytesOf(array)), "00000028"
                                   "00000002000003E6"
                                   "00000001000000140000000000000001"
                                   "00000001000000150000000000000000"
                                   "00000026"
                                   "0000000200000011"
                                   "00000001000000150000000000000000"
                                   "00000002000001690000000"
                                   "26E6F");
}

TEST(RecordArray, GrowsAndIsCountedAsMemoryOfTheAgent) {
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    {
        PRBRecordArray array;
        std::string expected;
        for (int i = 0; i < 5000; ++i) {
            PRBMethodUsageSample sample;
            sample.saveNumericData(20, i);
            sample.saveStringData(10, std::string(static_cast<std::size_t>(i % 300), 'c').c_str());
            ASSERT_TRUE(array.add(sample));
            const std::string record = streamed(sample);
            expected += bytes("0000");
            expected += static_cast<char>(record.size() / 256);
            expected += static_cast<char>(record.size() % 256);
            expected += record;
        }
        EXPECT_EQ(bytesOf(array), expected);
        EXPECT_GE(PRBMemoryManager::getCurrentAllocation(), before + array.size());
        const std::uint32_t full = PRBMemoryManager::getCurrentAllocation();
        array.rewind();
        EXPECT_EQ(array.size(), 0u);
        EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), full);
        ASSERT_TRUE(array.add(PRBEndSample()));
        EXPECT_EQ(hex(bytesOf(array)).substr(0, 24), "00000028"
                                                     "00000002000003E6");
        array.clear();
        EXPECT_EQ(array.size(), 0u);
        EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
        ASSERT_TRUE(array.add(PRBEndSample()));
        EXPECT_EQ(array.size(), 44u);
    }
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
}

TEST(RecordArray, SwapsItsBytesWithAnother) {
    PRBRecordArray one, two;
    ASSERT_TRUE(one.add(PRBEndSample()));
    const std::size_t capacity = one.capacity();
    EXPECT_GE(capacity, 44u);
    EXPECT_EQ(two.capacity(), 0u);
    one.swap(two);
    EXPECT_EQ(one.size(), 0u);
    EXPECT_EQ(one.capacity(), 0u);
    EXPECT_EQ(two.size(), 44u);
    EXPECT_EQ(two.capacity(), capacity);
    EXPECT_EQ(hex(bytesOf(two)).substr(0, 8), "00000028");
}
