// Which threads have been announced by THREAD_START, so that each is announced once although
// two may want to: the thread itself as it starts, and whoever enables the event and announces
// all threads. A thread does not end while somebody else is announcing it: its THREAD_END would
// come before its THREAD_START.
//
// Any thread may call. The lock is held for a few instructions; ended() may wait for callbacks
// of the profiler on other threads, so the caller must own nothing that those may want.
#ifndef PRB_BRIDGE_ANNOUNCEMENTS_H
#define PRB_BRIDGE_ANNOUNCEMENTS_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include <jni.h>

namespace bridge {

class Announcements {
public:
    // A new thread runs under this environment.
    void started(JNIEnv* env);
    // True for the first who asks: the caller is to announce the thread, and then calls
    // announced(). False if it is or was announced, or has ended.
    bool claim(JNIEnv* env);
    // Like claim(), but for an announcement that was asked for and is made in any case; false
    // only if the thread is not alive.
    bool claimAgain(JNIEnv* env);
    void announced(JNIEnv* env);
    // The thread ends: nobody can claim it from now on, and those who did have finished.
    void ended(JNIEnv* env);
    // THREAD_START was switched off: every thread may be announced once more.
    void forget();

private:
    struct State {
        bool claimed = false;
        uint32_t busy = 0; // announcements under way
    };

    std::mutex mutex_;
    std::condition_variable idle_;
    std::unordered_map<JNIEnv*, State> threads_;
    std::unordered_map<JNIEnv*, uint32_t> leaving_; // ending, with announcements under way
};

} // namespace bridge

#endif
