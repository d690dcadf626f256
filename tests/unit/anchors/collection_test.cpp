// The collection of a receiver, and the anchors of samples.
#include "tests/unit/anchors/AnchorTest.h"

#include "anchors/PRBAnchorCollection.h"
#include "tests/unit/data/AllSamples.h"

#include <map>
#include <random>
#include <set>

namespace {

std::unique_ptr<PRBMethodAnchor> method(unsigned process, long long thread,
                                        const std::string& name) {
    auto anchor = std::make_unique<PRBMethodAnchor>();
    anchor->setProcessId(process);
    anchor->setThreadId(thread);
    anchor->setClassName("com/example/Class");
    anchor->setMethodName(name);
    return anchor;
}

std::unique_ptr<PRBSample> usage(long long thread, const char* name, long long samples) {
    auto sample = std::make_unique<PRBMethodUsageSample>();
    sample->saveNumericData(4, 100);
    sample->saveNumericData(2, thread);
    sample->saveStringData(10, "A");
    sample->saveStringData(11, name);
    sample->saveNumericData(321, samples);
    return sample;
}

using datatest::create;

} // namespace

TEST(Collection, FindsByIdentity) {
    PRBAnchorCollection anchors;
    EXPECT_TRUE(anchors.empty());
    EXPECT_EQ(anchors.find(*method(1, 2, "m")), nullptr);
    EXPECT_EQ(anchors.remove(*method(1, 2, "m")), nullptr);
    PRBResourceAnchor* kept = anchors.insert(method(1, 2, "m"));
    EXPECT_EQ(anchors.insert(method(1, 2, "m")), kept);
    EXPECT_EQ(anchors.size(), 1u);
    EXPECT_EQ(anchors.find(*method(1, 2, "m")), kept);
    EXPECT_EQ(anchors.find(*method(1, 3, "m")), nullptr);
    EXPECT_EQ(anchors.find(*method(1, 2, "n")), nullptr);
}

// The base compares type and name only, whatever the class.
TEST(Collection, KeepsClassesApartThatTheBaseCallsEqual) {
    PRBAnchorCollection anchors;
    const PRBResourceAnchor plain(_SampleType{1}, "server");
    const PRBAppServerAnchor server("server");
    ASSERT_TRUE(plain.isEqual(&server));
    PRBResourceAnchor* first = anchors.insert(std::make_unique<PRBResourceAnchor>(plain));
    EXPECT_EQ(anchors.find(server), nullptr);
    EXPECT_NE(anchors.insert(std::make_unique<PRBAppServerAnchor>(server)), first);
    EXPECT_EQ(anchors.size(), 2u);
}

TEST(Collection, AgreesWithAMapUnderInsertionsAndRemovals) {
    PRBAnchorCollection anchors;
    std::map<std::pair<long long, std::string>, PRBResourceAnchor*> expected;
    std::mt19937 random(12345);
    for (int i = 0; i < 20000; ++i) {
        const long long thread = static_cast<long long>(random() % 40);
        const std::string name = "m" + std::to_string(random() % 30);
        const auto probe = method(1, thread, name);
        const std::pair key{thread, name};
        if (random() % 3 == 0) {
            const auto removed = anchors.remove(*probe);
            ASSERT_EQ(removed.get(), expected.contains(key) ? expected[key] : nullptr);
            expected.erase(key);
        } else {
            PRBResourceAnchor* kept = anchors.insert(method(1, thread, name));
            ASSERT_EQ(expected.emplace(key, kept).first->second, kept);
        }
        ASSERT_EQ(anchors.size(), expected.size());
    }
    for (const auto& [key, anchor] : expected)
        EXPECT_EQ(anchors.find(*method(1, key.first, key.second)), anchor);
    std::set<const PRBResourceAnchor*> seen;
    anchors.forEach([&](PRBResourceAnchor& anchor) { EXPECT_TRUE(seen.insert(&anchor).second); });
    EXPECT_EQ(seen.size(), expected.size());
}

TEST(Collection, AnswersThoseThatMatchAPattern) {
    PRBAnchorCollection anchors;
    for (long long thread : {1, 2, 3})
        for (const char* name : {"a", "b"}) anchors.insert(method(7, thread, name));
    anchors.insert(std::make_unique<PRBContainerAnchor>("shop"));
    const auto count = [&](const PRBResourceAnchor& pattern) {
        int n = 0;
        anchors.forEachMatch(pattern, [&](PRBResourceAnchor&) { ++n; });
        return n;
    };
    PRBMethodAnchor pattern = PRBMethodAnchor::pattern();
    EXPECT_EQ(count(pattern), 6);
    pattern.setThreadId(2);
    EXPECT_EQ(count(pattern), 2);
    pattern.setMethodName("b");
    EXPECT_EQ(count(pattern), 1);
    EXPECT_EQ(count(PRBContainerAnchor::pattern()), 1);
    EXPECT_EQ(count(PRBThreadAnchor::pattern()), 0);
}

TEST(Collection, RollsTheSamplesOfEachResourceUp) {
    PRBAnchorCollection anchors;
    PRBResourceAnchor* a = anchors.save(usage(1, "a", 5), 1);
    EXPECT_NE(anchors.save(usage(1, "b", 1), 1), a);
    EXPECT_EQ(anchors.save(usage(1, "a", 2), 1), a); // of the same poll
    EXPECT_EQ(anchors.save(usage(1, "a", 3), 2), a);
    EXPECT_EQ(anchors.size(), 2u);
    EXPECT_EQ(a->isA(), 32750);
    EXPECT_EQ(a->getLastSample()->getNumericValueForStream(321), 3);
    EXPECT_EQ(a->getLastHistoricalSample()->getNumericValueForStream(321), 10);
}

namespace {

struct OfSample {
    const char* name;
    std::unique_ptr<PRBSample> (*create)();
    int isA;
    const char* resource; // the anchor's resource name, of a sample whose text of key n is "Tn"
};

// Every text "T<key>", every number its key.
std::unique_ptr<PRBSample> filled(const OfSample& c) {
    auto sample = c.create();
    std::vector<int> keys(static_cast<std::size_t>(sample->getNumNumericKeys()));
    sample->numericKeys(keys.data());
    for (int key : keys) sample->saveNumericData(key, key);
    keys.resize(static_cast<std::size_t>(sample->getNumStringKeys()));
    sample->stringKeys(keys.data());
    for (int key : keys) sample->saveStringData(key, ("T" + std::to_string(key)).c_str());
    if (auto* workload = dynamic_cast<PRBWorkloadBaseSample*>(sample.get()))
        workload->setResourceName("workload");
    return sample;
}

const OfSample kOfSamples[] = {
    {"AppServer", create<PRBAppServerSample>, 32759, "T5"},
    {"Container", create<PRBContainerSample>, 32760, "T6"},
    {"Transaction", create<PRBTransactionSample>, 32737, "T6"},
    {"ObjectPool", create<PRBObjectPoolSample>, 32736, "T6"},
    {"EJB", create<PRBEJBSample>, 32758, "T6"},
    {"EJBMethod", create<PRBEJBMethodSample>, 32754, "T6"},
    {"DBConnectPool", create<PRBDBConnectPoolSample>, 32755, "T8"},
    {"Application", create<PRBApplicationSample>, 32753, "T9"},
    {"Servlet", create<PRBServletSample>, 32752, "T9"},
    {"Thread", create<PRBCThreadSample>, 32751, "T301"},
    {"MethodUsage", create<PRBMethodUsageSample>, 32750, "T10.T11"},
    {"Contention", create<PRBContentionSample>, 32749, "T10"},
    {"Heap", create<PRBHeapSample>, 32748, "T10"},
    {"GarbageCollection", create<PRBGarbageCollectionSample>, 32747, ""},
    {"ProfilerResource", create<PRBProfilerResourceSample>, 32730, ""},
    {"WorkloadSum", create<PRBWorkloadSumSample>, 32708, "workload"},
    {"WorkloadDetail", create<PRBWorkloadDetailSample>, 32709, "workload"},
    {"WorkloadException", create<PRBWorkloadExceptionSample>, 32707, "workload"},
    {"HTTP", create<PRBHTTPSample>, 32706, "T777"},
    {"DataSourceDet", create<PRBDataSourceDetSample>, 32705, "T8"},
    {"MethodSummary", create<PRBMethodSummarySample>, 32699, "T10.T11"},
    {"AppServerOverview", create<PRBAppServerOverviewSample>, 32698, "T830"},
};

class SampleAnchor : public testing::TestWithParam<OfSample> {};

} // namespace

TEST_P(SampleAnchor, IsNewSpecificAndOfTheClassOfTheResource) {
    const auto sample = filled(GetParam());
    const std::unique_ptr<PRBResourceAnchor> anchor(sample->getResourceAnchor());
    const std::unique_ptr<PRBResourceAnchor> again(sample->getResourceAnchor());
    EXPECT_EQ(anchor->isA(), GetParam().isA);
    EXPECT_EQ(anchor->getSampleType(), sample->getSampleType());
    EXPECT_EQ(anchor->getResourceName(), GetParam().resource);
    EXPECT_TRUE(anchor->isSpecific());
    EXPECT_NE(anchor, again);
    EXPECT_TRUE(anchor->isEqual(again.get()));
    EXPECT_EQ(anchor->getLastSample(), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Samples, SampleAnchor, testing::ValuesIn(kOfSamples),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(SampleAnchorFields, ComeFromTheSamplesKeys) {
    const auto of = [](std::unique_ptr<PRBSample> (*make)()) {
        return std::unique_ptr<PRBResourceAnchor>(filled({"", make, 0, ""})->getResourceAnchor());
    };
    using anchortest::as;
    const auto contention = of(create<PRBContentionSample>);
    EXPECT_EQ(as<PRBContentionAnchor>(*contention).getProcessId(), 4u);
    EXPECT_EQ(as<PRBContentionAnchor>(*contention).getThreadId(), 2);
    EXPECT_EQ(as<PRBContentionAnchor>(*contention).getClassName(), "T10");
    EXPECT_EQ(as<PRBContentionAnchor>(*contention).getMethodName(), "T11");
    EXPECT_EQ(as<PRBContentionAnchor>(*contention).getMonitorClassName(), "T330");
    const auto bean = of(create<PRBEJBMethodSample>);
    EXPECT_EQ(as<PRBEJBMethodAnchor>(*bean).getEJBName(), "T7");
    EXPECT_EQ(as<PRBEJBMethodAnchor>(*bean).getMethodName(), "T11");
    const auto servlet = of(create<PRBServletSample>);
    EXPECT_EQ(as<PRBServletAnchor>(*servlet).getVirtualHostName(), "T267");
    EXPECT_EQ(as<PRBServletAnchor>(*servlet).getServletName(), "T270");
    EXPECT_EQ(as<PRBServletAnchor>(*servlet).getPathName(), "T271");
    EXPECT_EQ(as<PRBServletAnchor>(*servlet).getSummary(), 0u); // servlets have none
    const auto detail = of(create<PRBWorkloadDetailSample>);
    EXPECT_EQ(as<PRBWorkloadDetailAnchor>(*detail).getWorkloadType(), 700u);
    EXPECT_EQ(as<PRBWorkloadDetailAnchor>(*detail).getDelayType(), 750u);
    EXPECT_EQ(as<PRBWorkloadDetailAnchor>(*detail).getWorkloadMajorName(), "workload");
    EXPECT_EQ(as<PRBContainerAnchor>(*of(create<PRBContainerSample>)).getSummary(), 17u);
    EXPECT_EQ(as<PRBHTTPAnchor>(*of(create<PRBHTTPSample>)).getWebAppName(), "T777");
    EXPECT_EQ(as<PRBDataSourceAnchor>(*of(create<PRBDataSourceDetSample>)).getDataSourceName(),
              "T8");
    PRBCThreadSample thread; // a thread's id is 64 bits wide, a process's 32
    thread.saveNumericData(2, 0x100000002);
    thread.saveNumericData(4, 0x100000004);
    const std::unique_ptr<PRBResourceAnchor> wide(thread.getResourceAnchor());
    EXPECT_EQ(as<PRBThreadAnchor>(*wide).getThreadId(), 0x100000002);
    EXPECT_EQ(as<PRBThreadAnchor>(*wide).getProcessId(), 4u);
}

TEST(SampleAnchorFields, AreZeroWhereTheSampleHasNone) {
    const std::unique_ptr<PRBResourceAnchor> anchor(PRBCThreadSample().getResourceAnchor());
    EXPECT_EQ(anchortest::as<PRBThreadAnchor>(*anchor).getThreadId(), 0);
    EXPECT_EQ(anchortest::as<PRBThreadAnchor>(*anchor).getProcessId(), 0u);
}

TEST(SampleAnchorFields, OtherSamplesHaveAPlainAnchor) {
    for (const auto& sample : {create<PRBProfilerError>(), create<PRBEndSample>()}) {
        const std::unique_ptr<PRBResourceAnchor> anchor(sample->getResourceAnchor());
        EXPECT_EQ(anchor->isA(), 32761);
        EXPECT_EQ(anchor->getSampleType(), sample->getSampleType());
        EXPECT_EQ(anchor->getResourceName(), "");
    }
}
