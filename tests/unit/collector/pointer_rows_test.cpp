// Rows found by a pointer.
#include "collector/PRBPointerRows.h"

#include <gtest/gtest.h>

namespace {

struct Row {
    const void* key;
    int value;
};

const void* at(std::uintptr_t number) { return reinterpret_cast<const void*>(number); }

TEST(PointerRows, findWhatWasAddedAndNothingElseUpToTheLastRow) {
    constexpr std::size_t kMost = 4096;
    for (std::uintptr_t stride : {1U, 8U, 24U, 4096U, 8192U, 65536U}) {
        PRBPointerRows<Row, kMost> rows;
        for (std::uintptr_t i = 1; i <= kMost; ++i) {
            ASSERT_EQ(rows.find(at(i * stride)), nullptr) << stride << " " << i;
            rows.add({at(i * stride), static_cast<int>(i)});
        }
        for (std::uintptr_t i = 1; i <= kMost; ++i) {
            Row* row = rows.find(at(i * stride));
            ASSERT_NE(row, nullptr) << stride << " " << i;
            ASSERT_EQ(row->value, static_cast<int>(i));
        }
        EXPECT_EQ(rows.find(at((kMost + 1) * stride)), nullptr);
        EXPECT_EQ(rows.rows().size(), kMost);
        EXPECT_EQ(rows.rows().front().value, 1);
        EXPECT_EQ(rows.rows().back().value, static_cast<int>(kMost));
        rows.clear();
        EXPECT_TRUE(rows.rows().empty());
        EXPECT_EQ(rows.find(at(stride)), nullptr);
        rows.add({at(stride), 7});
        EXPECT_EQ(rows.find(at(stride))->value, 7);
    }
}

} // namespace
