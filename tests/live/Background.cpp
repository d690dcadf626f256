#include "tests/live/Background.h"

#include "tests/live/Live.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace live {

Background::Background(const std::vector<std::string>& argv) {
    static int number = 0;
    const std::string name = "background" + std::to_string(++number);
    outFile_ = name + ".out";
    errFile_ = name + ".err";
    std::vector<char*> arguments;
    for (const std::string& text : argv) arguments.push_back(const_cast<char*>(text.c_str()));
    arguments.push_back(nullptr);
    const int out = open(outFile_.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    const int err = open(errFile_.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    pid_ = fork();
    if (pid_ == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    close(out);
    close(err);
}

Background::~Background() {
    if (ended_ || pid_ <= 0) return;
    kill(pid_, SIGKILL);
    wait();
}

std::string Background::out() const { return slurp(outFile_); }
std::string Background::err() const { return slurp(errFile_); }

int Background::wait() {
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    ended_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<int> childrenOf(int pid) {
    std::vector<int> all;
    std::error_code gone;
    for (const auto& task :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        std::istringstream in(slurp(task.path().string() + "/children"));
        for (int child = 0; in >> child;) {
            const std::string state = slurp("/proc/" + std::to_string(child) + "/stat");
            const std::size_t name = state.rfind(") ");
            if (name != std::string::npos && state[name + 2] != 'Z') all.push_back(child);
        }
    }
    return all;
}

bool hasThread(int pid, const std::string& name) {
    std::error_code gone;
    for (const auto& task :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", gone)) {
        if (slurp(task.path().string() + "/comm") == name + "\n") return true;
    }
    return false;
}

} // namespace live
