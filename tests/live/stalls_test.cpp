// Contention and collections, from the program to the decoded capture.
#include "tests/live/Live.h"

#include <map>
#include <sstream>

using nlohmann::json;

namespace live {
namespace {

constexpr int kContention = 12;
constexpr int kCollections = 14;

class Stalls : public PerJdk {
protected:
    // The samples of a type, each as its fields by name.
    std::vector<std::map<std::string, json>> samples(const char* program, int type) {
        const Profiled p =
            profile(jdk(), {"--data", "threads,methods,contention,gc,errors,self"},
                    {"-Xmx200m", "-cp", product("tests/programs.jar"),
                     std::string("com.tessel.prb.live.programs.") + program, "--seconds", "3"});
        EXPECT_EQ(p.result.exitCode, 0) << p.result.err;
        EXPECT_THAT(p.result.out, testing::HasSubstr("checksum "));
        std::istringstream lines(run({prb(), "decode", p.capture}).out);
        std::vector<std::map<std::string, json>> found;
        for (std::string line; std::getline(lines, line);) {
            const json sample = json::parse(line);
            if (sample["type"] != type) continue;
            found.emplace_back();
            for (const json& field : sample["fields"])
                if (field.contains("name")) found.back()[field["name"]] = field["value"];
        }
        return found;
    }
};

TEST_P(Stalls, WhoFightsAndWhoWaitsIsChargedToTheMethodAndTheMonitorsClass) {
    const std::string names = "com/tessel/prb/live/programs/LockFights$";
    long long contentions = 0;
    long long waits = 0;
    for (auto& sample : samples("LockFights", kContention)) {
        const std::string method = sample["methodName"];
        EXPECT_NE(sample["className"], "java/lang/Object") << method;
        if (method == "pay") {
            EXPECT_EQ(sample["monitorClassName"], names + "Account");
            EXPECT_EQ(sample["waits"], 0);
            contentions += sample["contentions"].get<long long>();
        } else if (method == "rest") {
            EXPECT_EQ(sample["monitorClassName"], names + "Corner");
            waits += sample["waits"].get<long long>();
        }
    }
    EXPECT_GT(contentions, 0);
    EXPECT_GT(waits, 100);
}

TEST_P(Stalls, CollectionsAreCountedWithTheSizesOfTheHeap) {
    long long collections = 0;
    bool sizes = false;
    for (auto& sample : samples("AllocationStorm", kCollections)) {
        EXPECT_GE(sample["totalCollections"].get<long long>(), collections);
        collections = sample["totalCollections"].get<long long>();
        if (!sample.contains("bytesInUse")) continue; // none since the last poll
        sizes = true;
        EXPECT_GT(sample["bytesInUse"].get<long long>(), 0);
        EXPECT_GT(sample["freeBytes"].get<long long>(), 0);
        EXPECT_LE(sample["bytesInUse"].get<long long>() + sample["freeBytes"].get<long long>(),
                  200LL << 20);
    }
    EXPECT_GT(collections, 0);
    EXPECT_TRUE(sizes);
}

PRB_FOR_EVERY_JDK(Stalls);

} // namespace
} // namespace live
