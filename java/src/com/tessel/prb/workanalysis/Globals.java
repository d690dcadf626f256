package com.tessel.prb.workanalysis;

/** Facts of the native agent and of the process. */
final class Globals {
    private Globals() {}

    static native boolean determineIfProfilerPresent();

    static native int getNativeLibraryBuildLevel();

    static native boolean testJavaCompatibleBuildLevel(int level);

    /** Answers null when the agent's start options name no file. */
    static native String getWorkloadConfigurationFileNameFromProfiler();

    static native String getCurrentWorkingDirectoryNative();

    /** Does nothing on this platform. */
    static native void writeToMVSConsoleNative(String text);
}
