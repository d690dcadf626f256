// The child process that the sampler sleeps by.
#ifndef PRB_RUNTIME_PRBSAMPLERCHILD_H
#define PRB_RUNTIME_PRBSAMPLERCHILD_H

#include <atomic>
#include <cstdio>
#include <string>
#include <sys/types.h>

// One request is a 4-byte integer of milliseconds in host order down one pipe; the answer is one
// byte up the other, when that time is over. Used by the sampler thread alone.
//
// A child that cannot be made, or that died, costs nothing but the child: the caller's thread
// sleeps by itself instead.
class PRBSamplerChild {
public:
    static constexpr int kEndChildProcess = 0;

    PRBSamplerChild() = default;
    ~PRBSamplerChild() { stop(); }
    PRBSamplerChild(const PRBSamplerChild&) = delete;
    PRBSamplerChild& operator=(const PRBSamplerChild&) = delete;

    // Makes the pipes and the child, after the one before has been reaped. On failure false, and
    // the line for the log.
    bool start(std::string& failure);
    void pause(int ms); // REQUIRES: ms > 0
    void stop();        // tells the child to end and closes the pipes; does not wait for it
    // Collects the exit statuses of former children, if they have ended; only theirs.
    void reap();
    // The same once they end, which those who were told to do at once: waits up to 100 ms.
    void reapEnding();

    pid_t getPid() const { return pid_.load(std::memory_order_relaxed); } // 0 without a child
    int getReadFd() const { return readFd_; }                             // -1 without a child
    int getWriteFd() const { return writeFd_; }

    // The child's loop: ends on kEndChildProcess, or when the request pipe is closed. Calls only
    // async-signal-safe functions unless there is a log.
    static void run(int readFd, int writeFd, FILE* log);
    // "prb_<pid>.log" in the current directory, with its first line written; null on failure.
    static FILE* openLogFile(pid_t pid);

private:
    [[noreturn]] static void becomeChild(int readFd, int writeFd);
    bool ask(int ms);
    void forget();

    bool hasFormer() const;

    static constexpr int kFormer = 8; // children that may not have been reaped yet
    int readFd_ = -1;
    int writeFd_ = -1;
    std::atomic<pid_t> pid_{0};
    pid_t former_[kFormer] = {};
};

#endif
