// Collections under load: polls, class loads and allocations go on while the registries are held
// by one collection after the other, and nothing stands still.
#include "tests/live/Live.h"

#include <cstdlib>

#include <sstream>

namespace live {
namespace {

class Collections : public PerJdk {
protected:
    // Of the capture's garbage collection samples: the last value of a key.
    static long long lastOf(const std::string& capture, const std::string& key) {
        const prb::Captured decoded = run({prb(), "decode", capture});
        EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
        long long last = -1;
        std::istringstream lines(decoded.out);
        for (std::string line; std::getline(lines, line);) {
            const nlohmann::json record = nlohmann::json::parse(line);
            if (record["type"] != 14) continue;
            for (const auto& field : record["fields"])
                if (field["name"] == key) last = field["value"].get<long long>();
        }
        return last;
    }

    // One of the bridge's own figures, at the run's end.
    static long long counter(const Profiled& profiled, const char* name) {
        return profiled.report["run"]["agent"]["counters"][name].get<long long>();
    }

    // The options of the collectors that the JVM has.
    std::vector<std::string> collectors() const {
        std::vector<std::string> options;
        for (const char* name : {"Serial", "Parallel", "G1", "Shenandoah", "Z"}) {
            const std::string option = std::string("-XX:+Use") + name + "GC";
            if (run({jdk().home + "/bin/java", option, "-version"}).exitCode == 0)
                options.push_back(option);
        }
        return options;
    }

    // One collector; in a soak run each that the JVM has.
    void survive(const std::string& program) {
        const char* soak = std::getenv("PRB_SOAK_SECONDS"); // NOLINT(concurrency-mt-unsafe)
        if (soak == nullptr) return survive(program, {"-XX:+UseG1GC"}, 10);
        for (const std::string& option : collectors())
            survive(program, {option}, std::atoi(soak) / 2); // there are two programs
    }

    // What the programs print does not depend on how long they run.
    void survive(const std::string& program, std::vector<std::string> java, int seconds) {
        SCOPED_TRACE(java[0]);
        const std::vector<std::string> rest = {"-Xmx256m",
                                               "-cp",
                                               product("tests/programs.jar"),
                                               "com.tessel.prb.live.programs." + program,
                                               "--seconds",
                                               "1"};
        java.insert(java.end(), rest.begin(), rest.end());
        std::vector<std::string> bare = {jdk().home + "/bin/java"};
        bare.insert(bare.end(), java.begin(), java.end());
        const prb::Captured without = run(bare);
        ASSERT_EQ(without.exitCode, 0) << without.err;
        java.back() = std::to_string(seconds);
        const Profiled with =
            profile(jdk(), {"--data", "threads,methods,gc,errors,self", "--poll", "0.1"}, java,
                    seconds + 100);
        EXPECT_EQ(with.result.exitCode, 0) << with.result.err;
        EXPECT_EQ(with.result.out, without.out);
        ASSERT_TRUE(with.report.is_object());
        EXPECT_EQ(with.report["run"]["complete"], true);
        EXPECT_EQ(with.report["run"]["errors"], nlohmann::json::array());
        // Every poll came back.
        EXPECT_GT(with.report["run"]["records"].get<int>(), 10 * seconds);
        EXPECT_GT(lastOf(with.capture, "totalCollections"), 0);
    }
};

TEST_P(Collections, UnderAllocation) { survive("AllocationStorm"); }

TEST_P(Collections, UnderClassLoads) { survive("ClassChurn"); }

// The VM tells the collection that a full metaspace asks for inside another one.
TEST_P(Collections, ThatAFullMetaspaceAsksFor) {
    for (const std::string& collector : collectors()) {
        survive("ClassChurn", {collector, "-XX:MetaspaceSize=4m", "-Xlog:gc:file=gc.log"}, 1);
        EXPECT_NE(slurp("gc.log").find("Metadata GC Threshold"), std::string::npos) << collector;
    }
}

// The VM ends while what is left of thousands of classes is still to be told, and while other
// threads have it collect again: neither may wait for the other.
TEST_P(Collections, AndUnloadedClassesAtTheEnd) {
    std::vector<std::string> options = {"-XX:+UseG1GC"};
    if (std::getenv("PRB_SOAK_SECONDS") != nullptr) options = collectors(); // NOLINT
    for (const std::string& option : options) {
        SCOPED_TRACE(option);
        const std::vector<std::string> argv = {option, "-Xmx256m", "-cp",
                                               product("tests/programs.jar"),
                                               "com.tessel.prb.live.programs.UnloadingEnd"};
        std::vector<std::string> bare = {jdk().home + "/bin/java"};
        bare.insert(bare.end(), argv.begin(), argv.end());
        const prb::Captured without = run(bare);
        ASSERT_EQ(without.exitCode, 0) << without.err;
        const Profiled with =
            profile(jdk(), {"--data", "threads,methods,gc,errors,self"}, argv, 120);
        EXPECT_EQ(with.result.exitCode, 0) << with.result.err;
        EXPECT_EQ(with.result.out, without.out);
        ASSERT_TRUE(with.report.is_object());
        EXPECT_EQ(with.report["run"]["complete"], true);
        EXPECT_EQ(with.report["run"]["errors"], nlohmann::json::array());
        // Of the 6000 copies none is left. Where a shutdown hook ends the collection, the classes
        // may be noticed after it.
        const bool hook = option.find("Z") != option.npos || option.find("Shen") != option.npos;
        if (!hook) {
            EXPECT_LT(counter(with, "classes"), 5000);
        }
    }
}

TEST_P(Collections, AndThreadsThatAreGoneLeaveNoIds) {
    const Profiled churned =
        profile(jdk(), {"--data", "threads,errors,self", "--poll", "0.5"},
                {"-XX:+UseSerialGC", "-Xmn1m", "-cp", product("tests/programs.jar"),
                 "com.tessel.prb.live.programs.ThreadChurn", "--seconds", "3"});
    EXPECT_EQ(churned.result.exitCode, 0) << churned.result.err;
    const std::string said = "threads ";
    const std::size_t at = churned.result.err.find(said);
    ASSERT_NE(at, std::string::npos) << churned.result.err;
    const long long threads = std::atoll(churned.result.err.c_str() + at + said.size());
    ASSERT_GE(threads, 2000);
    EXPECT_LT(counter(churned, "objectIds") - counter(churned, "classes"), threads / 2 + 500);
}

PRB_FOR_EVERY_JDK(Collections);

} // namespace
} // namespace live
