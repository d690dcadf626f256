// Heap by class in real JVMs, against the JVM's own histogram of the same heap.
#include "tests/live/Live.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

namespace live {
namespace {

struct Count {
    long long objects = 0, bytes = 0;
};
using ByClass = std::map<std::string, Count>; // names as Java writes them
struct Timed {
    double begin = 0, end = 0; // milliseconds since 1970
    ByClass classes;
};

// What the program KnownHeap prints.
std::vector<Timed> histograms(const std::string& text) {
    static const std::regex row(R"(\s*\d+:\s+(\d+)\s+(\d+)\s+(\S+).*)");
    std::vector<Timed> all;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (line.rfind("histogram ", 0) == 0) {
            all.emplace_back();
        } else if (!all.empty() && line.rfind("time ", 0) == 0) {
            (all.back().begin == 0 ? all.back().begin : all.back().end) = std::stod(line.substr(5));
        } else if (!all.empty() && std::regex_match(line, match, row)) {
            Count& count = all.back().classes[match[3]];
            count.objects += std::stoll(match[1]);
            count.bytes += std::stoll(match[2]);
        }
    }
    return all;
}

// The heap samples of a capture, poll by poll.
struct Poll {
    double seconds = 0; // since 1970, whole ones
    ByClass classes;
};
std::vector<Poll> polls(const std::string& capture) {
    const prb::Captured decoded = run({prb(), "decode", capture});
    EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
    std::vector<Poll> all(1);
    std::istringstream lines(decoded.out);
    for (std::string line; std::getline(lines, line);) {
        const nlohmann::json record = nlohmann::json::parse(line);
        if (record["type"] == 998) all.emplace_back();
        if (record["type"] != 13) continue;
        std::map<std::string, nlohmann::json> fields;
        for (const auto& field : record["fields"]) fields[field["name"]] = field["value"];
        std::string name = fields["className"];
        std::replace(name.begin(), name.end(), '/', '.');
        all.back().seconds = fields["time"];
        Count& count = all.back().classes[name];
        count.objects += fields["liveObjects"].get<long long>();
        count.bytes += fields["liveBytes"].get<long long>();
    }
    all.pop_back();
    return all;
}

// The program's own classes: nobody else makes objects of them.
bool isKnown(const std::string& name) { return name.find("KnownHeap") != std::string::npos; }

class Heap : public PerJdk {
protected:
    // The 32-bit JDK comes without a jcmd; that of another one speaks the same protocol.
    std::string jcmd() const {
        const std::string own = jdk().home + "/bin/jcmd";
        return std::filesystem::exists(own) ? own : javac17().home + "/bin/jcmd";
    }

    Profiled profileKnown(const std::string& data, const std::string& poll,
                          const std::vector<std::string>& jvm,
                          const std::vector<std::string>& program) {
        std::vector<std::string> java = jvm;
        java.insert(java.end(), {"-cp", product("tests/programs.jar"),
                                 "com.tessel.prb.live.programs.KnownHeap", "--jcmd", jcmd()});
        java.insert(java.end(), program.begin(), program.end());
        const Profiled profiled = profile(jdk(), {"--data", data, "--poll", poll}, java, 280);
        EXPECT_EQ(profiled.result.exitCode, 0) << profiled.result.err;
        return profiled;
    }

    // Compares each poll that was taken between the two histograms with both of them. What the
    // JDK's own threads allocate and drop meanwhile is allowed for.
    enum class Which { kAll, kKnown };
    static void compare(const Profiled& profiled, int leastPolls, Which which = Which::kAll) {
        const std::vector<Timed> jvm = histograms(profiled.result.out);
        ASSERT_EQ(jvm.size(), 2U) << profiled.result.out;
        ASSERT_GT(jvm[0].classes.size(), 100U);
        int compared = 0;
        for (const Poll& poll : polls(profiled.capture)) {
            // A sample has the second in which its poll was taken.
            if (poll.seconds * 1000 < jvm[0].end || poll.seconds * 1000 + 999 > jvm[1].begin)
                continue;
            ++compared;
            compareWith(jvm, poll.classes, which);
        }
        EXPECT_GE(compared, leastPolls);
        // The report shows the last poll.
        const std::string leaf = "com.tessel.prb.live.programs.KnownHeap$Leaf";
        int shown = 0;
        for (const nlohmann::json& row : profiled.report["classes"]) {
            if (row["class"] != leaf) continue;
            ++shown;
            EXPECT_EQ(row["live_objects"], jvm[1].classes.at(leaf).objects);
            EXPECT_EQ(row["live_bytes"], jvm[1].classes.at(leaf).bytes);
        }
        EXPECT_EQ(shown, 1);
    }

private:
    // Hidden classes are written differently; how much of the heap a collection plugs with fillers
    // is another thing each time.
    static bool isComparable(const std::string& name) {
        return name.find("0x") == std::string::npos && name.find("vm.Filler") == std::string::npos;
    }

    static void compareWith(const std::vector<Timed>& jvm, const ByClass& ours, Which which) {
        int known = 0;
        for (const auto& [name, first] : jvm[0].classes) {
            if (!isComparable(name)) continue;
            const auto again = jvm[1].classes.find(name);
            const Count second = again == jvm[1].classes.end() ? Count{} : again->second;
            const auto found = ours.find(name);
            ASSERT_TRUE(found != ours.end() || second.objects == 0 ||
                        (which == Which::kKnown && !isKnown(name)))
                << name;
            if (found == ours.end()) continue;
            const Count& told = found->second;
            const bool mine = isKnown(name);
            if (which == Which::kKnown && !mine) continue;
            known += mine ? 1 : 0;
            const long long slack = mine ? 0 : 64 + std::max(first.objects, second.objects) / 50;
            const long long slackBytes =
                mine ? 0 : 65536 + std::max(first.bytes, second.bytes) / 50;
            EXPECT_GE(told.objects, std::min(first.objects, second.objects) - slack) << name;
            EXPECT_LE(told.objects, std::max(first.objects, second.objects) + slack) << name;
            EXPECT_GE(told.bytes, std::min(first.bytes, second.bytes) - slackBytes) << name;
            EXPECT_LE(told.bytes, std::max(first.bytes, second.bytes) + slackBytes) << name;
        }
        EXPECT_GE(known, 5); // leaves, pairs, colours, arrays of leaves, of colours
        // And nothing that the JVM does not have.
        for (const auto& [name, told] : ours) {
            if (which == Which::kKnown || told.objects <= 64 || !isComparable(name)) continue;
            EXPECT_TRUE(jvm[0].classes.count(name) + jvm[1].classes.count(name) != 0) << name;
        }
    }
};

TEST_P(Heap, ByClassIsTheJvmsOwnHistogramPollAfterPoll) {
    compare(profileKnown("heap,errors,self", "0.25", {"-Xmx400m"},
                         {"--objects", "100000", "--between", "4000"}),
            2);
}

TEST_P(Heap, ByClassIsExactWhileAllocationsAreTracked) {
    compare(profileKnown("heap,alloc,errors,self", "0.25", {"-Xmx400m"},
                         {"--objects", "30000", "--between", "4000"}),
            2);
}

TEST_P(Heap, ByClassOfAMillionObjectsIsExact) {
    compare(profileKnown("heap,errors,self", "0.5", {"-Xmx900m"},
                         {"--objects", "700000", "--between", "7000"}),
            1);
}

TEST_P(Heap, WhatIsKeptIsCountedExactlyWhileOthersAllocateAndCollect) {
    for (const char* collector : {"Serial", "Parallel", "G1", "Shenandoah", "Z"}) {
        const std::string option = std::string("-XX:+Use") + collector + "GC";
        if (run({jdk().home + "/bin/java", option, "-version"}).exitCode != 0) continue;
        SCOPED_TRACE(option);
        compare(profileKnown("heap,gc,errors,self", "0.25", {"-Xmx400m", option},
                             {"--objects", "20000", "--between", "4000", "--storm", "1"}),
                1, Which::kKnown);
    }
}

TEST_P(Heap, DumpsLeaveNoIdsBehindHoweverManyObjectsTheyName) {
    const Profiled few = profileKnown("heap,errors,self", "0.25", {"-Xmx400m"},
                                      {"--objects", "1000", "--between", "500"});
    const Profiled many = profileKnown("heap,errors,self", "0.25", {"-Xmx400m"},
                                       {"--objects", "300000", "--between", "500"});
    const auto ids = [](const Profiled& profiled) {
        return profiled.report["run"]["agent"]["counters"]["objectIds"].get<long long>();
    };
    EXPECT_GT(ids(few), 300); // every class has one
    EXPECT_LT(std::abs(ids(many) - ids(few)), 100);
}

class References : public PerJdk {
protected:
    // The JVM's options; rounds of questions, objects lying around, threads that collect.
    void ask(const std::vector<std::string>& options, const std::string& rounds,
             const std::string& objects, const std::string& storms,
             const std::string& polls = "no") {
        std::string agent = bridge(jdk());
        const std::string file = "libprbbridge.so";
        agent.replace(agent.rfind(file), file.size(), "libprbprof.so");
        std::vector<std::string> argv = {jdk().home + "/bin/java", "-Xmx400m", "-Xcheck:jni",
                                         "-agentpath:" + bridge(jdk()) + "=driver=no"};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.insert(argv.end(),
                    {"-cp", product("prbprof.jar") + ":" + product("tests/programs.jar"),
                     "com.tessel.prb.workanalysis.ReferencesProbe", agent, rounds, objects, storms,
                     polls});
        const prb::Captured result = run(argv);
        EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
        EXPECT_THAT(result.out, testing::MatchesRegex("compared [0-9]+\n"));
    }
};

TEST_P(References, AreThoseOfFieldsArraysAndStaticFieldsAndNoOthers) {
    ask({}, "2", "200000", "0");
}

TEST_P(References, AreFoundWhileTheHeapIsCollectedAllTheTime) { ask({}, "4", "20000", "2"); }

TEST_P(References, AreFoundWhileAnotherThreadPollsHeapData) { ask({}, "4", "20000", "1", "polls"); }

TEST_P(References, AreFoundUnderEveryCollector) {
    for (const char* collector : {"Serial", "Parallel", "G1", "Shenandoah", "Z"}) {
        const std::string option = std::string("-XX:+Use") + collector + "GC";
        if (run({jdk().home + "/bin/java", option, "-version"}).exitCode != 0) continue;
        SCOPED_TRACE(option);
        ask({option}, "1", "20000", "1");
    }
}

PRB_FOR_EVERY_JDK(Heap);
PRB_FOR_EVERY_JDK(References);

} // namespace
} // namespace live
