package com.tessel.prb.workanalysis;

/** The natives of the bridge itself, with the declarations of the real class. */
final class BridgeLink {
    private BridgeLink() {}

    static native long[] counters();

    static native String[] facts();
}
