// The fixture of tests that drive the agent through the scripted VM.
//
// Each test has a fresh VM and runs in an empty folder of its own, where the agent's log files
// land. At the end the test fails on every violation, on monitors still held and on a
// collection that is still disabled.
#ifndef PRB_TESTS_VM_SCRIPTEDVMTEST_H
#define PRB_TESTS_VM_SCRIPTEDVMTEST_H

#include "tests/vm/JavaHelpers.h"
#include "tests/vm/ScriptedVm.h"
#include "tests/vm/TestFolder.h"

#include <gtest/gtest.h>

#include <string>

namespace scripted {

class ScriptedVmTest : public ::testing::Test {
protected:
    ScriptedVmTest() : vm(ScriptedVm::create()) {}

    void TearDown() override {
        for (const std::string& text : vm.recorder().takeViolations()) ADD_FAILURE() << text;
        EXPECT_EQ(vm.monitors().heldNow(), Texts{});
        EXPECT_EQ(vm.unreleased(), Texts{});
        EXPECT_EQ(vm.gcDisableDepth(), 0);
        vm.stopRealThreads();
    }

    // The whole log file of this process, or of another one.
    std::string readLog() const { return folder.read(TestFolder::logName()); }
    // Its lines without the date and time in front and the CR LF behind.
    Texts logTexts() const { return TestFolder::textsOfLog(readLog()); }
    // How many lines of the log have exactly this text.
    std::size_t logCount(const std::string& text) const {
        std::size_t n = 0;
        for (const std::string& line : logTexts()) n += line == text ? 1 : 0;
        return n;
    }

    TestFolder folder;
    ScriptedVm& vm;
};

} // namespace scripted

#endif
