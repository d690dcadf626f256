package com.tessel.prb.sample;

/** Repeatable pseudo-random numbers; one instance per thread. */
final class Numbers {
    private long state;

    Numbers(long seed) {
        state = seed * 0x9E3779B97F4A7C15L + 1;
    }

    /** Answers a number from 0 to bound - 1. */
    int below(int bound) {
        state ^= state << 13;
        state ^= state >>> 7;
        state ^= state << 17;
        return (int) ((state >>> 33) % bound);
    }
}
