// What each class of the family is, and how it is compared, matched and hashed.
#include "tests/unit/anchors/AnchorTest.h"

#include <set>
#include <type_traits>

using namespace anchortest;

namespace {

class AnchorClass : public testing::TestWithParam<Class> {
protected:
    // With the first value in every field and a resource name.
    Anchor specific() const {
        Anchor anchor = GetParam().create();
        for (const Field& field : GetParam().fields) field.set(*anchor, 1);
        anchor->setResourceName("resource");
        return anchor;
    }
};

std::uint32_t key(const char* text) { return PRBResourceAnchor::createHashKey(text); }

template <class Derived, class... Bases>
constexpr bool derives = (std::is_base_of_v<Bases, Derived> && ...);

} // namespace

// The tree of bases.
static_assert(derives<PRBServletAnchor, PRBApplicationAnchor, PRBResourceAnchor>);
static_assert(derives<PRBContainerTransactionAnchor, PRBContainerAnchor>);
static_assert(derives<PRBObjectPoolAnchor, PRBContainerAnchor>);
static_assert(derives<PRBEJBMethodAnchor, PRBEJBAnchor>);
static_assert(derives<PRBContentionAnchor, PRBMethodAnchor, PRBThreadAnchor>);
static_assert(derives<PRBThreadAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBAFDetailAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBGCAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBGCDetailAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBHeapAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBProfilerResourceAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBWorkloadAnalysisAnchor, PRBProfilerSampleAnchor>);
static_assert(derives<PRBCTGSummaryAnchor, PRBWorkloadAnalysisAnchor>);
static_assert(derives<PRBDataSourceAnchor, PRBWorkloadAnalysisAnchor>);
static_assert(derives<PRBMQAccessAnchor, PRBWorkloadAnalysisAnchor>);
static_assert(derives<PRWAppSrvOverviewAnchor, PRWWas35ResourceAnchor, PRBWorkloadAnalysisAnchor>);
static_assert(derives<PRBHeapObjectReferenceResourceAnchor, PRBClassHeapUsageDetailResourceAnchor,
                      PRBClassHeapUsageSummaryResourceAnchor, PRBWorkloadAnalysisAnchor>);
static_assert(derives<PRBWorkloadAnchor, PRBWorkloadAnalysisAnchor>);
static_assert(derives<PRBInflightDetailAnchor, PRBInflightSummaryAnchor, PRBWorkloadAnchor>);
static_assert(derives<PRBWorkloadDetailAnchor, PRBWorkloadAnchor>);
static_assert(derives<PRBWorkloadExceptionAnchor, PRBWorkloadAnchor>);
static_assert(derives<PRBWorkloadHeapAllocByMethodResourceAnchor, PRBWorkloadAnchor>);
static_assert(derives<PRBWorkloadHeapUsageSummaryResourceAnchor, PRBWorkloadAnchor>);
static_assert(derives<PRBWorkloadSumAnchor, PRBWorkloadAnchor>);
static_assert(!derives<PRBMethodSummaryAnchor, PRBProfilerSampleAnchor>);
static_assert(std::is_abstract_v<PRBProfilerSampleAnchor>);
static_assert(std::is_abstract_v<PRBWorkloadAnalysisAnchor>);
static_assert(std::is_abstract_v<PRBWorkloadAnchor>);
static_assert(std::is_abstract_v<PRWWas35ResourceAnchor>);

TEST(AnchorFamily, HasThirtyFourClassesBesideItsBaseWithIdentifiersOfTheirOwn) {
    std::set<int> identifiers{PRBResourceAnchor().isA()};
    for (const Class& c : allClasses()) identifiers.insert(c.isA);
    EXPECT_EQ(identifiers.size(), 35u);
    EXPECT_EQ(PRBResourceAnchor().isA(), 32761);
}

TEST_P(AnchorClass, HasItsIdentifierAndSampleType) {
    const Class& c = GetParam();
    const Anchor anchor = c.create();
    EXPECT_EQ(anchor->isA(), c.isA);
    EXPECT_EQ(anchor->getSampleType(), c.sampleType);
    EXPECT_EQ(anchor->getResourceName(), "");
    for (const Field& field : c.fields)
        EXPECT_EQ(field.get(*anchor), field.number ? "0" : "") << field.name;
    const std::unique_ptr<PRBCollectable> other(anchor->newSpecies());
    EXPECT_EQ(other->isA(), c.isA);
}

TEST_P(AnchorClass, FieldsAreIndependentOfOneAnother) {
    const auto& fields = GetParam().fields;
    for (const Field& changed : fields) {
        const Anchor anchor = specific();
        changed.set(*anchor, 2);
        for (const Field& field : fields) {
            const Anchor expected = GetParam().create();
            field.set(*expected, &field == &changed ? 2 : 1);
            EXPECT_EQ(field.get(*anchor), field.get(*expected)) << changed.name << field.name;
        }
    }
}

TEST_P(AnchorClass, IsEqualWhenEveryFieldIs) {
    const Anchor one = specific(), other = specific();
    EXPECT_TRUE(one->isEqual(other.get()));
    EXPECT_EQ(one->hash(), other->hash());
    EXPECT_EQ(one->identityHash(), other->identityHash());
    for (const Field& field : GetParam().fields) {
        const Anchor changed = specific();
        field.set(*changed, 2);
        EXPECT_FALSE(one->isEqual(changed.get())) << field.name;
        EXPECT_FALSE(changed->isEqual(one.get())) << field.name;
        EXPECT_NE(one->identityHash(), changed->identityHash()) << field.name;
    }
    const Anchor renamed = specific(), retyped = specific();
    renamed->setResourceName("another");
    retyped->setSampleType(_SampleType{99});
    EXPECT_FALSE(one->isEqual(renamed.get()));
    EXPECT_FALSE(one->isEqual(retyped.get()));
    EXPECT_FALSE(one->isEqual(nullptr));
    EXPECT_NE(one->identityHash(), renamed->identityHash());
    EXPECT_NE(one->identityHash(), retyped->identityHash());
}

// A wild field in an anchor is a value like any other.
TEST_P(AnchorClass, IsNotEqualToAPattern) {
    for (const Field& field : GetParam().fields) {
        const Anchor one = specific(), wild = specific();
        field.set(*wild, 0);
        EXPECT_FALSE(one->isEqual(wild.get())) << field.name;
    }
}

TEST_P(AnchorClass, MatchesWhenEachFieldIsEqualOrWildInThePattern) {
    const Anchor anchor = specific(), same = specific();
    EXPECT_TRUE(anchor->doesItMatch(*same));
    for (const Field& field : GetParam().fields) {
        const Anchor wild = specific(), different = specific();
        field.set(*wild, 0);
        field.set(*different, 2);
        EXPECT_TRUE(anchor->doesItMatch(*wild)) << field.name;
        EXPECT_FALSE(wild->doesItMatch(*anchor)) << field.name; // no wildcard on this side
        EXPECT_FALSE(anchor->doesItMatch(*different)) << field.name;
    }
    const Anchor anyName = specific(), otherName = specific();
    anyName->setResourceName("");
    otherName->setResourceName("another");
    EXPECT_TRUE(anchor->doesItMatch(*anyName));
    EXPECT_FALSE(anyName->doesItMatch(*anchor));
    EXPECT_FALSE(anchor->doesItMatch(*otherName));
    const Anchor otherType = specific();
    otherType->setSampleType(_SampleType{99});
    EXPECT_FALSE(anchor->doesItMatch(*otherType));
}

TEST_P(AnchorClass, HasASampleTypeWildcardUnlessItMatchesAsTheBaseDoes) {
    const Anchor anchor = specific(), anyType = specific();
    anyType->setSampleType(_SampleType{0});
    EXPECT_EQ(anchor->doesItMatch(*anyType), GetParam().equalByClass);
    EXPECT_EQ(anchor->doesItMatch(*GetParam().pattern()), GetParam().equalByClass);
}

TEST_P(AnchorClass, APatternMatchesNoOtherClass) {
    const Anchor anchor = specific();
    for (const Class& other : allClasses()) {
        if (other.isA == GetParam().isA) continue;
        const Anchor wild = other.pattern();
        EXPECT_FALSE(anchor->doesItMatch(*wild)) << other.name;
        wild->setSampleType(static_cast<_SampleType>(other.sampleType));
        EXPECT_FALSE(anchor->doesItMatch(*wild)) << other.name;
        if (!GetParam().equalByClass) continue;
        wild->setSampleType(static_cast<_SampleType>(GetParam().sampleType));
        wild->setResourceName("resource");
        EXPECT_FALSE(anchor->doesItMatch(*wild)) << other.name;
        EXPECT_FALSE(anchor->isEqual(wild.get())) << other.name;
    }
}

TEST_P(AnchorClass, IsSpecificWhenNoFieldThatCountsIsWild) {
    EXPECT_TRUE(specific()->isSpecific());
    for (const Field& field : GetParam().fields) {
        const Anchor wild = specific();
        field.set(*wild, 0);
        EXPECT_EQ(wild->isSpecific(), !field.ofS) << field.name;
    }
    const Anchor unnamed = specific();
    unnamed->setResourceName("");
    EXPECT_EQ(unnamed->isSpecific(), !GetParam().specificByName);
    EXPECT_FALSE(GetParam().pattern()->isSpecific());
}

TEST_P(AnchorClass, HashesItsFieldsOrItsNameWhenNoClassOnTheWayHashesFields) {
    const Anchor anchor = specific();
    std::uint32_t expected = 0;
    bool ofFields = false;
    for (const Field& field : GetParam().fields) {
        if (!field.ofH) continue;
        ofFields = true;
        const std::string value = field.get(*anchor);
        const auto number = field.number ? std::stoull(value) : 0;
        expected ^=
            field.number ? static_cast<std::uint32_t>(number ^ number >> 32) : key(value.c_str());
    }
    EXPECT_EQ(anchor->getHashKey(), ofFields ? expected : key("resource"));
    EXPECT_EQ(anchor->hash(), anchor->getHashKey());
}

TEST_P(AnchorClass, ClonesAndAssignmentsHaveTheSameIdentity) {
    const Anchor anchor = specific();
    const std::unique_ptr<PRBResourceAnchor> clone(anchor->clone());
    const std::unique_ptr<PRBCollectable> copy(anchor->copy());
    EXPECT_NE(clone.get(), anchor.get());
    EXPECT_EQ(clone->isA(), GetParam().isA);
    EXPECT_TRUE(anchor->isEqual(clone.get()));
    EXPECT_TRUE(anchor->isEqual(copy.get()));
    for (const Field& field : GetParam().fields) {
        field.set(*anchor, 2);
        EXPECT_FALSE(anchor->isEqual(clone.get())) << field.name;
        field.set(*anchor, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Family, AnchorClass, testing::ValuesIn(allClasses()), nameOf);

TEST(AnchorAssignment, TakesEveryField) {
    PRBMethodAnchor one("A.m"), other;
    one.setProcessId(1);
    one.setThreadId(2);
    one.setClassName("A");
    one.setMethodName("m");
    other = one;
    EXPECT_TRUE(other.isEqual(&one));
    one.setClassName("B");
    EXPECT_EQ(other.getClassName(), "A");
    one = *&one;
    EXPECT_EQ(one.getClassName(), "B");
    PRBThreadAnchor& base = other; // what both classes have
    PRBThreadAnchor thread("T");
    thread.setThreadId(9);
    base = thread;
    EXPECT_EQ(other.getThreadId(), 9);
    EXPECT_EQ(other.getProcessId(), 0u);
    EXPECT_EQ(other.getClassName(), "A");
    EXPECT_EQ(other.getResourceName(), "T");
    EXPECT_EQ(other.isA(), 32750);
}

TEST(ContainerAnchor, IsToldByNameSummaryAndType) {
    PRBContainerAnchor one("shop"), other("shop");
    EXPECT_EQ(one.getContainerName(), "shop");
    EXPECT_TRUE(one.isEqual(&other));
    other.setSummary(1);
    EXPECT_FALSE(one.isEqual(&other));
    EXPECT_FALSE(one.doesItMatch(other));
    other.setSummary(0xFFFFFFFF);
    EXPECT_TRUE(one.doesItMatch(other));
    EXPECT_FALSE(other.isSpecific());
    EXPECT_EQ(one.hash(), PRBResourceAnchor::createHashKey("shop"));
    const PRBContainerAnchor all = PRBContainerAnchor::pattern();
    EXPECT_EQ(all.getSummary(), 0xFFFFFFFF);
    EXPECT_EQ(all.getSampleType(), 0);
    EXPECT_TRUE(one.doesItMatch(all));
}

TEST(EJBAnchor, HashesTheBeansName) {
    PRBEJBAnchor bean("shop");
    bean.setEJBName("Cart");
    EXPECT_EQ(bean.getContainerName(), "shop");
    EXPECT_EQ(bean.getHashKey(), PRBResourceAnchor::createHashKey("Cart"));
}

TEST(NameAccessors, AreTheResourceName) {
    PRBAppServerAnchor server;
    server.setAppServerName("s");
    PRBApplicationAnchor application;
    application.setApplicationName("a");
    PRBDBConnectionAnchor pool;
    pool.setDataSourceName("d");
    PRBHeapAnchor heap;
    heap.setClassName("java/lang/String");
    PRBContainerAnchor container;
    container.setContainerName("c");
    PRBEJBAnchor bean;
    bean.setContainerName("e");
    EXPECT_EQ(server.getResourceName() + application.getResourceName() + pool.getResourceName() +
                  container.getResourceName() + bean.getResourceName(),
              "sadce");
    EXPECT_EQ(server.getAppServerName() + application.getApplicationName() +
                  pool.getDataSourceName() + heap.getClassName(),
              "sadjava/lang/String");
}

TEST(PollParameters, AreTheClassesOwnFieldsOfASpecificAnchor) {
    EXPECT_EQ(PRBResourceAnchor().getAdditionalPollParameters(), nullptr);
    EXPECT_EQ(PRBMethodAnchor().getAdditionalPollParameters(), nullptr);
    PRBClassHeapUsageSummaryResourceAnchor summary =
        PRBClassHeapUsageSummaryResourceAnchor::pattern();
    EXPECT_STREQ(summary.getAdditionalPollParameters(), "");
    summary.setProcessId(1);
    summary.setClassName("A");
    EXPECT_STREQ(summary.getAdditionalPollParameters(), "ClassName=A");
    PRBClassHeapUsageDetailResourceAnchor detail;
    EXPECT_STREQ(detail.getAdditionalPollParameters(), "");
    detail.setWorkloadType(3);
    detail.setWorkloadMajorName("order");
    detail.setAllocatingClassName("A");
    detail.setAllocatingMethodName("m");
    detail.setLineNumber(12);
    EXPECT_STREQ(detail.getAdditionalPollParameters(),
                 "WorkloadType=3,WorkloadMajorName=order,WorkloadMinorName=,"
                 "AllocatingClassName=A,AllocatingMethodName=m,LineNumber=12");
    PRBHeapObjectReferenceResourceAnchor reference;
    EXPECT_STREQ(reference.getAdditionalPollParameters(), "");
}
