#include "bridge/ClassMemo.h"

#include <gtest/gtest.h>

namespace bridge {
namespace {

const char heap[1 << 16] = {};

TEST(ClassMemo, whatWasPutIsFoundInItsEpochAndNoOther) {
    ClassMemo memo;
    EXPECT_EQ(nullptr, memo.find(heap, 1));
    memo.put(heap, 1, {7, 10});
    const KnownClass* found = memo.find(heap, 1);
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(7u, found->id);
    EXPECT_EQ(10, found->type);
    EXPECT_EQ(nullptr, memo.find(heap, 2));
    EXPECT_EQ(nullptr, memo.find(heap + 8, 1));
    EXPECT_EQ(nullptr, memo.find(nullptr, 0)); // an empty entry is no class
}

TEST(ClassMemo, manyClassesNeverAnswerForEachOther) {
    ClassMemo memo;
    int found = 0;
    for (uint32_t i = 0; i < 500; i++) memo.put(heap + i * 112, 3, {i + 1, 0});
    for (uint32_t i = 0; i < 500; i++) {
        const KnownClass* known = memo.find(heap + i * 112, 3);
        if (!known) continue; // pushed out
        found++;
        EXPECT_EQ(i + 1, known->id);
    }
    EXPECT_GT(found, 30);
    EXPECT_LE(found, 64);
}

} // namespace
} // namespace bridge
