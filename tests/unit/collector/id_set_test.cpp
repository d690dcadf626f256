// The set of target ids against a naive search.
#include "collector/PRBIdSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

TEST(IdSet, answersAsALinearSearchDoesForEverySize) {
    std::mt19937 random(4711);
    for (std::size_t size : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 15U, 16U, 17U, 1000U, 10000U}) {
        std::vector<std::uint32_t> ids(size);
        for (std::uint32_t& id : ids) id = static_cast<std::uint32_t>(random() % 50000);
        const PRBIdSet set(ids);
        std::sort(ids.begin(), ids.end());
        for (std::uint32_t id = 0; id < 50000; ++id) {
            ASSERT_EQ(set.contains(id), std::binary_search(ids.begin(), ids.end(), id))
                << id << " of " << size;
        }
    }
}

TEST(IdSet, holdsExtremeAndEqualIds) {
    const PRBIdSet few(std::vector<std::uint32_t>{0xFFFFFFFF, 0xFFFFFFFF});
    EXPECT_TRUE(few.contains(0xFFFFFFFF));
    EXPECT_FALSE(few.contains(0));
    const PRBIdSet many(std::vector<std::uint32_t>{0xFFFFFFFF, 0, 7, 7, 7, 7, 0x80000000});
    EXPECT_TRUE(many.contains(0xFFFFFFFF));
    EXPECT_TRUE(many.contains(0));
    EXPECT_TRUE(many.contains(7));
    EXPECT_TRUE(many.contains(0x80000000));
    EXPECT_FALSE(many.contains(8));
}

} // namespace
