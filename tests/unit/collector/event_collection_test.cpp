// The tables of events that collections need.
#include "collector/PRBEventCollection.h"
#include "collector/PRBNatives.h"
#include "collector/PRBWorkloadCollector.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

TEST(EventCollection, theInitialTableHasTheSixteenEventsInOrderAllDisabled) {
    const std::vector<int> events = {49, 48, 1, 3, 54, 55, 56, 57, 58, 4, 5, 6, 34, 33, 60, 61};
    const auto& table = PRBEventCollection::InitialEventCollectionTable;
    ASSERT_EQ(table.size(), events.size());
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(table[i].event, events[i]) << i;
        EXPECT_EQ(table[i].enabled, 0) << i;
    }
    EXPECT_EQ(sizeof(PRBEventState), 8U);
    EXPECT_EQ(PRBEventCollection::NumEvents, 16U);
}

TEST(EventCollection, theCollectionTypesAreInOrderWithTheirLists) {
    struct Expected {
        unsigned bit;
        std::vector<unsigned> events;
    };
    const Expected rows[] = {{0x200, {}},  {0x400, {}},  {0x800, {4, 5, 6, 7, 8}},
                             {0x1000, {}}, {0x2000, {}}, {0x8000, {0, 1, 9, 10, 11}}};
    ASSERT_EQ(PRBEventCollection::NumCollectionTypes, 6U);
    for (std::size_t i = 0; i < 6; ++i) {
        const auto& row = PRBEventCollection::CollectionTable[i];
        EXPECT_EQ(row.bit, rows[i].bit);
        std::vector<unsigned> events;
        for (const auto* e = row.events; *e != 0xFFFFFFFF; ++e) events.push_back(*e);
        EXPECT_EQ(events, rows[i].events) << std::hex << row.bit;
    }
}

TEST(EventCollection, aMissingInterfaceIsTolerated) {
    PRBEventCollection events;
    events.changeTo(0x8800, nullptr);
    EXPECT_EQ(events.current()[4].enabled, 1);
    events.disableAll(nullptr);
    EXPECT_EQ(events.current()[4].enabled, 0);
    JVMPI_Interface bare{};
    events.changeTo(0x8800, &bare);
    events.disableAll(&bare);
    EXPECT_EQ(events.current()[0].enabled, 0);
}

TEST(WorkloadCollector, identifiesItself) {
    auto* collector = PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 1);
    ASSERT_NE(collector, nullptr);
    EXPECT_EQ(collector->isA(), 32714);
    PRBCollectable* first = collector;
    EXPECT_EQ(static_cast<void*>(first), static_cast<void*>(collector));
}

TEST(WorkloadCollector, knowsTheExceptionForInvalidRequests) {
    EXPECT_STREQ(kInvalidRequestClass, "com.tessel.prb.workanalysis.InvalidRequest");
}

TEST(WorkloadCollector, namesTheMethodThatIsToldSampleCounts) {
    auto* collector = PRBWorkloadCollector::getWorkloadCollector(nullptr, nullptr, 1);
    EXPECT_STREQ(collector->getNumCpuSamplesName(), "setNumCpuSamples");
    EXPECT_STREQ(collector->getNumCpuSamplesSignature(), "(IIII)V");
    collector->setNumCpuSamplesMethod("other", "(I)V");
    EXPECT_STREQ(collector->getNumCpuSamplesName(), "other");
    EXPECT_STREQ(collector->getNumCpuSamplesSignature(), "(I)V");
}

} // namespace
