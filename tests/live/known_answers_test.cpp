// Programs that measure the truth about themselves, against what the report says of them.
#include "tests/live/Live.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

using nlohmann::json;

namespace live {
namespace {

// A share of `truth` percent of n samples must be within the larger of 2 points and three
// standard deviations.
double allowed(double truth, double n) {
    const double p = truth / 100;
    return std::max(2.0, 100 * 3 * std::sqrt(p * (1 - p) / std::max(n, 1.0)));
}

// Methods whose truth is what they do themselves: recursive ones, which count once per frame in
// the figures with callees, and one that measures its callee apart.
const std::set<std::string> kOwnWork = {"com.tessel.prb.live.known.KnownShares.spread",
                                        "com.tessel.prb.live.known.KnownShares.climb",
                                        "com.tessel.prb.live.known.TreeTask.walk"};

void judge(const Jdk& jdk, const char* program, int seconds) {
    const Profiled p = profile(jdk, {},
                               {"-cp", product("tests/known.jar"),
                                std::string("com.tessel.prb.live.known.") + program, "--seconds",
                                std::to_string(seconds)},
                               seconds + 100);
    ASSERT_EQ(p.result.exitCode, 0) << p.result.err;
    const json truth = json::parse(p.result.out, nullptr, false);
    ASSERT_TRUE(truth.is_object()) << p.result.out << p.result.err;
    ASSERT_TRUE(p.report.is_object()) << p.result.err;
    const double totalCpuNs = truth["total_cpu_ns"];
    const double samples = p.report["run"]["busy_samples"];
    const double cycleMs = p.report["run"]["sample_ms"];
    EXPECT_EQ(p.report["run"]["interval_ms"], 10);
    EXPECT_GT(samples, 500);

    double knownSamples = 0, worst = 0;
    std::printf("%s %s: %.0f samples of %.3f ms\n", jdk.name.c_str(), program, samples, cycleMs);
    for (const auto& [name, ns] : truth["threads"].items()) {
        double reported = 0, threadSamples = 0;
        for (const json& t : p.report["threads"]) {
            if (t["name"] == name) {
                reported += t["share"].get<double>();
                threadSamples += t["samples"].get<double>();
            }
        }
        knownSamples += threadSamples;
        const double share = 100 * ns.get<double>() / totalCpuNs;
        worst = std::max(worst, std::abs(reported - share));
        std::printf("  thread %-14s truth %6.2f %%  report %6.2f %%\n", name.c_str(), share,
                    reported);
        EXPECT_NEAR(reported, share, allowed(share, samples)) << "thread " << name;
    }
    for (const auto& [name, ns] : truth["methods"].items()) {
        const char* figure = kOwnWork.count(name) != 0 ? "own_share" : "total_share";
        double reported = 0;
        for (const json& m : p.report["methods"]) {
            if (m["class"].get<std::string>() + "." + m["method"].get<std::string>() == name) {
                reported += m[figure].get<double>();
            }
        }
        const double share = 100 * ns.get<double>() / totalCpuNs;
        worst = std::max(worst, std::abs(reported - share));
        std::printf("  method %-50s truth %6.2f %%  report %6.2f %%\n", name.c_str(), share,
                    reported);
        EXPECT_NEAR(reported, share, allowed(share, samples)) << "method " << name;
    }
    const double whole = knownSamples * cycleMs * 1e6 / totalCpuNs;
    std::printf("  samples times cycle over CPU time: %.4f; largest error %.2f points\n", whole,
                worst);
    EXPECT_NEAR(whole, 1, 0.03);
}

class KnownAnswers : public PerJdk {};

TEST_P(KnownAnswers, SharesOfOneKindOfWorkPerThread) { judge(jdk(), "KnownShares", 20); }

TEST_P(KnownAnswers, SharesOfTasksThatThreadsHaveInCommon) { judge(jdk(), "KnownTasks", 20); }

PRB_FOR_EVERY_JDK(KnownAnswers);

} // namespace
} // namespace live
