#include "runtime/PRBSamplerChild.h"

#include "runtime/PRBClock.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

timespec toTimespec(int ms) {
    timespec t{};
    t.tv_sec = ms / 1000;
    t.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    return t;
}

ssize_t readRetrying(int fd, void* data, std::size_t size) {
    ssize_t n;
    do {
        n = read(fd, data, size);
    } while (n < 0 && errno == EINTR);
    return n;
}

// True when all bytes went. Pipes take this few at once or not at all.
bool writeRetrying(int fd, const void* data, std::size_t size) {
    ssize_t n;
    do {
        n = write(fd, data, size);
    } while (n < 0 && errno == EINTR);
    return n == static_cast<ssize_t>(size);
}

std::string pipeFailure(int rc, int error) {
    char text[96];
    std::snprintf(text, sizeof text, "Pipe creation failed - rc = %i  errno = %i", rc, error);
    return text;
}

std::string forkFailure(int error) {
    char text[64];
    std::snprintf(text, sizeof text, "Fork failed - errno = %i", error);
    return text;
}

void closePair(const int (&pair)[2]) {
    close(pair[0]);
    close(pair[1]);
}

// Async-signal-safe. A child that kept the server's sockets would keep its ports busy after a
// crash of the server.
void closeAllBut(int a, int b) {
    const int low = std::min(a, b);
    const int high = std::max(a, b);
    const auto closeRange = [](unsigned first, unsigned last) {
        if (first > last) return;
#if defined(SYS_close_range)
        if (syscall(SYS_close_range, first, last, 0U) == 0) return;
#endif
        constexpr unsigned kHighest = 1U << 20; // the kernel's own default limit
        for (unsigned fd = first; fd <= last && fd < kHighest; ++fd) close(static_cast<int>(fd));
    };
    if (low > 0) closeRange(0, static_cast<unsigned>(low) - 1);
    closeRange(static_cast<unsigned>(low) + 1, static_cast<unsigned>(high) - 1);
    closeRange(static_cast<unsigned>(high) + 1, ~0U);
}

} // namespace

bool PRBSamplerChild::start(std::string& failure) {
    stop();
    reap();
    int request[2];
    int answer[2];
    // Close-on-exec: a program that the server starts must not keep the child's pipe open.
    int rc = pipe2(request, O_CLOEXEC);
    if (rc != 0) {
        failure = pipeFailure(rc, errno);
        return false;
    }
    rc = pipe2(answer, O_CLOEXEC);
    if (rc != 0) {
        failure = pipeFailure(rc, errno);
        closePair(request);
        return false;
    }
    // A signal that arrives between the fork and the reset of the handlers must find the child
    // deaf: the handlers are the VM's.
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t child = fork();
    if (child == 0) becomeChild(request[0], answer[1]);
    const int forkErrno = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (child < 0) {
        failure = forkFailure(forkErrno);
        closePair(request);
        closePair(answer);
        return false;
    }
    close(request[0]);
    close(answer[1]);
    writeFd_ = request[1];
    readFd_ = answer[0];
    pid_.store(child, std::memory_order_relaxed);
    return true;
}

// Only async-signal-safe calls from here: other threads of the parent may have held any lock.
void PRBSamplerChild::becomeChild(int readFd, int writeFd) {
    constexpr int kDefaulted[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGPIPE};
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int signal : kDefaulted) sigaction(signal, &action, nullptr);
    closeAllBut(readFd, writeFd);
    sigset_t none;
    sigemptyset(&none);
    pthread_sigmask(SIG_SETMASK, &none, nullptr);
    run(readFd, writeFd, nullptr);
    _exit(0);
}

void PRBSamplerChild::run(int readFd, int writeFd, FILE* log) {
    for (;;) {
        std::int32_t ms = kEndChildProcess;
        const ssize_t n = readRetrying(readFd, &ms, sizeof ms);
        if (n != static_cast<ssize_t>(sizeof ms) || ms == kEndChildProcess) break;
        if (log != nullptr) {
            std::fprintf(log, "Sleeping %i milliseconds\n", static_cast<int>(ms));
            std::fflush(log);
        }
        if (ms > 0) {
            timespec left = toTimespec(ms);
            while (nanosleep(&left, &left) != 0 && errno == EINTR) {
            }
        }
        const char done = 1;
        if (!writeRetrying(writeFd, &done, sizeof done)) break;
    }
}

bool PRBSamplerChild::ask(int ms) {
    if (writeFd_ < 0) return false;
    const std::int32_t request = ms;
    if (!writeRetrying(writeFd_, &request, sizeof request)) return false;
    char done;
    return readRetrying(readFd_, &done, sizeof done) == 1;
}

void PRBSamplerChild::pause(int ms) {
    if (ask(ms)) return;
    // A child that died is given up, and leaves no zombie for the rest of the active period.
    if (getPid() != 0) forget();
    reap();
    PRBClock::sleepFor(ms);
}

void PRBSamplerChild::stop() {
    if (getPid() == 0) return;
    const std::int32_t end = kEndChildProcess;
    writeRetrying(writeFd_, &end, sizeof end);
    forget();
}

// Closes the pipes; the child's exit status is left to reap().
void PRBSamplerChild::forget() {
    const pid_t child = pid_.exchange(0, std::memory_order_relaxed);
    close(writeFd_);
    close(readFd_);
    for (pid_t& former : former_)
        if (former == 0) {
            former = child;
            break;
        }
    writeFd_ = readFd_ = -1;
}

void PRBSamplerChild::reap() {
    for (pid_t& former : former_)
        if (former != 0 && waitpid(former, nullptr, WNOHANG) != 0) former = 0;
}

bool PRBSamplerChild::hasFormer() const {
    return std::any_of(std::begin(former_), std::end(former_), [](pid_t p) { return p != 0; });
}

void PRBSamplerChild::reapEnding() {
    constexpr int kTries = 100;
    reap();
    for (int i = 0; i < kTries && hasFormer(); ++i) {
        poll(nullptr, 0, 1);
        reap();
    }
}

FILE* PRBSamplerChild::openLogFile(pid_t pid) {
    char name[32];
    std::snprintf(name, sizeof name, "prb_%i.log", static_cast<int>(pid));
    FILE* log = std::fopen(name, "we");
    if (log == nullptr) return nullptr;
    std::fputs("Child process log file is open\n", log);
    std::fflush(log);
    return log;
}
