package com.tessel.prb.workanalysis;

/**
 * What the bridge tells about itself. Where its natives are not bound (the agent was loaded in
 * another way) every answer is empty.
 *
 * <p>Facts are texts "key=value". The driver knows these keys: "available" (names of
 * {@link DataKind} joined by '+'), "counters" (names of the counters, in their order, joined by
 * '+'), "version", "nanoseconds" ("1" when the values of methods are times and not samples) and
 * "limits" (what was left out, as a text); the rest is passed on as it is.
 */
final class BridgeLink {
    private static final String[] NO_FACTS = new String[0];
    private static final long[] NO_COUNTERS = new long[0];

    private BridgeLink() {}

    static native long[] counters();

    static native String[] facts();

    private static native void said(String line);

    /** Shows the bridge a line that goes to standard error: who attaches is not there to read it. */
    static void tell(String line) {
        try {
            said(line);
        } catch (UnsatisfiedLinkError e) {
            return;
        }
    }

    static long[] readCounters() {
        try {
            long[] read = counters();
            return read == null ? NO_COUNTERS : read;
        } catch (UnsatisfiedLinkError e) {
            return NO_COUNTERS;
        }
    }

    static String[] readFacts() {
        try {
            String[] read = facts();
            return read == null ? NO_FACTS : read;
        } catch (UnsatisfiedLinkError e) {
            return NO_FACTS;
        }
    }

    /** Answers the value of a fact, "" when it is not among them. */
    static String fact(String[] facts, String key) {
        for (int i = 0; i < facts.length; i++) {
            String fact = facts[i];
            if (fact != null && fact.length() > key.length() && fact.charAt(key.length()) == '='
                    && fact.startsWith(key)) {
                return fact.substring(key.length() + 1);
            }
        }
        return "";
    }
}
