#include "core/PRBFormat.h"
#include "core/PRBJavaRawMonitor.h"
#include "core/PRBLogFile.h"
#include "core/PRBTrace.h"
#include "core/PRB_Profiler_Log.h"
#include "data/PRBProfilerError.h"
#include "tests/vm/core/CoreTest.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using namespace scripted;

namespace {

class Log : public CoreTest {
protected:
    PRBMonitorGlobal& monitor = start();
};

std::string localTime(const char* form) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::ostringstream text;
    text << std::put_time(&local, form);
    return text.str();
}

void send(const PRB_Profiler_Log& log, const char* format, int isError, ...) {
    PRB_Log::Arguments arguments;
    va_start(arguments.list, isError);
    void* args = &arguments;
    EXPECT_EQ(log.SendMessage(format, args, isError), isError);
    va_end(arguments.list);
}

} // namespace

TEST_F(Log, twoLinesMakeOneFileAndAreAppended) {
    PRBMonitorGlobal::writeToLog("first", 1);
    PRBMonitorGlobal::writeToLog("second", 1);
    EXPECT_EQ(folder.files(), Texts{"prb_" + std::to_string(getpid()) + ".log"});
    EXPECT_EQ(logTexts(), (Texts{"first", "second"}));
}

TEST_F(Log, aLineIsDatedAndEndsInCrLf) {
    const std::string before = localTime("%c");
    PRBMonitorGlobal::writeToLog("100%s", 1);
    const std::string after = localTime("%c");
    const std::string line = readLog();
    EXPECT_TRUE(line == before + "  100%s\r\n" || line == after + "  100%s\r\n") << line;
}

TEST_F(Log, isOpenedAnewAfterEveryLine) {
    const std::string name = TestFolder::logName();
    PRBMonitorGlobal::writeToLog("first", 1);
    ASSERT_EQ(std::rename(name.c_str(), "moved"), 0);
    PRBMonitorGlobal::writeToLog("second", 1); // still into the file that was open
    PRBMonitorGlobal::writeToLog("third", 1);
    EXPECT_EQ(TestFolder::textsOfLog(folder.read("moved")), (Texts{"first", "second"}));
    EXPECT_EQ(logTexts(), Texts{"third"});
}

TEST_F(Log, linesThatCannotBeWrittenAreLostAndTheNextTriesAgain) {
    // A folder of the log's name: nobody can open that as a file.
    const std::string name = TestFolder::logName();
    ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
    errno = 42;
    PRBMonitorGlobal::writeToLog("lost", 1);
    EXPECT_EQ(errno, 42);
    ASSERT_EQ(rmdir(name.c_str()), 0);
    PRBMonitorGlobal::writeToLog("kept", 1);
    EXPECT_EQ(logTexts(), Texts{"kept"});
}

TEST_F(Log, aFullDiskLosesTheLineAndNothingElse) {
    const std::string name = TestFolder::logName();
    ASSERT_EQ(symlink("/dev/full", name.c_str()), 0);
    errno = 42;
    PRBMonitorGlobal::writeToLog("lost", 1);
    EXPECT_EQ(errno, 42);
    ASSERT_EQ(unlink(name.c_str()), 0);
    PRBMonitorGlobal::writeToLog("lost too", 1); // into what was open
    PRBMonitorGlobal::writeToLog("kept", 1);
    EXPECT_EQ(logTexts(), Texts{"kept"});
    EXPECT_EQ(vm.monitors().heldNow(), Texts{});
}

TEST_F(Log, longLinesAreWrittenWhole) {
    const std::string text(100000, 'x');
    PRBMonitorGlobal::writeToLog(text.c_str(), 1);
    PRBTrace::log("%s%i", text.c_str(), 7);
    EXPECT_EQ(logTexts(), (Texts{text, text + "7"}));
}

TEST_F(Log, takesItsMonitorOnlyWhenTold) {
    PRBMonitorGlobal::writeToLog("locked", 1);
    EXPECT_EQ(vm.monitorCalls(), (Texts{"RawMonitorEnter(_LogFile)", "RawMonitorExit(_LogFile)"}));
    vm.recorder().clear();
    PRBMonitorGlobal::writeToLog("not locked", 0);
    EXPECT_EQ(vm.monitorCalls(), Texts{});
    EXPECT_EQ(logTexts().size(), 2u);
}

TEST_F(Log, operatorMessagesCarryTwoTimesAndTwoLineEnds) {
    // The log's own date and two blanks, then "12/31/99 23:59:59" (month, day, year).
    constexpr const char* kTimes = "%c  %m/%d/%y %H:%M:%S";
    const std::string tail = "  PRB004E Exception java/lang/Error caught \r\n\r\n";
    const std::string before = localTime(kTimes);
    send(PRB_Profiler_Log(), "PRB004E Exception %s caught", 1, "java/lang/Error");
    const std::string after = localTime(kTimes), log = readLog();
    EXPECT_TRUE(log == before + tail || log == after + tail) << log;
}

TEST_F(Log, operatorMessagesOfAnyLengthAreWritten) {
    const std::string text(3000, 'z');
    send(PRB_Profiler_Log(), "%s%i", 0, text.c_str(), 5);
    EXPECT_NE(readLog().find(text + "5 \r\n\r\n"), std::string::npos);
}

TEST_F(Log, anErrorSampleIsToldWhenDebugIsOn) {
    PRBTrace::level.store(0x200);
    delete new PRBProfilerError(PRBReturnCode(43u), "no process");
    PRBTrace::level.store(0);
    EXPECT_TRUE(logged("Profiler error 43 detected.  Text = no process"));
}

namespace {

class InternalTable : public CoreTest {};

class RawMonitor : public CoreTest {
protected:
    PRBMonitorGlobal& monitor = start();
};

} // namespace

TEST_F(InternalTable, takesItsMonitorWhateverIsAsked) {
    start("debug=INTERNAL");
    vm.recorder().clear();
    PRBMonitorGlobal::writeToLog("a", 0);
    EXPECT_EQ(vm.monitorCalls(), (Texts{"RawMonitorEnter(_InternalTraceTable)",
                                        "RawMonitorExit(_InternalTraceTable)"}));
}

TEST_F(RawMonitor, isCreatedByNameAndDestroyed) {
    {
        PRBJavaRawMonitor own("mine", nullptr); // through the interface in force
        EXPECT_EQ(own.getName(), "mine");
        EXPECT_EQ(own.getOwner(), 0u);
    }
    EXPECT_EQ(vm.monitorCalls(), (Texts{"RawMonitorCreate(mine)", "RawMonitorDestroy(mine)"}));
}

TEST_F(RawMonitor, countsItsNesting) {
    PRBJavaRawMonitor own("mine", vm.jvmpi());
    own.enter(1);
    own.enter(1);
    EXPECT_EQ(own.getEntryCount(), 2);
    EXPECT_EQ(own.getOwner(), static_cast<std::uintptr_t>(pthread_self()));
    own.exit(1);
    own.exit(1);
    EXPECT_EQ(own.getEntryCount(), 0);
    EXPECT_EQ(own.getOwner(), 0u);
    own.enter(0);
    EXPECT_EQ(own.getEntryCount(), 1);
    EXPECT_EQ(own.getOwner(), 0u);
    own.exit(0);
}

TEST_F(RawMonitor, tellsWhatItDoesWhenDebugIsOn) {
    PRBJavaRawMonitor own("mine", vm.jvmpi());
    PRBTrace::level.store(0x200);
    own.enter(1);
    own.enter(1);
    own.exit(1);
    own.exit(1);
    own.enter(0);
    own.exit(0);
    PRBTrace::level.store(0);
    char acquired[128], released[128];
    const auto self = static_cast<std::uintptr_t>(pthread_self());
    std::snprintf(acquired, sizeof acquired,
                  "Lock mine at " PRB_PTR " acquired by thread " PRB_PTR08, prbPtr(&own),
                  prbPtr(self));
    std::snprintf(released, sizeof released,
                  "Lock mine at " PRB_PTR " released by thread " PRB_PTR08, prbPtr(&own),
                  prbPtr(self));
    EXPECT_EQ(logTexts(), (Texts{acquired, released}));
}

TEST_F(RawMonitor, aPostBeforeTheWaitIsNotLost) {
    PRBJavaRawMonitor own("mine", vm.jvmpi());
    std::vector<jlong> waits;
    vm.monitors().setWaitHook([&waits](const std::string&, jlong ms) {
        waits.push_back(ms);
        return true;
    });
    own.post();
    own.wait(1000);
    EXPECT_EQ(waits, std::vector<jlong>{});
    own.wait(1000);
    own.wait(-1);
    EXPECT_EQ(waits, (std::vector<jlong>{1000, -1}));
    EXPECT_EQ(vm.recorder().count("RawMonitorNotifyAll(mine)"), 1u);
    EXPECT_EQ(own.getEntryCount(), 0);
}

TEST_F(RawMonitor, belongsToNobodyDuringAWait) {
    PRBJavaRawMonitor own("mine", vm.jvmpi());
    int inside = -1;
    std::uintptr_t owner = 1;
    vm.monitors().setWaitHook([&](const std::string&, jlong) {
        inside = own.getEntryCount();
        owner = own.getOwner();
        return true;
    });
    own.enter(1);
    own.wait(5);
    EXPECT_EQ(own.getEntryCount(), 1);
    EXPECT_EQ(own.getOwner(), static_cast<std::uintptr_t>(pthread_self()));
    own.exit(1);
    EXPECT_EQ(inside, 0);
    EXPECT_EQ(owner, 0u);
}

TEST_F(RawMonitor, announcesAWaitForAnotherThread) {
    PRBJavaRawMonitor own("mine", vm.jvmpi());
    auto& other = vm.addThread({.name = "other"});
    other.startReal();
    own.enter(1);
    const auto holder = static_cast<std::uintptr_t>(pthread_self());
    PRBTrace::level.store(0x200);
    std::atomic<std::uintptr_t> waiter{0};
    other.post([&] {
        waiter = static_cast<std::uintptr_t>(pthread_self());
        own.enter(1);
        own.exit(1);
    });
    char announced[160];
    while (true) {
        std::snprintf(announced, sizeof announced,
                      "Thread " PRB_PTR0 " may have to wait for lock mine held by thread " PRB_PTR0,
                      prbPtr(waiter.load()), prbPtr(holder));
        if (logged(announced)) break;
        usleep(1000);
    }
    EXPECT_EQ(logCount("Lock was acquired"), 0u);
    own.exit(1);
    other.waitIdle();
    PRBTrace::level.store(0);
    EXPECT_TRUE(logged(announced));
    EXPECT_TRUE(logged("Lock was acquired"));
    other.stopReal();
}
