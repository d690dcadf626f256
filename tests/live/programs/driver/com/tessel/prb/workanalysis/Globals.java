package com.tessel.prb.workanalysis;

/** Stands in for the class of natives. */
final class Globals {
    private Globals() {}

    static int getNativeLibraryBuildLevel() {
        return 1234;
    }
}
