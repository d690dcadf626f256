// Attaching to JVMs of other users and in other name spaces: it works, or a line says what is
// missing. What a JVM is asked is the same on every JVM.
#include "tests/live/Background.h"
#include "tests/live/Live.h"

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace live {
namespace {

class Strangers : public testing::Test {
protected:
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "only root can run programs as another user";
        ASSERT_EQ(0, chmod(folder.path().c_str(), 0777));
    }
    // A user whom nobody else is; with `reads` it may read whatever the products lie in.
    std::vector<std::string> asUser(bool reads = true) const {
        std::vector<std::string> argv = {"setpriv", "--reuid", user,
                                         "--regid", user,      "--clear-groups"};
        if (reads)
            argv.insert(argv.end(), {"--inh-caps", "-all,+dac_override", "--ambient-caps",
                                     "-all,+dac_override"});
        return argv;
    }
    static std::vector<std::string> sample(std::vector<std::string> before, int seconds) {
        before.insert(before.end(), {javac17().home + "/bin/java", "-XX:-UsePerfData", "-jar",
                                     product("sample.jar"), "--seconds", std::to_string(seconds)});
        return before;
    }
    // Name spaces of its own, with mounts made first. They end with this process's child.
    static std::vector<std::string> contained(const std::string& mounts) {
        return {"unshare",      "-p",   "-m", "--kill-child",
                "--mount-proc", "bash", "-c", mounts + "; cd /; exec \"$@\"",
                "bash"};
    }
    static bool canContain() {
        return run({"unshare", "-p", "-m", "--fork", "true"}).exitCode == 0;
    }
    static bool serves(const Background& server) {
        return soon([&] { return server.out().find("order server") != std::string::npos; });
    }
    // The JVM that unshare has started.
    static int childOf(const Background& server) {
        const std::vector<int> children = childrenOf(server.pid());
        return children.size() == 1 ? children[0] : -1;
    }
    static prb::Captured attach(int pid, const std::vector<std::string>& options,
                                std::vector<std::string> before = {}) {
        before.insert(before.end(), {prb(), "attach", std::to_string(pid)});
        before.insert(before.end(), options.begin(), options.end());
        return run(before);
    }
    static void expectItsOwnEnd(Background& server) {
        EXPECT_EQ(0, server.wait()) << server.err();
        EXPECT_THAT(server.out(), HasSubstr("books             balanced"));
        EXPECT_THAT(server.err(), testing::Not(HasSubstr("hs_err")));
    }
    static void expectProfile(const prb::Captured& result, const std::string& jsonFile) {
        EXPECT_EQ(0, result.exitCode) << result.err;
        const json report = json::parse(slurp(jsonFile), nullptr, false);
        ASSERT_TRUE(report.is_object()) << result.err;
        EXPECT_EQ(true, report["run"]["complete"]);
        EXPECT_EQ(json::array(), report["run"]["errors"]);
        EXPECT_GT(report["run"]["busy_samples"], 2);
    }
    static std::string refusal(int pid, const std::string& text) {
        return "prb: process " + std::to_string(pid) + " " + text + "\n";
    }

    Folder folder;
    const std::string user = std::to_string(20000 + getpid() % 40000);
};

TEST_F(Strangers, RootProfilesAnotherUsersJvmAndTheCaptureIsThatUsers) {
    Background server(sample(asUser(), 4));
    ASSERT_TRUE(serves(server)) << server.err();
    const prb::Captured unwritable = attach(server.pid(), {"--out", "/proc/x.prb"});
    EXPECT_EQ(1, unwritable.exitCode);
    EXPECT_THAT(unwritable.err, HasSubstr("cannot write the capture file: /proc/x.prb"));
    expectProfile(attach(server.pid(), {"--seconds", "1", "--out", "other.prb", "--format", "json",
                                        "--report", "other.json"}),
                  "other.json");
    struct stat capture {};
    ASSERT_EQ(0, stat("other.prb", &capture));
    EXPECT_EQ(user, std::to_string(capture.st_uid));
    expectItsOwnEnd(server);
}

TEST_F(Strangers, AnotherUsersPrbIsToldWhoseTheJvmIs) {
    Background server(sample({}, 2));
    ASSERT_TRUE(serves(server)) << server.err();
    const prb::Captured result = attach(server.pid(), {"--seconds", "1"}, asUser());
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ(refusal(server.pid(), "belongs to user root; run prb as that user (sudo -u root prb "
                                    "...)"),
              result.err);
    expectItsOwnEnd(server);
}

TEST_F(Strangers, AJvmInAContainerIsProfiledUntilItsEndAndAfter) {
    if (!canContain()) GTEST_SKIP() << "no name spaces can be made here";
    Background server(sample(contained("mount -t tmpfs none /tmp"), 5));
    ASSERT_TRUE(serves(server)) << server.err();
    const int jvm = childOf(server);
    const std::string inside = "/proc/" + std::to_string(jvm) + "/root";
    const prb::Captured first = attach(jvm, {"--seconds", "1", "--out", "/tmp/c.prb", "--format",
                                             "json", "--report", "first.json"});
    expectProfile(first, "first.json");
    EXPECT_THAT(first.err, HasSubstr(" into " + inside + "/tmp/c.prb; 1 seconds"));
    EXPECT_TRUE(fs::exists(inside + "/tmp/c.prb"));
    // Its files go with its last process; the profile does not.
    expectProfile(attach(jvm, {"--format", "json", "--report", "last.json"}), "last.json");
    expectItsOwnEnd(server);
}

TEST_F(Strangers, AContainerWithoutOurLibrariesIsToldWhatIsMissing) {
    if (!canContain()) GTEST_SKIP() << "no name spaces can be made here";
    const std::string libraries = fs::path(prb()).parent_path().string();
    // In the products' place is a folder with the program alone.
    Background server(sample(contained("mount -t tmpfs none /mnt; cp '" + product("sample.jar") +
                                       "' /mnt; mount --bind /mnt '" + libraries + "'"),
                             3));
    ASSERT_TRUE(serves(server)) << server.err();
    const int jvm = childOf(server);
    const prb::Captured result = attach(jvm, {"--seconds", "1"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ(refusal(jvm, "sees other files than prb (it runs in a container), and not " +
                               libraries + "/libprbbridge.so: copy the folder " + libraries +
                               " to the same place inside, or run prb inside"),
              result.err);
    expectItsOwnEnd(server);
}

// Nothing is begun whose beginning nobody would learn of.
TEST_F(Strangers, AContainerWithoutRoomIsToldBeforeAnythingBegins) {
    if (!canContain()) GTEST_SKIP() << "no name spaces can be made here";
    Background server(sample(contained("mount -t tmpfs -o size=16k none /tmp; dd if=/dev/zero "
                                       "of=/tmp/full bs=4k 2>/dev/null"),
                             3));
    ASSERT_TRUE(serves(server)) << server.err();
    const int jvm = childOf(server);
    const prb::Captured result = attach(jvm, {"--seconds", "1", "--out", "/dev/shm/never.prb"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("prb: cannot write into /proc/" + std::to_string(jvm) +
                  "/root/tmp: No space left on device\n",
              result.err);
    EXPECT_THAT(run({prb(), "detach", std::to_string(jvm)}).err,
                HasSubstr("is not being profiled"));
    expectItsOwnEnd(server);
}

TEST_F(Strangers, AJvmOfAUsersOwnNameSpaceIsProfiledByThatUserAndRefusesRoot) {
    const auto can = [&](const std::vector<std::string>& what) {
        std::vector<std::string> argv = asUser(false);
        argv.insert(argv.end(), what.begin(), what.end());
        return run(argv).exitCode == 0;
    };
    if (!can({"test", "-r", product("libprbbridge.so")}))
        GTEST_SKIP() << "other users cannot read the products here";
    const std::vector<std::string> unshare = {"unshare", "-U",           "-r",          "-p",
                                              "-m",      "--kill-child", "--mount-proc"};
    std::vector<std::string> trial = unshare;
    trial.emplace_back("true");
    if (!can(trial)) GTEST_SKIP() << "users cannot make name spaces here";
    std::vector<std::string> before = asUser(false);
    before.insert(before.end(), unshare.begin(), unshare.end());
    Background server(sample(before, 5));
    ASSERT_TRUE(serves(server)) << server.err();
    const int jvm = childOf(server);
    const prb::Captured root = attach(jvm, {"--seconds", "1"});
    EXPECT_EQ(1, root.exitCode);
    EXPECT_EQ(refusal(jvm, "listens to its own user only; run prb as user " + user + " and group " +
                               user + ", or inside its container"),
              root.err);
    expectProfile(attach(jvm,
                         {"--seconds", "1", "--out", folder.path() + "/own.prb", "--format", "json",
                          "--report", folder.path() + "/own.json"},
                         asUser(false)),
                  "own.json");
    expectItsOwnEnd(server);
}

} // namespace
} // namespace live
