package com.tessel.prb.workanalysis;

/**
 * What the agent asks of the Java side. It keeps the one instance that {@link ProfilerDriver}
 * passes at start and calls back on whatever thread polls.
 */
final class Collector {
    /** The level of the native interface that these classes are written for. */
    static final int BUILD_LEVEL = 1204019;

    static int getBuildLevel() {
        return BUILD_LEVEL;
    }

    /** Free bytes of the Java heap now. */
    static long getFreeBytes() {
        return Runtime.getRuntime().freeMemory();
    }

    /** Bytes that the Java heap has now, free or not. */
    static long getTotalBytes() {
        return Runtime.getRuntime().totalMemory();
    }

    static void writeToLog(String text) {
        Messages.say(text);
    }

    /** True would say that the Java side gathers collection figures itself: it never does. */
    boolean isGCCollectionActive() {
        return false;
    }

    static native long getNumBytesFreeAtLastGC();

    static native long getTotalBytesAtLastGC();

    static native long getProfGCCPU();

    /** Answers a trace table of so many entries of so many bytes, as a handle; it is never freed. */
    static native long initializeInternalTrace(int entrySize, int entries);

    static native void writeToInternalTraceNative(long table, String text);
}
