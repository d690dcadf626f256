// What the agent asks the system about its process.
#include "tests/unit/data/DataTest.h"

#include "data/PRBAppServerSample.h"
#include "data/PRBProcessStat.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace datatest;
using PRBProcessStat::cpuMilliseconds;

TEST(ProcessStat, TimesAreTheTwelfthAndThirteenthFieldsBehindTheName) {
    EXPECT_EQ(cpuMilliseconds("42 (java) S 1 2 3 4 5 6 7 8 9 10 123 45 99 99 20 0", 42), 1680);
    EXPECT_EQ(cpuMilliseconds("42 (java) R 1 2 3 4 -1 4194560 7 8 9 10 0 0 0 0", 42), 0);
}

TEST(ProcessStat, NamesMayHoldBlanksAndParentheses) {
    EXPECT_EQ(cpuMilliseconds("7 (a) b) (c 9 9) S 1 2 3 4 5 6 7 8 9 10 1 2 0", 7), 30);
    EXPECT_EQ(cpuMilliseconds("7 () S 1 2 3 4 5 6 7 8 9 10 1 2 0", 7), 30);
}

TEST(ProcessStat, TheProductWrapsAt32Bits) {
    // 4294968 ticks: 4294968000 exceeds 32 bits by 704.
    EXPECT_EQ(cpuMilliseconds("7 (x) S 1 2 3 4 5 6 7 8 9 10 4294967 1 0", 7), 7);
    EXPECT_EQ(cpuMilliseconds("7 (x) S 1 2 3 4 5 6 7 8 9 10 4294967 0 0", 7), 42949670);
}

TEST(ProcessStat, TextsThatAreCutOffOrOfAnotherProcessGiveMinusOne) {
    for (const char* text :
         {"", "7", "7 (x", "7 (x)", "7 (x) ", "x (y) S 1 2", "7 (x) S 1 2 3 4 5 6 7 8 9 10",
          "7 (x) S 1 2 3 4 5 6 7 8 9 10 11", "8 (x) S 1 2 3 4 5 6 7 8 9 10 11 12"})
        EXPECT_EQ(cpuMilliseconds(text, 7), -1) << text;
}

TEST(ProcessStat, OwnProcessHasAPlausibleTime) {
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    const long long usage = PRBAppServerSample::getProcessCPUUsage(static_cast<unsigned>(getpid()));
    const long long floor = before.ru_utime.tv_sec * 1000LL + before.ru_utime.tv_usec / 1000;
    EXPECT_GE(usage, floor - 20);
    EXPECT_LE(usage, floor + 600000);
}

TEST(ProcessStat, AProcessThatIsNotThereGivesMinusOne) {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(PRBAppServerSample::getProcessCPUUsage(static_cast<unsigned>(child)), -1);
    EXPECT_EQ(PRBAppServerSample::getProcessCPUUsage(0), -1);
    EXPECT_EQ(PRBAppServerSample::getProcessCPUUsage(0xFFFFFFFFu), -1);
}

TEST(ProcessStat, ReadingGoesOnAfterASignalAndStopsAtTheSize) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr); // without SA_RESTART: the read is interrupted
    char buffer[8] = {};
    const pthread_t reader = pthread_self();
    std::thread writer([&] {
        for (int i = 0; i < 20; ++i) {
            pthread_kill(reader, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(write(ends[1], "abc", 3), 3);
        for (int i = 0; i < 20; ++i) {
            pthread_kill(reader, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_EQ(write(ends[1], "defghij", 7), 7);
    });
    EXPECT_EQ(PRBProcessStat::readWhole(ends[0], buffer, sizeof buffer), 8);
    writer.join();
    EXPECT_EQ(std::string(buffer, 8), "abcdefgh");
    close(ends[1]);
    EXPECT_EQ(PRBProcessStat::readWhole(ends[0], buffer, sizeof buffer), 2);
    EXPECT_EQ(PRBProcessStat::readWhole(ends[0], buffer, sizeof buffer), 0);
    close(ends[0]);
    EXPECT_EQ(PRBProcessStat::readWhole(ends[0], buffer, sizeof buffer), -1);
}

using ProcessLog = LogTest;

TEST_F(ProcessLog, TheWholeStatBufferIsDumped) {
    debugOn("PRBCAPSA");
    PRBAppServerSample::getProcessCPUUsage(static_cast<unsigned>(getpid()));
    const auto dumped = lines();
    ASSERT_EQ(dumped.size(), 1u + 3840 / 16);
    EXPECT_THAT(dumped[0], testing::StartsWith("stat file follows   @"));
    EXPECT_THAT(dumped.back(), testing::StartsWith("0EF0-00000000 00000000 00000000 00000000 "));
}

TEST_F(ProcessLog, ProcessorsAreCountedAndLoggedOnce) {
    debugOn("PRBCAPSA");
    const long long number = PRBAppServerSample::getNumProcessors();
    EXPECT_GE(number, 1);
    EXPECT_EQ(number, std::max(sysconf(_SC_NPROCESSORS_CONF), 1L));
    EXPECT_THAT(lines(), testing::ElementsAre("The number of detected processors is " +
                                              std::to_string(number)));
    EXPECT_EQ(PRBAppServerSample::getNumProcessors(), number);
    EXPECT_THAT(lines(), testing::IsEmpty());
}
