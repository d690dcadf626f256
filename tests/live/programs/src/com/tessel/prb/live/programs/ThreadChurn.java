package com.tessel.prb.live.programs;

/** Thousands of threads that live for a moment, some of them at once. --seconds N --wave N. */
public final class ThreadChurn {
    private ThreadChurn() {}

    private static final class Mayfly extends Thread {
        private final int number;
        private long result;

        Mayfly(int number) {
            super("mayfly-" + number);
            this.number = number;
        }

        @Override
        public void run() {
            result = Work.piece(number, 5000);
        }
    }

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        int wave = args.get("wave", 40);
        long deadline = Work.deadline(args.get("seconds", 2));
        long first = wave(wave);
        long threads = wave;
        while (!Work.over(deadline) || threads < 2000) {
            Work.check(first, wave(wave));
            threads += wave;
        }
        System.err.println("threads " + threads);
        Work.print(first);
    }

    private static long wave(int count) throws InterruptedException {
        Mayfly[] flies = new Mayfly[count];
        for (int i = 0; i < count; i++) {
            flies[i] = new Mayfly(i);
            flies[i].start();
        }
        long sum = 0;
        for (Mayfly fly : flies) {
            fly.join();
            sum = sum * 31 + fly.result;
        }
        return sum;
    }
}
