// Who can be attached to, told from /proc.
#include "prb/Target.h"
#include "tests/unit/prb/ProcFolder.h"

#include <gmock/gmock.h>

using namespace prb;
using testing::HasSubstr;

namespace {

class TargetTest : public testing::Test {
protected:
    Target look(uid_t self = 1000) const { return inspectTarget(4711, self, folder.proc); }
    ProcFolder folder;
};

TEST_F(TargetTest, aJvmIsKnownByTheLibraryThatItHasLoaded) {
    const Target target = look();
    EXPECT_EQ("", target.problem);
    EXPECT_EQ(4711, target.innerPid);
    EXPECT_EQ(1000u, target.uid);
    EXPECT_EQ(2000u, target.gid);
    EXPECT_EQ(64, target.jvm.bits);
    EXPECT_EQ("17.0.15", target.jvm.version);
    EXPECT_EQ(17, target.jvm.feature);
    EXPECT_TRUE(target.jvm.hotspot);
    EXPECT_FALSE(target.contained);
    EXPECT_EQ("", target.bridge);
    EXPECT_EQ("com.x.Main", target.name());
}

TEST_F(TargetTest, theWordSizeIsThatOfTheLibrary) {
    folder.jdk(32, "25.0.3", "gHotSpotVMStructs");
    EXPECT_EQ(32, look().jvm.bits);
    EXPECT_EQ("", look().problem);
}

TEST_F(TargetTest, theNumberInsideAContainerIsTheLastOne) {
    folder.status("S", 1000, "4711", "4", "7");
    EXPECT_EQ(7, look().innerPid);
}

TEST_F(TargetTest, aBridgeThatIsLoadedIsFound) {
    folder.maps(folder.jvmLibrary(), "1-2 r-xp 0 00:00 3   /opt/prb/libprbbridge.so\n");
    EXPECT_EQ("", look().problem);
    EXPECT_EQ("/opt/prb/libprbbridge.so", look().bridge);
}

TEST_F(TargetTest, aBridgeThatWasReplacedIsRefused) {
    folder.maps(folder.jvmLibrary(), "1-2 r-xp 0 00:00 3   /opt/libprbbridge.so (deleted)\n");
    EXPECT_EQ("process 4711 has loaded /opt/libprbbridge.so, which was replaced on disk since; "
              "restart the program to profile it again",
              look().problem);
}

TEST_F(TargetTest, whatIsNoProcessIsNamed) {
    EXPECT_EQ("there is no process 4712", inspectTarget(4712, 1000, folder.proc).problem);
}

TEST_F(TargetTest, aThreadIsNotAProcess) {
    folder.status("S", 1000, "4700");
    EXPECT_EQ("4711 is a thread of process 4700; name that one", look().problem);
}

TEST_F(TargetTest, theDeadAndTheStoppedAreNamed) {
    folder.status("Z (zombie)");
    EXPECT_EQ("process 4711 has ended", look().problem);
    folder.status("T (stopped)");
    EXPECT_EQ("process 4711 is stopped; let it go on first (kill -CONT 4711)", look().problem);
}

TEST_F(TargetTest, anotherUsersProcessIsNamedWithItsUser) {
    folder.status("S", 0);
    EXPECT_EQ("process 4711 belongs to user root; run prb as that user (sudo -u root prb ...)",
              look(1000).problem);
    folder.status("S", 1000);
    EXPECT_EQ("", look(0).problem); // root may
}

TEST_F(TargetTest, whatIsNoJvmIsNamed) {
    folder.maps("/lib/libc.so.6");
    EXPECT_EQ("process 4711 is not a JVM (it has loaded no libjvm.so)", look().problem);
}

TEST_F(TargetTest, aJvmThatIsNotHotSpotIsNamed) {
    folder.jdk(64, "17", "J9");
    EXPECT_EQ("process 4711 runs " + folder.jvmLibrary() +
                  ", which is not a HotSpot VM; prbprof works in HotSpot 17 and newer",
              look().problem);
}

TEST_F(TargetTest, anOldJvmIsNamed) {
    folder.jdk(64, "11.0.2", "gHotSpotVMStructs");
    EXPECT_EQ("process 4711 is a JVM of version 11.0.2; prbprof works in HotSpot 17 and newer",
              look().problem);
}

TEST_F(TargetTest, aJvmThatWasReplacedIsNamed) {
    folder.maps("/jdk/lib/server/libjvm.so (deleted)");
    EXPECT_THAT(look().problem, HasSubstr("was replaced on disk"));
}

TEST_F(TargetTest, aProcessIsCalledByItsJarOrMainClass) {
    Target target;
    target.arguments = {"/jdk/bin/java", "-jar", "/srv/shop.jar", "x"};
    EXPECT_EQ("shop.jar", target.name());
    target.arguments = {"java", "--class-path", "a:b", "-Xint", "-m", "mod/com.x.Y", "z"};
    EXPECT_EQ("com.x.Y", target.name());
    target.arguments = {"java"};
    EXPECT_EQ("java", target.name());
}

} // namespace
