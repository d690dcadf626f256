package com.tessel.prb.workanalysis;

/** What a thread can ask of the agent about itself. */
final class InstrumentedStack {
    private InstrumentedStack() {}

    /** Answers the calling thread's POSIX thread id. */
    static native long registerWithProfilerNative();

    /** State of a thread of the model: 1 to 4, 0 for handle 0. */
    static native short getStateNative(long thread);

    /** CPU time of the calling thread in microseconds. */
    static native long getCurrentThreadCPUTimeNative(long value);
}
