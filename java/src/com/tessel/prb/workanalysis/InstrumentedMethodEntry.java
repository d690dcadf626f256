package com.tessel.prb.workanalysis;

/**
 * One entry of an instrumented method stack. The agent reports the samples that hit the entry
 * when it is removed, on the thread that removes it.
 */
final class InstrumentedMethodEntry {
    private int samples;
    private int samplesActive;
    private int samplesContention;
    private int samplesWait;

    void setNumCpuSamples(int all, int active, int contention, int wait) {
        samples = all;
        samplesActive = active;
        samplesContention = contention;
        samplesWait = wait;
    }

    int getSamples() {
        return samples;
    }

    int getSamplesActive() {
        return samplesActive;
    }

    int getSamplesContention() {
        return samplesContention;
    }

    int getSamplesWait() {
        return samplesWait;
    }

    /** 0 on this platform. */
    static native long getMVSTCBAddress();
}
