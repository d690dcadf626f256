#include "bridge/EventTable.h"

#include <iterator>
#include <string>

#include <gtest/gtest.h>

namespace bridge {
namespace {

std::string calls;
jint enableAnswer = JVMPI_SUCCESS;
EventTable* underTest = nullptr;

jint enableRow() {
    calls += underTest->isEnabled(33) ? "enable(on) " : "enable(off) ";
    return enableAnswer;
}
void disableRow() { calls += underTest->isEnabled(33) ? "disable(on) " : "disable(off) "; }
jint requestRow(void* argument) {
    calls += "request ";
    return argument ? JVMPI_SUCCESS : JVMPI_FAIL;
}

const EventRow kRows[] = {{33, enableRow, disableRow, requestRow}, {34, nullptr, nullptr, nullptr}};

class EventTableTest : public testing::Test {
protected:
    EventTableTest() {
        calls.clear();
        enableAnswer = JVMPI_SUCCESS;
        underTest = &table;
    }
    JVMPI_Interface interface {};
    EventTable table{kRows, std::size(kRows), interface};
};

TEST_F(EventTableTest, unsupportedAndImpossibleTypesAreNotAvailable) {
    for (jint type : {-2147483647, -1, 0, 1, 35, 61, 62, 1000, JVMPI_REQUESTED_EVENT | 33}) {
        EXPECT_EQ(JVMPI_NOT_AVAILABLE, table.enable(type)) << type;
        EXPECT_EQ(JVMPI_NOT_AVAILABLE, table.disable(type)) << type;
        EXPECT_EQ(JVMPI_NOT_AVAILABLE, table.request(type, nullptr)) << type;
        EXPECT_FALSE(table.isEnabled(type)) << type;
    }
    EXPECT_EQ("", calls);
}

TEST_F(EventTableTest, aRowHearsOfChangesOnly) {
    EXPECT_EQ(JVMPI_SUCCESS, table.disable(33));
    EXPECT_EQ(JVMPI_SUCCESS, table.enable(33));
    EXPECT_EQ(JVMPI_SUCCESS, table.enable(33));
    EXPECT_TRUE(table.isEnabled(33));
    EXPECT_EQ(JVMPI_SUCCESS, table.disable(33));
    EXPECT_EQ(JVMPI_SUCCESS, table.disable(33));
    EXPECT_FALSE(table.isEnabled(33));
    EXPECT_EQ("enable(on) disable(off) ", calls);
}

TEST_F(EventTableTest, aRowThatFailsStaysOff) {
    enableAnswer = JVMPI_FAIL;
    EXPECT_EQ(JVMPI_FAIL, table.enable(33));
    EXPECT_FALSE(table.isEnabled(33));
}

TEST_F(EventTableTest, rowsWithoutFunctionsSwitchButCannotBeRequested) {
    EXPECT_EQ(JVMPI_SUCCESS, table.enable(34));
    EXPECT_TRUE(table.isEnabled(34));
    EXPECT_FALSE(table.isEnabled(33));
    EXPECT_EQ(JVMPI_NOT_AVAILABLE, table.request(34, nullptr));
}

TEST_F(EventTableTest, requestsGoToTheRowWhetherTheEventIsOnOrNot) {
    int argument = 0;
    EXPECT_EQ(JVMPI_SUCCESS, table.request(33, &argument));
    EXPECT_EQ(JVMPI_FAIL, table.request(33, nullptr));
    EXPECT_EQ("request request ", calls);
}

TEST_F(EventTableTest, theCallbackIsReadAfreshForEachEvent) {
    JVMPI_Event event{};
    event.event_type = 34;
    table.deliver(event); // nobody listens yet
    interface.NotifyEvent = [](JVMPI_Event* e) {
        calls += "first" + std::to_string(e->event_type);
    };
    table.deliver(event);
    interface.NotifyEvent = [](JVMPI_Event*) { calls += " second"; };
    table.deliver(event);
    EXPECT_EQ("first34 second", calls);
}

} // namespace
} // namespace bridge
