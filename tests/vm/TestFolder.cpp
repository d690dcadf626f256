#include "tests/vm/TestFolder.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace scripted {

namespace fs = std::filesystem;

TestFolder::TestFolder() : before_(fs::current_path().string()) {
    std::string pattern = (fs::temp_directory_path() / "prb-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder " + pattern);
    path_ = pattern;
    fs::current_path(path_);
}

TestFolder::~TestFolder() {
    std::error_code ignored;
    fs::current_path(before_, ignored);
    // A test may have taken its own right to write here.
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
    fs::remove_all(path_, ignored);
}

std::string TestFolder::read(const std::string& name) const {
    std::ifstream file(fs::path(path_) / name, std::ios::binary);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    return text.str();
}

bool TestFolder::exists(const std::string& name) const {
    return fs::exists(fs::path(path_) / name);
}

std::vector<std::string> TestFolder::files() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string TestFolder::logName(int pid) { return "prb_" + std::to_string(pid) + ".log"; }

std::string TestFolder::logName() { return logName(static_cast<int>(getpid())); }

std::vector<std::string> TestFolder::textsOfLog(const std::string& log) {
    // "Tue Nov  2 10:00:00 2021" in the C locale, then two blanks; the day may itself be
    // padded with a blank, so the prefix is known by its length.
    constexpr std::size_t kCDate = 24;
    std::vector<std::string> texts;
    std::size_t start = 0;
    while (start < log.size()) {
        std::size_t end = log.find('\n', start);
        if (end == std::string::npos) end = log.size();
        std::string line = log.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.compare(0, 2, "  ") != 0 && line.size() >= kCDate + 2 &&
            line.compare(kCDate, 2, "  ") == 0 && line[13] == ':' && line[16] == ':') {
            line.erase(0, kCDate + 2);
        } else if (const std::size_t blanks = line.find("  "); blanks != std::string::npos) {
            line.erase(0, blanks + 2);
        }
        texts.push_back(line);
    }
    return texts;
}

} // namespace scripted
