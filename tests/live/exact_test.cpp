// Methods timed call by call.
#include "tests/live/Live.h"

#include <map>

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

namespace live {
namespace {

constexpr const char* kProgram = "com.tessel.prb.live.programs.ExactCalls";
constexpr const char* kExpected = "caught 50 sum 8503\n";

class Exact : public PerJdk {
protected:
    // The report's methods by name.
    std::map<std::string, json> timed(const std::string& masks, Profiled& run) {
        run = profile(jdk(), {"--exact", masks}, {"-cp", product("tests/programs.jar"), kProgram});
        EXPECT_EQ(0, run.result.exitCode) << run.result.err;
        EXPECT_THAT(run.result.out, StartsWith(kExpected));
        EXPECT_EQ("", run.result.err);
        std::map<std::string, json> methods;
        for (const json& m : run.report["methods"]) methods[m["method"]] = m;
        return methods;
    }
};

TEST_P(Exact, CallsAreCountedToTheLastOne) {
    Profiled run;
    const auto methods =
        timed(std::string(kProgram) + ":leaf," + kProgram + ":recurse," + kProgram + ":guarded," +
                  kProgram + ":thrower," + kProgram + ":deeper," + kProgram + ":burn," + kProgram +
                  ":nap," + kProgram + ":dying," + kProgram + ":falling",
              run);
    const std::map<std::string, int> expected = {
        {"leaf", 5000}, {"recurse", 1000}, {"guarded", 100}, {"thrower", 100}, {"deeper", 50},
        {"burn", 4},    {"nap", 4},        {"dying", 3},     {"falling", 3}};
    EXPECT_EQ(expected.size(), methods.size()) << "and no others";
    for (const auto& [name, calls] : expected) {
        ASSERT_EQ(1u, methods.count(name)) << name;
        EXPECT_EQ(calls, methods.at(name)["calls"]) << name;
        EXPECT_EQ(kProgram, methods.at(name)["class"]) << name;
    }
    EXPECT_EQ("nanoseconds", run.report["run"]["values_are"]);
    EXPECT_EQ(true, run.report["run"]["complete"]);
    EXPECT_EQ(json::array(), run.report["run"]["errors"]);
    // What a program that measures itself knows: it burns for 4 times 40 ms, and naps for 100 ms.
    EXPECT_GE(methods.at("burn")["elapsed_ms"].get<double>(), 160);
    const double burned = std::stod(run.result.out.substr(std::string(kExpected).size())) / 1000;
    EXPECT_NEAR(burned, methods.at("burn")["own_ms"].get<double>(), 2 + 0.02 * burned);
    EXPECT_GT(methods.at("falling")["elapsed_ms"].get<double>(), 0) << "left by exceptions alone";
    EXPECT_GE(methods.at("nap")["elapsed_ms"].get<double>(), 100);
    EXPECT_LE(methods.at("nap")["own_ms"].get<double>(), 20);
    for (const auto& [name, m] : methods) {
        // Nested calls of a microsecond or two are too short for the clock that is used.
        if (name != "recurse") {
            EXPECT_LE(m["own_ms"].get<double>(), m["elapsed_ms"].get<double>() + 5) << name;
        }
        EXPECT_LE(m["own_ms"].get<double>(), m["total_ms"].get<double>()) << name;
    }
    std::printf("%s: burn own %.1f ms of %.1f ms elapsed, truth %.1f; leaf %.3f ms own\n",
                jdk().name.c_str(), methods.at("burn")["own_ms"].get<double>(),
                methods.at("burn")["elapsed_ms"].get<double>(), burned,
                methods.at("leaf")["own_ms"].get<double>());
}

TEST_P(Exact, AClassAloneMeansAllItsMethods) {
    Profiled run;
    const auto methods = timed("com.tessel.*.ExactCalls", run);
    ASSERT_EQ(1u, methods.count("main"));
    EXPECT_EQ(1, methods.at("main")["calls"]);
    EXPECT_EQ(1000, methods.at("recurse")["calls"]);
    // What a method's callees used is its own no longer.
    EXPECT_LT(methods.at("main")["own_ms"].get<double>(),
              methods.at("main")["total_ms"].get<double>() -
                  0.9 * methods.at("burn")["own_ms"].get<double>());
    const prb::Captured text = prb::runCaptured({prb(), "report", run.capture}, 60);
    EXPECT_THAT(text.out, HasSubstr("       calls         own ms       total ms     elapsed ms"));
    EXPECT_THAT(text.out, HasSubstr("        1000 "));
}

TEST_P(Exact, NothingIsTimedWhereNothingMatches) {
    Profiled run;
    timed("com.nobody.Here:run", run);
    EXPECT_EQ("nanoseconds", run.report["run"]["values_are"]);
}

PRB_FOR_EVERY_JDK(Exact);

} // namespace
} // namespace live
