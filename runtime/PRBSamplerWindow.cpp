#include "runtime/PRBSamplerWindow.h"

#include "runtime/PRBInstrumentedMethodEntry.h"

PRBSamplerWindow::PRBSamplerWindow(const JVMPI_Interface& jvmpi, Candidate* threads, int count,
                                   TraceSlot* slots, JNIEnv* self, bool takeTraces)
    : jvmpi_(jvmpi),
      threads_(threads),
      count_(count),
      slots_(slots),
      self_(self),
      takeTraces_(takeTraces) {}

PRBSamplerWindow::Candidate PRBSamplerWindow::candidate(PRBJavaThread& thread) {
    return {&thread, thread.getEnvId(),
            thread.getNumWorkloadsRunning() > 0 ? thread.getTopMethodEntry() : nullptr};
}

// Resumes whatever was stopped, however the window is left.
struct PRBSamplerWindow::ResumeAll {
    PRBSamplerWindow& window;
    ~ResumeAll() {
        for (int i = 0; i < window.suspended_; ++i)
            window.jvmpi_.ResumeThread(window.threads_[i].env);
    }
};

void PRBSamplerWindow::run() {
    ResumeAll resume{*this};
    stop();
    look();
}

void PRBSamplerWindow::stop() {
    for (int i = 0; i < count_; ++i) {
        const auto [thread, env, entry] = threads_[i];
        if (env == self_) continue;
        const jint status = jvmpi_.GetThreadStatus(env) & ~JVMPI_THREAD_INTERRUPTED;
        if (entry != nullptr) entry->incrNumSamples(1);
        // The thread's counters and the entry's are crossed: readers of both know them so.
        switch (status) {
        case JVMPI_THREAD_MONITOR_WAIT:
            thread->countSampledContention();
            if (entry != nullptr) entry->incrNumSamplesWait(1);
            break;
        case JVMPI_THREAD_CONDVAR_WAIT:
            thread->countSampledWait();
            if (entry != nullptr) entry->incrNumSamplesContention(1);
            break;
        case JVMPI_THREAD_RUNNABLE:
            threads_[suspended_++] = {thread, env, entry};
            jvmpi_.SuspendThread(env);
            break;
        default:
            break;
        }
    }
}

void PRBSamplerWindow::look() {
    for (int i = 0; i < suspended_; ++i) {
        const Candidate& stopped = threads_[i];
        TraceSlot& slot = slots_[i];
        slot.frameCount = 0;
        if (jvmpi_.ThreadHasRun(stopped.env) == JNI_FALSE) continue;
        ++active_;
        if (stopped.entry != nullptr) stopped.entry->incrNumSamplesActive(1);
        if (!takeTraces_) continue;
        JVMPI_CallTrace trace{stopped.env, 0, slot.frames};
        jvmpi_.GetCallTrace(&trace, kFrames);
        if (trace.num_frames > 0)
            slot.frameCount = trace.num_frames < kFrames ? trace.num_frames : kFrames;
    }
}
