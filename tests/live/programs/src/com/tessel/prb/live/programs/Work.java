package com.tessel.prb.live.programs;

/**
 * Work whose result depends on nothing but its number. A program does the same numbered pieces
 * again and again until its time is over, so that its checksum does not depend on its speed.
 */
final class Work {
    private Work() {}

    static long piece(long number, int steps) {
        long h = number * 0x9E3779B97F4A7C15L + 1;
        for (int i = 0; i < steps; i++) {
            h ^= h << 13;
            h ^= h >>> 7;
            h ^= h << 17;
        }
        return h;
    }

    /** Answers the time at which a program that runs for the seconds ends. */
    static long deadline(int seconds) {
        return System.nanoTime() + seconds * 1000000000L;
    }

    static boolean over(long deadline) {
        return System.nanoTime() - deadline >= 0;
    }

    /** Ends the program when a repetition came to another result than the first. */
    static void check(long first, long now) {
        if (first != now) {
            System.out.println("checksum CHANGED from " + Long.toHexString(first) + " to "
                    + Long.toHexString(now));
            System.exit(3);
        }
    }

    static void print(long checksum) {
        System.out.println("checksum " + Long.toHexString(checksum));
    }
}
