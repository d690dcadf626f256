#include "bridge/IdTable.h"

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

} // namespace
} // namespace bridge
