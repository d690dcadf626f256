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
    // The samples of a type, each as its fields by name; what the program printed.
    std::vector<std::map<std::string, json>> samples(const char* program, int type,
                                                     std::string* printed = nullptr) {
        const Profiled p =
            profile(jdk(), {"--data", "threads,methods,contention,gc,errors,self"},
                    {"-Xmx200m", "-cp", product("tests/programs.jar"),
                     std::string("com.tessel.prb.live.programs.") + program, "--seconds", "3"});
        EXPECT_EQ(p.result.exitCode, 0) << p.result.err;
        EXPECT_THAT(p.result.out, testing::HasSubstr("checksum "));
        if (printed) *printed = p.result.out;
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

// The JVM's own monitoring counts the same events; its clock starts and stops beside ours.
TEST_P(Stalls, EveryContentionAndEveryWaitIsCountedAndTimedAsTheJvmDoes) {
    std::string printed;
    long long contentions = 0, contended = 0, waits = 0, waited = 0; // times and ms
    for (auto& sample : samples("CountedStalls", kContention, &printed)) {
        const std::string method = sample["methodName"];
        if (method == "contend") {
            contentions += sample["contentions"].get<long long>();
            contended += sample["contentionMs"].get<long long>();
        } else if (method == "pause") {
            waits += sample["waits"].get<long long>();
            waited += sample["waitMs"].get<long long>();
        }
    }
    long long blockedTimes = 0, blockedMs = 0, waitedTimes = 0, waitedMs = 0;
    ASSERT_EQ(std::sscanf(printed.c_str(),
                          "blocked %lld times, %lld ms\nwaited %lld times, %lld ms", &blockedTimes,
                          &blockedMs, &waitedTimes, &waitedMs),
              4)
        << printed;
    std::printf("%s: time of contention %.4f, of waits %.4f of what the JVM says\n",
                jdk().name.c_str(), static_cast<double>(contended) / static_cast<double>(blockedMs),
                static_cast<double>(waited) / static_cast<double>(waitedMs));
    EXPECT_GT(blockedTimes, 100);
    EXPECT_GT(waitedTimes, 100);
    EXPECT_EQ(contentions, blockedTimes);
    EXPECT_EQ(waits, waitedTimes);
    EXPECT_NEAR(static_cast<double>(contended), static_cast<double>(blockedMs),
                0.02 * static_cast<double>(blockedMs));
    EXPECT_NEAR(static_cast<double>(waited), static_cast<double>(waitedMs),
                0.02 * static_cast<double>(waitedMs));
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
