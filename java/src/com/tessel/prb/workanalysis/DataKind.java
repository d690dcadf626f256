package com.tessel.prb.workanalysis;

/** The kinds of data that can be asked for, by name, with the bits of a collection type. */
final class DataKind {
    private static final String[] NAMES = {
        "threads", "methods", "contention", "heap", "gc", "alloc", "errors", "self",
    };
    private static final int[] BITS = {
        0x200, 0x400, 0x800, 0x1000, 0x2000, 0x8000, 0x40000, 0x80000,
    };
    static final int ALL_BITS = 0xCBE00;
    static final int THREADS = 0x200;
    static final int METHODS = 0x400;
    static final int HEAP = 0x1000;
    static final int ALLOC = 0x8000;

    /** What needs nothing from the JVM beyond sampling. */
    static final int ALWAYS_AVAILABLE = 0xC0600;

    static final String DEFAULTS = "threads+methods+errors+self";

    private DataKind() {}

    /** Answers the bit of a name, 0 when there is no such name. */
    static int bitOf(String name) {
        for (int i = 0; i < NAMES.length; i++) {
            if (NAMES[i].equals(name)) {
                return BITS[i];
            }
        }
        return 0;
    }

    /** Answers the bits of a list of names; unknown names are not counted. */
    static int bitsOf(String[] names) {
        int bits = 0;
        for (int i = 0; i < names.length; i++) {
            bits |= bitOf(names[i]);
        }
        return bits;
    }

    /** Answers the names of a set of bits, with the joint between them. */
    static String namesOf(int bits, String joint) {
        StringBuilder names = new StringBuilder();
        for (int i = 0; i < NAMES.length; i++) {
            if ((bits & BITS[i]) != 0) {
                if (names.length() != 0) {
                    names.append(joint);
                }
                names.append(NAMES[i]);
            }
        }
        return names.toString();
    }
}
