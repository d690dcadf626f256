// Programs that are hard on a profiler: what they compute must not change under it. Those that
// churn classes and threads are run by soak_test.cpp.
#include "tests/live/Live.h"

#include <sstream>

namespace live {
namespace {

class Programs : public PerJdk {
protected:
    // Without the line of counts that depend on speed (they go to standard error).
    void unchanged(const std::string& program, const std::vector<std::string>& options = {}) {
        const std::vector<std::string> java = {"-Xmx256m",
                                               "-cp",
                                               product("tests/programs.jar"),
                                               "com.tessel.prb.live.programs." + program,
                                               "--seconds",
                                               "4"};
        std::vector<std::string> bare = {jdk().home + "/bin/java"};
        bare.insert(bare.end(), java.begin(), java.end());
        const prb::Captured without = run(bare);
        ASSERT_EQ(without.exitCode, 0) << program << without.err;
        const Profiled with = profile(jdk(), options, java);
        EXPECT_EQ(with.result.exitCode, 0) << program << with.result.err;
        EXPECT_EQ(with.result.out, without.out) << program;
        ASSERT_TRUE(with.report.is_object()) << program;
        EXPECT_EQ(with.report["run"]["complete"], true) << program;
        EXPECT_GT(with.report["run"]["busy_samples"].get<int>(), 10) << program;
        EXPECT_EQ(with.report["run"]["errors"], nlohmann::json::array()) << program;
    }
};

TEST_P(Programs, DeepRecursion) { unchanged("DeepRecursion"); }

TEST_P(Programs, AllocationAndCollectionsWithoutPause) {
    unchanged("AllocationStorm", {"--interval", "2"});
}

TEST_P(Programs, ThreadsThatFightForLocks) { unchanged("LockFights", {"--interval", "5"}); }

PRB_FOR_EVERY_JDK(Programs);

} // namespace
} // namespace live
