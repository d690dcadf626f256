// The natives of the Java package in real JVMs, under the bridge and without it.
#include "tests/live/Live.h"

namespace live {
namespace {

class Natives : public PerJdk {
protected:
    std::vector<std::string> command(const std::vector<std::string>& options,
                                     const std::string& how,
                                     const std::string& program = "NativesProbe") {
        // The last entry of an environment is not answered, so another one stands behind.
        std::vector<std::string> argv = {"/usr/bin/env", "PRB_PROBE=1", "PRB_LAST=1",
                                         jdk().home + "/bin/java", "-Xcheck:jni"};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.insert(argv.end(),
                    {"-cp", product("prbprof.jar") + ":" + product("tests/programs.jar"),
                     "com.tessel.prb.workanalysis." + program, agent(), how});
        return argv;
    }
    // The agent of the JDK's word size lies beside the bridge.
    std::string agent() const {
        std::string path = bridge(jdk());
        const std::string file = "libprbbridge.so";
        return path.replace(path.rfind(file), file.size(), "libprbprof.so");
    }
    static void expectAllAsExpected(const prb::Captured& result) {
        EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
        EXPECT_THAT(result.out, testing::ContainsRegex("compared [0-9]+\n$"));
        EXPECT_THAT(result.out, testing::Not(testing::HasSubstr("expected")));
        EXPECT_THAT(result.out + result.err,
                    testing::Not(testing::HasSubstr("FATAL ERROR in native method")));
    }
};

TEST_P(Natives, AnswerBeforeAnyInitialisationWithoutAProfilerInterface) {
    const prb::Captured result = run(command({}, "alone"));
    expectAllAsExpected(result);
    EXPECT_THAT(result.out + result.err,
                testing::Not(testing::HasSubstr("WARNING in native method")));
}

TEST_P(Natives, AnswerUnderTheBridgeAndSurviveTwoPollersWhileCollectionsStartAndStop) {
    expectAllAsExpected(run(command({"-agentpath:" + bridge(jdk()) + "=driver=no"}, "bridge")));
}

TEST_P(Natives, TenActivationsHaveOneChildAtATimeAndLeaveNone) {
    expectAllAsExpected(
        run(command({"-agentpath:" + bridge(jdk()) + "=driver=no"}, "bridge", "ChildrenProbe")));
}

PRB_FOR_EVERY_JDK(Natives);

} // namespace
} // namespace live
