package com.tessel.prb.live.known;

/** A piece of work of known cost; the instances belong to one thread. */
interface Task {
    /** Does the work once and answers something that depends on all of it. */
    long perform(long seed);

    /** The method that the time is spent in. */
    String method();
}
