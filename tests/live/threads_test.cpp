// Threads of unusual kinds under every kind of data: the program's results stay, and what the
// report says of the threads is true.
#include "tests/live/Live.h"

#include <set>

namespace live {
namespace {

using nlohmann::json;

class Threads : public PerJdk {
protected:
    Profiled underEverything(const std::string& program,
                             const std::vector<std::string>& more = {}) {
        std::vector<std::string> java = {"-Xmx256m", "-cp", product("tests/programs.jar"),
                                         "com.tessel.prb.live.programs." + program};
        java.insert(java.end(), more.begin(), more.end());
        java.insert(java.end(), {"--seconds", "4"});
        std::vector<std::string> bare = {jdk().home + "/bin/java"};
        bare.insert(bare.end(), java.begin(), java.end());
        const prb::Captured without = run(bare);
        EXPECT_EQ(without.exitCode, 0) << without.err;
        Profiled with = profile(
            jdk(), {"--data", "threads,methods,contention,gc", "--interval", "5", "--poll", "0.3"},
            java);
        EXPECT_EQ(with.result.exitCode, 0) << with.result.err;
        EXPECT_EQ(with.result.out, without.out);
        return with;
    }

    static double ownShare(const Profiled& p, const std::string& type, const std::string& name) {
        double share = 0;
        for (const json& m : p.report["methods"])
            if (m["class"] == type && m["method"] == name) share += m["total_share"].get<double>();
        return share;
    }
};

// What a virtual thread uses is its carrier's: most of the samples lie in the task.
TEST_P(Threads, VirtualThreadsAreProfiledAsTheirCarriers) {
    const Profiled p = underEverything("VirtualThreads");
    ASSERT_TRUE(p.report.is_object());
    EXPECT_EQ(p.report["run"]["errors"], json::array());
    EXPECT_GT(ownShare(p, "com.tessel.prb.live.programs.Work", "piece"), 15);
    if (jdk().name.rfind("jdk17", 0) == 0) return;
    double carriers = 0;
    for (const json& t : p.report["threads"])
        if (t["name"].get<std::string>().rfind("ForkJoinPool-", 0) == 0)
            carriers += t["share"].get<double>();
    EXPECT_GT(carriers, 30);
}

TEST_P(Threads, ThreadsOfNativeCodeComeAndGo) {
    const std::string library = jdk().bits == 32
                                    ? product("../release-i386/tests/libnative_threads.so")
                                    : product("tests/libnative_threads.so");
    const Profiled p = underEverything("NativeThreads", {"--library", library});
    ASSERT_TRUE(p.report.is_object());
    EXPECT_EQ(p.report["run"]["errors"], json::array());
    EXPECT_GT(ownShare(p, "com.tessel.prb.live.programs.NativeThreads", "called"), 15);
    std::set<std::string> names;
    for (const json& t : p.report["threads"]) names.insert(t["name"].get<std::string>());
    EXPECT_EQ(names.count("native visitor"), 1u);
}

// Each name is in the report as the program gave it; the thread that changes its name is one
// thread, under the name that it had when it was first seen.
TEST_P(Threads, NamesOfEveryKindAreKept) {
    const Profiled p = underEverything("NamedThreads");
    ASSERT_TRUE(p.report.is_object());
    int changing = 0;
    std::set<std::string> names;
    for (const json& t : p.report["threads"]) {
        const std::string name = t["name"];
        names.insert(name);
        if (name.rfind("changes", 0) == 0 && t["samples"].get<int>() > 0) changing++;
    }
    for (const char* name : {"größe", "線程", "a,b;c\"d\\e"})
        EXPECT_EQ(names.count(name), 1u) << name;
    EXPECT_EQ(changing, 1);
}

PRB_FOR_EVERY_JDK(Threads);

} // namespace
} // namespace live
