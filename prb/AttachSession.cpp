#include "prb/AttachSession.h"

#include "prb/AttachClient.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <unistd.h>

namespace prb {

namespace {

constexpr const char* kSaidPrefix = "prbprof: ";
constexpr std::size_t kAnswerBytes = 4096; // longer than answers are

// The file for the answer, where the process can write it; removed at the end.
class AnswerFile {
public:
    explicit AnswerFile(const Target& target) {
        inner_ = "/tmp/prb-attach-XXXXXX";
        outer_ = target.root + inner_;
        const int file = mkstemp(outer_.data());
        if (file < 0) {
            problem_ =
                std::string("cannot write into ") + target.root + "/tmp: " + strerrordesc_np(errno);
            outer_.clear();
            return;
        }
        inner_ = outer_.substr(target.root.size());
        if (geteuid() != target.uid && fchown(file, target.uid, target.gid) != 0) {
            problem_ = "cannot give " + outer_ + " to the user of process " +
                       std::to_string(target.pid) + ": " + strerrordesc_np(errno);
        }
        if (problem_.empty() && !hasRoom(file)) {
            problem_ =
                std::string("cannot write into ") + target.root + "/tmp: " + strerrordesc_np(errno);
        }
        close(file);
    }
    ~AnswerFile() {
        if (!outer_.empty()) unlink(outer_.c_str());
    }
    AnswerFile(const AnswerFile&) = delete;
    AnswerFile& operator=(const AnswerFile&) = delete;

    const std::string& problem() const { return problem_; }
    const std::string& asTheProcessSeesIt() const { return inner_; }
    std::string read() const {
        std::ifstream in(outer_);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    // Asked before anything is begun: a collection whose beginning nobody learns of would stay.
    static bool hasRoom(int file) {
        const std::string page(kAnswerBytes, '\n');
        return write(file, page.data(), page.size()) == static_cast<ssize_t>(page.size()) &&
               ftruncate(file, 0) == 0;
    }

    std::string inner_, outer_, problem_;
};

} // namespace

AttachAnswer AttachAnswer::parse(const std::string& text) {
    AttachAnswer answer;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string key = line.substr(0, equals);
        std::string value = line.substr(equals + 1);
        if (key == "state") {
            answer.state = value;
        } else if (key == "capture") {
            answer.capture = value;
        } else if (key == "said") {
            if (value.rfind(kSaidPrefix, 0) == 0) value.erase(0, std::strlen(kSaidPrefix));
            answer.said.push_back(value);
        }
    }
    return answer;
}

Asked askBridge(const Target& target, const std::string& library, const std::string& options,
                int seconds) {
    Asked asked;
    const AnswerFile file(target);
    asked.problem = file.problem();
    if (!asked.problem.empty()) return asked;
    AttachClient client(target);
    asked.problem =
        client.load(library, "reply=" + file.asTheProcessSeesIt() + "," + options, seconds);
    if (!asked.problem.empty()) return asked;
    asked.answer = AttachAnswer::parse(file.read());
    if (asked.answer.state.empty()) {
        asked.problem = "the bridge in process " + std::to_string(target.pid) +
                        " gave no answer: its lines are on the process's standard error";
    }
    return asked;
}

} // namespace prb
