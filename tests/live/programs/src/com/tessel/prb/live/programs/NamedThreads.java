package com.tessel.prb.live.programs;

/** Busy threads whose names are not ASCII, are long, or change. --seconds N. */
public final class NamedThreads {
    static final String[] NAMES = {
        "gr\u00f6\u00dfe", "\u7dda\u7a0b", "emoji \ud83d\udc0e", "a,b;c\"d\\e", "", longName()
    };

    private NamedThreads() {}

    private static String longName() {
        StringBuilder name = new StringBuilder();
        for (int i = 0; i < 100; i++) {
            name.append("name-").append(i).append(' ');
        }
        return name.toString();
    }

    public static void main(String[] arguments) throws Exception {
        long deadline = Work.deadline(new Args(arguments).get("seconds", 2));
        long first = Work.piece(1, 100000);
        Thread[] threads = new Thread[NAMES.length + 1];
        for (int i = 0; i < threads.length; i++) {
            boolean changes = i == NAMES.length;
            threads[i] = new Thread(() -> busy(deadline, first, changes), changes ? "changes" : NAMES[i]);
            threads[i].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        Work.print(first);
    }

    private static void busy(long deadline, long first, boolean changes) {
        for (int round = 0; !Work.over(deadline); round++) {
            if (changes) {
                Thread.currentThread().setName("changes-" + round % 3);
            }
            Work.check(first, Work.piece(1, 100000));
        }
    }
}
