#include "bridge/FlatMap.h"

#include <random>
#include <string>
#include <unordered_map>

#include <gtest/gtest.h>

namespace bridge {
namespace {

TEST(FlatMap, anEmptyMapKnowsNothing) {
    FlatMap<uint32_t, int> map;
    EXPECT_EQ(nullptr, map.find(1));
    EXPECT_EQ(nullptr, map.find(0));
    EXPECT_FALSE(map.erase(1));
    EXPECT_EQ(0u, map.size());
}

TEST(FlatMap, aSecondPutReplaces) {
    FlatMap<const char*, std::string> map;
    const char key[] = "k";
    map.put(key, "first");
    map.put(key, "second");
    ASSERT_NE(nullptr, map.find(key));
    EXPECT_EQ("second", *map.find(key));
    EXPECT_EQ(1u, map.size());
}

// Against the library's map, with keys that crowd together so that chains form and wrap.
TEST(FlatMap, agreesWithTheLibrarysMapUnderRandomUse) {
    std::mt19937 random(7);
    for (uint32_t span : {50u, 5000u}) {
        FlatMap<uint32_t, uint32_t> map;
        std::unordered_map<uint32_t, uint32_t> truth;
        for (uint32_t i = 0; i < 200000; i++) {
            const uint32_t key = 1 + static_cast<uint32_t>(random() % span);
            if (random() % 3 == 0) {
                EXPECT_EQ(truth.erase(key) == 1, map.erase(key));
            } else {
                map.put(key, i);
                truth[key] = i;
            }
            ASSERT_EQ(truth.size(), map.size());
        }
        for (uint32_t key = 0; key <= span + 1; key++) {
            const auto known = truth.find(key);
            const uint32_t* found = map.find(key);
            ASSERT_EQ(known != truth.end(), found != nullptr) << key;
            if (found) {
                EXPECT_EQ(known->second, *found);
            }
        }
    }
}

TEST(FlatMap, churnDoesNotGrowTheTable) {
    FlatMap<uint32_t, int> map;
    for (uint32_t key = 1; key <= 32; key++) map.put(key, 0);
    const size_t bytes = map.bytes();
    for (uint32_t key = 33; key < 100000; key++) {
        map.put(key, 0);
        ASSERT_TRUE(map.erase(key - 32));
    }
    EXPECT_EQ(32u, map.size());
    EXPECT_EQ(bytes, map.bytes());
}

} // namespace
} // namespace bridge
