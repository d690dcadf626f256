// The trace table that the Java side makes for itself.
#include "collector/NativeTraceTable.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace {

std::string entry(const NativeTraceTable& table, int index) {
    return std::string(table.start() + index * table.entrySize(),
                       static_cast<std::size_t>(table.entrySize()));
}

TEST(NativeTraceTable, startsEmptyWithTheNextEntryAtTheStart) {
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    const NativeTraceTable* table = NativeTraceTable::create(8, 3);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->entrySize(), 8);
    EXPECT_EQ(table->entries(), 3);
    EXPECT_EQ(table->next(), table->start());
    EXPECT_EQ(table->end(), table->start() + 24);
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation() - before, 24 + sizeof(NativeTraceTable));
}

TEST(NativeTraceTable, cutsClearsAndWraps) {
    NativeTraceTable* table = NativeTraceTable::create(4, 2);
    ASSERT_NE(table, nullptr);
    table->write("abcdefgh");
    EXPECT_EQ(entry(*table, 0), "abcd");
    EXPECT_EQ(entry(*table, 1), std::string(4, '\0'));
    table->write("ij");
    EXPECT_EQ(entry(*table, 1), std::string("ij\0\0", 4));
    EXPECT_EQ(table->next(), table->end());
    table->write("k");
    EXPECT_EQ(entry(*table, 0), std::string("k\0\0\0", 4));
    EXPECT_EQ(table->next(), table->start() + 4);
    table->write("");
    EXPECT_EQ(entry(*table, 1), std::string(4, '\0'));
    table->write(nullptr);
    EXPECT_EQ(table->next(), table->end());
}

TEST(NativeTraceTable, refusesImpossibleSizes) {
    const std::int32_t most = std::numeric_limits<std::int32_t>::max();
    EXPECT_EQ(NativeTraceTable::create(0, 5), nullptr);
    EXPECT_EQ(NativeTraceTable::create(5, 0), nullptr);
    EXPECT_EQ(NativeTraceTable::create(-1, 5), nullptr);
    EXPECT_EQ(NativeTraceTable::create(5, -1), nullptr);
    EXPECT_EQ(NativeTraceTable::create(-5, -5), nullptr);
    EXPECT_EQ(NativeTraceTable::create(65536, 32768), nullptr);
    EXPECT_EQ(NativeTraceTable::create(most, most), nullptr);
}

TEST(NativeTraceTable, isFoundByItsHandleOnly) {
    NativeTraceTable* first = NativeTraceTable::create(4, 2);
    NativeTraceTable* second = NativeTraceTable::create(4, 2);
    EXPECT_EQ(NativeTraceTable::fromHandle(first->toHandle()), first);
    EXPECT_EQ(NativeTraceTable::fromHandle(second->toHandle()), second);
    for (std::int64_t handle : {std::int64_t{0}, std::int64_t{-1}, first->toHandle() + 1,
                                std::numeric_limits<std::int64_t>::max()})
        EXPECT_EQ(NativeTraceTable::fromHandle(handle), nullptr);
}

} // namespace
