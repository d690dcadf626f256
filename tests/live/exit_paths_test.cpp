// However a program ends, its output and exit code stay its own and its last poll is kept.
#include "tests/live/Live.h"

#include <csignal>
#include <cstdio>
#include <fstream>

using testing::HasSubstr;

namespace live {
namespace {

struct Path {
    const char* how;
    std::vector<std::string> more;
    int code;
    bool hook; // do shutdown hooks run?
};

class ExitPaths : public PerJdk {
protected:
    static std::vector<std::string> program(const Path& path) {
        std::vector<std::string> argv = {"-cp", product("tests/programs.jar"),
                                         "com.tessel.prb.live.programs.ExitPaths", "--how",
                                         path.how};
        argv.insert(argv.end(), path.more.begin(), path.more.end());
        return argv;
    }
};

TEST_P(ExitPaths, OutputExitCodeAndLastPollAreKept) {
    const Path paths[] = {
        {"return", {}, 0, true},
        {"exit", {"--code", "7"}, 7, true},
        {"exit", {"--code", "0"}, 0, true},
        {"halt", {"--code", "9"}, 9, false},
        {"uncaught", {}, 1, true},
        {"daemon", {}, 0, true},
    };
    for (const Path& path : paths) {
        std::vector<std::string> bare = {jdk().home + "/bin/java"};
        const std::vector<std::string> args = program(path);
        bare.insert(bare.end(), args.begin(), args.end());
        const prb::Captured without = run(bare);
        const Profiled with = profile(jdk(), {}, args);
        EXPECT_EQ(without.exitCode, path.code) << path.how;
        EXPECT_EQ(with.result.exitCode, path.code) << path.how;
        EXPECT_EQ(with.result.out, without.out) << path.how;
        EXPECT_EQ(with.result.err, without.err) << path.how;
        EXPECT_EQ(with.result.out.find("hook ran") != std::string::npos, path.hook) << path.how;
        ASSERT_TRUE(with.report.is_object()) << path.how;
        EXPECT_EQ(with.report["run"]["complete"], true) << path.how;
        EXPECT_GT(with.report["run"]["busy_samples"].get<int>(), 0) << path.how;
    }
}

TEST_P(ExitPaths, ATerminatedProgramKeepsItsLastPoll) {
    // The shell waits until the program is ready, then ends it as a service manager would.
    const std::string script =
        "out=$1; shift; \"$@\" >\"$out\" 2>err.txt & pid=$!; "
        "for i in $(seq 300); do grep -q ready \"$out\" && break; sleep 0.1; done; "
        "kill -TERM $pid; wait $pid; echo code $?";
    std::vector<std::string> argv = {"bash",  "-c",       script,        "sh",       "out.txt",
                                     prb(),   "run",      "--java-home", jdk().home, "--out",
                                     "t.prb", "--format", "json",        "--report", "t.json",
                                     "--",    "java"};
    const std::vector<std::string> args = program({"wait", {}, 143, true});
    argv.insert(argv.end(), args.begin(), args.end());
    const prb::Captured result = run(argv);
    EXPECT_THAT(result.out, HasSubstr("code 143"));
    EXPECT_THAT(slurp("out.txt"), HasSubstr("hook ran"));
    EXPECT_EQ(slurp("err.txt"), "");
    const auto report = nlohmann::json::parse(slurp("t.json"), nullptr, false);
    ASSERT_TRUE(report.is_object());
    EXPECT_EQ(report["run"]["complete"], true);
}

TEST_P(ExitPaths, StandardInputIsTheProgramsOwn) {
    std::ofstream("in.txt") << "one\ntwo\nthree";
    std::vector<std::string> argv = {
        "bash",     "-c",      "\"$@\" <in.txt", "sh",    prb(), "run", "--java-home",
        jdk().home, "--quiet", "--out",          "e.prb", "--",  "java"};
    const std::vector<std::string> args = program({"echo", {}, 0, true});
    argv.insert(argv.end(), args.begin(), args.end());
    const prb::Captured result = run(argv);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, testing::StartsWith("one\ntwo\nthree\nlines 3\n"));
    EXPECT_EQ(result.err, "");
}

TEST_P(ExitPaths, APlainAgentPathIsEnough) {
    std::vector<std::string> argv = {jdk().home + "/bin/java",
                                     "-agentpath:" + bridge(jdk()) + "=file=plain-%p.prb"};
    const std::vector<std::string> args = program({"return", {}, 0, true});
    argv.insert(argv.end(), args.begin(), args.end());
    const prb::Captured result = run(argv);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    const auto captures = folder.files(".prb");
    ASSERT_EQ(captures.size(), 1u);
    EXPECT_EQ(run({prb(), "report", captures[0]}).exitCode, 0);
}

// The driver as a Java agent, and the agent loaded by the VM itself: both beside the bridge.
TEST_P(ExitPaths, OtherWaysOfLoadingWork) {
    const std::string lib = bridge(jdk()).substr(0, bridge(jdk()).rfind('/'));
    const std::vector<std::vector<std::string>> ways = {
        {"-agentpath:" + bridge(jdk()) + "=driver=no",
         "-javaagent:" + lib + "/prbprof.jar=file=other.prb"},
        {"-agentpath:" + bridge(jdk()) + "=file=other.prb", "-Xrunprbprof:debug=no"},
    };
    for (const std::vector<std::string>& way : ways) {
        std::vector<std::string> argv = {"env", "LD_LIBRARY_PATH=" + lib, jdk().home + "/bin/java"};
        argv.insert(argv.end(), way.begin(), way.end());
        const std::vector<std::string> args = program({"exit", {"--code", "5"}, 5, true});
        argv.insert(argv.end(), args.begin(), args.end());
        const prb::Captured result = run(argv);
        EXPECT_EQ(result.exitCode, 5) << way[1];
        // A newer JVM warns of native access by a Java agent; the program is not ours to flag.
        if (jdk().name.rfind("jdk17", 0) == 0) {
            EXPECT_EQ(result.err, "") << way[1];
        }
        const prb::Captured report = run({prb(), "report", "other.prb", "--format", "json"});
        EXPECT_EQ(report.exitCode, 0) << way[1];
        const auto json = nlohmann::json::parse(report.out, nullptr, false);
        ASSERT_TRUE(json.is_object()) << way[1];
        EXPECT_EQ(json["run"]["complete"], true) << way[1];
        EXPECT_GT(json["run"]["busy_samples"].get<int>(), 0) << way[1];
        std::remove("other.prb");
    }
}

PRB_FOR_EVERY_JDK(ExitPaths);

} // namespace
} // namespace live
