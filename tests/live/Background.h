// A program that runs beside the test; its output goes to files of the current folder. It is ended
// with the object if it has not ended by itself.
#ifndef PRB_TESTS_LIVE_BACKGROUND_H
#define PRB_TESTS_LIVE_BACKGROUND_H

#include <chrono>
#include <string>
#include <sys/types.h>
#include <thread>
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

// What runs in a process: its children that have not ended, whichever of its threads has them, and
// whether it has a thread of a name (the kernel keeps 15 characters).
std::vector<int> childrenOf(int pid);
bool hasThread(int pid, const std::string& name);

// Waits for something that happens within seconds; says whether it did.
template <class Condition> bool soon(Condition condition, int seconds = 20) {
    for (int i = 0; i < seconds * 50; i++) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

} // namespace live

#endif
