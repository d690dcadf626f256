package com.tessel.prb.workanalysis;

/** Facts of the process; what only z/OS has is 0 or null on this platform. */
final class BackgroundThread {
    private BackgroundThread() {}

    static native int getCurrentProcessIdNative();

    static native int getCurrentASIDNative();

    static native String getStartParms();

    static native String getCommandPromptParms();

    static native String getCurrentAddressSpaceName();

    static native byte[] getCurrentAddressSpaceStartSTCKValue();
}
