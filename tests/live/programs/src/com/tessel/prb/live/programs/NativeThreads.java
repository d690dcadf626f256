package com.tessel.prb.live.programs;

/**
 * Threads that native code makes, attaches, lets call Java, and detaches, some of them more than
 * once. --library FILE --seconds N --wave N.
 */
public final class NativeThreads {
    private NativeThreads() {}

    /** Makes the threads, waits for them, and answers the sum of what {@link #called} answered. */
    private static native long wave(int count);

    static long called(int number) {
        return Work.piece(number, 20000);
    }

    public static void main(String[] arguments) {
        Args args = new Args(arguments);
        System.load(args.get("library", ""));
        int wave = args.get("wave", 20);
        long deadline = Work.deadline(args.get("seconds", 2));
        long first = wave(wave);
        long waves = 1;
        while (!Work.over(deadline)) {
            Work.check(first, wave(wave));
            waves++;
        }
        System.err.println("waves " + waves);
        Work.print(first);
    }
}
