#include "prb/Target.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <pwd.h>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace prb {

namespace {

constexpr const char* kJvmLibrary = "/libjvm.so";
constexpr const char* kBridgeLibrary = "/libprbbridge.so";
constexpr const char* kDeleted = " (deleted)";

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

std::string userName(uid_t uid) {
    const passwd* entry = getpwuid(uid); // NOLINT(concurrency-mt-unsafe): one thread
    return entry != nullptr ? entry->pw_name : std::to_string(uid);
}

// The words behind "Key:" in /proc/PID/status.
std::vector<std::string> words(const std::string& status, const std::string& key) {
    std::istringstream lines(status);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind(key + ":", 0) != 0) continue;
        std::istringstream rest(line.substr(key.size() + 1));
        std::vector<std::string> found;
        for (std::string word; rest >> word;) found.push_back(word);
        return found;
    }
    return {};
}

bool readAll(const std::string& path, std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::ostringstream all;
    all << in.rdbuf();
    text = all.str();
    return true;
}

// The files that the process has mapped and whose name ends in `name`.
std::string mapped(const std::string& maps, const std::string& name) {
    std::istringstream lines(maps);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t slash = line.find('/');
        if (slash == std::string::npos) continue;
        std::string file = line.substr(slash);
        if (endsWith(file, name) || endsWith(file, name + kDeleted)) return file;
    }
    return {};
}

bool withoutDeleted(std::string& file) {
    if (!endsWith(file, kDeleted)) return false;
    file.resize(file.size() - std::strlen(kDeleted));
    return true;
}

std::vector<std::string> splitAtZero(const std::string& text) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, '\0');) parts.push_back(part);
    return parts;
}

// Two processes in the same name space have the same link.
bool sameNameSpace(const std::string& proc, const std::string& process, const char* which) {
    std::error_code error;
    const fs::path ours = fs::read_symlink(proc + "/self/ns/" + which, error);
    if (error) return true;
    const fs::path theirs = fs::read_symlink(process + "/ns/" + which, error);
    return error || ours == theirs;
}

// Who it is. False when it cannot be attached to by anybody.
bool readStatus(Target& target, uid_t self) {
    const std::string number = std::to_string(target.pid);
    std::string status;
    if (!readAll(target.proc + "/status", status)) {
        target.problem = "there is no process " + number;
        return false;
    }
    const std::vector<std::string> group = words(status, "Tgid"), uids = words(status, "Uid"),
                                   gids = words(status, "Gid"), state = words(status, "State"),
                                   pids = words(status, "NSpid");
    if (uids.size() < 2 || gids.size() < 2 || group.empty() || state.empty()) {
        target.problem = "cannot read " + target.proc + "/status";
        return false;
    }
    if (group[0] != number) {
        target.problem = number + " is a thread of process " + group[0] + "; name that one";
        return false;
    }
    if (state[0] == "Z" || state[0] == "X") {
        target.problem = "process " + number + " has ended";
        return false;
    }
    if (state[0] == "T" || state[0] == "t") {
        target.problem =
            "process " + number + " is stopped; let it go on first (kill -CONT " + number + ")";
        return false;
    }
    target.uid = static_cast<uid_t>(std::stoul(uids[1]));
    target.gid = static_cast<gid_t>(std::stoul(gids[1]));
    target.innerPid = pids.empty() ? target.pid : static_cast<pid_t>(std::stol(pids.back()));
    if (self != target.uid && self != 0) {
        const std::string user = userName(target.uid);
        target.problem = "process " + number + " belongs to user " + user +
                         "; run prb as that user (sudo -u " + user + " prb ...)";
        return false;
    }
    return true;
}

// Which JVM, and what it has loaded.
bool readMaps(Target& target) {
    const std::string number = std::to_string(target.pid);
    std::string maps;
    if (!readAll(target.proc + "/maps", maps)) {
        target.problem = "cannot look into process " + number + ": " + strerrordesc_np(errno);
        return false;
    }
    std::string library = mapped(maps, kJvmLibrary);
    if (library.empty()) {
        target.problem = "process " + number + " is not a JVM (it has loaded no libjvm.so)";
        return false;
    }
    if (withoutDeleted(library)) {
        target.problem = "the JVM of process " + number +
                         " was replaced on disk since it was "
                         "started; restart the program";
        return false;
    }
    target.jvm = inspectLibrary(target.root + library);
    if (target.jvm.bits == 0) {
        target.problem = "cannot read " + target.root + library + " of process " + number;
        return false;
    }
    target.bridge = mapped(maps, kBridgeLibrary);
    target.bridgeReplaced = withoutDeleted(target.bridge);
    return true;
}

bool judgeJvm(Target& target) {
    const std::string number = std::to_string(target.pid);
    if (!target.jvm.hotspot) {
        target.problem = "process " + number + " runs " + target.jvm.library +
                         ", which is not a HotSpot VM; prbprof works in HotSpot 17 and newer";
    } else if (target.jvm.feature != 0 && target.jvm.feature < 17) {
        target.problem = "process " + number + " is a JVM of version " + target.jvm.version +
                         "; prbprof works in HotSpot 17 and newer";
    } else if (target.bridgeReplaced) {
        target.problem = "process " + number + " has loaded " + target.bridge +
                         ", which was replaced on disk since; restart the program to profile it "
                         "again";
    }
    return target.problem.empty();
}

} // namespace

std::string Target::name() const {
    for (std::size_t i = 1; i < arguments.size(); i++) {
        const std::string& argument = arguments[i];
        if (argument == "-cp" || argument == "-classpath" || argument == "--class-path" ||
            argument == "-p" || argument == "--module-path" || argument == "--add-modules") {
            i++;
        } else if (argument == "-jar" || argument == "-m" || argument == "--module") {
            continue;
        } else if (!argument.empty() && argument[0] != '-' && argument[0] != '@') {
            return argument.substr(argument.rfind('/') + 1);
        }
    }
    return "java";
}

Target inspectTarget(pid_t pid, uid_t self, const std::string& proc) {
    Target target;
    target.pid = pid;
    target.proc = proc + "/" + std::to_string(pid);
    if (!readStatus(target, self)) return target;
    target.contained = !sameNameSpace(proc, target.proc, "mnt");
    if (target.contained) target.root = target.proc + "/root";
    std::string command;
    readAll(target.proc + "/cmdline", command);
    target.arguments = splitAtZero(command);
    if (readMaps(target)) judgeJvm(target);
    return target;
}

} // namespace prb
