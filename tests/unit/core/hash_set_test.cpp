#include "core/PRBHashSet.h"
#include "core/PRBMonitorHashTable.h"

#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <set>
#include <unordered_map>
#include <vector>

namespace {

struct Item : PRBCollectable {
    explicit Item(std::uint32_t k) : key(k) { ++alive; }
    Item(std::uint32_t k, std::uint32_t h) : key(k), forced(h), isForced(true) { ++alive; }
    Item(const Item&) = delete;
    Item& operator=(const Item&) = delete;
    ~Item() override { --alive; }
    std::uint32_t hash() const override {
        ++hashes;
        return isForced ? forced : key;
    }
    bool isEqual(const PRBCollectable* other) const override {
        ++compares;
        return static_cast<const Item*>(other)->key == key;
    }
    std::uint32_t key, forced = 0;
    bool isForced = false;
    static inline int alive = 0;
    static inline unsigned long hashes = 0, compares = 0;
};

std::set<std::uint32_t> keysOf(const PRBHashSet& set) {
    std::set<std::uint32_t> keys;
    PRBHashSet::Iterator next(set);
    while (PRBCollectable* item = next())
        EXPECT_TRUE(keys.insert(static_cast<Item*>(item)->key).second) << "answered twice";
    EXPECT_EQ(next(), nullptr);
    return keys;
}

} // namespace

TEST(HashSet, anEmptyOneFindsAndRemovesNothing) {
    PRBHashSet set;
    Item key(1);
    EXPECT_EQ(set.find(&key), nullptr);
    EXPECT_EQ(set.remove(&key), nullptr);
    EXPECT_EQ(set.entries(), 0u);
    EXPECT_TRUE(keysOf(set).empty());
}

TEST(HashSet, thoseWhoKnowTheElementsSpareItTheCallsOfHashAndIsEqual) {
    PRBHashSet set(16);
    Item one(1, 7), two(2, 7), three(3, 7); // all in a row
    const auto is = [](std::uint32_t key) {
        return [key](const PRBCollectable* c) { return static_cast<const Item*>(c)->key == key; };
    };
    const auto put = [&](Item& item) {
        return set.insertWith(7, is(item.key), [&]() -> PRBCollectable* { return &item; });
    };
    const unsigned long hashes = Item::hashes, compares = Item::compares;
    EXPECT_EQ(set.findWith(7, is(1)), nullptr);
    EXPECT_EQ(set.removeWith(7, is(1)), nullptr);
    for (Item* item : {&one, &two, &three}) {
        const auto inserted = put(*item);
        EXPECT_EQ(inserted.element, item);
        EXPECT_TRUE(inserted.isNew);
    }
    Item again(2, 7);
    EXPECT_EQ(put(again).element, &two);
    EXPECT_FALSE(put(again).isNew);
    EXPECT_EQ(set.findWith(7, is(3)), &three);
    EXPECT_EQ(set.findWith(7, is(4)), nullptr);
    EXPECT_EQ(set.removeWith(7, is(2)), &two);
    EXPECT_EQ(set.findWith(7, is(2)), nullptr);
    EXPECT_EQ(set.findWith(7, is(3)), &three); // behind the one that went
    EXPECT_EQ(put(again).element, &again);
    EXPECT_EQ(set.entries(), 3u);
    // Nothing made is nothing stored.
    const auto none = set.insertWith(7, is(9), []() -> PRBCollectable* { return nullptr; });
    EXPECT_EQ(none.element, nullptr);
    EXPECT_EQ(set.entries(), 3u);
    EXPECT_EQ(Item::hashes, hashes);
    EXPECT_EQ(Item::compares, compares);
    EXPECT_EQ(keysOf(set), (std::set<std::uint32_t>{1, 2, 3}));
}

TEST(HashTable, aHolderOfTheTableUsesAndKeepsTheElementLastTouched) {
    PRBMonitorHashTable table("Table", nullptr, kCallerGuarding);
    Item one(1), two(2);
    int asked = 0;
    const auto is = [&asked](std::uint32_t key) {
        return [key, &asked](const PRBCollectable* c) {
            ++asked;
            return static_cast<const Item*>(c)->key == key;
        };
    };
    for (Item* item : {&one, &two})
        table.insertHeld(item->key, is(item->key), [item]() -> PRBCollectable* { return item; });
    EXPECT_EQ(table.entriesHeld(), 2u);
    const unsigned long hashes = Item::hashes;
    EXPECT_EQ(table.find(&two), &two); // the one last inserted: not hashed
    EXPECT_EQ(Item::hashes, hashes);
    EXPECT_EQ(table.findHeld(1, is(1)), &one);
    EXPECT_EQ(table.find(&one), &one);
    EXPECT_EQ(Item::hashes, hashes);
    asked = 0;
    EXPECT_EQ(table.findHeld(1, is(1)), &one);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(table.removeHeld(2, is(2)), &two); // not the one last touched
    EXPECT_EQ(table.find(&one), &one);
    EXPECT_EQ(Item::hashes, hashes);
    EXPECT_EQ(table.removeHeld(1, is(1)), &one);
    EXPECT_EQ(table.findHeld(1, is(1)), nullptr);
    EXPECT_EQ(table.find(&one), nullptr);
}

TEST(HashSet, answersTheStoredElementForADuplicate) {
    PRBHashSet set(4);
    Item first(1), second(1);
    EXPECT_EQ(set.insert(&first), &first);
    EXPECT_EQ(set.insert(&second), &first);
    EXPECT_EQ(set.entries(), 1u);
    EXPECT_EQ(set.remove(&second), &first);
    EXPECT_EQ(set.remove(&second), nullptr);
}

TEST(HashSet, behavesLikeAMapUnderRandomUse) {
    // Few hashes, so that elements collide and tombstones matter.
    for (std::uint32_t spread : {0x7u, 0xFFu, 0xFFFFFFFFu}) {
        std::mt19937 random(spread);
        PRBHashSet set(16);
        std::unordered_map<std::uint32_t, Item*> truth;
        for (int step = 0; step < 20000; ++step) {
            const auto key = static_cast<std::uint32_t>(random() % 300);
            const std::uint32_t hash = (key * 2654435761u) & spread;
            Item probe(key, hash);
            auto known = truth.find(key);
            switch (random() % 3) {
            case 0: {
                auto item = std::make_unique<Item>(key, hash);
                PRBCollectable* stored = set.insert(item.get());
                if (known == truth.end()) {
                    ASSERT_EQ(stored, item.get());
                    truth[key] = item.release();
                } else {
                    ASSERT_EQ(stored, known->second);
                }
                break;
            }
            case 1: {
                std::unique_ptr<PRBCollectable> removed(set.remove(&probe));
                ASSERT_EQ(removed.get(), known == truth.end() ? nullptr : known->second);
                truth.erase(key);
                break;
            }
            default:
                ASSERT_EQ(set.find(&probe), known == truth.end() ? nullptr : known->second);
            }
            ASSERT_EQ(set.entries(), truth.size());
        }
        std::set<std::uint32_t> keys;
        for (const auto& [key, item] : truth) keys.insert(key);
        EXPECT_EQ(keysOf(set), keys);
        set.clearAndDestroy();
        EXPECT_EQ(Item::alive, 0);
    }
}

TEST(HashSet, lastAnsweredElementMayBeRemovedDuringAWalk) {
    PRBHashSet set(16);
    for (std::uint32_t i = 0; i < 1000; ++i) set.insert(new Item(i % 7 * 1000 + i, i % 13));
    std::set<std::uint32_t> seen;
    PRBHashSet::Iterator next(set);
    while (PRBCollectable* item = next()) {
        EXPECT_TRUE(seen.insert(static_cast<Item*>(item)->key).second);
        if (static_cast<Item*>(item)->key % 3 == 0) delete set.remove(item);
    }
    EXPECT_EQ(seen.size(), 1000u);
    for (std::uint32_t key : keysOf(set)) EXPECT_NE(key % 3, 0u);
    set.clearAndDestroy();
}

TEST(HashSet, comparesLittleAtAMillionElements) {
    constexpr std::uint32_t kMany = 1000000;
    PRBHashSet set;
    std::vector<std::unique_ptr<Item>> items;
    for (std::uint32_t i = 0; i < kMany; ++i)
        items.push_back(std::make_unique<Item>(0x10000000u + i * 16)); // addresses of objects
    Item::compares = 0;
    for (const auto& item : items) set.insert(item.get());
    for (const auto& item : items) ASSERT_EQ(set.find(item.get()), item.get());
    EXPECT_EQ(set.entries(), kMany);
    EXPECT_LT(Item::compares, 2ul * kMany);
    set.clear();
    EXPECT_EQ(set.entries(), 0u);
    EXPECT_EQ(set.find(items[0].get()), nullptr);
}

// The VM hands identifiers out in runs, and the runs may fall on the same cells: no search may then
// walk along a whole run.
TEST(HashSet, runsOfIdentifiersOnOneAnotherAreFoundInFewSteps) {
    constexpr std::uint32_t kRun = 40000;
    struct Case {
        const char* what;
        std::vector<std::uint32_t> starts;
    };
    const Case cases[] = {
        {"one run", {1}},
        {"a power of two apart", {1, 1u << 17 | 1, 1u << 18 | 1, 1u << 20 | 1}},
        {"the upper bits folded in", {1, (1u << 17 | 1u << 20) + 1, 3u << 22, 0x7000'0000}},
        {"the fold takes the run back", {0x20000, 0x60003, 0xE0007, 0x1E000F}},
    };
    for (const Case& row : cases) {
        PRBHashSet set;
        std::vector<std::unique_ptr<Item>> items;
        for (const std::uint32_t start : row.starts)
            for (std::uint32_t i = 0; i < kRun; ++i)
                items.push_back(std::make_unique<Item>(start + i));
        for (const auto& item : items) ASSERT_EQ(set.insert(item.get()), item.get()) << row.what;
        EXPECT_LT(set.farthest(), 1000u) << row.what;
        for (const auto& item : items) ASSERT_EQ(set.find(item.get()), item.get()) << row.what;
        for (const auto& item : items) ASSERT_EQ(set.remove(item.get()), item.get()) << row.what;
        EXPECT_EQ(set.entries(), 0u) << row.what;
        for (const auto& item : items) ASSERT_EQ(set.insert(item.get()), item.get()) << row.what;
        EXPECT_LT(set.farthest(), 1000u) << row.what;
        set.clear();
    }
}

class Registry : public ::testing::Test {
protected:
    PRBMonitorHashTable table{"_ObjectTable", nullptr, kCallerGuarding};
};

TEST_F(Registry, findsTheLastElementWithoutHashing) {
    auto* one = new Item(1);
    auto* two = new Item(2);
    table.insert(one);
    table.insert(two);
    Item one1(1), two2(2);
    Item::hashes = 0;
    EXPECT_EQ(table.find(&two2), two); // inserted last
    EXPECT_EQ(Item::hashes, 0u);
    EXPECT_EQ(table.find(&one1), one);
    EXPECT_EQ(Item::hashes, 1u);
    EXPECT_EQ(table.find(&one1), one); // found last
    EXPECT_EQ(Item::hashes, 1u);
    table.clearAndDestroy();
    EXPECT_EQ(Item::alive, 2);
}

TEST_F(Registry, aRejectedDuplicateLeavesTheStoredElementCached) {
    Item stored(1), duplicate(1);
    table.insert(&stored);
    EXPECT_EQ(table.insert(&duplicate), &stored);
    EXPECT_EQ(table.find(&duplicate), &stored);
    EXPECT_EQ(table.entries(), 1u);
}

TEST_F(Registry, removalForgetsTheCachedElementOnlyIfItIsTheOne) {
    auto* one = new Item(1);
    auto* two = new Item(2);
    table.insert(one);
    table.insert(two);
    Item one1(1), two2(2);
    std::unique_ptr<PRBCollectable> removed(table.remove(&one1));
    EXPECT_EQ(removed.get(), one);
    Item::hashes = 0;
    EXPECT_EQ(table.find(&two2), two);
    EXPECT_EQ(Item::hashes, 0u);
    const int alive = Item::alive;
    EXPECT_TRUE(table.removeAndDestroy(&two2));
    EXPECT_EQ(Item::alive, alive - 1);
    EXPECT_EQ(table.find(&two2), nullptr);
    EXPECT_FALSE(table.removeAndDestroy(&two2));
    EXPECT_EQ(table.remove(&two2), nullptr);
}

TEST_F(Registry, clearingDestroysAndForgets) {
    for (std::uint32_t i = 0; i < 100; ++i) table.insert(new Item(i));
    table.clearAndDestroy();
    EXPECT_EQ(Item::alive, 0);
    EXPECT_EQ(table.entries(), 0u);
    Item last(99);
    EXPECT_EQ(table.find(&last), nullptr);
}

TEST_F(Registry, isEmptyAtOnceAfterDetachingAndGivesMemoryBackLater) {
    const std::uint32_t before = PRBMemoryManager::getCurrentAllocation();
    for (std::uint32_t i = 0; i < 10000; ++i) table.insert(new Item(i));
    table.beginPause();
    const std::uint32_t full = PRBMemoryManager::getCurrentAllocation();
    table.detachAll(sizeof(Item));
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), full - 10000 * sizeof(Item));
    Item last(9999);
    EXPECT_EQ(table.find(&last), nullptr);
    EXPECT_EQ(table.entries(), 0u);
    table.insert(new Item(20000));
    EXPECT_EQ(Item::alive, 10002) << "nothing is deleted inside the pause";
    table.endPause();
    table.detachAll(sizeof(Item)); // a second collection before the first is reclaimed

    int steps = 0;
    while (table.reclaim(1000)) ++steps;
    EXPECT_GE(steps, 10);
    EXPECT_EQ(Item::alive, 1);
    EXPECT_EQ(PRBMemoryManager::getCurrentAllocation(), before);
}

TEST_F(Registry, insertionsReclaimWhatIsDetached) {
    for (std::uint32_t i = 0; i < 1000; ++i) table.insert(new Item(i));
    table.detachAll(sizeof(Item));
    for (std::uint32_t i = 0; i < 100; ++i) table.insert(new Item(i));
    EXPECT_EQ(Item::alive, 100);
    EXPECT_FALSE(table.reclaim(1));
    table.clearAndDestroy();
}

TEST(RegistryEnd, deletesWhatIsStillDetachedAndForgetsTheRest) {
    Item kept(1);
    {
        PRBMonitorHashTable table("_ObjectTable", nullptr, kCallerGuarding);
        for (std::uint32_t i = 0; i < 100; ++i) table.insert(new Item(i));
        table.detachAll(sizeof(Item));
        table.PRBHashSet::insert(&kept);
    }
    EXPECT_EQ(Item::alive, 1);
}
