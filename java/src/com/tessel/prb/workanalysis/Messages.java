package com.tessel.prb.workanalysis;

import java.io.FileDescriptor;
import java.io.FileOutputStream;
import java.io.IOException;

/**
 * Lines for the person who started the program. They go to the standard error of the process,
 * also when the program has put a stream of its own in the place of System.err, in one write
 * each.
 */
final class Messages {
    private static volatile boolean quiet;

    private Messages() {}

    /** Keeps back what does not stop the profiling. */
    static void setQuiet(boolean on) {
        quiet = on;
    }

    /** Says what costs the user data, or the whole profile. */
    static void say(String text) {
        String line = "prbprof: " + text + "\n";
        BridgeLink.tell(line);
        try {
            // Not closed: the descriptor is the program's.
            FileOutputStream stderr = new FileOutputStream(FileDescriptor.err);
            stderr.write(line.getBytes());
        } catch (IOException e) {
            return; // Nobody reads standard error.
        }
    }

    /** Says what was left out while the rest goes on. */
    static void remark(String text) {
        if (!quiet) {
            say(text);
        }
    }
}
