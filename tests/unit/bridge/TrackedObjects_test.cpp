#include "bridge/TrackedObjects.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bridge {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kBlock = TrackedObjects::kBlock;

// A reference is a number; every third object is dead.
jweak reference(uintptr_t number) { return reinterpret_cast<jweak>(number << 2); }
bool everyThird(jweak weak) { return (reinterpret_cast<uintptr_t>(weak) >> 2) % 3 == 0; }
bool all(jweak) { return true; }

std::vector<uint32_t>& told() {
    static std::vector<uint32_t> ids;
    return ids;
}
void tell(uint32_t id) { told().push_back(id); }

class Tracked : public testing::Test {
protected:
    Tracked() { told().clear(); }
    static void remove(void* context, jweak weak) {
        static_cast<Tracked*>(context)->removed.push_back(weak);
    }
    bool add(TrackedObjects& objects, uint32_t number) {
        if (!objects.reserve(remove, this)) return false;
        objects.add(1000 + number, reference(number));
        return true;
    }
    std::vector<jweak> removed;
};

TEST_F(Tracked, theDeadAreToldOnceAndTheOthersNeverAgain) {
    TrackedObjects objects(10 * kBlock);
    for (uint32_t i = 1; i <= 7; i++) EXPECT_TRUE(add(objects, i));
    objects.collect(everyThird, tell);
    EXPECT_THAT(told(), ElementsAre(1003, 1006));
    told().clear();
    objects.collect(all, tell);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(add(objects, 9));
    objects.collect(everyThird, tell);
    EXPECT_THAT(told(), ElementsAre(1009));
    EXPECT_EQ(8u, objects.references());
}

TEST_F(Tracked, referencesAreDeletedWhenTheirBlockIsUsedAgainAndNotBefore) {
    TrackedObjects objects(kBlock);
    for (uint32_t i = 0; i < kBlock; i++) EXPECT_TRUE(add(objects, i + 1));
    objects.collect(everyThird, tell);
    EXPECT_THAT(removed, IsEmpty());
    EXPECT_TRUE(add(objects, 5000));
    ASSERT_EQ(kBlock, removed.size());
    EXPECT_EQ(reference(1), removed.front());
    EXPECT_EQ(reference(kBlock), removed.back());
    EXPECT_EQ(1u, objects.references());
}

TEST_F(Tracked, theMostAreTrackedAndNoMoreUntilACollection) {
    TrackedObjects objects(2 * kBlock);
    for (uint32_t i = 0; i < 2 * kBlock; i++) ASSERT_TRUE(add(objects, i + 1));
    EXPECT_FALSE(add(objects, 1));
    EXPECT_FALSE(add(objects, 1));
    EXPECT_EQ(2u, objects.refused());
    EXPECT_EQ(2 * kBlock, objects.references());
    const size_t bytes = objects.bytes();
    objects.collect(all, tell);
    EXPECT_EQ(2 * kBlock, told().size());
    for (uint32_t i = 0; i < 2 * kBlock; i++) ASSERT_TRUE(add(objects, i + 1));
    EXPECT_FALSE(add(objects, 1));
    EXPECT_EQ(2 * kBlock, removed.size());
    EXPECT_EQ(bytes, objects.bytes());
}

TEST_F(Tracked, clearingDeletesEveryReferenceAndTellsNothing) {
    TrackedObjects objects(2 * kBlock);
    for (uint32_t i = 0; i < kBlock + 5; i++) ASSERT_TRUE(add(objects, i + 1));
    objects.collect(everyThird, tell);
    for (uint32_t i = 0; i < 5; i++) ASSERT_TRUE(add(objects, 6000 + i));
    told().clear();
    objects.clear(remove, this);
    EXPECT_EQ(kBlock + 10, removed.size());
    EXPECT_EQ(0u, objects.references());
    objects.collect(all, tell);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_TRUE(add(objects, 1));
    EXPECT_EQ(1u, objects.references());
}

TEST_F(Tracked, theBlockOfAThreadThatEndedIsFilledByOthers) {
    TrackedObjects objects(kBlock);
    std::thread([&] { EXPECT_TRUE(add(objects, 1)); }).join();
    EXPECT_TRUE(add(objects, 2));
    EXPECT_EQ(2u, objects.references());
    // While its owner lives, it is the owner's.
    std::thread([&] { EXPECT_FALSE(add(objects, 3)); }).join();
}

TEST_F(Tracked, oneSetsBlockIsNotAnothers) {
    TrackedObjects one(kBlock);
    EXPECT_TRUE(add(one, 1));
    TrackedObjects other(kBlock);
    EXPECT_TRUE(add(other, 2));
    EXPECT_EQ(1u, one.references());
    EXPECT_EQ(1u, other.references());
}

// Threads add while one collects again and again: every object is told exactly once.
TEST_F(Tracked, whatIsAddedDuringACollectionIsToldByThisOneOrTheNext) {
    TrackedObjects objects(size_t{1} << 20);
    constexpr uint32_t kThreads = 3;
    constexpr uint32_t kEach = 60000;
    std::atomic<uint32_t> running{kThreads};
    std::vector<std::thread> threads;
    for (uint32_t t = 0; t < kThreads; t++)
        threads.emplace_back([&objects, &running, t] {
            const auto ignore = [](void*, jweak) {};
            for (uint32_t i = 0; i < kEach; i++) {
                const uint32_t number = t * kEach + i;
                EXPECT_TRUE(objects.reserve(ignore, nullptr));
                objects.add(number, reference(number + 1));
            }
            running--;
        });
    while (running != 0) objects.collect(all, tell);
    for (std::thread& thread : threads) thread.join();
    objects.collect(all, tell);
    std::sort(told().begin(), told().end());
    ASSERT_EQ(kThreads * kEach, told().size());
    for (uint32_t i = 0; i < kThreads * kEach; i++) ASSERT_EQ(i, told()[i]);
}

TEST_F(Tracked, clearingWhileOthersAddAndCollectLosesNoReference) {
    TrackedObjects objects(size_t{1} << 18);
    std::atomic<uint64_t> deleted{0};
    const auto count = [](void* context, jweak) {
        ++*static_cast<std::atomic<uint64_t>*>(context);
    };
    std::atomic<uint64_t> added{0};
    std::atomic<bool> adding{true};
    std::thread adder([&] {
        for (uint32_t i = 0; i < 200000; i++) {
            if (!objects.reserve(count, &deleted)) continue;
            objects.add(i, reference(i + 1));
            added++;
        }
        adding = false;
    });
    std::thread collector([&] {
        while (adding) objects.collect(everyThird, [](uint32_t) {});
    });
    while (adding) objects.clear(count, &deleted);
    adder.join();
    collector.join();
    objects.clear(count, &deleted);
    EXPECT_EQ(added, deleted);
    EXPECT_EQ(0u, objects.references());
}

} // namespace
} // namespace bridge
