package com.tessel.prb.workanalysis;

/** A request for part of the data: the agent reads it during a poll on the polling thread. */
final class DataRequest {
    private final long type;
    private final int threadId;

    /** The type is a set of bits of {@link DataKind}; thread id 0 asks for all threads. */
    DataRequest(long type, int threadId) throws InvalidRequest {
        if (type == 0 || (type & ~(long) DataKind.ALL_BITS) != 0) {
            throw new InvalidRequest("no such data: 0x" + Long.toHexString(type));
        }
        this.type = type;
        this.threadId = threadId;
    }

    long getType() {
        return type;
    }

    int getThreadId() {
        return threadId;
    }
}
