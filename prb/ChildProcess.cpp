#include "prb/ChildProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace prb {

namespace {

volatile sig_atomic_t childToSignal = 0;

extern "C" void passOn(int signal) {
    if (childToSignal > 0) kill(static_cast<pid_t>(childToSignal), signal);
}

std::vector<char*> pointers(const std::vector<std::string>& argv) {
    std::vector<char*> result;
    result.reserve(argv.size() + 1);
    for (const std::string& arg : argv) result.push_back(const_cast<char*>(arg.c_str()));
    result.push_back(nullptr);
    return result;
}

int exitCodeOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Ends when the child has: a signal that interrupts the wait was passed on already.
int waitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

ChildResult runChild(const std::vector<std::string>& argv, const std::string& toolOptions) {
    ChildResult result;
    std::vector<char*> args = pointers(argv);
    if (!toolOptions.empty()) {
        setenv("JAVA_TOOL_OPTIONS", toolOptions.c_str(), 1); // NOLINT(concurrency-mt-unsafe)
    }
    int report[2]; // the child's errno, if exec fails; closed by exec otherwise
    if (pipe2(report, O_CLOEXEC) != 0) {
        result.exitCode = 126;
        result.problem = std::string("cannot make a pipe: ") + strerrordesc_np(errno);
        return result;
    }

    constexpr int kPassedOn[] = {SIGTERM, SIGHUP, SIGUSR1, SIGUSR2};
    sigset_t blocked, before;
    sigemptyset(&blocked);
    for (int s : kPassedOn) sigaddset(&blocked, s);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);

    result.pid = fork();
    if (result.pid == 0) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        execvp(args[0], args.data());
        const int error = errno;
        [[maybe_unused]] ssize_t n = write(report[1], &error, sizeof error);
        _exit(error == ENOENT ? 127 : 126);
    }
    close(report[1]);
    if (result.pid < 0) {
        result.exitCode = 126;
        result.problem = std::string("cannot start a process: ") + strerrordesc_np(errno);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        close(report[0]);
        return result;
    }

    childToSignal = result.pid;
    struct sigaction action {};
    action.sa_handler = passOn;
    sigemptyset(&action.sa_mask);
    for (int s : kPassedOn) sigaction(s, &action, nullptr);
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignore, nullptr);
    sigaction(SIGQUIT, &ignore, nullptr);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);

    int error = 0;
    ssize_t n = 0;
    while ((n = read(report[0], &error, sizeof error)) < 0 && errno == EINTR) {
    }
    close(report[0]);
    result.exitCode = exitCodeOf(waitFor(result.pid));
    if (n == static_cast<ssize_t>(sizeof error)) {
        result.problem = argv.front() + ": " + strerrordesc_np(error);
    }
    childToSignal = 0;
    return result;
}

Captured runCaptured(const std::vector<std::string>& argv, int seconds) {
    Captured result;
    std::vector<char*> args = pointers(argv);
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0) return result;
    if (pipe2(err, O_CLOEXEC) != 0) {
        close(out[0]);
        close(out[1]);
        return result;
    }
    const pid_t pid = fork();
    if (pid == 0) {
        const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
        dup2(null, STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        execvp(args[0], args.data());
        _exit(127);
    }
    close(out[1]);
    close(err[1]);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    bool late = pid < 0;
    while (!late && (fds[0].fd >= 0 || fds[1].fd >= 0)) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            late = true;
            break;
        }
        if (poll(fds, 2, static_cast<int>(left.count())) < 0 && errno != EINTR) break;
        for (int i = 0; i < 2; i++) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            char buffer[4096];
            const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                (i == 0 ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1;
            }
        }
    }
    close(out[0]);
    close(err[0]);
    if (pid > 0) {
        if (late) kill(pid, SIGKILL);
        const int status = waitFor(pid);
        if (!late) result.exitCode = exitCodeOf(status);
    }
    return result;
}

} // namespace prb
