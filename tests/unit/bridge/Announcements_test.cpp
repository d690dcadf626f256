#include "bridge/Announcements.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

namespace bridge {
namespace {

JNIEnv* env(uintptr_t number) { return reinterpret_cast<JNIEnv*>(number); }

TEST(Announcements, aThreadIsClaimedOnce) {
    Announcements all;
    EXPECT_FALSE(all.claim(env(1)));
    all.started(env(1));
    EXPECT_TRUE(all.claim(env(1)));
    EXPECT_FALSE(all.claim(env(1)));
    all.announced(env(1));
    EXPECT_FALSE(all.claim(env(1)));
}

TEST(Announcements, aSecondStartOfTheSameThreadChangesNothing) {
    Announcements all;
    all.started(env(1));
    EXPECT_TRUE(all.claim(env(1)));
    all.announced(env(1));
    all.started(env(1));
    EXPECT_FALSE(all.claim(env(1)));
}

TEST(Announcements, whatIsAskedForIsAlwaysAnnouncedWhileTheThreadLives) {
    Announcements all;
    EXPECT_FALSE(all.claimAgain(env(1)));
    all.started(env(1));
    EXPECT_TRUE(all.claimAgain(env(1)));
    all.announced(env(1));
    EXPECT_FALSE(all.claim(env(1)));
    EXPECT_TRUE(all.claimAgain(env(1)));
    all.announced(env(1));
    all.ended(env(1));
    EXPECT_FALSE(all.claimAgain(env(1)));
    EXPECT_FALSE(all.claim(env(1)));
}

TEST(Announcements, anEnvironmentThatIsUsedAgainIsANewThread) {
    Announcements all;
    all.started(env(1));
    EXPECT_TRUE(all.claim(env(1)));
    all.announced(env(1));
    all.ended(env(1));
    all.started(env(1));
    EXPECT_TRUE(all.claim(env(1)));
}

TEST(Announcements, afterSwitchingOffEveryThreadMayBeAnnouncedAgain) {
    Announcements all;
    all.started(env(1));
    EXPECT_TRUE(all.claim(env(1)));
    all.announced(env(1));
    all.forget();
    EXPECT_TRUE(all.claim(env(1)));
}

TEST(Announcements, aThreadDoesNotEndWhileItIsBeingAnnounced) {
    Announcements all;
    all.started(env(1));
    ASSERT_TRUE(all.claim(env(1)));
    ASSERT_TRUE(all.claimAgain(env(1)));
    std::atomic<bool> ended{false};
    std::thread ending([&] {
        all.ended(env(1));
        ended = true;
    });
    while (all.claimAgain(env(1))) all.announced(env(1)); // until it has begun to end
    EXPECT_FALSE(ended);
    all.announced(env(1));
    EXPECT_FALSE(ended);
    all.announced(env(1));
    ending.join();
    EXPECT_TRUE(ended);
}

} // namespace
} // namespace bridge
