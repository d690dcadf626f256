#include "bridge/JavaDriver.h"

#include <atomic>
#include <cstdio>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>

#include <unistd.h>

#include <gtest/gtest.h>

#include "bridge/AgentLibrary.h"
#include "bridge/BridgeLink.h"
#include "bridge/CollectorThreads.h"
#include "bridge/Report.h"

namespace bridge {
namespace {

TEST(NativeName, followsTheRulesOfJni) {
    EXPECT_EQ("Java_com_tessel_prb_workanalysis_Profiler_InitProfiler",
              JavaDriver::nativeName("com/tessel/prb/workanalysis/Profiler", "InitProfiler"));
    EXPECT_EQ("Java_a_1b_C_x_1y", JavaDriver::nativeName("a_b/C", "x_y"));
    EXPECT_EQ("Java_A_00024B_m", JavaDriver::nativeName("A$B", "m"));
    EXPECT_EQ("Java_A_z_000fcg", JavaDriver::nativeName("A", "z\xc3\xbcg"));
    EXPECT_EQ("Java_A__020ac", JavaDriver::nativeName("A", "\xe2\x82\xac"));
}

TEST(AgentLibrary, recognisesTheRunOption) {
    EXPECT_TRUE(AgentLibrary::isRunOption("-Xrunprbprof"));
    EXPECT_TRUE(AgentLibrary::isRunOption("-Xrunprbprof:port=1"));
    for (const char* other : {"-Xrunprbprof2", "-Xrunprb", "", "-Xrunjdwp:x", "xX-Xrunprbprof"})
        EXPECT_FALSE(AgentLibrary::isRunOption(other)) << other;
    EXPECT_FALSE(AgentLibrary::isRunOption(nullptr));
}

TEST(AgentLibrary, whatTheOptionNamesComesFirst) {
    EXPECT_EQ("/x/y.so", AgentLibrary::locate("/x/y.so", AgentLibrary::kLibrary));
    const std::string beside = AgentLibrary::locate("", AgentLibrary::kJar);
    EXPECT_TRUE(beside.ends_with("/prbprof.jar")) << beside;
}

TEST(CollectorThreads, tellsTheCollectorsThatEndEarly) {
    for (const char* name : {"ZDirector", "Shenandoah Cont"})
        EXPECT_TRUE(isEarlyEndingCollectorThread(name)) << name;
    for (const char* name : {"", "GC Thread#0", "G1 Main Marker", "VM Thread", "ZDirector of mine"})
        EXPECT_FALSE(isEarlyEndingCollectorThread(name)) << name;
}

TEST(CollectorThreads, looksAtThisProcesssThreads) {
    EXPECT_FALSE(collectorEndsBeforeVmDeath());
    std::atomic<bool> named{false};
    std::atomic<bool> end{false};
    std::thread posing([&] {
        pthread_setname_np(pthread_self(), "ZDirector");
        named = true;
        while (!end) std::this_thread::yield();
    });
    while (!named) std::this_thread::yield();
    EXPECT_TRUE(collectorEndsBeforeVmDeath());
    end = true;
    posing.join();
}

TEST(BridgeLink, countersHaveDistinctNamesAndOneValueEach) {
    const std::vector<std::string> names = counterNames();
    EXPECT_EQ(names.size(), counterValues().size());
    EXPECT_EQ(names.size(), std::set<std::string>(names.begin(), names.end()).size());
    for (const std::string& name : names) EXPECT_EQ(std::string::npos, name.find('+')) << name;
    // The order is part of the capture's format.
    EXPECT_EQ("cycles", names[0]);
    EXPECT_EQ("samplesAsked", names[1]);
    EXPECT_EQ("samplesTaken", names[2]);
    EXPECT_EQ("tracesTaken", names[3]);
    EXPECT_EQ("tracesFailed", names[4]);
}

TEST(BridgeLink, hasTheNativesThatTheClassDeclaresAndNoOther) {
    EXPECT_NE(nullptr, bridgeNative("counters"));
    EXPECT_NE(nullptr, bridgeNative("facts"));
    EXPECT_EQ(nullptr, bridgeNative("other"));
}

class ReportTest : public testing::Test {
protected:
    // What `speak` writes to standard error.
    template <class Speak> std::string said(Speak speak) {
        int ends[2];
        EXPECT_EQ(0, pipe(ends));
        const int saved = dup(STDERR_FILENO);
        dup2(ends[1], STDERR_FILENO);
        close(ends[1]);
        speak();
        dup2(saved, STDERR_FILENO);
        close(saved);
        char text[4096];
        const ssize_t length = read(ends[0], text, sizeof text);
        close(ends[0]);
        return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
    }
};

TEST_F(ReportTest, isOneLineWithThePrefix) {
    EXPECT_EQ("prbprof: 3 things\n", said([] { report("%d things", 3); }));
    EXPECT_EQ("prbprof: a?b?c\n", said([] { report("%s", "a\nb\tc"); }));
}

TEST_F(ReportTest, cutsWhatIsTooLong) {
    const std::string line = said([] { report("%s", std::string(5000, 'x').c_str()); });
    EXPECT_LE(line.size(), kReportLineBytes);
    EXPECT_GT(line.size(), kReportLineBytes - 3);
    EXPECT_EQ('\n', line.back());
}

TEST_F(ReportTest, quietSilencesRemarksAndNotFailures) {
    setQuiet(true);
    EXPECT_EQ("prbprof: failure\n", said([] {
                  inform("remark");
                  report("failure");
              }));
    setQuiet(false);
    EXPECT_EQ("prbprof: remark\n", said([] { inform("remark"); }));
}

} // namespace
} // namespace bridge
