package com.tessel.prb.workanalysis;

/** Stands in for the class of natives. */
final class BackgroundThread {
    private BackgroundThread() {}

    static int getCurrentProcessIdNative() {
        return 4711;
    }
}
