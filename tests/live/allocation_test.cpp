// Allocation data of programs that count what they allocate themselves, through the whole chain:
// JVM, bridge, agent, capture, report.
#include "tests/live/Live.h"

using nlohmann::json;

namespace live {
namespace {

constexpr long long kObjects = 200000; // of each thread

struct Collector {
    const char* name;
    const char* option;
    // Of objects that die at once, how many must be told as freed: all but a few that are on
    // their way during a collection. G1 also ends its concurrent cycles with pauses that free
    // nothing, and the profiler then forgets what it knew.
    long long leastFreed;
};
constexpr Collector kCollectors[] = {{"Serial", "-XX:+UseSerialGC", kObjects - 10},
                                     {"Parallel", "-XX:+UseParallelGC", kObjects - 10},
                                     {"G1", "-XX:+UseG1GC", kObjects / 2},
                                     {"Shenandoah", "-XX:+UseShenandoahGC", 0},
                                     {"Z", "-XX:+UseZGC", 0}};

bool has(const Jdk& jdk, const Collector& collector) {
    return run({jdk.home + "/bin/java", collector.option, "-version"}).exitCode == 0;
}

long long figure(const json& rows, const char* nameKey, const std::string& name, const char* key) {
    long long sum = 0;
    for (const json& row : rows)
        if (row[nameKey] == name) sum += row[key].get<long long>();
    return sum;
}

class Allocations : public PerJdk {
protected:
    Profiled profileCounted(const Collector& collector, std::vector<std::string> options) {
        options.insert(options.end(), {"--poll", "0.2"});
        return profile(jdk(), options,
                       {collector.option, "-Xmx400m", "-cp", product("tests/programs.jar"),
                        "com.tessel.prb.live.programs.CountedAllocations", "--objects",
                        std::to_string(kObjects)});
    }
    static long long ofClass(const Profiled& p, const std::string& name, const char* key) {
        return figure(p.report["classes"], "class",
                      "com.tessel.prb.live.programs.CountedAllocations" + name, key);
    }
};

TEST_P(Allocations, AreCountedByClassAndThread) {
    for (const Collector& collector : kCollectors) {
        if (!has(jdk(), collector)) continue;
        SCOPED_TRACE(collector.name);
        const Profiled p = profileCounted(
            collector, {"--data", "threads,alloc,errors,self", "--bridge", "frees=no"});
        ASSERT_EQ(p.result.exitCode, 0) << p.result.err;
        EXPECT_EQ(p.result.out, "200000 200000 600000 1000\n");
        ASSERT_TRUE(p.report.is_object()) << p.result.err;
        EXPECT_EQ(p.report["run"]["errors"], json::array());
        EXPECT_EQ(p.report["run"]["complete"], true);
        EXPECT_EQ(ofClass(p, "$Small", "allocated_objects"), kObjects);
        EXPECT_EQ(ofClass(p, "$Kept", "allocated_objects"), kObjects);
        EXPECT_EQ(ofClass(p, "$Kept[]", "allocated_objects"), 3 * kObjects);
        EXPECT_EQ(ofClass(p, "$Kept[][]", "allocated_objects"), 1000);
        EXPECT_EQ(ofClass(p, "$Small", "freed_objects"), 0);
        // The program still holds these when the heap is looked at.
        EXPECT_EQ(ofClass(p, "$Kept[][]", "live_objects"), 1000);
        // A thread that does nothing else, but for what the JDK makes at its start and end.
        const long long objects =
            figure(p.report["threads"], "name", "counted small", "allocated_objects");
        EXPECT_GE(objects, kObjects);
        EXPECT_LE(objects, kObjects + 500);
        const long long bytes =
            figure(p.report["threads"], "name", "counted small", "allocated_bytes");
        EXPECT_GE(bytes, kObjects * 16);
        EXPECT_LE(bytes, kObjects * 24 + 50000);
    }
}

TEST_P(Allocations, FreedObjectsAreCountedWhereTheCollectorTells) {
    for (const Collector& collector : kCollectors) {
        if (!has(jdk(), collector)) continue;
        SCOPED_TRACE(collector.name);
        const Profiled p = profileCounted(collector, {"--data", "alloc,errors,self"});
        ASSERT_EQ(p.result.exitCode, 0) << p.result.err;
        ASSERT_TRUE(p.report.is_object()) << p.result.err;
        EXPECT_EQ(ofClass(p, "$Small", "allocated_objects"), kObjects);
        const std::string limits = p.report["run"]["warnings"].dump();
        if (collector.leastFreed != 0) {
            EXPECT_GE(ofClass(p, "$Small", "freed_objects"), collector.leastFreed);
            EXPECT_LE(ofClass(p, "$Small", "freed_objects"), kObjects);
            EXPECT_EQ(limits.find("freed objects are not told"), std::string::npos) << limits;
        } else {
            EXPECT_EQ(ofClass(p, "$Small", "freed_objects"), 0);
            EXPECT_NE(limits.find(std::string("freed objects are not told by the ") +
                                  collector.name + " collector"),
                      std::string::npos)
                << limits;
        }
    }
}

PRB_FOR_EVERY_JDK(Allocations);

} // namespace
} // namespace live
