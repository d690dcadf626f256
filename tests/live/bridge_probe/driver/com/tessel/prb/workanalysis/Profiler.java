package com.tessel.prb.workanalysis;

/** The natives by which the test program asks the probe. */
public final class Profiler {
    private Profiler() {}

    /** Runs a named check of the probe. */
    public static native void check(String name, Object argument);

    /** Answers a named number of the probe. */
    public static native long number(String name, Object argument);

    /** The object of an id, or null. */
    public static native Object object(long id);

    /** Asks for the object's id with an exception pending, which comes through. */
    public static native void idWhileThrowing(Object argument) throws Exception;
}
