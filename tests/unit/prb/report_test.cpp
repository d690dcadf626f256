#include "prb/Commands.h"
#include "prb/Report.h"
#include "tests/unit/prb/CaptureBytes.h"

#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

using namespace prb;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace {

struct Shown {
    int code = 0;
    std::string out, err;
};

class ReportTest : public testing::Test {
protected:
    void SetUp() override { path = testing::TempDir() + "r" + std::to_string(getpid()) + ".prb"; }
    void TearDown() override { std::filesystem::remove(path); }
    void write(const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

    template <typename Command> Shown shown(Command command) {
        char *out = nullptr, *err = nullptr;
        std::size_t outSize = 0, errSize = 0;
        std::FILE* o = open_memstream(&out, &outSize);
        std::FILE* e = open_memstream(&err, &errSize);
        Shown result;
        result.code = command(o, e);
        std::fclose(o);
        std::fclose(e);
        result.out = std::string(out, outSize);
        result.err = std::string(err, errSize);
        free(out);
        free(err);
        return result;
    }
    Shown report(ReportOptions options) {
        return shown([&](auto* o, auto* e) { return reportCommand(path, options, o, e); });
    }
    json reportJson() {
        ReportOptions options;
        options.format = Format::kJson;
        return json::parse(report(options).out);
    }
    Shown decode() {
        return shown([&](auto* o, auto* e) { return decodeCommand(path, o, e); });
    }
    std::string path;
};

TEST_F(ReportTest, TimedMethodsAreShownInNanosecondsAndAlone) {
    using Bytes = CaptureBytes;
    Bytes::Record facts(1);
    facts.number(20, 1).number(21, 0).number(4, 77).number(2021, 1).number(2022, 1000000);
    facts.text(2023, "version=1\nexact=com/x/A\tprice\t(I)V\t40\t7000000\n"
                     "exact=com/x/A\tnever\t()V\t2\t1\nlimits=\n");
    facts.number(2039, 1001001);
    Bytes bytes;
    bytes.add(facts);
    bytes.add(Bytes::thread(1, "main", 5000060, 5, 0));
    bytes.add(Bytes::method(1, "com/x/A", "price", "(I)V", 5000050, 1000000));
    bytes.add(Bytes::method(1, "com/x/B", "sampled", "()V", 10, 0)); // not timed
    bytes.add(Bytes::Record(998).number(20, 1).number(21, 0));
    write(bytes.bytes);
    const json timed = reportJson();
    EXPECT_EQ("nanoseconds", timed["run"]["values_are"]);
    ASSERT_EQ(2u, timed["methods"].size());
    const json& price = timed["methods"][0];
    EXPECT_EQ("price", price["method"]);
    EXPECT_EQ(40, price["calls"]);
    EXPECT_EQ(5.0, price["own_ms"]);
    EXPECT_EQ(6.0, price["total_ms"]);
    EXPECT_EQ(7.0, price["elapsed_ms"]);
    EXPECT_EQ("never", timed["methods"][1]["method"]); // too short for the processor's clock
    EXPECT_EQ(2, timed["methods"][1]["calls"]);
    EXPECT_EQ(5.0, timed["threads"][0]["ms"]);
    EXPECT_THAT(report({}).out,
                AllOf(HasSubstr("Timed    5 ms of processor time in the methods chosen"),
                      HasSubstr("          40          5.000          6.000          7.000  "
                                "com.x.A.price(int)"),
                      Not(HasSubstr("sampled"))));
}

TEST_F(ReportTest, SamplesTimesTheMeanCycleAreMilliseconds) {
    write(CaptureBytes().smallRun().bytes);
    const json r = reportJson();
    // 1001000 - 1000000 ms over 100 cycles.
    EXPECT_EQ(r["run"]["elapsed_ms"], 1000);
    EXPECT_EQ(r["run"]["cycles"], 100);
    EXPECT_EQ(r["run"]["mean_cycle_ms"], 10);
    EXPECT_EQ(r["run"]["busy_samples"], 90);
    EXPECT_EQ(r["run"]["complete"], true);
    EXPECT_EQ(r["run"]["agent"]["counters"]["dropped"], 3);
    const json& price = r["methods"][0];
    EXPECT_EQ(price["class"], "com.x.A");
    EXPECT_EQ(price["method"], "price");
    EXPECT_EQ(price["parameters"], "(int)");
    EXPECT_EQ(price["own_ms"], 500);
    EXPECT_NEAR(price["own_share"].get<double>(), 100.0 * 50 / 90, 0.001);
}

// Under load cycles grow: 60 samples of 10 ms and then 20 of 40 ms are 1400 ms, not 80 of the
// overall mean.
TEST_F(ReportTest, SamplesAreWorthTheCyclesOfTheirPoll) {
    CaptureBytes capture;
    CaptureBytes::Record facts(1);
    facts.number(20, 1).number(21, 0).number(4, 77).text(5, "shop").number(2022, 1000000);
    const CaptureBytes::Record end = CaptureBytes::Record(998).number(20, 1).number(21, 0);
    capture.add(facts).add(CaptureBytes::thread(1, "main", 60, 0, 0, 100, 1001000)).add(end);
    capture.add(CaptureBytes::thread(1, "main", 20, 0, 0, 25, 1002000)).add(end);
    write(capture.bytes);
    const json r = reportJson();
    EXPECT_EQ(r["run"]["mean_cycle_ms"], 16);
    EXPECT_EQ(r["run"]["sample_ms"], 17.5);
    EXPECT_EQ(r["threads"][0]["ms"], 1400);
}

TEST_F(ReportTest, CalleesCountOnTheWayUp) {
    write(CaptureBytes().smallRun().bytes);
    const json r = reportJson();
    for (const json& m : r["methods"]) {
        if (m["method"] != "main") continue;
        EXPECT_EQ(m["own_samples"], 10);
        EXPECT_EQ(m["total_samples"], 60);
        return;
    }
    FAIL() << "no main";
}

TEST_F(ReportTest, TheProfilersOwnThreadsAreInNoShare) {
    write(CaptureBytes().smallRun().bytes);
    const json r = reportJson();
    double shares = 0;
    bool seen = false;
    for (const json& t : r["threads"]) {
        shares += t["share"].get<double>();
        if (t["name"] == "PRB_Poller_Thread") {
            seen = true;
            EXPECT_EQ(t["own"], true);
            EXPECT_EQ(t["share"], 0);
            EXPECT_EQ(t["samples"], 10);
        }
    }
    EXPECT_TRUE(seen);
    EXPECT_NEAR(shares, 100, 0.01);
    for (const json& m : r["methods"]) {
        EXPECT_NE(m["class"], "com.tessel.prb.workanalysis.Poller");
    }
}

TEST_F(ReportTest, BlockedAndWaitingAreSharesOfTheCycles) {
    write(CaptureBytes().smallRun().bytes);
    const json r = reportJson();
    EXPECT_EQ(r["threads"][0]["name"], "main");
    EXPECT_EQ(r["threads"][0]["blocked_share"], 5);
    EXPECT_EQ(r["threads"][1]["name"], "worker");
    EXPECT_EQ(r["threads"][1]["waiting_share"], 70);
}

TEST_F(ReportTest, ARecursiveMethodNeverExceedsAllSamples) {
    CaptureBytes bytes;
    bytes.smallRun();
    bytes.add(CaptureBytes::method(1, "com/x/A", "deep", "()V", 0, 100000));
    write(bytes.bytes);
    const json r = reportJson();
    ASSERT_EQ(r["methods"].size(), 4u);
    for (const json& m : r["methods"]) {
        EXPECT_LE(m["total_share"].get<double>(), 100.0);
    }
}

TEST_F(ReportTest, TheSameMethodOfSeveralThreadsIsOneRow) {
    CaptureBytes bytes;
    bytes.smallRun();
    bytes.add(CaptureBytes::thread(3, "other", 5, 0, 0));
    bytes.add(CaptureBytes::method(3, "com/x/B", "run", "()V", 5, 0));
    write(bytes.bytes);
    int rows = 0;
    const json r = reportJson();
    for (const json& m : r["methods"]) {
        if (m["class"] == "com.x.B") {
            rows++;
            EXPECT_EQ(m["own_samples"], 35);
        }
    }
    EXPECT_EQ(rows, 1);
}

TEST_F(ReportTest, TextShowsRunThreadsAndMethods) {
    write(CaptureBytes().smallRun().bytes);
    const Shown s = report({});
    EXPECT_EQ(s.code, 0);
    EXPECT_THAT(s.out,
                AllOf(HasSubstr("shop  (process 77"), HasSubstr("OpenJDK VM 17.0.15, 64 bit"),
                      HasSubstr("100 cycles of 10.00 ms"), HasSubstr("com.x.A.price(int)"),
                      HasSubstr("PRB_Poller_Thread (the profiler's)")));
    EXPECT_THAT(s.out, Not(HasSubstr("\033"))); // no colour without a terminal
}

TEST_F(ReportTest, TopAndSortChooseTheRows) {
    write(CaptureBytes().smallRun().bytes);
    ReportOptions options;
    options.top = 1;
    options.topGiven = true;
    options.sort = Sort::kTotal;
    const Shown s = report(options);
    EXPECT_THAT(s.out, AllOf(HasSubstr("com.x.A.main"), Not(HasSubstr("com.x.B.run")),
                             HasSubstr("... and 2 more methods")));
    options.sort = Sort::kName;
    options.top = 0;
    const std::string byName = report(options).out;
    EXPECT_LT(byName.find("com.x.A.main"), byName.find("com.x.A.price"));
    EXPECT_LT(byName.find("com.x.A.price"), byName.find("com.x.B.run"));
}

TEST_F(ReportTest, CsvQuotesWhatItMust) {
    CaptureBytes bytes;
    bytes.smallRun();
    bytes.add(CaptureBytes::thread(4, "a,\"b\"", 1, 0, 0));
    bytes.add(CaptureBytes::thread(5, "=SUM(A1)", 1, 0, 0));
    write(bytes.bytes);
    ReportOptions options;
    options.format = Format::kCsv;
    const Shown s = report(options);
    EXPECT_THAT(s.out,
                AllOf(HasSubstr("thread,main,main,,60,"), HasSubstr("\"a,\"\"b\"\"\""),
                      HasSubstr("thread, =SUM(A1),"), HasSubstr("method,price,com.x.A,(int),50,")));
    std::istringstream lines(s.out);
    std::string header;
    std::getline(lines, header);
    EXPECT_EQ(std::count(header.begin(), header.end(), ','), 17);
}

class AllocationReport : public ReportTest {
protected:
    static CaptureBytes::Record classRecord(const std::string& name, long long objects,
                                            long long bytes, long long allocations,
                                            long long frees) {
        CaptureBytes::Record record(13);
        record.number(4, 77).number(340, objects).number(309, bytes);
        if (allocations >= 0) record.number(308, allocations).number(341, frees).number(342, 0);
        return record.text(10, name);
    }
    // Two polls.
    void writeAllocations() {
        const CaptureBytes::Record end = CaptureBytes::Record(998).number(20, 1).number(21, 0);
        CaptureBytes capture;
        capture.smallRun(false);
        capture.add(CaptureBytes::thread(1, "main", 0, 0, 0).number(308, 70).number(309, 2000));
        capture.add(classRecord("com/x/A", 5, 120, 60, 40));
        capture.add(classRecord("[I", 1, 1048576, 10, 0));
        capture.add(classRecord("com/x/Never", 0, 0, 0, 0)).add(end);
        capture.add(CaptureBytes::thread(1, "main", 0, 0, 0).number(308, 30).number(309, 720));
        capture.add(classRecord("com/x/A", 3, 72, 30, 32));
        capture.add(classRecord("[I", 1, 1048576, 0, 0)).add(end);
        write(capture.bytes);
    }
};

TEST_F(AllocationReport, AllocationsAddUpAndLiveObjectsAreThoseOfTheLastLook) {
    writeAllocations();
    const json r = reportJson();
    ASSERT_EQ(r["classes"].size(), 2u); // a class without an object is of no interest
    EXPECT_EQ(r["classes"][0], (json{{"class", "com.x.A"},
                                     {"allocated_objects", 90},
                                     {"freed_objects", 72},
                                     {"live_objects", 3},
                                     {"live_bytes", 72}}));
    EXPECT_EQ(r["classes"][1]["class"], "int[]");
    EXPECT_EQ(r["classes"][1]["allocated_objects"], 10);
    EXPECT_EQ(r["threads"][0]["name"], "main");
    EXPECT_EQ(r["threads"][0]["allocated_objects"], 100);
    EXPECT_EQ(r["threads"][0]["allocated_bytes"], 2720);
}

TEST_F(AllocationReport, TextAndCsvShowTheClasses) {
    writeAllocations();
    EXPECT_THAT(report({}).out,
                AllOf(HasSubstr("waiting   objects     bytes\n"),
                      HasSubstr(" allocated      freed       live     bytes  Class\n"
                                "        90         72          3      0 KB  com.x.A\n"
                                "        10          0          1    1.0 MB  int[]\n")));
    ReportOptions options;
    options.format = Format::kCsv;
    const std::string csv = report(options).out;
    EXPECT_THAT(csv, AllOf(HasSubstr("class,com.x.A,,,,,,,,,,,,90,,72,3,72\n"),
                           HasSubstr(",100,2720,,,\n")));
    std::istringstream lines(csv);
    for (std::string line; std::getline(lines, line);)
        EXPECT_EQ(std::count(line.begin(), line.end(), ','), 17) << line;
    options.top = 1;
    options.topGiven = true;
    EXPECT_THAT(report(options).out, Not(HasSubstr("int[]")));
}

TEST_F(AllocationReport, WithoutAllocationsOnlyLiveObjectsAreShown) {
    CaptureBytes capture;
    capture.smallRun();
    capture.add(classRecord("com/x/A", 5, 120, -1, -1));
    write(capture.bytes);
    EXPECT_THAT(report({}).out, AllOf(HasSubstr("\n      live     bytes  Class\n"
                                                "         5      0 KB  com.x.A\n"),
                                      Not(HasSubstr("allocated")), Not(HasSubstr("objects"))));
    EXPECT_EQ(reportJson()["classes"][0]["allocated_objects"], 0);
}

TEST_F(ReportTest, ACutFileIsReportedUpToTheCutAndSaysSo) {
    const std::string whole = CaptureBytes().smallRun(false).bytes;
    write(whole.substr(0, whole.size() - 5));
    const Shown s = report({});
    EXPECT_EQ(s.code, kFailed);
    EXPECT_THAT(s.out, AllOf(HasSubstr("com.x.A.price"), HasSubstr("Note"),
                             HasSubstr("the program was killed, or is still running")));
    EXPECT_THAT(s.err, HasSubstr("cut off"));
}

TEST_F(ReportTest, ADamagedRecordIsLeftOutAndNamed) {
    CaptureBytes bytes;
    bytes.smallRun();
    std::string bad = CaptureBytes::thread(8, "broken", 1, 0, 0).bytes;
    bytes.raw(bad.substr(0, bad.size() - 2));
    write(bytes.bytes);
    EXPECT_THAT(report({}).out, AllOf(HasSubstr("record at offset"), HasSubstr("left out"),
                                      Not(HasSubstr("broken"))));
}

TEST_F(ReportTest, HostileNamesAreShownHarmlessly) {
    CaptureBytes bytes;
    bytes.smallRun();
    bytes.add(CaptureBytes::thread(6, "evil\033]0;x\007\xff", 1, 0, 0));
    write(bytes.bytes);
    EXPECT_THAT(report({}).out,
                AllOf(HasSubstr("evil\\x1B]0;x\\x07\\xFF"), Not(HasSubstr("\033"))));
    EXPECT_NO_THROW(reportJson());
    EXPECT_EQ(decode().code, 0);
}

TEST_F(ReportTest, EveryProblemOfAFileIsOneLineAndAFailure) {
    for (const std::string& content : {std::string(), std::string("foreign text, not a capture")}) {
        write(content);
        for (const Shown& s : {report({}), decode()}) {
            EXPECT_EQ(s.code, kFailed);
            EXPECT_EQ(s.out, "");
            EXPECT_EQ(std::count(s.err.begin(), s.err.end(), '\n'), 1);
            EXPECT_THAT(s.err, HasSubstr("prb: " + path));
        }
    }
}

TEST_F(ReportTest, DecodePrintsEveryRecordAndKeepsTheUnknown) {
    CaptureBytes bytes;
    bytes.add(CaptureBytes::Record(1).number(4, 7));
    bytes.add(CaptureBytes::Record(77777).number(5000, -1).text(5001, "kept"));
    bytes.add(CaptureBytes::Record(998).number(20, 1));
    write(bytes.bytes);
    const Shown s = decode();
    EXPECT_EQ(s.code, 0);
    std::istringstream lines(s.out);
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(json::parse(line)["type_name"], "Application Server");
    ASSERT_TRUE(std::getline(lines, line));
    const json unknown = json::parse(line);
    EXPECT_EQ(unknown["type"], 77777);
    EXPECT_EQ(unknown["type_name"], "Unknown");
    EXPECT_EQ(unknown["fields"][0]["key"], 5000);
    EXPECT_EQ(unknown["fields"][0]["value"], -1);
    EXPECT_EQ(unknown["fields"][1]["value"], "kept");
    ASSERT_TRUE(std::getline(lines, line));
    EXPECT_EQ(json::parse(line)["type"], 998);
    EXPECT_FALSE(std::getline(lines, line));
}

TEST_F(ReportTest, DecodeMarksADamagedRecordAndGoesOn) {
    CaptureBytes bytes;
    bytes.add(CaptureBytes::Record(1).number(4, 7));
    bytes.raw(CaptureBytes::Record(10).number(2, 1).bytes + "xyz");
    bytes.add(CaptureBytes::Record(998));
    write(bytes.bytes);
    const Shown s = decode();
    EXPECT_EQ(s.code, kFailed);
    EXPECT_EQ(std::count(s.out.begin(), s.out.end(), '\n'), 3);
    EXPECT_THAT(s.out, HasSubstr("\"error\":\"offset 24"));
}

} // namespace
