// Other agents in the same JVM, and systems that give little: the program runs on, and what is
// missing is said in a line.
#include "tests/live/Live.h"

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace live {
namespace {

class Neighbours : public PerJdk {
protected:
    std::string java() const { return jdk().home + "/bin/java"; }
    std::string agent(const std::string& options) const {
        return "-agentpath:" + bridge(jdk()) + "=" + options;
    }
    static std::vector<std::string> program() {
        return {"-cp",
                product("tests/programs.jar"),
                "com.tessel.prb.live.programs.ExitPaths",
                "--how",
                "exit",
                "--code",
                "7",
                "--seconds",
                "1"};
    }
    // The program under the agent, with further options of the JVM.
    prb::Captured with(const std::vector<std::string>& jvm) const {
        std::vector<std::string> argv = {java(), agent("file=n.prb,poll=0.2")};
        argv.insert(argv.end(), jvm.begin(), jvm.end());
        const std::vector<std::string> rest = program();
        argv.insert(argv.end(), rest.begin(), rest.end());
        return run(argv);
    }
    // The same in a shell that has run `limits` first, in the folder given.
    prb::Captured within(const std::string& limits, const std::string& options) const {
        std::string command = limits + "; exec " + java() + " '" + agent(options) + "'";
        for (const std::string& word : program()) command += " '" + word + "'";
        return run({"bash", "-c", command});
    }
    static void expectItsOwnEnd(const prb::Captured& result) {
        EXPECT_EQ(7, result.exitCode) << result.err;
        EXPECT_THAT(result.out, HasSubstr("checksum"));
    }
    static json report() {
        return json::parse(run({prb(), "report", "n.prb", "--format", "json"}).out, nullptr, false);
    }
};

TEST_P(Neighbours, ADebuggersAgentChangesNothing) {
    if (!fs::exists(jdk().home + "/lib/libjdwp.so")) GTEST_SKIP() << "this JVM has no such agent";
    const prb::Captured result =
        with({"-agentlib:jdwp=transport=dt_socket,server=y,suspend=n,address=127.0.0.1:0,quiet=y"});
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(true, report()["run"]["complete"]);
    EXPECT_GT(report()["run"]["busy_samples"], 5);
}

TEST_P(Neighbours, TheJvmsOwnRecorderSamplesBesideUs) {
    if (!fs::exists(jdk().home + "/lib/libjfr.so") && jdk().bits == 32)
        GTEST_SKIP() << "this JVM has no recorder";
    const prb::Captured result =
        with({"-Xlog:disable", "-Xlog:all=error", "-XX:StartFlightRecording=filename=own.jfr"});
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    EXPECT_GT(fs::file_size("own.jfr"), 0u);
    EXPECT_EQ(true, report()["run"]["complete"]);
    EXPECT_GT(report()["run"]["busy_samples"], 5);
}

TEST_P(Neighbours, FewDescriptorsAreEnough) {
    const prb::Captured result = within("ulimit -n 16", "file=n.prb");
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(json::array(), report()["run"]["errors"]);
    EXPECT_EQ(true, report()["run"]["complete"]);
}

TEST_P(Neighbours, WithoutDescriptorsForTheSamplersChildTheReportSaysSo) {
    // Where the JVM itself still starts and the sampler gets no pipe differs from JVM to JVM.
    bool said = false;
    for (int most = 7; most <= 12 && !said; most++) {
        const prb::Captured result =
            within("ulimit -n " + std::to_string(most), "file=n.prb,poll=0.2");
        if (result.exitCode != 7) continue;
        EXPECT_THAT(result.out, HasSubstr("checksum"));
        const json made = report();
        EXPECT_EQ(true, made["run"]["complete"]) << most;
        for (const json& error : made["run"]["errors"]) {
            EXPECT_THAT(error["text"].get<std::string>(), StartsWith("Pipe creation failed"));
            said = true;
        }
    }
    EXPECT_TRUE(said);
}

TEST_P(Neighbours, ALimitOfTheFileSizeIsSaidOnceAndKeepsWhatFits) {
    const prb::Captured result =
        within("ulimit -f 8; trap '' XFSZ", "file=" + fs::absolute("n.prb").string() + ",poll=0.1");
    expectItsOwnEnd(result);
    EXPECT_THAT(result.err, HasSubstr("n.prb: File too large; what is in the file stays"));
    EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
    EXPECT_LE(fs::file_size("n.prb"), 8192u);
    EXPECT_GT(report()["run"]["records"], 1);
}

TEST_P(Neighbours, AWorkingFolderThatTakesNoFilesIsSaidInALine) {
    const prb::Captured result = within("cd /proc", "poll=0.2");
    expectItsOwnEnd(result);
    EXPECT_THAT(result.err, StartsWith("prbprof: cannot write the capture file: prb-"));
    EXPECT_THAT(result.err,
                HasSubstr("give another one by file= (prb: --out), the program runs unprofiled\n"));
    EXPECT_EQ(1, std::count(result.err.begin(), result.err.end(), '\n')) << result.err;
}

PRB_FOR_EVERY_JDK(Neighbours);

} // namespace
} // namespace live
