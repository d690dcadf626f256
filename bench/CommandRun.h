// One run of a command with its cost, for measurements of whole processes.
#ifndef PRB_BENCH_COMMANDRUN_H
#define PRB_BENCH_COMMANDRUN_H

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

struct Run {
    double cpu = 0;  // seconds
    double wall = 0; // seconds
    double peak = 0; // MiB, of the largest process
    int code = 0;
};

inline double seconds(const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

// Runs the command to its end, without output. CPU time is that of all threads and children.
inline Run measure(const std::vector<std::string>& argv) {
    std::vector<char*> args;
    for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (int fd : {0, 1, 2}) dup2(null, fd);
        execvp(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    while (wait4(pid, &status, 0, &usage) < 0 && errno == EINTR) {
    }
    Run run;
    run.wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    run.cpu = seconds(usage.ru_utime) + seconds(usage.ru_stime);
    run.peak = static_cast<double>(usage.ru_maxrss) / 1024;
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 == 1 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

} // namespace bench

#endif
