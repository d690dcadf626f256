// Intervals, rates, averages and percents between two samples.
#include "data/PRBCThreadSample.h"
#include "data/PRBGarbageCollectionSample.h"
#include "data/PRBHeapSample.h"
#include "data/PRBProfilerError.h"
#include "data/PRBServerSamples.h"
#include "data/PRBWorkloadSamples.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

constexpr long long kMax = std::numeric_limits<long long>::max();
constexpr long long kMin = std::numeric_limits<long long>::min();

template <class Sample> Sample at(long long ms) {
    Sample sample;
    sample.saveNumericData(20, ms / 1000);
    sample.saveNumericData(314, ms);
    return sample;
}

} // namespace

TEST(Rates, RunningCountersCountFromThePreviousSample) {
    auto before = at<PRBCThreadSample>(1000), now = at<PRBCThreadSample>(3000);
    before.saveNumericData(316, 500);
    now.saveNumericData(316, 1500);
    now.calculateRates(&before);
    EXPECT_EQ(now.getNumericData(316), 1000);
    EXPECT_EQ(now.getRate(316), 500); // a second
    EXPECT_EQ(now.getNumericValueForStream(316), 1500);
}

TEST(Rates, ARunningCounterThatRestartedCountsFromZero) {
    auto before = at<PRBCThreadSample>(1000), now = at<PRBCThreadSample>(2000);
    before.saveNumericData(316, 500);
    now.saveNumericData(316, 30);
    now.calculateRates(&before);
    EXPECT_EQ(now.getNumericData(316), 30);
    before.saveNumericData(316, -1);
    now.calculateRates(&before);
    EXPECT_EQ(now.getRate(316), 30);
}

TEST(Rates, IntervalCountersAreTheirOwnInterval) {
    auto before = at<PRBCThreadSample>(1000), now = at<PRBCThreadSample>(1500);
    before.saveNumericData(304, 100);
    now.saveNumericData(304, 7);
    now.calculateRates(&before);
    EXPECT_EQ(now.getNumericData(304), 7);
    EXPECT_EQ(now.getRate(304), 14);
}

TEST(Rates, NeedTimeBetweenTheSamples) {
    auto before = at<PRBCThreadSample>(1000), now = at<PRBCThreadSample>(1000);
    now.saveNumericData(304, 7);
    now.saveNumericData(316, 7);
    for (const PRBSample* previous :
         {static_cast<const PRBSample*>(&before), static_cast<const PRBSample*>(nullptr)}) {
        now.calculateRates(previous);
        for (int key : {304, 316}) {
            EXPECT_EQ(now.getRate(key), -1);
            EXPECT_EQ(now.getNumericData(key), -1);
        }
    }
    now.saveNumericData(314, 500); // before the previous one
    now.calculateRates(&before);
    EXPECT_EQ(now.getRate(304), -1);
}

TEST(Rates, UseTheSampleTimeWhereThereAreNoMilliseconds) {
    PRBHeapSample before, now;
    before.saveNumericData(20, 100);
    now.saveNumericData(20, 104);
    now.saveNumericData(308, 40);
    now.calculateRates(&before);
    EXPECT_EQ(now.getRate(308), 10);
    auto thread = at<PRBCThreadSample>(5000), earlier = at<PRBCThreadSample>(1000);
    earlier.saveNumericData(314, -1);
    thread.saveNumericData(304, 40);
    thread.calculateRates(&earlier);
    EXPECT_EQ(thread.getRate(304), 10);
}

TEST(Rates, PercentsAreOfTheRelatedKey) {
    auto now = at<PRBCThreadSample>(1000);
    now.saveNumericData(310, 200); // busy samples
    now.saveNumericData(311, 50);
    now.saveNumericData(315, 400); // cycles
    now.saveNumericData(312, 100);
    now.calculateRates(nullptr);
    EXPECT_EQ(now.getPercent(311), 25);
    EXPECT_EQ(now.getPercent(312), 25);
    EXPECT_EQ(now.getPercent(313), -1); // not set
    EXPECT_EQ(now.getNumericData(311), 50);
    now.saveNumericData(310, 0);
    now.calculateRates(nullptr);
    EXPECT_EQ(now.getPercent(311), -1);
    now.saveNumericData(315, -1);
    now.calculateRates(nullptr);
    EXPECT_EQ(now.getPercent(312), -1);
}

TEST(Rates, ACountOverARelatedCountIsAnAverage) {
    PRBWorkloadSumSample now;
    now.saveNumericData(703, 4);
    now.saveNumericData(704, 100);
    now.saveNumericData(705, 30);
    now.calculateRates(nullptr);
    EXPECT_EQ(now.getRate(704), 25);
    EXPECT_EQ(now.getPercent(705), 30);
    EXPECT_EQ(now.getTotalCount(704, nullptr), 4);
    EXPECT_EQ(now.getTotalCount(705, nullptr), 100);
    EXPECT_EQ(now.getTotalCount(703, nullptr), 0);
    EXPECT_EQ(now.getTotalCount(1219, nullptr), 0);
}

TEST(Rates, CollectionTimesArePercentsOfTheElapsedTimeAndTotalsRunningCounters) {
    auto before = at<PRBGarbageCollectionSample>(1000), now = at<PRBGarbageCollectionSample>(3000);
    now.saveNumericData(350, 500);
    for (int key : {341, 342, 352}) {
        before.saveNumericData(key, 100);
        now.saveNumericData(key, 300);
    }
    now.saveNumericData(353, 4000);
    now.calculateRates(&before);
    EXPECT_EQ(now.getPercent(350), 25);
    for (int key : {341, 342, 352}) {
        EXPECT_EQ(now.getNumericData(key), 200) << key;
        EXPECT_EQ(now.getRate(key), 100) << key;
    }
    EXPECT_EQ(now.getRate(353), 2000);
    now.calculateRates(nullptr);
    EXPECT_EQ(now.getPercent(350), -1);
    EXPECT_EQ(now.getRate(341), -1);
}

TEST(Rates, StatisticsAreTheDifferenceOfTheirPairs) {
    PRBEJBMethodSample before, now;
    before.saveStatInfoData(120, 10, 2);
    now.saveStatInfoData(120, 31, 6);
    now.calculateRates(&before);
    EXPECT_EQ(now.getNumericData(120), 5); // 21 over 4, rounded
    EXPECT_EQ(now.getTotalForStatinfo(120, &before), 21);
    EXPECT_EQ(now.getTotalNumSamplesForStatinfo(120, &before), 4);
    now.calculateRates(nullptr);
    EXPECT_EQ(now.getNumericData(120), 5); // 31 over 6
    now.calculateRates(&now);
    EXPECT_EQ(now.getNumericData(120), -1);
    EXPECT_EQ(now.getTotalForStatinfo(220, nullptr), 0);
    EXPECT_EQ(now.getTotalNumSamplesForStatinfo(1219, nullptr), 0);
}

TEST(Rates, AreAnsweredOnlyForKeysOfTheirType) {
    auto now = at<PRBCThreadSample>(1000);
    now.saveNumericData(311, 1);
    now.saveNumericData(304, 1);
    EXPECT_EQ(now.getRate(304), -1);
    EXPECT_EQ(now.getPercent(311), -1);
    for (int key : {311, 314, 20, 5, 321, 1219, -1}) EXPECT_EQ(now.getRate(key), 0) << key;
    for (int key : {304, 314, 20, 5, 321, 1219, -1}) EXPECT_EQ(now.getPercent(key), 0) << key;
}

TEST(Rates, AreKnownToBeCalculatedAndCanBeReset) {
    auto before = at<PRBCThreadSample>(1000), now = at<PRBCThreadSample>(2000);
    now.saveNumericData(304, 7);
    EXPECT_FALSE(now.wereRatesCalculated());
    now.calculateRates(&before);
    EXPECT_TRUE(now.wereRatesCalculated());
    now.resetRates();
    EXPECT_FALSE(now.wereRatesCalculated());
    EXPECT_EQ(now.getRate(304), -1);
    EXPECT_EQ(now.getNumericValueForStream(304), 7);
    EXPECT_TRUE(PRBProfilerError().wereRatesCalculated()); // has none
    PRBEJBMethodSample method;
    method.saveStatInfoData(120, 10, 2);
    method.calculateRates(nullptr);
    EXPECT_TRUE(method.wereRatesCalculated());
    method.resetRates();
    EXPECT_EQ(method.getNumericData(120), -1);
}

TEST(Rates, AbsurdNumbersSaturate) {
    auto before = at<PRBCThreadSample>(0), now = at<PRBCThreadSample>(1);
    for (long long value : {kMax, kMin, kMax - 1}) {
        before.saveNumericData(316, -5);
        now.saveNumericData(316, value);
        now.saveNumericData(304, value);
        now.saveNumericData(310, -1);
        now.sumNumericData(310, -1);
        now.saveNumericData(311, kMin);
        now.saveNumericData(20, value);
        now.calculateRates(&before);
        EXPECT_EQ(now.getRate(304), value < 0 ? kMin : kMax);
        EXPECT_EQ(now.getPercent(311), kMax);
    }
    before.saveNumericData(314, kMin);
    now.saveNumericData(314, kMax);
    now.calculateRates(&before);
    PRBEJBMethodSample method;
    method.saveStatInfoData(120, 1e300, 1e-300);
    method.calculateRates(nullptr);
    EXPECT_EQ(method.getNumericData(120), kMax);
    method.saveStatInfoData(120, std::numeric_limits<double>::quiet_NaN(), 1);
    method.calculateRates(nullptr);
    EXPECT_EQ(method.getNumericData(120), 0);
}

TEST(ConnectionPoolRates, AHeldTimeWithoutWaitTimeMeansNoWaiting) {
    PRBDBConnectPoolSample pool;
    pool.calculateRates(nullptr);
    EXPECT_EQ(pool.getNumericValueForStream(246), -1);
    pool.saveStatInfoData(247, 30, 3);
    pool.calculateRates(nullptr);
    EXPECT_EQ(pool.getNumericData(246), 0);
    EXPECT_EQ(pool.getNumericValueForStream(246), 0);
    EXPECT_EQ(pool.getNumericData(247), 10);
}

TEST(ConnectionPoolRates, AWaitTimeThatIsKnownStays) {
    PRBDBConnectPoolSample pool;
    pool.saveStatInfoData(247, 30, 3);
    pool.saveStatInfoData(246, 8, 2);
    pool.calculateRates(nullptr);
    EXPECT_EQ(pool.getNumericData(246), 4);
}
