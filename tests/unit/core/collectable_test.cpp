#include "core/PRBArena.h"
#include "core/PRBCollectable.h"
#include "runtime/PRBJavaClass.h"

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

// The operations of a value string that the agent relies on.
TEST(CollectableString, isAValueString) {
    PRBCollectableString text("com/x/Order.price");
    EXPECT_EQ(text.length(), 17u);
    EXPECT_STREQ(text.data(), "com/x/Order.price");
    EXPECT_TRUE(PRBCollectableString().empty());
    // The index of a character or a text, minus one when it is absent.
    EXPECT_EQ(static_cast<int>(text.find('/')), 3);
    EXPECT_EQ(static_cast<int>(text.rfind('/')), 5);
    EXPECT_EQ(static_cast<int>(text.find("Order")), 6);
    EXPECT_EQ(static_cast<int>(text.find('!')), -1);
    EXPECT_EQ(static_cast<int>(text.rfind('!')), -1);
    EXPECT_EQ(static_cast<int>(text.find("order")), -1);

    PRBCollectableString copy(text);
    copy.replace(0, 5, "org");
    EXPECT_EQ(copy, "org/Order.price");
    EXPECT_EQ(text, "com/x/Order.price"); // a copy is independent
    copy.erase(9);
    EXPECT_EQ(copy, "org/Order");
    copy.erase(3, 1);
    EXPECT_EQ(copy, "orgOrder");
    copy.resize(3);
    EXPECT_EQ(copy, "org");
    copy.resize(5);
    EXPECT_EQ(copy.length(), 5u);
    EXPECT_EQ(copy[3], '\0');
    copy = text;
    copy += "()";
    copy.append(1, 'V');
    EXPECT_EQ(copy, text + "()V");
    EXPECT_TRUE(copy.isEqual(std::make_unique<PRBCollectableString>(text + "()V").get()));
    EXPECT_EQ(PRBCollectableString(text, 6, 5), "Order");
}

TEST(CollectableFactory, createsTheRootClassOnly) {
    std::unique_ptr<PRBCollectable> made(PRBCollectableFactory::create(0));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->isA(), 0);
    EXPECT_EQ(PRBCollectableFactory::create(32740), nullptr);
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
