#include "bridge/IdTable.h"

#include <iterator>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

jweak reference(uintptr_t number) { return reinterpret_cast<jweak>(number); }

TEST(IdTable, classesAndObjectsCountInRangesOfTheirOwn) {
    IdTable table;
    EXPECT_EQ(1u, table.addClass(reference(16)));
    EXPECT_EQ(2u, table.addClass(reference(32)));
    EXPECT_EQ(0x40000000u, table.addObject(reference(48)));
    EXPECT_EQ(3u, table.size());
    EXPECT_TRUE(IdTable::isClass(1));
    EXPECT_TRUE(IdTable::isClass(0x3fffffff));
    EXPECT_FALSE(IdTable::isClass(0));
    EXPECT_FALSE(IdTable::isClass(0x40000000));
    EXPECT_TRUE(IdTable::isObject(0x40000000));
    EXPECT_TRUE(IdTable::isObject(0x4fffffff));
    EXPECT_FALSE(IdTable::isObject(0x50000000));
    EXPECT_FALSE(IdTable::isObject(1));
    EXPECT_EQ(reference(32), IdTable::Use(table, 2).reference());
    EXPECT_EQ(reference(48), IdTable::Use(table, 0x40000000).reference());
    EXPECT_EQ(nullptr, IdTable::Use(table, 3).reference());
    EXPECT_EQ(nullptr, IdTable::Use(table, 0).reference());
}

TEST(IdTable, theLastIdsOfTheRangesAreGivenAndNoMore) {
    IdTable table(0x3fffffff, 0x4fffffff);
    EXPECT_EQ(0x3fffffffu, table.addClass(reference(1)));
    EXPECT_EQ(0u, table.addClass(reference(2)));
    EXPECT_EQ(0x4fffffffu, table.addObject(reference(3)));
    EXPECT_EQ(0u, table.addObject(reference(4)));
    EXPECT_EQ(2u, table.size());
}

TEST(IdTable, idsOfFreedObjectsAnswerNothingAndAreNotUsedAgain) {
    IdTable table;
    const uint32_t id = table.addObject(reference(16));
    table.remove(id);
    table.remove(id);
    table.remove(12345);
    EXPECT_EQ(nullptr, IdTable::Use(table, id).reference());
    EXPECT_NE(id, table.addObject(reference(32)));
    EXPECT_THAT(table.takeDead(), ElementsAre(reference(16)));
    EXPECT_THAT(table.takeDead(), IsEmpty());
}

TEST(IdTable, aReferenceInUseIsNotHandedOutForDeletion) {
    IdTable table;
    const uint32_t id = table.addObject(reference(16));
    {
        IdTable::Use use(table, id);
        table.remove(id);
        EXPECT_EQ(reference(16), use.reference());
        EXPECT_THAT(table.takeDead(), IsEmpty());
    }
    EXPECT_THAT(table.takeDead(), ElementsAre(reference(16)));
}

TEST(IdTable, everythingIsCopiedStretchByStretch) {
    IdTable table;
    constexpr size_t kIds = 1000;
    for (size_t i = 0; i < kIds; i++) table.addObject(reference(16 * (i + 1)));
    IdTable::Entry entries[64];
    std::map<uint32_t, jweak> seen;
    size_t place = 0;
    size_t copied = 0;
    do {
        const size_t count = table.copy(place, entries, std::size(entries));
        ASSERT_LE(count, std::size(entries));
        copied += count;
        for (size_t i = 0; i < count; i++) seen[entries[i].id] = entries[i].reference;
    } while (place != 0);
    EXPECT_EQ(copied, kIds);
    ASSERT_EQ(seen.size(), kIds);
    for (const auto& [id, found] : seen)
        EXPECT_EQ(found, reference(16 * (id - IdTable::kFirstObject + 1)));
}

TEST(IdTable, anEmptyTableIsCopiedAtOnce) {
    IdTable table;
    IdTable::Entry entry{};
    size_t place = 0;
    EXPECT_EQ(0u, table.copy(place, &entry, 1));
    EXPECT_EQ(0u, place);
}

// What is taken out and put in between two stretches neither ends the walk early nor for ever.
TEST(IdTable, removalsBetweenTwoStretchesDoNoHarm) {
    IdTable table;
    for (uintptr_t i = 1; i <= 300; i++) table.addObject(reference(16 * i));
    IdTable::Entry entries[16];
    for (int pass = 0; pass < 20 && table.size() != 0; pass++) {
        size_t place = 0;
        int stretches = 0;
        do {
            const size_t count = table.copy(place, entries, std::size(entries));
            for (size_t i = 0; i < count; i++) table.remove(entries[i].id);
            ASSERT_LT(++stretches, 100);
        } while (place != 0);
    }
    EXPECT_EQ(0u, table.size());
    EXPECT_EQ(300u, table.takeDead().size());
}

} // namespace
} // namespace bridge
