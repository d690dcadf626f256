// An empty working folder for one test, and the agent's log file in it.
#ifndef PRB_TESTS_VM_TESTFOLDER_H
#define PRB_TESTS_VM_TESTFOLDER_H

#include <string>
#include <vector>

namespace scripted {

class TestFolder {
public:
    TestFolder();  // makes the folder and changes into it
    ~TestFolder(); // changes back and removes it
    TestFolder(const TestFolder&) = delete;
    TestFolder& operator=(const TestFolder&) = delete;

    const std::string& path() const { return path_; }
    std::string read(const std::string& name) const; // empty when there is no such file
    bool exists(const std::string& name) const;
    std::vector<std::string> files() const; // names, sorted

    static std::string logName(); // "prb_<process id>.log"
    static std::string logName(int pid);
    // Lines without the date and time (and two blanks) before the text and the CR LF after it.
    static std::vector<std::string> textsOfLog(const std::string& log);

private:
    std::string path_;
    std::string before_;
};

} // namespace scripted

#endif
