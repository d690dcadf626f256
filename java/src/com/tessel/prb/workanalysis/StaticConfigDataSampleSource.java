package com.tessel.prb.workanalysis;

/** The environment of the process. */
final class StaticConfigDataSampleSource {
    private StaticConfigDataSampleSource() {}

    /** Answers as many elements as the environment has entries, the last one null. */
    static native String[] getEnvVars();
}
