package com.tessel.prb.live.programs;

import java.util.HashMap;
import java.util.Map;

/**
 * Several threads that allocate, keep some of it for a while, and force a collection now and
 * then. --seconds N --threads N.
 */
public final class AllocationStorm {
    private AllocationStorm() {}

    private static final class Storm extends Thread {
        private final int seconds;
        private final Object[] kept = new Object[20000];
        private long result;
        private long changed;

        Storm(int number, int seconds) {
            super("storm-" + number);
            this.seconds = seconds;
        }

        @Override
        public void run() {
            long deadline = Work.deadline(seconds);
            result = round();
            for (int rounds = 1; !Work.over(deadline); rounds++) {
                changed |= result ^ round();
                if (rounds % 50 == 0) {
                    System.gc();
                }
            }
        }

        private long round() {
            Map<Integer, String> names = new HashMap<>();
            long sum = 0;
            for (int i = 0; i < kept.length; i++) {
                kept[i] = i % 3 == 0 ? (Object) new int[i % 64] : new StringBuilder().append(i);
                if (i % 5 == 0) {
                    names.put(i, "name " + i);
                }
                sum = sum * 31 + kept[(i * 7) % (i + 1)].getClass().getName().length();
            }
            return sum + names.hashCode();
        }
    }

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        Storm[] storms = new Storm[args.get("threads", 3)];
        for (int i = 0; i < storms.length; i++) {
            storms[i] = new Storm(i, args.get("seconds", 2));
            storms[i].start();
        }
        long sum = 0;
        for (Storm storm : storms) {
            storm.join();
            Work.check(0, storm.changed);
            sum = sum * 31 + storm.result;
        }
        Work.print(sum);
    }
}
