// JVMs to which the system gives no more threads, memory or room for files: what we then lack is
// said in a line, and the program runs on.
#include "tests/live/Background.h"
#include "tests/live/Live.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace live {
namespace {

class Limits : public PerJdk {
protected:
    static bool serves(const Background& server) {
        return soon([&] { return server.out().find("order server") != std::string::npos; });
    }
    static void expectItsOwnEnd(Background& server) {
        EXPECT_EQ(0, server.wait()) << server.err();
        EXPECT_THAT(server.out(), HasSubstr("books             balanced"));
    }
    struct Attached {
        prb::Captured result;
        json report;
    };
    static Attached attach(int pid) {
        Attached made;
        fs::remove("a.json");
        made.result = run({prb(), "attach", std::to_string(pid), "--seconds", "0.5", "--out",
                           "a.prb", "--format", "json", "--report", "a.json"});
        made.report = json::parse(slurp("a.json"), nullptr, false);
        return made;
    }
    // A child that has ended counts for the limit until it is asked for its exit code.
    static bool isAtRest(int pid) {
        for (const auto& task : fs::directory_iterator("/proc/" + std::to_string(pid) + "/task"))
            if (!slurp(task.path().string() + "/children").empty()) return false;
        return !hasThread(pid, "PRB_Poller_Thre");
    }
};

// The limit is the user's, and none for root: the JVM runs as a user whom nobody else is.
TEST_P(Limits, WithoutFurtherThreadsAndChildrenTheRunSaysSo) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can run a JVM as another user";
    const std::string user = std::to_string(20000 + getpid() % 40000);
    ASSERT_EQ(0, chown(folder.path().c_str(), static_cast<uid_t>(std::stoul(user)), getgid()));
    // It may read whatever the machine keeps JDKs and products in.
    const std::vector<std::string> asUser = {"setpriv",
                                             "--reuid",
                                             user,
                                             "--regid",
                                             user,
                                             "--clear-groups",
                                             "--inh-caps",
                                             "-all,+dac_override",
                                             "--ambient-caps",
                                             "-all,+dac_override"};
    std::vector<std::string> argv = asUser;
    argv.insert(argv.end(), {jdk().home + "/bin/java", "-XX:+UseSerialGC",
                             "-XX:-UseDynamicNumberOfCompilerThreads", "-jar",
                             product("sample.jar"), "--seconds", "8"});
    Background server(argv);
    ASSERT_TRUE(serves(server)) << server.err();
    const int pid = server.pid();
    // The first time makes the threads that stay.
    EXPECT_EQ(0, attach(pid).result.exitCode);
    const fs::path tasks = "/proc/" + std::to_string(pid) + "/task";
    const auto attachWith = [&](int furtherThreads) {
        EXPECT_TRUE(soon([&] { return isAtRest(pid); }));
        const auto threads = std::distance(fs::directory_iterator(tasks), fs::directory_iterator());
        std::vector<std::string> limit = asUser;
        limit.insert(limit.end(), {"prlimit", "--pid", std::to_string(pid),
                                   "--nproc=" + std::to_string(threads + furtherThreads) + ":"});
        const prb::Captured set = run(limit);
        EXPECT_EQ(0, set.exitCode) << set.err;
        return attach(pid);
    };
    // The program and its JVM start and end threads too: such an attempt does not count.
    const auto attempt = [&](int furtherThreads, const auto& isMeant) {
        Attached made = attachWith(furtherThreads);
        for (int i = 0; i < 3 && !isMeant(made); i++) made = attachWith(furtherThreads);
        return made;
    };
    const Attached none = attempt(0, [](const Attached& a) { return a.result.exitCode == 1; });
    EXPECT_EQ(1, none.result.exitCode);
    const std::string process = "prb: process " + std::to_string(pid);
    EXPECT_THAT(none.result.err,
                AllOf(StartsWith(process + ": cannot start the polling thread: "
                                           "java.lang.OutOfMemoryError: unable to create native "
                                           "thread"),
                      HasSubstr(process + " runs on unprofiled\n")));
    EXPECT_EQ(2, std::count(none.result.err.begin(), none.result.err.end(), '\n'));
    // One more thread: the one that polls, but no child that measures the sampler's pauses.
    const Attached one = attempt(1, [](const Attached& a) {
        return a.report.is_object() && !a.report["run"]["errors"].empty();
    });
    EXPECT_EQ(0, one.result.exitCode) << one.result.err;
    ASSERT_TRUE(one.report.is_object());
    EXPECT_EQ(true, one.report["run"]["complete"]);
    EXPECT_GT(one.report["run"]["busy_samples"], 0);
    EXPECT_GE(one.report["run"]["errors"].size(), 1u);
    for (const json& error : one.report["run"]["errors"])
        EXPECT_EQ("Fork failed - errno = 11", error["text"]);
    const Attached all = attachWith(50);
    EXPECT_EQ(0, all.result.exitCode) << all.result.err;
    ASSERT_TRUE(all.report.is_object());
    EXPECT_EQ(json::array(), all.report["run"]["errors"]);
    expectItsOwnEnd(server);
}

TEST_P(Limits, WithoutFurtherMemoryALineSaysSo) {
    // There the JVM's own requests fail first, which it does not survive.
    if (jdk().bits == 32) GTEST_SKIP() << "a JVM with this little address space ends by itself";
    Background server({jdk().home + "/bin/java", "-Xint", "-Xmx64m", "-XX:+UseSerialGC", "-jar",
                       product("sample.jar"), "--seconds", "6"});
    ASSERT_TRUE(serves(server)) << server.err();
    const std::string number = std::to_string(server.pid());
    // A JVM that cannot make the thread that listens ends; so it is made before.
    ASSERT_EQ(0, run({jdk().home + "/bin/jcmd", number, "VM.version"}).exitCode);
    int refused = 0;
    for (const unsigned long kilobytes : {0, 600, 1200, 5000}) {
        std::istringstream words(slurp("/proc/" + number + "/statm"));
        unsigned long pages = 0;
        words >> pages;
        const unsigned long limit =
            pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + kilobytes * 1024;
        const prb::Captured set =
            run({"prlimit", "--pid", number, "--as=" + std::to_string(limit) + ":"});
        ASSERT_EQ(0, set.exitCode) << set.err;
        const Attached made = attach(server.pid());
        std::istringstream lines(made.result.err);
        int count = 0;
        for (std::string line; std::getline(lines, line); count++)
            EXPECT_THAT(line, StartsWith("prb: ")) << kilobytes;
        EXPECT_LE(count, 2) << kilobytes << ": " << made.result.err;
        if (made.result.exitCode == 0) {
            EXPECT_EQ(true, made.report["run"]["complete"]);
            continue;
        }
        refused++;
        EXPECT_EQ(1, made.result.exitCode);
        EXPECT_GE(count, 1) << kilobytes;
        std::printf("%s +%lu KB: %s", jdk().name.c_str(), kilobytes, made.result.err.c_str());
    }
    EXPECT_GE(refused, 1);
    expectItsOwnEnd(server);
}

PRB_FOR_EVERY_JDK(Limits);

// File systems of the test's own; what a JVM does there does not depend on the JVM.
class NoRoom : public testing::Test {
protected:
    void SetUp() override {
        if (run({"unshare", "-m", "true"}).exitCode != 0)
            GTEST_SKIP() << "no mount name space can be made here";
    }
    // Runs a shell command where /mnt is a fresh file system and /tmp is full. $JAVA is the java
    // to run, $AGENT the agent's library, $PROGRAM a program that ends with code 7.
    static prb::Captured inside(const std::string& command) {
        const std::string script =
            "set -e; mount -t tmpfs none /mnt; mount -t tmpfs -o size=16k none /tmp\n"
            "dd if=/dev/zero of=/tmp/full bs=4k 2>/dev/null || true\n"
            "JAVA='" +
            javac17().home +
            "/bin/java -XX:-UsePerfData'\n"
            "AGENT='-agentpath:" +
            bridge(javac17()) +
            "'\n"
            "PRB='" +
            prb() +
            "'\n"
            "PROGRAM='-cp " +
            product("tests/programs.jar") +
            " com.tessel.prb.live.programs.ExitPaths --how exit --code 7 --seconds 1'\n"
            "readOnly() { mount -o remount,ro /mnt; cd /mnt; }\n" +
            command;
        return run({"unshare", "-m", "bash", "-c", script});
    }
    static void expectItsOwnEnd(const prb::Captured& result) {
        EXPECT_EQ(7, result.exitCode) << result.err;
        EXPECT_THAT(result.out, HasSubstr("checksum"));
    }
    Folder folder;
};

TEST_F(NoRoom, AReadOnlyWorkingFolderIsSaidInALine) {
    const prb::Captured result = inside("readOnly; exec $JAVA $AGENT=poll=0.2 $PROGRAM");
    expectItsOwnEnd(result);
    EXPECT_THAT(result.err, StartsWith("prbprof: cannot write the capture file: prb-"));
    EXPECT_THAT(result.err, testing::EndsWith(".prb (Read-only file system); give another one by "
                                              "file= (prb: --out), the program runs unprofiled\n"));
    EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
}

TEST_F(NoRoom, AReadOnlyPlaceForTheCaptureIsNamed) {
    const prb::Captured result = inside("readOnly; cd /; exec $PRB run --out /mnt/x.prb -- $JAVA "
                                        "$PROGRAM");
    expectItsOwnEnd(result);
    EXPECT_EQ("prbprof: cannot write the capture file: /mnt/x.prb (Read-only file system); give "
              "another one by file= (prb: --out), the program runs unprofiled\n"
              "prb: no capture was written (/mnt/x.prb): no JVM was started, or it ran unprofiled "
              "for the reason it gave above\n",
              result.err);
}

TEST_F(NoRoom, ACaptureOnAFullFileSystemIsNamed) {
    const prb::Captured result = inside("exec $JAVA $AGENT=file=/tmp/x.prb $PROGRAM");
    expectItsOwnEnd(result);
    EXPECT_EQ("prbprof: cannot write the capture file: /tmp/x.prb: No space left on device; give "
              "another one by file= (prb: --out), the program runs unprofiled\n",
              result.err);
}

TEST_F(NoRoom, AFullTmpAloneChangesNothing) {
    const prb::Captured result =
        inside("cd /mnt; code=0; $JAVA $AGENT=file=x.prb $PROGRAM >&2 || code=$?\n"
               "test $code = 7; exec $PRB report x.prb --format json");
    EXPECT_EQ(0, result.exitCode) << result.err;
    EXPECT_THAT(result.err, StartsWith("checksum"));
    EXPECT_EQ(std::string::npos, result.err.find("prb")) << result.err;
    const json report = json::parse(result.out, nullptr, false);
    ASSERT_TRUE(report.is_object());
    EXPECT_EQ(true, report["run"]["complete"]);
    EXPECT_EQ(json::array(), report["run"]["errors"]);
    EXPECT_GT(report["run"]["busy_samples"], 0);
}

} // namespace
} // namespace live
