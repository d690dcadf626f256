// The sampler's child process beside a real JVM.
#include "tests/live/Live.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

namespace live {
namespace {

// A field of proc(5)'s stat after the name in brackets; field 3 is the state.
std::string statField(const std::string& file, int field) {
    const std::string text = slurp(file);
    const auto afterName = text.rfind(')');
    if (afterName == std::string::npos) return {};
    std::istringstream in(text.substr(afterName + 1));
    std::string value;
    for (int i = 3; i <= field; ++i) in >> value;
    return value;
}

std::string procFile(pid_t pid, const char* name) {
    return "/proc/" + std::to_string(pid) + "/" + name;
}

char stateOf(pid_t pid) { // 0 when there is no such process
    const std::string state = statField(procFile(pid, "stat"), 3);
    return state.empty() ? '\0' : state[0];
}

std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> result;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str());
        if (pid > 0 && statField(procFile(pid, "stat"), 4) == std::to_string(parent))
            result.push_back(pid);
    }
    return result;
}

// False when it has not come true after half a minute.
bool eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 600; ++i) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

class SamplerProcess : public PerJdk {
protected:
    ~SamplerProcess() override {
        if (tool_ > 0) {
            if (java_ > 0) kill(java_, SIGKILL);
            waitpid(tool_, nullptr, 0);
        }
    }
    // Starts the program under the agent and waits until the sampler has its child.
    void start(int seconds) {
        const std::vector<std::string> argv = {prb(),
                                               "run",
                                               "--java-home",
                                               jdk().home,
                                               "--interval",
                                               "10",
                                               "--out",
                                               "live.prb",
                                               "--format",
                                               "json",
                                               "--report",
                                               "live.json",
                                               "--",
                                               "java",
                                               "-cp",
                                               product("tests/programs.jar"),
                                               "com.tessel.prb.live.programs.Children",
                                               "--seconds",
                                               std::to_string(seconds)};
        std::vector<char*> raw;
        for (const std::string& text : argv) raw.push_back(const_cast<char*>(text.c_str()));
        raw.push_back(nullptr);
        tool_ = fork();
        if (tool_ == 0) {
            const int out = open("out.txt", O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(out, 1);
            dup2(out, 2);
            execv(raw[0], raw.data());
            _exit(127);
        }
        ASSERT_TRUE(eventually([this] {
            return slurp("out.txt").find("ready") != std::string::npos;
        })) << slurp("out.txt");
        ASSERT_TRUE(eventually([this] {
            for (pid_t candidate : childrenOf(tool_))
                if (findSamplersChild(candidate)) return true;
            return false;
        })) << slurp("out.txt");
    }
    // The program's own children exec at once; the sampler's has no other descriptors than its
    // two pipe ends and is a copy of the JVM.
    bool findSamplersChild(pid_t java) {
        std::error_code ignored;
        const fs::path program = fs::read_symlink(procFile(java, "exe"), ignored);
        for (pid_t candidate : childrenOf(java)) {
            if (fs::read_symlink(procFile(candidate, "exe"), ignored) != program) continue;
            if (descriptors(candidate).size() != 2) continue;
            java_ = java;
            child_ = candidate;
            return true;
        }
        return false;
    }
    static std::vector<std::string> descriptors(pid_t pid) {
        std::vector<std::string> result;
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(procFile(pid, "fd"), ignored))
            result.push_back(fs::read_symlink(entry.path(), ignored).string());
        return result;
    }
    // A line of proc(5)'s status as a set of signals.
    static unsigned long long signalSet(pid_t pid, const std::string& name) {
        const std::string text = slurp(procFile(pid, "status"));
        const auto at = text.find(name + ":");
        return at == std::string::npos
                   ? ~0ULL
                   : std::strtoull(text.c_str() + at + name.size() + 1, nullptr, 16);
    }
    // Processor time of the JVM's busiest agent thread so named, in clock ticks; -1 without one.
    long samplerTicks() const {
        std::error_code ignored;
        for (const auto& task : fs::directory_iterator(procFile(java_, "task"), ignored)) {
            if (slurp(task.path() / "comm").rfind("PRB_CPUSampler", 0) != 0) continue;
            const std::string stat = task.path() / "stat";
            return std::atol(statField(stat, 14).c_str()) + std::atol(statField(stat, 15).c_str());
        }
        return -1;
    }
    int finish(rusage& usage) {
        int status = 0;
        wait4(tool_, &status, 0, &usage);
        tool_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t tool_ = -1;
    pid_t java_ = -1;
    pid_t child_ = -1;
};

TEST_P(SamplerProcess, TheChildHoldsItsTwoPipeEndsAndDefaultSignalsOnly) {
    start(4);
    for (const std::string& target : descriptors(child_))
        EXPECT_EQ(target.rfind("pipe:", 0), 0u) << target;
    for (int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGPIPE}) {
        const unsigned long long bit = 1ULL << (signal - 1);
        for (const char* set : {"SigCgt", "SigIgn", "SigBlk"})
            EXPECT_EQ(signalSet(child_, set) & bit, 0u) << set << " " << signal;
    }
    kill(child_, SIGTERM); // ends it as any process, and the JVM not at all
    EXPECT_TRUE(eventually([this] { return stateOf(child_) == '\0'; }));
    rusage usage{};
    EXPECT_EQ(finish(usage), 0);
}

TEST_P(SamplerProcess, AKilledChildCostsNoSamplesAndNoProcessorTime) {
    start(6);
    kill(child_, SIGKILL);
    EXPECT_TRUE(eventually([this] { return stateOf(child_) == '\0'; })); // no zombie is left
    const long before = samplerTicks();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const long after = samplerTicks();
    ASSERT_GE(before, 0);
    EXPECT_LT(after - before, sysconf(_SC_CLK_TCK)); // of two seconds' worth
    rusage usage{};
    EXPECT_EQ(finish(usage), 0);
    EXPECT_THAT(slurp("out.txt"), testing::HasSubstr("children some wrong 0"));
    const auto report = nlohmann::json::parse(slurp("live.json"), nullptr, false);
    ASSERT_TRUE(report.is_object());
    // One sample for each 10 ms of processor time; half of it all leaves room for the JVM's own.
    const double cpuMs = static_cast<double>(usage.ru_utime.tv_sec) * 1000 +
                         static_cast<double>(usage.ru_utime.tv_usec) / 1000;
    EXPECT_GT(report["run"]["busy_samples"].get<double>() * 10, cpuMs / 2);
}

TEST_P(SamplerProcess, TheChildEndsWithAKilledJvm) {
    start(30);
    kill(java_, SIGKILL);
    // Its new parent may take its time to collect it.
    EXPECT_TRUE(eventually([this] {
        const char state = stateOf(child_);
        return state == '\0' || state == 'Z';
    }));
}

PRB_FOR_EVERY_JDK(SamplerProcess);

} // namespace
} // namespace live
