#include "bridge/Reaper.h"

#include <gtest/gtest.h>

namespace bridge {
namespace {

TEST(Reaper, looksTwiceASecond) {
    EXPECT_EQ(Reaper::pauseAfter(0), 500'000'000);
    EXPECT_EQ(Reaper::pauseAfter(499'999), 500'000'000);
}

TEST(Reaper, takesAThousandthOfAProcessorAtMost) {
    EXPECT_EQ(Reaper::pauseAfter(600'000), 600'000'000);
    EXPECT_EQ(Reaper::pauseAfter(4'000'000), 4'000'000'000);
}

// What has been unloaded takes memory until it is noticed.
TEST(Reaper, looksEveryFiveSecondsAtLeast) {
    EXPECT_EQ(Reaper::pauseAfter(5'000'001), 5'000'000'000);
    EXPECT_EQ(Reaper::pauseAfter(60'000'000'000), 5'000'000'000);
}

} // namespace
} // namespace bridge
