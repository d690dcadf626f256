// Signals of others beside the sampler's: of another agent that wants the same one, and of the
// program itself.
#include "tests/live/Live.h"

#include <csignal>

using nlohmann::json;
using testing::HasSubstr;

namespace live {
namespace {

class Signals : public PerJdk {
protected:
    std::string library() const {
        return jdk().bits == 32 ? product("../release-i386/tests/libnative_signals.so")
                                : product("tests/libnative_signals.so");
    }
    // A program that ends with code 7, under the bridge and beside the other agent.
    prb::Captured beside(const std::string& options, int seconds) const {
        return run({jdk().home + "/bin/java", "-agentpath:" + bridge(jdk()) + "=file=s.prb",
                    "-agentpath:" + library() + "=" + options, "-cp", product("tests/programs.jar"),
                    "com.tessel.prb.live.programs.ExitPaths", "--how", "exit", "--code", "7",
                    "--seconds", std::to_string(seconds)});
    }
    static void expectItsOwnEnd(const prb::Captured& result) {
        EXPECT_EQ(7, result.exitCode) << result.err;
        EXPECT_THAT(result.out, HasSubstr("checksum"));
    }
    static json report() {
        return json::parse(run({prb(), "report", "s.prb", "--format", "json"}).out, nullptr, false);
    }
    static double shareOfTheWork(const json& report) {
        double share = 0;
        for (const json& m : report["methods"])
            if (m["method"] == "piece") share += m["total_share"].get<double>();
        return share;
    }
    static json lossOf(int signal) {
        return json::array({"another handler was installed for signal " + std::to_string(signal) +
                            ", which the sampler uses: samples may be missing"});
    }
};

TEST_P(Signals, OneThatAnotherAgentHandlesAlreadyIsLeftToIt) {
    const prb::Captured result = beside("take=2", 1);
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(result.out, HasSubstr("neighbour own 10 others 0\n"));
    const json made = report();
    EXPECT_EQ(json::array(), made["run"]["warnings"]);
    EXPECT_GT(made["run"]["busy_samples"], 2);
    EXPECT_GT(shareOfTheWork(made), 30);
    EXPECT_THAT(run({prb(), "decode", "s.prb"}).out,
                HasSubstr("signal=" + std::to_string(SIGRTMIN + 8)));
}

TEST_P(Signals, WithoutAFreeOneALineSaysSoAndTheProgramRunsOn) {
    const prb::Captured result = beside("take=" + std::to_string(SIGRTMAX - SIGRTMIN - 5), 1);
    expectItsOwnEnd(result);
    EXPECT_EQ("prbprof: no real-time signal is free for sampling: every one from SIGRTMIN+6 up has "
              "a handler; the program runs unprofiled\n",
              result.err);
}

TEST_P(Signals, AHandlerThatReplacesOursEndsTheSamplesAndIsReported) {
    const prb::Captured result = beside("replace", 2);
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    EXPECT_THAT(result.out, HasSubstr("neighbour own 10 others "));
    const json made = report();
    EXPECT_EQ(true, made["run"]["complete"]);
    EXPECT_EQ(lossOf(SIGRTMIN + 6), made["run"]["warnings"]);
    EXPECT_GT(made["run"]["busy_samples"], 2); // those before
}

// The signals that nobody handles any more would end the JVM: none are sent.
TEST_P(Signals, AHandlerThatIsTakenAwayEndsTheSamplesAndNotTheProgram) {
    const prb::Captured result = beside("default", 3);
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(lossOf(SIGRTMIN + 6), report()["run"]["warnings"]);
}

TEST_P(Signals, AHandlerThatComesBackSamplesAgain) {
    const prb::Captured result = beside("borrow", 2);
    expectItsOwnEnd(result);
    EXPECT_EQ("", result.err);
    const json made = report();
    EXPECT_EQ(lossOf(SIGRTMIN + 6), made["run"]["warnings"]);
    EXPECT_GT(made["run"]["busy_samples"], 2); // the handler was taken at the start
    EXPECT_GT(shareOfTheWork(made), 30);
}

TEST_P(Signals, OfTheProgramReachItsHandlersUnderSampling) {
    const std::vector<std::string> java = {"-cp",
                                           product("tests/programs.jar"),
                                           "com.tessel.prb.live.programs.Signals",
                                           "--library",
                                           library(),
                                           "--code",
                                           "9"};
    std::vector<std::string> bare = {jdk().home + "/bin/java"};
    bare.insert(bare.end(), java.begin(), java.end());
    const prb::Captured without = run(bare);
    ASSERT_EQ(9, without.exitCode) << without.err;
    EXPECT_THAT(without.out, HasSubstr("TERM handled\nHUP handled\nINT handled\nUSR2 handled\n"
                                       "ticks true strangers 0\nchecksum "));
    const Profiled p = profile(
        jdk(), {"--interval", "5", "--poll", "0.3", "--data", "threads,methods,contention"}, java);
    EXPECT_EQ(9, p.result.exitCode) << p.result.err;
    EXPECT_EQ(without.out, p.result.out);
    ASSERT_TRUE(p.report.is_object());
    EXPECT_EQ(true, p.report["run"]["complete"]);
    EXPECT_EQ(json::array(), p.report["run"]["warnings"]);
    EXPECT_EQ(json::array(), p.report["run"]["errors"]);
    EXPECT_GT(p.report["run"]["busy_samples"], 10);
    EXPECT_GT(shareOfTheWork(p.report), 30);
}

PRB_FOR_EVERY_JDK(Signals);

} // namespace
} // namespace live
