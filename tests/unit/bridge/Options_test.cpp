#include "bridge/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace bridge {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

TEST(Options, nothingGivenLeavesTheDefaults) {
    for (const char* text : {static_cast<const char*>(nullptr), "", ",,,"}) {
        Options options;
        EXPECT_EQ("", options.parse(text));
        EXPECT_EQ("", options.lib());
        EXPECT_EQ("", options.jar());
        EXPECT_EQ("", options.agentText());
        EXPECT_TRUE(options.driver());
        EXPECT_TRUE(options.protectForks());
        EXPECT_FALSE(options.quiet());
        EXPECT_FALSE(options.recompile());
        EXPECT_FALSE(options.detach());
        EXPECT_EQ("", options.reply());
        EXPECT_EQ(0u, options.data());
        EXPECT_EQ(0u, options.intervalMs());
        EXPECT_EQ(0u, options.pollMs());
    }
}

TEST(Options, everyKeyIsRead) {
    Options options;
    const char text[] =
        "lib=/l/a.so,jar=/j.jar,driver=no,fork=plain,frees=no,file=/c-%p.prb,"
        "name=My server,data=threads+gc+self,interval=60000,poll=0.5,classes=a/*+b/C,methods=get*,"
        "quiet=yes,recompile=yes,detach=yes,reply=/r";
    ASSERT_EQ("", options.parse(text));
    EXPECT_EQ(text, options.text());
    EXPECT_EQ("/l/a.so", options.lib());
    EXPECT_EQ("/j.jar", options.jar());
    EXPECT_FALSE(options.driver());
    EXPECT_FALSE(options.protectForks());
    EXPECT_FALSE(options.frees());
    EXPECT_EQ("/c-%p.prb", options.file());
    EXPECT_EQ("My server", options.name());
    EXPECT_EQ(static_cast<uint32_t>(Options::kThreads | Options::kGc | Options::kSelf),
              options.data());
    EXPECT_EQ(60000u, options.intervalMs());
    EXPECT_EQ(500u, options.pollMs());
    EXPECT_THAT(options.classes(), ElementsAre("a/*", "b/C"));
    EXPECT_THAT(options.methods(), ElementsAre("get*"));
    EXPECT_TRUE(options.quiet());
    EXPECT_TRUE(options.recompile());
    EXPECT_TRUE(options.detach());
    EXPECT_EQ("/r", options.reply());
}

TEST(Options, aBackslashTakesTheMeaningOffCommasAndBackslashes) {
    Options options;
    ASSERT_EQ("", options.parse("name=a\\,b\\\\c,file=x=y"));
    EXPECT_EQ("a,b\\c", options.name());
    EXPECT_EQ("x=y", options.file());
}

TEST(Options, theLaterOfTwoEqualKeysCounts) {
    Options options;
    ASSERT_EQ("", options.parse("interval=5,classes=a+b,interval=7,classes=c"));
    EXPECT_EQ(7u, options.intervalMs());
    EXPECT_THAT(options.classes(), ElementsAre("c"));
}

TEST(Options, theAgentsOptionsArePassedOnInOrder) {
    Options options;
    ASSERT_EQ("", options.parse("agent.port=9,quiet=no,agent.debug=0x1\\,2,agent.filter="));
    EXPECT_EQ("port=9,debug=0x1,2,filter=", options.agentText());
}

struct Poll {
    const char* text;
    uint32_t ms;
};
class PollTest : public testing::TestWithParam<Poll> {};
TEST_P(PollTest, isReadInMilliseconds) {
    Options options;
    ASSERT_EQ("", options.parse((std::string("poll=") + GetParam().text).c_str()));
    EXPECT_EQ(GetParam().ms, options.pollMs());
}
INSTANTIATE_TEST_SUITE_P(Options, PollTest,
                         testing::Values(Poll{"1", 1000}, Poll{"3600", 3600000}, Poll{"0.02", 20},
                                         Poll{"2.5", 2500}, Poll{"1.0009", 1000},
                                         Poll{"0.125", 125}));

struct Wrong {
    const char* text;
    const char* problem;
};
class WrongOptionTest : public testing::TestWithParam<Wrong> {};
TEST_P(WrongOptionTest, isNamedWithWhatWouldBeRight) {
    Options options;
    EXPECT_EQ(GetParam().problem, options.parse(GetParam().text));
}

constexpr char kKeys[] = "lib, jar, driver, fork, frees, file, name, data, interval, poll, "
                         "classes, methods, exact, quiet, recompile, detach, reply, agent.KEY";
constexpr char kData[] =
    "threads, methods, contention, heap, gc, alloc, errors or self, joined by '+'";
const std::string kUnknown = std::string("option 'colour' is not known: the keys are ") + kKeys;
const std::string kUnknownAgent =
    std::string("option 'agent.' is not known: the keys are ") + kKeys;
const std::string kWrongData = std::string("option data='heat' is not right: give ") + kData;
const std::string kEmptyData = std::string("option data='gc+' is not right: give ") + kData;
constexpr char kBackslash[] =
    "option text has a single backslash: write '\\\\' for a backslash and "
    "'\\,' for a comma";

INSTANTIATE_TEST_SUITE_P(
    Options, WrongOptionTest,
    testing::Values(
        Wrong{"colour=red", kUnknown.c_str()}, Wrong{"agent.=1", kUnknownAgent.c_str()},
        Wrong{"driver", "option 'driver' has no value: write driver=..."},
        Wrong{"driver=maybe", "option driver='maybe' is not right: give yes or no"},
        Wrong{"quiet=", "option quiet='' is not right: give yes or no"},
        Wrong{"fork=none", "option fork='none' is not right: give protect or plain"},
        Wrong{"frees=all", "option frees='all' is not right: give yes or no"},
        Wrong{"interval=0", "option interval='0' is not right: give 1 to 60000 milliseconds"},
        Wrong{"interval=60001",
              "option interval='60001' is not right: give 1 to 60000 milliseconds"},
        Wrong{"interval=5x", "option interval='5x' is not right: give 1 to 60000 milliseconds"},
        Wrong{"interval=99999999999",
              "option interval='99999999999' is not right: give 1 to 60000 milliseconds"},
        Wrong{"poll=0.019", "option poll='0.019' is not right: give 0.02 to 3600 seconds"},
        Wrong{"poll=3600.001", "option poll='3600.001' is not right: give 0.02 to 3600 seconds"},
        Wrong{"poll=4294968", "option poll='4294968' is not right: give 0.02 to 3600 seconds"},
        Wrong{"poll=1.", "option poll='1.' is not right: give 0.02 to 3600 seconds"},
        Wrong{"poll=1.5s", "option poll='1.5s' is not right: give 0.02 to 3600 seconds"},
        Wrong{"lib=", "option lib='' is not right: give the path of libprbprof.so"},
        Wrong{"classes=a++b", "option classes='a++b' is not right: give class masks joined by '+'"},
        Wrong{"data=heat", kWrongData.c_str()}, Wrong{"data=gc+", kEmptyData.c_str()},
        Wrong{"name=a\\b", kBackslash}, Wrong{"name=a\\", kBackslash}));

TEST(Options, everyKindOfDataHasItsBit) {
    Options options;
    ASSERT_EQ("", options.parse("data=threads+methods+contention+heap+gc+alloc+errors+self"));
    EXPECT_EQ(0xffu, options.data());
}

} // namespace
} // namespace bridge
