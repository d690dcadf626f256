#include "prb/LaunchPlan.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace fs = std::filesystem;
using namespace prb;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

// A made-up machine: JDK homes whose files are what the tool looks at, and product folders.
class LaunchPlanTest : public testing::Test {
protected:
    void SetUp() override {
        root = testing::TempDir() + "launch" + std::to_string(getpid());
        fs::create_directories(root);
        unsetenv("JAVA_HOME");
        unsetenv("JAVA_TOOL_OPTIONS");
    }
    void TearDown() override { fs::remove_all(root); }

    static void elf(const std::string& path, int bits, const std::string& rest = "") {
        fs::create_directories(fs::path(path).parent_path());
        std::ofstream(path, std::ios::binary)
            << "\x7f"
            << "ELF" << static_cast<char>(bits == 32 ? 1 : 2) << rest;
        fs::permissions(path, fs::perms::owner_all);
    }
    std::string jdk(const std::string& name, int bits, const std::string& version,
                    bool hotspot = true) {
        const std::string home = root + "/" + name;
        elf(home + "/bin/java", bits);
        elf(home + "/bin/javac", bits);
        elf(home + "/lib/server/libjvm.so", bits, hotspot ? "..gHotSpotVMStructs.." : "J9");
        std::ofstream(home + "/release")
            << "IMPLEMENTOR=\"x\"\nJAVA_VERSION=\"" << version << "\"\n";
        return home;
    }
    void products() {
        for (const char* f : {"libprbbridge.so", "libprbprof.so", "prbprof.jar"}) {
            elf(root + "/build/release/" + f, 64);
            elf(root + "/build/release-i386/" + f, 32);
        }
        folder = root + "/build/release";
    }
    LaunchPlan plan(const RunOptions& options, const std::vector<std::string>& command) {
        return planLaunch(options, command, folder, "/w");
    }
    std::string root, folder;
};

TEST_F(LaunchPlanTest, JavaGetsTheOptionFirstOnItsLine) {
    products();
    RunOptions options;
    options.javaHome = jdk("jdk", 64, "17.0.15");
    const LaunchPlan p = plan(options, {"java", "-jar", "a.jar", "x"});
    EXPECT_EQ(p.problem, "");
    EXPECT_THAT(p.argv, ElementsAre(options.javaHome + "/bin/java",
                                    "-agentpath:" + folder + "/libprbbridge.so=file=/w/prb-%p.prb",
                                    "-jar", "a.jar", "x"));
    EXPECT_TRUE(p.oneJvm);
    EXPECT_EQ(p.toolOptions, "");
}

TEST_F(LaunchPlanTest, JavacGetsItBehindMinusJ) {
    products();
    RunOptions options;
    options.javaHome = jdk("jdk", 64, "17.0.15");
    const LaunchPlan p = plan(options, {"/any/where/javac", "A.java"});
    EXPECT_THAT(p.argv[1], StartsWith("-J-agentpath:" + folder + "/libprbbridge.so="));
    EXPECT_EQ(p.argv[0], options.javaHome + "/bin/javac");
}

TEST_F(LaunchPlanTest, A32BitJvmGetsThe32BitLibraries) {
    products();
    RunOptions options;
    options.javaHome = jdk("jdk32", 32, "17.0.19");
    const LaunchPlan p = plan(options, {"java", "Main"});
    EXPECT_THAT(p.argv[1],
                StartsWith("-agentpath:" + root + "/build/release-i386/libprbbridge.so"));
}

TEST_F(LaunchPlanTest, OtherCommandsGetItThroughTheEnvironmentAndACaptureEach) {
    products();
    RunOptions options;
    options.javaHome = jdk("jdk", 64, "21");
    options.out = "out/mine.prb";
    const LaunchPlan p = plan(options, {"mvn", "package"});
    EXPECT_THAT(p.argv, ElementsAre("mvn", "package"));
    EXPECT_EQ(p.capturePattern, "/w/out/mine-%p.prb");
    EXPECT_EQ(p.toolOptions, "-agentpath:" + folder + "/libprbbridge.so=file=/w/out/mine-%p.prb");
    EXPECT_FALSE(p.oneJvm);
    setenv("JAVA_TOOL_OPTIONS", "-Xint", 1);
    EXPECT_THAT(plan(options, {"mvn"}).toolOptions, StartsWith("-Xint -agentpath:"));
}

TEST_F(LaunchPlanTest, ToolOptionsAreQuotedWhenAPathHasBlanks) {
    products();
    RunOptions options;
    options.javaHome = jdk("jdk", 64, "17");
    options.out = "my file.prb";
    const LaunchPlan p = plan(options, {"ant"});
    EXPECT_EQ(p.toolOptions.front(), '"');
    EXPECT_EQ(p.toolOptions.back(), '"');
}

TEST_F(LaunchPlanTest, JavaHomeFromTheEnvironmentDecidesForOtherCommands) {
    products();
    setenv("JAVA_HOME", jdk("jdk32", 32, "17.0.19").c_str(), 1);
    EXPECT_THAT(plan({}, {"gradle"}).toolOptions, HasSubstr("release-i386"));
}

TEST_F(LaunchPlanTest, WhatCannotBeProfiledIsStartedAsItWasGiven) {
    products();
    const struct {
        std::string home;
        const char* said;
    } cases[] = {
        {jdk("j9", 64, "17", false), "is not a HotSpot VM"},
        {jdk("old", 64, "1.8.0_392"), "this JVM is version 1.8.0_392"},
        {jdk("eleven", 64, "11.0.2"), "this JVM is version 11.0.2"},
        {root + "/nowhere", "there is no such java"},
    };
    for (const auto& c : cases) {
        RunOptions options;
        options.javaHome = c.home;
        const LaunchPlan p = plan(options, {"java", "Main"});
        EXPECT_THAT(p.problem, HasSubstr(c.said));
        EXPECT_THAT(p.argv, ElementsAre(c.home + "/bin/java", "Main"));
        EXPECT_EQ(p.toolOptions, "");
    }
}

TEST_F(LaunchPlanTest, MissingLibrariesSayWhereTheyWereLookedForAndHowToBuildThem) {
    folder = root + "/empty";
    RunOptions options;
    options.javaHome = jdk("jdk", 64, "17");
    EXPECT_THAT(plan(options, {"java"}).problem,
                testing::AllOf(HasSubstr("no 64-bit libprbbridge.so found"), HasSubstr(folder),
                               HasSubstr("cmake --preset release")));
    products();
    fs::remove(folder + "/libprbprof.so");
    EXPECT_THAT(plan(options, {"java"}).problem, HasSubstr("libprbprof.so is missing"));
}

TEST_F(LaunchPlanTest, ALibraryOfTheWrongWordSizeIsNotTaken) {
    products();
    elf(root + "/build/release/libprbbridge.so", 32);
    RunOptions options;
    options.javaHome = jdk("jdk", 64, "17");
    EXPECT_THAT(plan(options, {"java"}).problem, HasSubstr("no 64-bit libprbbridge.so"));
}

TEST(BridgeOptions, EverythingAskedForIsInTheText) {
    RunOptions options;
    options.intervalMs = 5;
    options.pollSeconds = 0.25;
    options.data = {"threads", "methods"};
    options.classes = {"com.x.*", "org.*"};
    options.methods = {"com.x.A?run"};
    options.name = "a,b\\c";
    options.agent = {"debug=yes", "filter=(PRBCMNGL;PRBCCLCO)"};
    options.bridge = {"fork=plain"};
    options.quiet = true;
    EXPECT_EQ(bridgeOptions(options, "/w/x.prb"),
              "file=/w/x.prb,name=a\\,b\\\\c,data=threads+methods,interval=5,poll=0.25,"
              "classes=com.x.*+org.*,methods=com.x.A?run,quiet=yes,agent.debug=yes,"
              "agent.filter=(PRBCMNGL;PRBCCLCO),fork=plain");
}

TEST(ElfBits, TellsWordSizesAndEverythingElse) {
    EXPECT_EQ(elfBits("/proc/self/exe"), static_cast<int>(sizeof(void*) * 8));
    EXPECT_EQ(elfBits("/etc/passwd"), 0);
    EXPECT_EQ(elfBits("/no/such"), 0);
}

} // namespace
