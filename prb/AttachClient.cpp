#include "prb/AttachClient.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace prb {

namespace {

using Clock = std::chrono::steady_clock;

// A descriptor, closed at the end.
class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int number() const { return number_; }

private:
    int number_;
};

// A file that is there while the object lives.
class PassingFile {
public:
    PassingFile() = default;
    ~PassingFile() {
        if (!path_.empty()) unlink(path_.c_str());
    }
    PassingFile(const PassingFile&) = delete;
    PassingFile& operator=(const PassingFile&) = delete;

    bool make(const std::string& path, const Target& target) {
        const Descriptor file(
            open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (file.number() < 0) return false;
        path_ = path;
        // The VM heeds files of its own user and of root, so a refusal does no harm.
        if (geteuid() == target.uid) return true;
        [[maybe_unused]] const int refused = fchown(file.number(), target.uid, target.gid);
        return true;
    }

private:
    std::string path_;
};

int millisecondsUntil(Clock::time_point end) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(left);
}

std::string system(const std::string& what) { return what + ": " + strerrordesc_np(errno); }

// Whether the process handles SIGQUIT; to one that does not it would be the end.
bool listensToQuit(const Target& target) {
    std::ifstream status(target.proc + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) != 0) continue;
        const unsigned long long caught = std::strtoull(line.c_str() + 7, nullptr, 16);
        return (caught >> (SIGQUIT - 1) & 1) != 0;
    }
    return false;
}

bool hasArgument(const Target& target, const char* text) {
    for (const std::string& argument : target.arguments)
        if (argument == text) return true;
    return false;
}

} // namespace

AttachClient::AttachClient(const Target& target)
    : AttachClient(target, [](pid_t pid, int signal) { return ::kill(pid, signal); }) {}

AttachClient::AttachClient(const Target& target, Kill kill)
    : target_(target), kill_(std::move(kill)) {}

std::string AttachClient::socketPath() const {
    return target_.root + "/tmp/.java_pid" + std::to_string(target_.innerPid);
}

std::string AttachClient::load(const std::string& library, const std::string& options,
                               int seconds) {
    if (library.size() > kLongestArgument || options.size() > kLongestArgument) {
        return "the options are longer than the " + std::to_string(kLongestArgument) +
               " bytes that a JVM takes: use fewer masks or a shorter path";
    }
    struct stat file {};
    if (lstat(socketPath().c_str(), &file) != 0) {
        if (std::string refused = invite(seconds); !refused.empty()) return refused;
    }
    int number = -1;
    bool stale = false;
    std::string problem = connect(number, stale);
    if (stale) { // left behind by an earlier process of this number
        unlink(socketPath().c_str());
        problem = invite(seconds);
        if (problem.empty()) problem = connect(number, stale);
    }
    if (!problem.empty()) return problem;
    const Descriptor socket(number);
    std::string request;
    // The protocol's version, the command and its three arguments.
    for (const std::string& part :
         {std::string("1"), std::string("load"), library, std::string("true"), options}) {
        request += part;
        request += '\0';
    }
    std::string answer;
    problem = exchange(socket.number(), request, seconds, answer);
    if (!problem.empty()) return problem;
    return judge(answer, library);
}

// Makes the VM open its socket.
std::string AttachClient::invite(int seconds) {
    const std::string number = std::to_string(target_.pid);
    if (hasArgument(target_, "-XX:+DisableAttachMechanism")) {
        return "process " + number +
               " was started with -XX:+DisableAttachMechanism; start it "
               "with 'prb run' to profile it";
    }
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    const timespec pause{0, 20'000'000};
    while (!listensToQuit(target_)) {
        if (millisecondsUntil(end) == 0) {
            return "process " + number +
                   " does not take SIGQUIT: its JVM is not up yet, or going "
                   "down";
        }
        nanosleep(&pause, nullptr);
    }
    PassingFile file;
    const std::string name = "/.attach_pid" + std::to_string(target_.innerPid);
    if (!file.make(target_.proc + "/cwd" + name, target_) &&
        !file.make((target_.root.empty() ? "" : target_.root) + "/tmp" + name, target_)) {
        return system("cannot write the file " + name.substr(1) +
                      " into the working folder of "
                      "process " +
                      number + " or into /tmp");
    }
    if (kill_(target_.pid, SIGQUIT) != 0) return system("cannot signal process " + number);
    struct stat found {};
    while (lstat(socketPath().c_str(), &found) != 0) {
        if (millisecondsUntil(end) == 0) {
            return "process " + number + " did not answer within " + std::to_string(seconds) +
                   " s: it is busy or stopped (there may be a thread dump on its standard "
                   "output)";
        }
        if (kill_(target_.pid, 0) != 0) return "process " + number + " has ended";
        nanosleep(&pause, nullptr);
    }
    return {};
}

std::string AttachClient::connect(int& socket, bool& stale) const {
    const std::string path = socketPath();
    struct stat file {};
    if (lstat(path.c_str(), &file) != 0) return system("cannot look at " + path);
    if (!S_ISSOCK(file.st_mode) || (file.st_uid != target_.uid && file.st_uid != 0)) {
        return path + " is not the socket of process " + std::to_string(target_.pid) +
               ": somebody else made it";
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return path + " is too long a name for a socket";
    std::memcpy(address.sun_path, path.c_str(), path.size());
    const int made = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (made < 0) return system("cannot make a socket");
    if (::connect(made, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        stale = errno == ECONNREFUSED;
        std::string problem =
            system("cannot reach process " + std::to_string(target_.pid) + " at " + path);
        close(made);
        return problem;
    }
    socket = made;
    return {};
}

std::string AttachClient::exchange(int socket, const std::string& request, int seconds,
                                   std::string& answer) {
    for (std::size_t sent = 0; sent < request.size();) {
        const ssize_t n = send(socket, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return broken("cannot write to process ");
        sent += static_cast<std::size_t>(n);
    }
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        pollfd wait{socket, POLLIN, 0};
        const int ready = poll(&wait, 1, millisecondsUntil(end));
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) {
            return "process " + std::to_string(target_.pid) + " did not finish within " +
                   std::to_string(seconds) + " s";
        }
        char buffer[4096];
        const ssize_t n = read(socket, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return broken("cannot read from process ");
        if (n == 0) return {};
        answer.append(buffer, static_cast<std::size_t>(n));
    }
}

// A VM hangs up on users whom it does not know: those outside its user name space, root too.
std::string AttachClient::broken(const std::string& what) const {
    const std::string number = std::to_string(target_.pid);
    if ((errno == ECONNRESET || errno == EPIPE) && geteuid() != target_.uid) {
        return "process " + number + " listens to its own user only; run prb as user " +
               std::to_string(target_.uid) + " and group " + std::to_string(target_.gid) +
               ", or inside its container";
    }
    return system(what + number);
}

// The answer's first line is a number, 0 for success; then comes text.
std::string AttachClient::judge(const std::string& answer, const std::string& library) const {
    const std::string number = std::to_string(target_.pid);
    if (answer.empty()) return "process " + number + " ended the talk without an answer";
    const std::size_t line = answer.find('\n');
    const std::string code = answer.substr(0, line);
    std::string text = line == std::string::npos ? "" : answer.substr(line + 1);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    for (char& c : text) c = c == '\n' ? ' ' : c;
    if (code == "0" && text.rfind("return code: 0", 0) == 0) return {};
    if (text.find("Dynamic agent loading is not enabled") != std::string::npos) {
        return "process " + number +
               " was started with -XX:-EnableDynamicAgentLoading; start it "
               "with 'prb run', or without that option";
    }
    return "the JVM of process " + number + " does not load " + library + " (code " + code +
           (text.empty() ? "" : ": " + text) + ")";
}

} // namespace prb
