// The child process that the sampler sleeps by.
#include "runtime/PRBClock.h"
#include "runtime/PRBSamplerChild.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

std::vector<int> sleeps;

class SamplerChild : public testing::Test {
protected:
    SamplerChild() {
        sleeps.clear();
        PRBClock::sleeper = [](int ms) { sleeps.push_back(ms); };
        sigset_t pipe;
        sigemptyset(&pipe);
        sigaddset(&pipe, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe, nullptr); // as the sampler's thread does
    }
    ~SamplerChild() override { PRBClock::sleeper = nullptr; }
    void start() {
        ASSERT_TRUE(child.start(failure)) << failure;
        pid = child.getPid();
    }
    // 'Z' for a process that has ended and was not reaped; 0 when there is none.
    static char stateOf(pid_t process) {
        std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
        std::string text;
        std::getline(stat, text);
        const auto at = text.rfind(')');
        return at == std::string::npos ? '\0' : text[at + 2];
    }
    static void awaitEnd(pid_t process) {
        siginfo_t info{};
        waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
    }

    PRBSamplerChild child;
    std::string failure;
    pid_t pid = 0;
};

TEST_F(SamplerChild, sleepsForItsParentAndEndsWithStatusZero) {
    start();
    child.pause(1);
    child.pause(2);
    EXPECT_TRUE(sleeps.empty());
    child.stop();
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(SamplerChild, keepsNoDescriptorButItsTwoPipeEnds) {
    const int server = socket(AF_INET, SOCK_STREAM, 0); // inheritable
    ASSERT_GE(server, 0);
    start();
    child.pause(1); // it has closed what it inherited before it answers
    std::vector<std::string> open;
    DIR* dir = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    ASSERT_NE(dir, nullptr);
    while (const dirent* entry = readdir(dir))
        if (entry->d_name[0] != '.') {
            char target[100] = {};
            const std::string path = "/proc/" + std::to_string(pid) + "/fd/" + entry->d_name;
            EXPECT_GT(readlink(path.c_str(), target, sizeof target - 1), 0);
            open.push_back(target);
        }
    closedir(dir);
    ASSERT_EQ(open.size(), 2u);
    for (const std::string& target : open) EXPECT_EQ(target.rfind("pipe:", 0), 0u) << target;
    close(server);
}

TEST_F(SamplerChild, hasDefaultHandlersAndAnEmptyMask) {
    std::signal(SIGTERM, SIG_IGN);
    start();
    child.pause(1);
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    unsigned long long blocked = ~0ULL, ignored = ~0ULL;
    while (std::getline(status, line)) {
        if (line.rfind("SigBlk:", 0) == 0) blocked = std::stoull(line.substr(7), nullptr, 16);
        if (line.rfind("SigIgn:", 0) == 0) ignored = std::stoull(line.substr(7), nullptr, 16);
    }
    EXPECT_EQ(blocked, 0u);
    EXPECT_EQ(ignored & (1ULL << (SIGTERM - 1)), 0u);
    std::signal(SIGTERM, SIG_DFL);
}

TEST_F(SamplerChild, leavesTheParentsMaskAlone) {
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    start();
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal = 1; signal < 32; ++signal)
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
}

TEST_F(SamplerChild, aKilledChildCostsOnlyItself) {
    start();
    kill(pid, SIGKILL);
    awaitEnd(pid);
    for (int i = 1; i <= 5; ++i) child.pause(i);
    EXPECT_EQ(sleeps, (std::vector<int>{1, 2, 3, 4, 5})); // each took its time
    EXPECT_EQ(stateOf(pid), '\0');                        // nor is it left a zombie meanwhile
    EXPECT_EQ(child.getPid(), 0);
    EXPECT_EQ(child.getWriteFd(), -1);
    child.stop();
}

TEST_F(SamplerChild, withoutAChildThePauseSleepsByItself) {
    child.pause(6);
    EXPECT_EQ(sleeps, std::vector<int>{6});
    child.stop(); // nothing to stop, nothing is written to descriptor 0
    EXPECT_EQ(child.getWriteFd(), -1);
}

TEST_F(SamplerChild, noZombieIsLeftAfterTenActivations) {
    std::vector<pid_t> children;
    for (int i = 0; i < 10; ++i) {
        start();
        children.push_back(pid);
        child.stop();
        awaitEnd(pid);
    }
    child.reap();
    for (pid_t former : children) EXPECT_EQ(stateOf(former), '\0');
}

TEST_F(SamplerChild, aChildThatEndsIsReapedWithoutAnyoneWaitingForItsEnd) {
    start();
    child.reapEnding(); // it is not told to end, and not waited for
    EXPECT_NE(stateOf(pid), '\0');
    child.stop();
    child.reapEnding();
    EXPECT_EQ(stateOf(pid), '\0');
}

TEST_F(SamplerChild, reapsNoChildOfTheHost) {
    const pid_t other = fork();
    if (other == 0) _exit(7);
    awaitEnd(other);
    start();
    child.stop();
    awaitEnd(pid);
    child.reap();
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(SamplerChild, itsPipesAreClosedInProgramsThatTheHostStarts) {
    start();
    for (int fd : {child.getReadFd(), child.getWriteFd()})
        EXPECT_EQ(fcntl(fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

// The loop itself, on pipes of the test.
class SamplerChildLoop : public testing::Test {
protected:
    SamplerChildLoop() {
        EXPECT_EQ(pipe(request), 0);
        EXPECT_EQ(pipe(answer), 0);
    }
    void ask(std::int32_t ms) {
        EXPECT_EQ(write(request[1], &ms, sizeof ms), static_cast<ssize_t>(sizeof ms));
    }
    int request[2], answer[2];
};

TEST_F(SamplerChildLoop, answersOneByteForEachFourByteRequestAndEndsOnZero) {
    ask(1);
    ask(2);
    ask(PRBSamplerChild::kEndChildProcess);
    ask(3); // not read any more
    PRBSamplerChild::run(request[0], answer[1], nullptr);
    close(answer[1]);
    char bytes[8];
    EXPECT_EQ(read(answer[0], bytes, sizeof bytes), 2);
}

TEST_F(SamplerChildLoop, endsWhenTheRequestPipeIsClosed) {
    ask(1);
    close(request[1]);
    PRBSamplerChild::run(request[0], answer[1], nullptr);
    close(answer[1]);
    char bytes[8];
    EXPECT_EQ(read(answer[0], bytes, sizeof bytes), 1);
}

TEST_F(SamplerChildLoop, endsOnAHalfRequest) {
    EXPECT_EQ(write(request[1], "ab", 2), 2);
    close(request[1]);
    PRBSamplerChild::run(request[0], answer[1], nullptr);
    close(answer[1]);
    char bytes[8];
    EXPECT_EQ(read(answer[0], bytes, sizeof bytes), 0);
}

TEST_F(SamplerChildLoop, reportsToALog) {
    char* text = nullptr;
    std::size_t size = 0;
    FILE* log = open_memstream(&text, &size);
    ask(1);
    close(request[1]);
    PRBSamplerChild::run(request[0], answer[1], log);
    fclose(log);
    EXPECT_STREQ(text, "Sleeping 1 milliseconds\n");
    free(text);
}

} // namespace
