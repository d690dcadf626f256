#include "core/PRBArena.h"
#include "core/PRBCollectable.h"
#include "core/PRBStringMask.h"
#include "runtime/PRBInstrumentedMethodEntry.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"
#include "runtime/PRBJavaObjectAllocated.h"

#include <gtest/gtest.h>
#include <memory>

TEST(Collectable, equalityHashAndOrderAreByAddress) {
    PRBCollectable both[2];
    const PRBCollectable &low = both[0], &high = both[1];
    EXPECT_TRUE(low.isEqual(&low));
    EXPECT_FALSE(low.isEqual(&high));
    EXPECT_EQ(low.compareTo(&low), 0);
    EXPECT_EQ(low.compareTo(&high), -1);
    EXPECT_EQ(high.compareTo(&low), 1);
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&low));
    const auto address = static_cast<std::uint32_t>(bits ^ (bits >> 32));
    EXPECT_EQ(low.hash(), address ^ (address >> 3));
    EXPECT_EQ(low.isA(), 0);
    EXPECT_EQ(low.binaryStoreSize(), 0u);
}

TEST(Collectable, makesNewObjectsOfItsClass) {
    PRBCollectable plain;
    std::unique_ptr<PRBCollectable> fresh(plain.newSpecies()), copied(plain.copy());
    EXPECT_EQ(fresh->isA(), 0);
    EXPECT_EQ(copied->isA(), 0);
    PRBCollectableString text("abc");
    std::unique_ptr<PRBCollectable> empty(text.newSpecies()), same(text.copy());
    EXPECT_TRUE(static_cast<PRBCollectableString&>(*empty).empty());
    EXPECT_TRUE(same->isEqual(&text));
}

TEST(CollectableString, isComparedByText) {
    PRBCollectableString a("abc"), same("xabcx", 1, 3), b("abd"), upper("ABC");
    EXPECT_TRUE(a.isEqual(&same));
    EXPECT_EQ(a.hash(), same.hash());
    EXPECT_EQ(a.compareTo(&same), 0);
    EXPECT_FALSE(a.isEqual(&upper));
    EXPECT_LT(a.compareTo(&b), 0);
    EXPECT_GT(b.compareTo(&a), 0);
    EXPECT_NE(a.isA(), PRBCollectable().isA());
    EXPECT_FALSE(a.isEqual(std::make_unique<PRBCollectable>().get()));
    EXPECT_TRUE(PRBCollectableString(static_cast<const char*>(nullptr)).empty());
}

TEST(CollectableFactory, createsTheRootClassOnly) {
    std::unique_ptr<PRBCollectable> made(PRBCollectableFactory::create(0));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->isA(), 0);
    EXPECT_EQ(PRBCollectableFactory::create(32740), nullptr);
}

TEST(ClassIdentifiers, areThoseOfTheTable) {
    EXPECT_EQ(PRBArena().isA(), 32743);
    EXPECT_EQ(PRBJavaClass().isA(), 32744);
    EXPECT_EQ(PRBJavaObjectAllocated().isA(), 32742);
    EXPECT_EQ(PRBJavaMethod().isA(), 32741);
    EXPECT_EQ(PRBStringMask("a", kExactCase).isA(), 32733);
    EXPECT_EQ(PRBJavaObject().isA(), 0);
}

TEST(Arena, isEqualById) {
    PRBArena one(7, "one"), same(7, nullptr), other(8, "one");
    EXPECT_TRUE(one.isEqual(&same));
    EXPECT_FALSE(one.isEqual(&other));
    EXPECT_EQ(one.hash(), 7u);
    EXPECT_EQ(one.getArenaId(), 7);
    EXPECT_EQ(one.getName(), "one");
    EXPECT_EQ(same.getName(), "");
    // A class whose id is the same number is no arena.
    PRBJavaClass cls(reinterpret_cast<jobjectID>(std::uintptr_t{7}));
    EXPECT_FALSE(one.isEqual(&cls));
    EXPECT_EQ(PRBArena().getArenaId(), 0);
}
