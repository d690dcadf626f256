#include "prb/AttachSession.h"
#include "prb/Commands.h"
#include "prb/Signature.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace prb {

namespace {

// The longest that a JVM may take to listen, to load and to write its last poll.
constexpr int kPatienceSeconds = 60;

void complain(const std::string& text) {
    std::fprintf(stderr, "prb: %s\n", printable(text).c_str());
}

void repeat(const Target& target, const AttachAnswer& answer) {
    for (const std::string& line : answer.said) {
        complain("process " + std::to_string(target.pid) + ": " + line);
    }
}

// SIGINT, SIGTERM and SIGHUP as something to wait for, from the object's beginning.
class Leave {
public:
    Leave() {
        sigset_t signals;
        sigemptyset(&signals);
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        signals_ = signalfd(-1, &signals, SFD_CLOEXEC);
    }
    ~Leave() { close(signals_); }
    Leave(const Leave&) = delete;
    Leave& operator=(const Leave&) = delete;

    // Waits for a signal, the process's end or the time (0: no limit). False: the process ended.
    bool wait(pid_t pid, double seconds) const {
        const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
        const auto start = std::chrono::steady_clock::now();
        bool alive = true;
        for (bool done = false; alive && !done;) {
            int left = -1;
            if (seconds > 0) {
                const std::chrono::duration<double, std::milli> gone =
                    std::chrono::steady_clock::now() - start;
                left = static_cast<int>(std::max(0.0, seconds * 1000 - gone.count()));
            }
            // Without a descriptor of the process it is looked for twice a second.
            const int pause = process < 0 && (left < 0 || left > 500) ? 500 : left;
            pollfd wait[2] = {{signals_, POLLIN, 0}, {process, POLLIN, 0}};
            const int ready = poll(wait, 2, pause);
            if (ready < 0 && errno != EINTR) break;
            if (ready > 0 && wait[0].revents != 0) done = true;
            if (ready > 0 && wait[1].revents != 0) alive = false;
            if (process < 0 && kill(pid, 0) != 0 && errno == ESRCH) alive = false;
            if (left == 0) done = true;
        }
        if (process >= 0) close(process);
        return alive;
    }

private:
    int signals_ = -1;
};

// The bridge for the process: the one that it has loaded, else ours of its word size.
std::string chooseBridge(const Target& target, std::string& problem) {
    if (!target.bridge.empty()) return target.bridge;
    const Libraries libraries = findLibraries(target.jvm.bits, programFolder());
    problem = libraries.problem;
    if (!problem.empty() || !target.contained) return libraries.bridge;
    std::error_code error;
    if (!fs::exists(target.root + libraries.bridge, error)) {
        problem = "process " + std::to_string(target.pid) +
                  " sees other files than prb (it runs "
                  "in a container), and not " +
                  libraries.bridge + ": copy the folder " + libraries.folder +
                  " to the same place inside, or run prb inside";
    }
    return libraries.bridge;
}

std::string captureFor(const Target& target, const RunOptions& options) {
    if (!options.out.empty() && fs::path(options.out).is_absolute()) return options.out;
    std::error_code error;
    const std::string folder = target.contained ? "/tmp" : fs::current_path(error).string();
    const std::string name = options.out.empty() ? "prb-%p.prb" : options.out;
    return (fs::path(folder) / name).lexically_normal().string();
}

void announce(const Target& target, const std::string& capture, double seconds) {
    std::fprintf(stderr, "prb: profiling process %d (%s, Java %s, %d bit) into %s; ",
                 static_cast<int>(target.pid), printable(target.name()).c_str(),
                 target.jvm.version.empty() ? "?" : target.jvm.version.c_str(), target.jvm.bits,
                 printable(capture).c_str());
    if (seconds > 0) {
        std::fprintf(stderr, "%g seconds, or Ctrl-C\n", seconds);
    } else {
        std::fprintf(stderr, "Ctrl-C ends it\n");
    }
}

// The capture of a process, for whoever reads it at the end. The files of a container cannot be
// reached any more when its last process has ended, but one that is open can.
class HeldCapture {
public:
    HeldCapture(const Target& target, const std::string& capture)
        : path_(target.root + capture),
          file_(target.contained ? open(path_.c_str(), O_RDONLY | O_CLOEXEC) : -1) {}
    ~HeldCapture() {
        if (file_ >= 0) close(file_);
    }
    HeldCapture(const HeldCapture&) = delete;
    HeldCapture& operator=(const HeldCapture&) = delete;

    const std::string& path() const { return path_; }
    std::string pathNow() const {
        const bool gone = file_ >= 0 && access(path_.c_str(), R_OK) != 0;
        return gone ? "/proc/self/fd/" + std::to_string(file_) : path_;
    }

private:
    const std::string path_;
    const int file_;
};

// Asks for the end. False: the JVM could not be reached.
bool leave(const Target& target, const std::string& bridge) {
    const Asked asked = askBridge(target, bridge, "detach=yes", kPatienceSeconds);
    if (asked.problem.empty()) {
        repeat(target, asked.answer);
        return true;
    }
    if (kill(target.pid, 0) != 0 && errno == ESRCH) return true; // ended meanwhile
    complain(asked.problem);
    return false;
}

} // namespace

int attachCommand(int pid, const RunOptions& options, double seconds, const ReportOptions& report,
                  const std::string& reportFile) {
    std::FILE* out = stderr;
    if (!reportFile.empty()) {
        out = std::fopen(reportFile.c_str(), "we");
        if (out == nullptr) {
            complain("cannot write the report to " + reportFile + ": " + strerrordesc_np(errno));
            return kBadUsage;
        }
    }
    const Leave signals;
    const Target target = inspectTarget(pid, geteuid());
    std::string problem = target.problem;
    const std::string bridge = problem.empty() ? chooseBridge(target, problem) : "";
    Asked asked;
    if (problem.empty()) {
        asked = askBridge(target, bridge, bridgeOptions(options, captureFor(target, options)),
                          kPatienceSeconds);
        problem = asked.problem;
    }
    const AttachAnswer& answer = asked.answer;
    if (problem.empty()) {
        repeat(target, answer);
        if (answer.state == "busy") {
            problem = "process " + std::to_string(pid) + " is being profiled already, into " +
                      answer.capture +
                      " (since its start, or by another 'prb attach'); 'prb "
                      "detach " +
                      std::to_string(pid) + "' ends that";
        } else if (answer.state != "started") {
            problem = "process " + std::to_string(pid) + " runs on unprofiled";
        }
    }
    int code = kOk;
    if (!problem.empty()) {
        complain(problem);
        code = kFailed;
    } else {
        const HeldCapture capture(target, answer.capture);
        announce(target, capture.path(), seconds);
        if (signals.wait(pid, seconds) && !leave(target, bridge)) code = kFailed;
        if (code == kOk && !(options.quiet && reportFile.empty())) {
            code = reportCommand(capture.pathNow(), report, out, stderr);
        }
    }
    if (out != stderr) std::fclose(out);
    return code;
}

int detachCommand(int pid) {
    const Target target = inspectTarget(pid, geteuid());
    std::string problem = target.problem;
    Asked asked;
    if (problem.empty() && !target.bridge.empty()) {
        asked = askBridge(target, target.bridge, "detach=yes", kPatienceSeconds);
        problem = asked.problem;
    }
    repeat(target, asked.answer);
    if (problem.empty() && asked.answer.state != "ended") {
        problem = "process " + std::to_string(pid) + " is not being profiled";
    }
    if (!problem.empty()) {
        complain(problem);
        return kFailed;
    }
    std::fprintf(stderr, "prb: process %d is no longer profiled; the capture is %s\n", pid,
                 printable(target.root + asked.answer.capture).c_str());
    return kOk;
}

} // namespace prb
