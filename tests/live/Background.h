// A program that runs beside the test; its output goes to files of the current folder. It is ended
// with the object if it has not ended by itself.
#ifndef PRB_TESTS_LIVE_BACKGROUND_H
#define PRB_TESTS_LIVE_BACKGROUND_H

#include <string>
#include <sys/types.h>
#include <vector>

namespace live {

class Background {
public:
    explicit Background(const std::vector<std::string>& argv);
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    pid_t pid() const { return pid_; }
    std::string out() const; // so far
    std::string err() const;
    // Its exit code, or 128 and the signal.
    int wait();

private:
    std::string outFile_, errFile_;
    pid_t pid_ = -1;
    bool ended_ = false;
};

} // namespace live

#endif
