// The base anchor: its identity, and how samples are saved, accumulated and restarted.
#include "tests/unit/anchors/AnchorTest.h"
#include "tests/unit/data/DataTest.h"

#include "data/PRBHeapSample.h"
#include "data/PRBMethodUsageSample.h"

#include <cstdio>
#include <cstring>

using datatest::LogTest;

namespace {

constexpr int kRunning = 78; // a running counter
constexpr int kCount = 304;  // an interval counter
const unsigned kKeys[] = {314, kRunning, kCount};

// Writes down what an anchor does with it.
class ScriptedSample : public PRBSample {
public:
    ScriptedSample(const char* name, bool interval, std::vector<std::string>& calls)
        : PRBSample(std::size(kKeys), kKeys), name_(name), interval_(interval), calls_(&calls) {
        createKeyPlacementArray(placement_.data(), kKeys, std::size(kKeys));
    }
    ~ScriptedSample() override { calls_->push_back(name_ + " deleted"); }
    ScriptedSample* clone() const override {
        calls_->push_back(name_ + " cloned");
        auto* clone = new ScriptedSample(*this);
        clone->name_ += "'";
        return clone;
    }
    _SampleType getSampleType() const override { return _SampleType{77}; }
    const int* getKeyPlacementArray() const override { return placement_.data(); }
    bool isIntervalSample() const override { return interval_; }
    void calculateRates(const PRBSample* previous) override {
        calls_->push_back(name_ + " rates against " + nameOf(previous));
        deriveRates(previous);
    }
    void mergeSampleData(const PRBSample* other) override {
        calls_->push_back(name_ + " merges " + nameOf(other));
        PRBSample::mergeSampleData(other);
    }
    void mergeIntoHistoricalSample(const PRBSample* other) override {
        calls_->push_back(name_ + " takes in " + nameOf(other));
        PRBSample::mergeSampleData(other);
        PRBSample::resetRates();
    }
    void resetRates() override {
        calls_->push_back(name_ + " loses rates");
        PRBSample::resetRates();
    }

private:
    static std::string nameOf(const PRBSample* sample) {
        return sample == nullptr ? "nothing" : static_cast<const ScriptedSample*>(sample)->name_;
    }
    std::string name_;
    bool interval_;
    std::vector<std::string>* calls_;
    std::array<int, kNumKeys> placement_;
};

class RollUp : public testing::Test {
protected:
    ScriptedSample* plain(const char* name) { return new ScriptedSample(name, false, calls_); }
    ScriptedSample* interval(const char* name, long long count = 1) {
        auto* sample = new ScriptedSample(name, true, calls_);
        sample->saveNumericData(kCount, count);
        return sample;
    }
    // What happened since the last call.
    std::vector<std::string> calls() { return std::exchange(calls_, {}); }

    std::vector<std::string> calls_;
    PRBResourceAnchor anchor_{_SampleType{77}, "resource"};
};

using testing::ElementsAre;
using testing::IsEmpty;

std::uint32_t word(const char* four) {
    std::uint32_t value;
    std::memcpy(&value, four, 4);
    return value;
}

} // namespace

TEST(HashKey, IsOfTheFirstAndTheLastFourBytes) {
    const auto key = PRBResourceAnchor::createHashKey;
    EXPECT_EQ(key(""), 0u);
    EXPECT_EQ(key(nullptr), 0u);
    EXPECT_EQ(key("ab"), word("ab\0\0"));
    EXPECT_EQ(key("abc"), word("abc\0"));
    EXPECT_EQ(key("abcd"), word("abcd"));
    EXPECT_EQ(key("abcde"), word("abcd") ^ word("bcde"));
    EXPECT_EQ(key("abcdefgh"), word("abcd") ^ word("efgh"));
    EXPECT_EQ(key("abcd, and more, efgh"), word("abcd") ^ word("efgh"));
}

TEST(HashKey, IsComputedOnce) {
    PRBResourceAnchor anchor(_SampleType{77}, "abcd");
    anchor.setResourceName("first");
    const std::uint32_t first = PRBResourceAnchor::createHashKey("first");
    EXPECT_EQ(anchor.hash(), first);
    anchor.setResourceName("other");
    EXPECT_EQ(anchor.hash(), first);
    EXPECT_EQ(anchor.getHashKey(), PRBResourceAnchor::createHashKey("other"));
    const PRBResourceAnchor copy(anchor);
    EXPECT_EQ(copy.hash(), first); // goes along with a copy
    PRBResourceAnchor assigned(_SampleType{77}, "abcd");
    EXPECT_EQ(assigned.hash(), word("abcd"));
    assigned = anchor;
    EXPECT_EQ(assigned.getResourceName(), "other");
    EXPECT_EQ(assigned.hash(), word("abcd")); // but not with an assignment
}

TEST(BaseAnchor, IsEqualByTypeAndExactName) {
    const PRBResourceAnchor one(_SampleType{1}, "a"), same(_SampleType{1}, "a"),
        name(_SampleType{1}, "A"), type(_SampleType{2}, "a");
    EXPECT_TRUE(one.isEqual(&same));
    EXPECT_FALSE(one.isEqual(&name));
    EXPECT_FALSE(one.isEqual(&type));
    EXPECT_FALSE(one.isEqual(nullptr));
    const PRBCollectableString text("a");
    EXPECT_FALSE(one.isEqual(&text));
    EXPECT_EQ(one.isA(), 0x7FF9);
}

TEST(BaseAnchor, MatchesPatternsOfItsTypeWithItsNameOrNone) {
    const PRBResourceAnchor one(_SampleType{1}, "a");
    EXPECT_TRUE(one.doesItMatch(PRBResourceAnchor(_SampleType{1}, "")));
    EXPECT_TRUE(one.doesItMatch(PRBResourceAnchor(_SampleType{1}, "a")));
    EXPECT_FALSE(one.doesItMatch(PRBResourceAnchor(_SampleType{1}, "b")));
    EXPECT_FALSE(one.doesItMatch(PRBResourceAnchor(_SampleType{2}, "")));
    EXPECT_FALSE(one.doesItMatch(PRBResourceAnchor())); // no wildcard for the type
    EXPECT_FALSE(PRBResourceAnchor(_SampleType{1}, "").doesItMatch(one));
    EXPECT_TRUE(one.isSpecific());
    EXPECT_FALSE(PRBResourceAnchor(_SampleType{1}, "").isSpecific());
}

TEST(BaseAnchor, StartsEmpty) {
    PRBResourceAnchor anchor;
    EXPECT_EQ(anchor.getSampleType(), 0);
    EXPECT_EQ(anchor.getResourceName(), "");
    EXPECT_EQ(anchor.getLastSample(), nullptr);
    EXPECT_EQ(anchor.getLastHistoricalSample(), nullptr);
    EXPECT_EQ(anchor.getIntervalId(), 0u);
    EXPECT_EQ(anchor.getAdditionalPollParameters(), nullptr);
    EXPECT_FALSE(anchor.isResetPending());
    EXPECT_FALSE(anchor.isHistoryRestarted());
}

TEST_F(RollUp, ANewSampleGetsItsRatesAndReplacesTheLast) {
    auto *a = plain("a"), *b = plain("b");
    anchor_.saveNewSample(a, 1);
    EXPECT_EQ(anchor_.getLastSample(), a);
    EXPECT_EQ(anchor_.getIntervalId(), 1u);
    EXPECT_THAT(calls(), ElementsAre("a rates against nothing"));
    anchor_.saveNewSample(b, 2);
    EXPECT_EQ(anchor_.getLastSample(), b);
    EXPECT_EQ(anchor_.getIntervalId(), 2u);
    EXPECT_EQ(anchor_.getLastHistoricalSample(), nullptr);
    EXPECT_THAT(calls(), ElementsAre("b rates against a", "a deleted"));
}

TEST_F(RollUp, SamplesOfOneIntervalAreMerged) {
    auto* a = interval("a", 5);
    anchor_.saveNewSample(a, 7);
    EXPECT_THAT(calls(), ElementsAre("a rates against nothing", "a cloned", "a' loses rates"));
    anchor_.saveNewSample(interval("b", 3), 7);
    EXPECT_THAT(calls(), ElementsAre("a merges b", "a loses rates", "a' merges b", "b deleted"));
    EXPECT_EQ(anchor_.getLastSample(), a);
    EXPECT_EQ(a->getNumericValueForStream(kCount), 8);
    EXPECT_EQ(anchor_.getLastHistoricalSample()->getNumericValueForStream(kCount), 8);
}

TEST_F(RollUp, AMergedPlainSampleLeavesHistoryAlone) {
    anchor_.saveNewSample(plain("a"), 7);
    calls();
    anchor_.saveNewSample(plain("b"), 7);
    EXPECT_THAT(calls(), ElementsAre("a merges b", "a loses rates", "b deleted"));
    EXPECT_EQ(anchor_.getLastHistoricalSample(), nullptr);
}

TEST_F(RollUp, AMergedIntervalSampleBecomesTheHistoryWhereThereIsNone) {
    anchor_.saveNewSample(interval("a"), 7);
    anchor_.resetHistoricalSample();
    calls();
    anchor_.saveNewSample(interval("b", 3), 7);
    EXPECT_THAT(calls(), ElementsAre("a merges b", "a loses rates", "b cloned", "b deleted"));
    EXPECT_EQ(anchor_.getLastHistoricalSample()->getNumericValueForStream(kCount), 3);
}

TEST_F(RollUp, IntervalZeroIsNoInterval) {
    anchor_.saveNewSample(plain("a"), 0);
    anchor_.saveNewSample(plain("b"), 0);
    EXPECT_THAT(calls(), ElementsAre("a rates against nothing", "b rates against a", "a deleted"));
    anchor_.saveNewSample(plain("c"), 4);
    anchor_.saveNewSample(plain("d"), 0); // leaves the id as it was
    EXPECT_EQ(anchor_.getIntervalId(), 4u);
    calls();
    anchor_.saveNewSample(plain("e"), 4);
    EXPECT_THAT(calls(), ElementsAre("d merges e", "d loses rates", "e deleted"));
}

TEST_F(RollUp, IntervalSamplesAccumulate) {
    anchor_.saveNewSample(interval("a", 5), 1);
    calls();
    anchor_.saveNewSample(interval("b", 3), 2);
    EXPECT_THAT(calls(), ElementsAre("b rates against a", "a deleted", "a' takes in b"));
    EXPECT_EQ(anchor_.getLastSample()->getNumericValueForStream(kCount), 3);
    EXPECT_EQ(anchor_.getLastHistoricalSample()->getNumericValueForStream(kCount), 8);
}

TEST_F(RollUp, HistoricalRatesAreCalculatedWhenTheyAreAskedFor) {
    anchor_.saveNewSample(interval("a", 5), 1);
    calls();
    anchor_.getLastHistoricalSample();
    EXPECT_THAT(calls(), ElementsAre("a' rates against nothing"));
}

TEST(HistoricalRates, AreCalculatedOnce) {
    PRBMethodAnchor method("A.m");
    auto* usage = new PRBMethodUsageSample;
    usage->saveNumericData(310, 50);
    usage->saveNumericData(321, 10);
    method.saveNewSample(usage, 1);
    PRBSample* history = method.getLastHistoricalSample();
    EXPECT_EQ(history->getPercent(321), 20);
    history->saveNumericData(321, 40);
    EXPECT_EQ(method.getLastHistoricalSample()->getPercent(321), 20);
    history->resetRates();
    EXPECT_EQ(method.getLastHistoricalSample()->getPercent(321), 80);
}

TEST_F(RollUp, APendingResetSkipsTheRatesOfAPlainSampleOnce) {
    anchor_.saveNewSample(plain("a"), 1);
    anchor_.setResetPending(1);
    EXPECT_TRUE(anchor_.isResetPending());
    calls();
    anchor_.saveNewSample(plain("b"), 2);
    EXPECT_THAT(calls(), ElementsAre("a deleted"));
    EXPECT_FALSE(anchor_.isResetPending());
    anchor_.saveNewSample(plain("c"), 3);
    EXPECT_THAT(calls(), ElementsAre("c rates against b", "b deleted"));
}

TEST_F(RollUp, APendingResetDropsTheHistoryOfAPlainSample) {
    anchor_.saveNewHistoricalSample(plain("h"));
    anchor_.setResetPending(1);
    calls();
    anchor_.saveNewSample(plain("a"), 1);
    EXPECT_THAT(calls(), ElementsAre("h deleted"));
    EXPECT_EQ(anchor_.getLastHistoricalSample(), nullptr);
    EXPECT_FALSE(anchor_.isResetPending());
}

TEST_F(RollUp, AnIntervalSampleKeepsRatesAndHistoryAndClearsTheFlags) {
    anchor_.saveNewSample(interval("a"), 1);
    anchor_.setResetPending(1);
    calls();
    anchor_.saveNewSample(interval("b"), 2);
    EXPECT_THAT(calls(), ElementsAre("b rates against a", "a deleted", "a' takes in b"));
    EXPECT_FALSE(anchor_.isResetPending());
    anchor_.setResetPending(1);
    anchor_.resetHistoricalSample();
    EXPECT_TRUE(anchor_.isHistoryRestarted());
    anchor_.saveNewSample(interval("c"), 3);
    EXPECT_FALSE(anchor_.isHistoryRestarted());
    EXPECT_NE(anchor_.getLastHistoricalSample(), nullptr);
}

TEST_F(RollUp, AHistoricalSampleIsKeptWithItsRates) {
    auto* h = plain("h");
    EXPECT_TRUE(anchor_.saveNewHistoricalSample(h));
    EXPECT_TRUE(anchor_.saveNewHistoricalSample(plain("i")));
    EXPECT_THAT(calls(), ElementsAre("h rates against nothing", "i rates against h", "h deleted"));
}

TEST_F(RollUp, APendingResetBecomesARestartAtTheNextHistoricalSample) {
    anchor_.saveNewSample(plain("a"), 1);
    anchor_.setResetPending(1);
    calls();
    EXPECT_TRUE(anchor_.saveNewHistoricalSample(plain("h")));
    EXPECT_THAT(calls(), ElementsAre("h rates against nothing", "a deleted"));
    EXPECT_EQ(anchor_.getLastSample(), nullptr);
    EXPECT_FALSE(anchor_.isResetPending());
    EXPECT_TRUE(anchor_.isHistoryRestarted());

    auto* i = plain("i"); // not kept while history is restarted; clears the flag
    EXPECT_FALSE(anchor_.saveNewHistoricalSample(i));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_FALSE(anchor_.isHistoryRestarted());
    delete i;
    calls();
    EXPECT_TRUE(anchor_.saveNewHistoricalSample(plain("j")));
    EXPECT_THAT(calls(), ElementsAre("j rates against h", "h deleted"));
}

TEST_F(RollUp, AfterARestartThePlainSampleGetsNoRatesAndHistoryGoes) {
    anchor_.setResetPending(1);
    anchor_.saveNewHistoricalSample(plain("h"));
    calls();
    anchor_.saveNewSample(plain("b"), 2);
    EXPECT_THAT(calls(), ElementsAre("h deleted"));
    EXPECT_FALSE(anchor_.isHistoryRestarted());
    anchor_.saveNewSample(plain("c"), 3);
    EXPECT_THAT(calls(), ElementsAre("c rates against b", "b deleted"));
}

TEST_F(RollUp, ResettingHistoryDeletesItAndTurnsAPendingResetIntoARestart) {
    anchor_.saveNewHistoricalSample(plain("h"));
    calls();
    anchor_.resetHistoricalSample();
    EXPECT_THAT(calls(), ElementsAre("h deleted"));
    EXPECT_FALSE(anchor_.isHistoryRestarted());
    anchor_.setResetPending(1);
    anchor_.resetHistoricalSample();
    EXPECT_FALSE(anchor_.isResetPending());
    EXPECT_TRUE(anchor_.isHistoryRestarted());
    anchor_.setResetPending(1);
    anchor_.setResetPending(0);
    EXPECT_FALSE(anchor_.isResetPending());
}

TEST_F(RollUp, NullSamplesAreIgnored) {
    anchor_.saveNewSample(nullptr, 1);
    EXPECT_FALSE(anchor_.saveNewHistoricalSample(nullptr));
    EXPECT_EQ(anchor_.getIntervalId(), 0u);
    EXPECT_EQ(anchor_.getLastSample(), nullptr);
}

TEST_F(RollUp, ACopyClonesTheSamplesAndStartsWithoutIntervalAndFlags) {
    anchor_.saveNewSample(interval("a"), 5);
    anchor_.setResetPending(1);
    calls();
    PRBResourceAnchor copy(anchor_);
    EXPECT_THAT(calls(), ElementsAre("a cloned", "a' cloned"));
    EXPECT_NE(copy.getLastSample(), anchor_.getLastSample());
    EXPECT_EQ(copy.getLastSample()->getNumericValueForStream(kCount), 1);
    EXPECT_EQ(copy.getIntervalId(), 0u);
    EXPECT_FALSE(copy.isResetPending());
    EXPECT_EQ(copy.getSampleType(), 77);
    EXPECT_EQ(copy.getResourceName(), "resource");
}

TEST_F(RollUp, AnAssignmentClonesTheSamplesAndLetsGoOfItsOwn) {
    PRBResourceAnchor target(_SampleType{1}, "target");
    auto* own = plain("own");
    auto* ownHistory = plain("history");
    target.saveNewSample(own, 9);
    target.saveNewHistoricalSample(ownHistory);
    target.setResetPending(1);
    anchor_.saveNewSample(plain("a"), 5);
    calls();
    target = anchor_;
    EXPECT_THAT(calls(), ElementsAre("a cloned"));
    EXPECT_EQ(target.getSampleType(), 77);
    EXPECT_EQ(target.getResourceName(), "resource");
    EXPECT_NE(target.getLastSample(), own);
    EXPECT_NE(target.getLastSample(), anchor_.getLastSample());
    EXPECT_EQ(target.getLastHistoricalSample(), nullptr);
    EXPECT_FALSE(target.isResetPending());
    delete own;
    delete ownHistory;
    calls();
    const PRBSample* kept = target.getLastSample();
    target = *&target;
    EXPECT_EQ(target.getLastSample(), kept);
}

TEST_F(RollUp, AnAnchorDeletesItsSamples) {
    {
        PRBResourceAnchor anchor;
        anchor.saveNewSample(interval("a"), 1);
        calls();
    }
    EXPECT_THAT(calls(), testing::UnorderedElementsAre("a deleted", "a' deleted"));
}

using AnchorLog = LogTest;

TEST_F(AnchorLog, ConstructionSavingAndDestructionAreNoted) {
    debugOn("PRBCRSCA");
    char first[32], second[32];
    std::vector<std::string> expected;
    const auto address = [](char* out, const void* p) {
        std::snprintf(out, 32, "0X%lX", reinterpret_cast<unsigned long>(p));
        return std::string(out);
    };
    {
        const PRBResourceAnchor one;
        PRBResourceAnchor two(_SampleType{77}, "name");
        const PRBResourceAnchor three(two);
        auto* sample = new PRBHeapSample;
        const std::string of = address(second, sample);
        two.saveNewSample(sample, 0);
        const std::string a = address(first, &one), b = address(first, &two),
                          c = address(first, &three);
        const std::string head = "PRBResourceAnchor ";
        expected = {head + "constructor 1 called for " + a,
                    head + "constructor 2 called for " + b,
                    head + "copy constructor called for " + c,
                    "PRBResourceAnchor::saveNewSample called with this " + b + " sample at " + of,
                    head + "destructor called for " + c,
                    head + "destructor called for " + b,
                    head + "destructor called for " + a};
    }
    EXPECT_EQ(lines(), expected);
}
