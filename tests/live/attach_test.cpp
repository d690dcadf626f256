// Attaching to a JVM that runs, leaving it, and doing so again.
#include "tests/live/Background.h"
#include "tests/live/Live.h"

#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace live {
namespace {

std::string lineWith(const std::string& text, const std::string& word) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(word, 0) == 0) return line;
    }
    return {};
}

unsigned long long signalsIn(int pid, const std::string& key) {
    const std::string line = lineWith(slurp("/proc/" + std::to_string(pid) + "/status"), key);
    return std::strtoull(line.c_str() + std::min(line.size(), key.size() + 1), nullptr, 16);
}

class Attach : public PerJdk {
protected:
    std::vector<std::string> sample(int seconds, std::vector<std::string> jvm) const {
        jvm.insert(jvm.begin(), jdk().home + "/bin/java");
        jvm.insert(jvm.end(),
                   {"-jar", product("sample.jar"), "--seconds", std::to_string(seconds)});
        return jvm;
    }
    static prb::Captured attach(int pid, std::vector<std::string> options) {
        options.insert(options.begin(), {prb(), "attach", std::to_string(pid)});
        return run(options);
    }
    static prb::Captured detach(int pid) { return run({prb(), "detach", std::to_string(pid)}); }
    // What is left of us in a JVM that is not profiled any more.
    static void expectLeft(int pid, unsigned long long caughtBefore) {
        EXPECT_TRUE(soon([pid] { return childrenOf(pid).empty(); })) << "a child process is left";
        EXPECT_TRUE(soon([pid] { return !hasThread(pid, "PRB_Poller_Thre"); }));
        EXPECT_EQ(caughtBefore, signalsIn(pid, "SigCgt:")) << "a handler is left";
    }
};

TEST_P(Attach, ThreeTimesUnderLoadAndCollectionsShowsTheWorkAndChangesNothing) {
    const prb::Captured plain = run(sample(1, {}));
    Background server(sample(16, {"-Xmx40m", "-XX:+UseSerialGC"}));
    ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
    std::this_thread::sleep_for(std::chrono::seconds(1));
    const unsigned long long caught = signalsIn(server.pid(), "SigCgt:");
    for (int cycle = 1; cycle <= 3; cycle++) {
        const std::string file = "cycle" + std::to_string(cycle);
        const prb::Captured result =
            attach(server.pid(),
                   {"--seconds", "2.5", "--out", file + ".prb", "--format", "json", "--report",
                    file + ".json", "--poll", "0.5", "--interval", cycle == 2 ? "5" : "10"});
        EXPECT_EQ(0, result.exitCode) << result.err;
        EXPECT_THAT(result.err, AllOf(StartsWith("prb: profiling process "), HasSubstr(file)));
        expectLeft(server.pid(), caught);
        const json report = json::parse(slurp(file + ".json"), nullptr, false);
        ASSERT_TRUE(report.is_object());
        const json& run = report["run"];
        EXPECT_EQ(true, run["complete"]);
        EXPECT_EQ(json::array(), run["errors"]);
        EXPECT_EQ(cycle == 2 ? 5 : 10, run["interval_ms"]);
        EXPECT_EQ(server.pid(), run["process_id"]);
        EXPECT_GE(run["polls"].get<int>(), 3);
        ASSERT_EQ(1u, run["warnings"].size()) << run["warnings"];
        EXPECT_THAT(run["warnings"][0].get<std::string>(), StartsWith("attached late: "));
        double pricing = 0;
        for (const json& m : report["methods"]) {
            if (m["method"] == "priceOrder") pricing += m["total_share"].get<double>();
        }
        EXPECT_GT(pricing, 15) << "cycle " << cycle; // far above any other method
        int workers = 0;
        for (const json& t : report["threads"]) {
            if (t["name"].get<std::string>().rfind("order-worker-", 0) == 0) workers++;
        }
        EXPECT_EQ(4, workers) << "threads that were there before";
    }
    EXPECT_EQ(0, server.wait());
    EXPECT_THAT(server.out(), AllOf(HasSubstr("balanced"), Not(HasSubstr("NOT balanced"))));
    EXPECT_EQ(lineWith(plain.out, "checksum"), lineWith(server.out(), "checksum"));
    EXPECT_THAT(server.err(), Not(HasSubstr("prbprof")));
}

TEST_P(Attach, SharesOfAProgramThatRunsAreItsOwn) {
    Background program({jdk().home + "/bin/java", "-cp", product("tests/known.jar"),
                        "com.tessel.prb.live.known.KnownShares", "--seconds", "20"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    const prb::Captured result =
        attach(program.pid(),
               {"--recompile", "--format", "json", "--report", "known.json", "--out", "known.prb"});
    EXPECT_EQ(0, result.exitCode) << result.err;
    ASSERT_EQ(0, program.wait());
    const json truth = json::parse(program.out(), nullptr, false);
    const json report = json::parse(slurp("known.json"), nullptr, false);
    ASSERT_TRUE(truth.is_object() && report.is_object());
    // Only some JVMs give up what they have compiled; the others say so.
    const bool recompiled = report["run"]["warnings"].empty();
    EXPECT_EQ(recompiled, result.err.find("does not give up") == std::string::npos) << result.err;
    EXPECT_TRUE(recompiled || jdk().name.rfind("jdk17", 0) != 0);
    const double total = truth["total_cpu_ns"], samples = report["run"]["busy_samples"];
    EXPECT_GT(samples, 300);
    for (const auto& [name, ns] : truth["threads"].items()) {
        double reported = 0;
        for (const json& t : report["threads"]) {
            if (t["name"] == name) reported += t["share"].get<double>();
        }
        // The truth is that of the whole run, of which the last nine tenths are looked at.
        const double p = ns.get<double>() / total;
        const double allowed = std::max(4.0, 100 * 3 * std::sqrt(p * (1 - p) / samples));
        EXPECT_NEAR(100 * p, reported, allowed) << "thread " << name;
    }
    double counted = 0, truthCounted = 0;
    for (const auto& [name, ns] : truth["methods"].items()) {
        if (name.find(".count") == std::string::npos) continue;
        truthCounted += 100 * ns.get<double>() / total;
        for (const json& m : report["methods"]) {
            if (m["class"].get<std::string>() + "." + m["method"].get<std::string>() == name) {
                counted += m["total_share"].get<double>();
            }
        }
    }
    if (recompiled) {
        EXPECT_NEAR(truthCounted, counted, 4);
    }
    std::printf("%s: counted loop truth %.2f %%, report %.2f %%\n", jdk().name.c_str(),
                truthCounted, counted);
}

TEST_P(Attach, ARunOfItsOwnIsToldAndCanBeEnded) {
    Background server({prb(), "run", "--java-home", jdk().home, "--out", "own.prb", "--report",
                       "own.txt", "--", "java", "-jar", product("sample.jar"), "--seconds", "7"});
    ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
    const std::vector<int> children = childrenOf(server.pid());
    ASSERT_EQ(1u, children.size());
    const int jvm = children[0];
    const prb::Captured refused = attach(jvm, {"--seconds", "1"});
    EXPECT_EQ(1, refused.exitCode);
    EXPECT_EQ("prb: process " + std::to_string(jvm) + " is being profiled already, into " +
                  fs::absolute("own.prb").string() +
                  " (since its start, or by another 'prb "
                  "attach'); 'prb detach " +
                  std::to_string(jvm) + "' ends that\n",
              refused.err);
    const prb::Captured ended = detach(jvm);
    EXPECT_EQ(0, ended.exitCode);
    EXPECT_EQ("prb: process " + std::to_string(jvm) + " is no longer profiled; the capture is " +
                  fs::absolute("own.prb").string() + "\n",
              ended.err);
    const prb::Captured again = detach(jvm);
    EXPECT_EQ(1, again.exitCode);
    EXPECT_EQ("prb: process " + std::to_string(jvm) + " is not being profiled\n", again.err);
    const prb::Captured later = attach(jvm, {"--seconds", "1", "--out", "later.prb", "--quiet"});
    EXPECT_EQ(0, later.exitCode) << later.err;
    EXPECT_EQ(0, server.wait());
    EXPECT_THAT(server.out(), HasSubstr("orders per second"));
    for (const char* capture : {"own.prb", "later.prb"}) {
        const prb::Captured report = run({prb(), "report", capture, "--format", "json"});
        EXPECT_EQ(true, json::parse(report.out)["run"]["complete"]) << capture;
    }
}

TEST_P(Attach, TheProgramsEndIsTheProfilesEnd) {
    Background server(sample(4, {}));
    ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
    const prb::Captured result = attach(server.pid(), {"--out", "end.prb", "--format", "json"});
    EXPECT_EQ(0, result.exitCode);
    EXPECT_EQ(0, server.wait());
    const std::size_t json = result.err.find('{');
    ASSERT_NE(std::string::npos, json) << result.err;
    EXPECT_EQ(true, json::parse(result.err.substr(json))["run"]["complete"]);
}

TEST_P(Attach, AnInterruptEndsTheProfileAndNotTheProgram) {
    Background server(sample(6, {}));
    ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
    Background tool({prb(), "attach", std::to_string(server.pid()), "--out", "int.prb"});
    ASSERT_TRUE(soon([&] { return tool.err().find("Ctrl-C ends it") != std::string::npos; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    kill(tool.pid(), SIGINT);
    EXPECT_EQ(0, tool.wait());
    EXPECT_THAT(tool.err(), HasSubstr("of processor time"));
    EXPECT_EQ(0, server.wait());
    EXPECT_THAT(server.out(), HasSubstr("orders per second"));
    const prb::Captured report = run({prb(), "report", "int.prb", "--format", "json"});
    const json ended = json::parse(report.out)["run"];
    EXPECT_EQ(true, ended["complete"]);
    EXPECT_GT(ended["cycles"], 0);
}

// Such a JVM would die of the signal that invites others to listen; it listens from its start.
TEST_P(Attach, AJvmThatTakesNoSignalsGetsNone) {
    Background server(sample(4, {"-Xrs"}));
    ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
    EXPECT_EQ(0, attach(server.pid(), {"--seconds", "1", "--quiet"}).exitCode);
    EXPECT_EQ(0, server.wait());
    EXPECT_THAT(server.out(), HasSubstr("orders per second"));
}

TEST_P(Attach, WhatIsWrongWithTheOptionsIsSaidHereAndTheProgramGoesOn) {
    Background server(sample(6, {}));
    ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
    const std::string number = std::to_string(server.pid());
    const unsigned long long caught = signalsIn(server.pid(), "SigCgt:");
    const prb::Captured unwritable = attach(server.pid(), {"--out", "/no/such/folder/x.prb"});
    EXPECT_EQ(1, unwritable.exitCode);
    EXPECT_THAT(unwritable.err,
                AllOf(HasSubstr("prb: process " + number +
                                ": cannot write the capture "
                                "file: /no/such/folder/x.prb"),
                      HasSubstr("prb: process " + number + " runs on unprofiled\n")));
    expectLeft(server.pid(), caught);
    const prb::Captured option = attach(server.pid(), {"--bridge", "colour=red"});
    EXPECT_EQ(1, option.exitCode);
    EXPECT_THAT(option.err, HasSubstr("option 'colour' is not known"));
    // After that it works.
    EXPECT_EQ(0, attach(server.pid(), {"--seconds", "1", "--out", "x.prb", "--quiet"}).exitCode);
    EXPECT_EQ(0, server.wait());
    EXPECT_THAT(server.out(), HasSubstr("orders per second"));
}

PRB_FOR_EVERY_JDK(Attach);

class CannotAttach : public testing::Test {
protected:
    // The JVM runs on whatever was asked of it.
    static void refuse(const std::vector<std::string>& jvm, const std::string& said) {
        std::vector<std::string> argv = jvm;
        argv.insert(argv.end(), {"-jar", product("sample.jar"), "--seconds", "4"});
        Background server(argv);
        ASSERT_TRUE(soon([&] { return server.out().find("order server") != std::string::npos; }));
        const prb::Captured result = run({prb(), "attach", std::to_string(server.pid())});
        EXPECT_EQ(1, result.exitCode);
        EXPECT_EQ("prb: process " + std::to_string(server.pid()) + said + "\n", result.err);
        EXPECT_EQ(0, server.wait()) << server.err();
        EXPECT_THAT(server.out(), HasSubstr("orders per second"));
    }
    Folder folder;
    const std::string java = javac17().home + "/bin/java";
};

TEST_F(CannotAttach, AProcessThatIsNotThere) {
    const prb::Captured result = run({prb(), "attach", "4999999"});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_EQ("prb: there is no process 4999999\n", result.err);
}

TEST_F(CannotAttach, AProcessThatIsNoJvmIsNotTouched) {
    Background other({"sleep", "3"});
    const prb::Captured result = run({prb(), "attach", std::to_string(other.pid())});
    EXPECT_EQ(1, result.exitCode);
    EXPECT_THAT(result.err, HasSubstr("is not a JVM"));
    EXPECT_EQ(0, other.wait());
}

TEST_F(CannotAttach, AJvmThatForbidsIt) {
    refuse({java, "-XX:+DisableAttachMechanism"},
           " was started with -XX:+DisableAttachMechanism; start it with 'prb run' to profile it");
}

TEST_F(CannotAttach, AJvmThatLoadsNoAgents) {
    for (const Jdk& jdk : jdks()) {
        if (jdk.name.rfind("jdk17", 0) == 0) continue;
        refuse({jdk.home + "/bin/java", "-XX:-EnableDynamicAgentLoading"},
               " was started with -XX:-EnableDynamicAgentLoading; start it with 'prb run', or "
               "without that option");
    }
}

TEST_F(CannotAttach, ANumberThatIsNone) {
    for (const char* number : {"0", "-1", "x"}) {
        EXPECT_EQ(2, run({prb(), "attach", number}).exitCode) << number;
        EXPECT_EQ(2, run({prb(), "detach", number}).exitCode) << number;
    }
}

} // namespace
} // namespace live
