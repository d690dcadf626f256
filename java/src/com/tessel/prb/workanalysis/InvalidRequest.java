package com.tessel.prb.workanalysis;

/** A request that the agent cannot understand. */
public final class InvalidRequest extends Exception {
    private static final long serialVersionUID = 1L;

    public InvalidRequest(String message) {
        super(message);
    }
}
