package com.tessel.prb.workanalysis;

/**
 * The entry points of the native agent that steer it. A collector handle is the answer of
 * {@link #InitProfiler}; a thread handle is the answer of the native model. 0 is no handle, and
 * every method given it does nothing and answers its neutral value.
 */
final class Profiler {
    private Profiler() {}

    /** Answers the collector handle, 0 when this JVM does not offer the profiler interface. */
    static native long InitProfiler(String options, Object collector);

    /**
     * Starts or changes a collection. The type is a set of the bits of {@link DataKind}, the
     * sampling interval is in milliseconds, the polling frequency in seconds; masks are lists
     * joined by blanks or commas. Answers 0 when the collection runs.
     */
    static native long handleInitiateCollection(
            long collector, int type, int pollingFrequency, int samplingInterval,
            String classMasks, String methodMasks);

    static native long handleStopCollection(long collector);

    /** Answers framed records, or null when there is nothing to tell. */
    static native byte[] getProfilerData(long collector, int extra, Object request);

    static native void setWorkloadRunningOnCurrentThread(boolean running);

    static native void createNewInstrumentedProfilingEntry(Object entry, long thread);

    static native void removeTopInstrumentedProfilingEntry(Object entry, long thread);

    static native Object getReferencesToObjectsNative(
            long collector, Object[] targets, Class<?> type);

    static native int getObjectId(Object object);

    static native int getObjectSize(Object object);
}
