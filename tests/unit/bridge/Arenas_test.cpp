#include "bridge/Arenas.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bridge {
namespace {

using testing::ElementsAre;
using testing::StrEq;

TEST(Arenas, areCalledAsTheJvmCallsItsMemoryPools) {
    EXPECT_THAT(Arenas::namesFor("Serial"),
                ElementsAre(StrEq("Eden Space"), StrEq("Survivor Space"), StrEq("Tenured Gen")));
    EXPECT_THAT(
        Arenas::namesFor("Parallel"),
        ElementsAre(StrEq("PS Eden Space"), StrEq("PS Survivor Space"), StrEq("PS Old Gen")));
    EXPECT_THAT(
        Arenas::namesFor("G1"),
        ElementsAre(StrEq("G1 Eden Space"), StrEq("G1 Survivor Space"), StrEq("G1 Old Gen")));
    EXPECT_THAT(Arenas::namesFor("Shenandoah"), ElementsAre(StrEq("Shenandoah")));
    EXPECT_THAT(Arenas::namesFor("Z"), ElementsAre(StrEq("ZHeap")));
}

TEST(Arenas, anUnknownCollectorHasOne) {
    EXPECT_THAT(Arenas::namesFor(""), ElementsAre(StrEq("Java heap")));
    EXPECT_THAT(Arenas::namesFor("Epsilon"), ElementsAre(StrEq("Java heap")));
}

TEST(Arenas, anObjectWhosePlaceIsNotKnownIsInTheFirst) { EXPECT_EQ(1, Arenas::ofNew(nullptr, 16)); }

} // namespace
} // namespace bridge
