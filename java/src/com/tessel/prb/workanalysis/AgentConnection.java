package com.tessel.prb.workanalysis;

/** Helpers for what goes over a connection. */
final class AgentConnection {
    private AgentConnection() {}

    /** Answers the lines of a hex dump under the title. */
    static native String[] createHexDumpString(byte[] data, String title);
}
