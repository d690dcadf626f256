// The stretch of a sampling cycle in which Java threads are stopped.
#ifndef PRB_RUNTIME_PRBSAMPLERWINDOW_H
#define PRB_RUNTIME_PRBSAMPLERWINDOW_H

#include "jvmpi/jvmpi.h"
#include "runtime/PRBJavaThread.h"

// A stopped thread may own any lock of the process: malloc's, stdio's, the agent's own. So
// nothing here allocates, locks, logs or uses stdio; all memory is the caller's, sized before.
class PRBSamplerWindow {
public:
    static constexpr int kFrames = 50;
    // What one thread gave.
    struct TraceSlot {
        int frameCount; // 0: it did not run, or no trace could be had
        JVMPI_CallFrame frames[kFrames];
    };

    // One thread, with what each pass over them needs: while threads stand still nothing looks
    // into the threads' own memory, which thousands of them have no room for in the cache, but
    // to count one that waits.
    struct Candidate {
        PRBJavaThread* thread;
        JNIEnv* env;
        PRBJavaThread::InstrumentedMethodEntry* entry; // where its samples go; null: nowhere
    };
    static Candidate candidate(PRBJavaThread& thread);

    // `threads`: candidates, neither background threads nor ended; reordered to those that were
    // stopped. `slots`: one per candidate.
    PRBSamplerWindow(const JVMPI_Interface& jvmpi, Candidate* threads, int count, TraceSlot* slots,
                     JNIEnv* self, bool takeTraces);

    // Classifies and stops, looks at and resumes all threads. On return none is stopped.
    void run();

    int getSuspended() const { return suspended_; } // threads [0, suspended) and their slots
    int getActive() const { return active_; }       // of those, how many had run

private:
    struct ResumeAll;
    void stop();
    void look();
    const JVMPI_Interface& jvmpi_;
    Candidate* threads_;
    int count_;
    TraceSlot* slots_;
    JNIEnv* self_;
    bool takeTraces_;
    int suspended_ = 0;
    int active_ = 0;
};

#if defined(__i386__)
static_assert(sizeof(PRBSamplerWindow::TraceSlot) == 404, "4 bytes and 50 frames of 8");
#endif

#endif
