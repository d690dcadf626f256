// Hard programs under every kind of data, collector by collector: they end as without us, every
// poll comes back, and the agent's own memory does not grow. About a minute per JVM in a run of all
// tests; ten minutes per collector with ./run-tests --soak, where memory is looked at as well.
#include "tests/live/Live.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace live {
namespace {

struct Case {
    Jdk jdk;
    std::string collector;
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.jdk.name << " " << c.collector; }

std::vector<Case> cases() {
    std::vector<Case> all;
    for (const Jdk& jdk : jdks())
        for (const char* collector : {"Serial", "Parallel", "G1", "Shenandoah", "Z"})
            if (jdk.bits == 64 || collector != std::string("Z")) all.push_back({jdk, collector});
    return all;
}

class Soak : public testing::TestWithParam<Case> {
protected:
    static constexpr int kPrograms = 4;

    // Of each program.
    static int seconds() {
        const char* soak = std::getenv("PRB_SOAK_SECONDS"); // NOLINT(concurrency-mt-unsafe)
        return soak == nullptr ? 3 : std::max(3, std::atoi(soak) / kPrograms);
    }

    // Of a thread's record: its method stack of 500 entries, which is nearly all of it.
    double bytesOfThread() const { return 500 * (jdk().bits == 64 ? 64 : 44); }

    // The agent's own bytes, poll by poll, without the records of the poll's threads: how many come
    // and go in a second changes with the machine's load.
    std::vector<double> memory(const std::string& capture) const {
        const prb::Captured decoded = run({prb(), "decode", capture}, 600);
        EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
        std::vector<double> bytes;
        double threads = 0; // of the poll
        std::istringstream lines(decoded.out);
        for (std::string line; std::getline(lines, line);) {
            if (line.find("\"type\":10,") != std::string::npos) threads++;
            if (line.find("\"type\":998,") != std::string::npos) threads = 0;
            if (line.find("\"type\":18,") == std::string::npos) continue;
            const nlohmann::json record = nlohmann::json::parse(line);
            for (const auto& field : record["fields"])
                if (field["name"] == "agentBytes")
                    bytes.push_back(field["value"].get<double>() - threads * bytesOfThread());
        }
        return bytes;
    }

    // Records of allocations come and go with collections and polls, those of classes with the
    // collections that unload them: only the least of many polls must not grow. The first third of
    // a run is warm-up.
    void expectNoGrowth(const std::string& capture) const {
        const std::vector<double> bytes = memory(capture);
        const auto third = static_cast<std::ptrdiff_t>(bytes.size() / 3);
        ASSERT_GE(third, 5);
        const double middle = *std::min_element(bytes.begin() + third, bytes.end() - third);
        const double last = *std::min_element(bytes.end() - third, bytes.end());
        std::printf("agent's memory: least of the middle third %.1f MiB, of the last %.1f MiB\n",
                    middle / 1048576, last / 1048576);
        EXPECT_LT(last - middle, 0.25 * std::max(0.0, middle) + 4 * 1048576);
    }

    Profiled runUnder(std::vector<std::string> program) {
        // Little metaspace: its threshold asks for collections of its own kind.
        program.insert(program.begin(), {collector(), "-Xmx256m", "-XX:MetaspaceSize=4m"});
        Profiled p = profile(
            jdk(),
            {"--poll", "1", "--data", "threads,methods,contention,gc,alloc,heap,errors,self"},
            program, seconds() + 100);
        EXPECT_EQ(p.result.exitCode, 0) << p.result.err;
        EXPECT_TRUE(p.report.is_object());
        if (!p.report.is_object()) return p;
        EXPECT_EQ(p.report["run"]["complete"], true);
        EXPECT_EQ(p.report["run"]["errors"], nlohmann::json::array());
        EXPECT_GT(p.report["run"]["cycles"].get<int>(), 20);
        EXPECT_GT(p.report["run"]["busy_samples"].get<int>(), 10);
        if (seconds() >= 60) expectNoGrowth(p.capture);
        return p;
    }

    // One of tests/live/programs: what it prints does not depend on how long it runs.
    void unchanged(const std::string& name) {
        SCOPED_TRACE(name);
        std::vector<std::string> program = {"-cp", product("tests/programs.jar"),
                                            "com.tessel.prb.live.programs." + name, "--seconds",
                                            "0"};
        std::vector<std::string> bare = {jdk().home + "/bin/java", collector(), "-Xmx256m"};
        bare.insert(bare.end(), program.begin(), program.end());
        const prb::Captured without = run(bare);
        ASSERT_EQ(without.exitCode, 0) << without.err;
        program.back() = std::to_string(seconds());
        const Profiled with = runUnder(program);
        EXPECT_EQ(with.result.out, without.out);
    }

    const Jdk& jdk() const { return GetParam().jdk; }
    std::string collector() const { return "-XX:+Use" + GetParam().collector + "GC"; }
    Folder folder;
};

TEST_P(Soak, ProgramsEndAsWithoutUs) {
    if (run({jdk().home + "/bin/java", collector(), "-version"}).exitCode != 0)
        GTEST_SKIP() << jdk().name << " has no " << collector();
    const Profiled sample =
        runUnder({"-jar", product("sample.jar"), "--seconds", std::to_string(seconds())});
    EXPECT_THAT(sample.result.out,
                testing::AllOf(testing::HasSubstr("orders per second"),
                               testing::HasSubstr("balanced"),
                               testing::Not(testing::HasSubstr("NOT balanced"))));
    unchanged("AllocationStorm");
    unchanged("ClassChurn");
    unchanged("ThreadChurn");
}

std::string nameOfCase(const testing::TestParamInfo<Case>& info) {
    return info.param.jdk.name + "_" + info.param.collector;
}

INSTANTIATE_TEST_SUITE_P(Live, Soak, testing::ValuesIn(cases()), nameOfCase);

} // namespace
} // namespace live
