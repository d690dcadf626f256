// The sample server under the agent, with every collector of the JVM.
#include "tests/live/Live.h"

#include <fstream>
#include <set>
#include <sstream>

using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace live {
namespace {

class SampleApp : public PerJdk {
protected:
    Profiled sample(const std::vector<std::string>& jvm, int seconds) {
        std::vector<std::string> java = jvm;
        java.insert(java.end(),
                    {"-jar", product("sample.jar"), "--seconds", std::to_string(seconds)});
        return profile(jdk(), {}, java);
    }
};

TEST_P(SampleApp, ThePricingStepIsTheTopMethod) {
    const Profiled p = sample({}, 8);
    EXPECT_EQ(p.result.exitCode, 0);
    EXPECT_THAT(p.result.out, AllOf(HasSubstr("orders per second"), HasSubstr("balanced"),
                                    Not(HasSubstr("NOT balanced"))));
    EXPECT_EQ(p.result.err, "");
    ASSERT_TRUE(p.report.is_object());
    const json& run = p.report["run"];
    EXPECT_EQ(run["bits"], jdk().bits);
    EXPECT_EQ(run["complete"], true);
    EXPECT_EQ(run["errors"], json::array());
    EXPECT_GE(run["polls"].get<int>(), 7);
    EXPECT_GT(run["cycles"].get<int>(), 400);
    const json& top = p.report["methods"][0];
    EXPECT_EQ(top["class"], "com.tessel.prb.sample.PricingEngine");
    EXPECT_EQ(top["method"], "priceOrder");
    EXPECT_GT(top["own_share"].get<double>(), 30);
}

TEST_P(SampleApp, TheAgentsOwnThreadsAreMarked) {
    const Profiled p = sample({}, 3);
    std::set<std::string> own;
    for (const json& t : p.report["threads"])
        if (t["own"] == true) own.insert(t["name"]);
    EXPECT_THAT(own, testing::UnorderedElementsAre("PRB_Poller_Thread", "PRB_Unload_Thread"));
}

TEST_P(SampleApp, CheckedJniFindsNothing) {
    const Profiled p = sample({"-Xcheck:jni"}, 3);
    EXPECT_EQ(p.result.exitCode, 0);
    EXPECT_THAT(p.result.out, Not(HasSubstr("WARNING")));
    EXPECT_THAT(p.result.out, Not(HasSubstr("FATAL")));
    EXPECT_EQ(p.result.err, "");
}

TEST_P(SampleApp, EveryRecordOfTheCaptureCanBeDecoded) {
    const Profiled p = sample({}, 3);
    const prb::Captured decoded = run({prb(), "decode", p.capture});
    EXPECT_EQ(decoded.exitCode, 0) << decoded.err;
    std::istringstream lines(decoded.out);
    std::string line;
    std::map<int, int> types;
    json first, last;
    while (std::getline(lines, line)) {
        last = json::parse(line);
        if (first.is_null()) first = last;
        types[last["type"].get<int>()]++;
        EXPECT_NE(last["type_name"], "Unknown") << line.substr(0, 200);
        EXPECT_FALSE(last.contains("error")) << line.substr(0, 200);
    }
    EXPECT_EQ(first["type"], 1); // the run's facts before the first poll
    EXPECT_EQ(last["type"], 998);
    EXPECT_EQ(types[1], 2); // and again with the last
    EXPECT_GT(types[10], 10);
    EXPECT_GT(types[11], 10);
    EXPECT_EQ(types[998], p.report["run"]["polls"].get<int>());
}

TEST_P(SampleApp, ReportsInEveryFormatComeOutOfOneCapture) {
    const Profiled p = sample({}, 3);
    const prb::Captured text = run({prb(), "report", p.capture, "--top", "5"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_THAT(text.out, HasSubstr("com.tessel.prb.sample.PricingEngine.priceOrder(Order)"));
    const prb::Captured csv = run({prb(), "report", p.capture, "--format", "csv"});
    EXPECT_EQ(csv.exitCode, 0);
    EXPECT_THAT(csv.out, HasSubstr("method,priceOrder,com.tessel.prb.sample.PricingEngine"));
}

PRB_FOR_EVERY_JDK(SampleApp);

} // namespace
} // namespace live
