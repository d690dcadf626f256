package com.tessel.prb.live.programs;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;

/** Calls whose numbers are known: plain, recursive, ended by exceptions, on threads that die. */
public final class ExactCalls {
    private static final int LEAVES = 5000;
    private static final int ROUNDS = 10;
    private static final int DEPTH = 99;

    private static long sum;

    private ExactCalls() {}

    public static void main(String[] args) throws Exception {
        for (int i = 0; i < LEAVES; i++) {
            sum += leaf(i);
        }
        for (int i = 0; i < ROUNDS; i++) {
            sum += recurse(DEPTH);
        }
        int caught = 0;
        for (int i = 0; i < 100; i++) {
            caught += guarded(i);
        }
        ThreadMXBean clock = ManagementFactory.getThreadMXBean();
        long burned = 0;
        for (int i = 0; i < 4; i++) {
            long before = clock.getCurrentThreadCpuTime();
            burn(40);
            burned += clock.getCurrentThreadCpuTime() - before;
            nap(25);
        }
        Thread[] threads = new Thread[3];
        for (int i = 0; i < threads.length; i++) {
            threads[i] = new Thread(ExactCalls::dying, "dying-" + i);
            threads[i].setUncaughtExceptionHandler((thread, failure) -> sum += 1);
            threads[i].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        System.out.println("caught " + caught + " sum " + sum);
        System.out.println(burned / 1000);
    }

    static int leaf(int i) {
        return i & 3;
    }

    static int recurse(int depth) {
        return depth == 0 ? 1 : 1 + recurse(depth - 1);
    }

    static int guarded(int i) {
        try {
            return thrower(i);
        } catch (IllegalStateException e) {
            return 1;
        }
    }

    static int thrower(int i) {
        if (i % 2 == 0) {
            throw new IllegalStateException("on purpose");
        }
        return deeper(i);
    }

    static int deeper(int i) {
        return i < 0 ? 1 : 0;
    }

    /** Uses the processor for so many milliseconds of wall time. */
    static void burn(int ms) {
        long end = System.nanoTime() + ms * 1000000L;
        while (System.nanoTime() < end) {
            sum ^= 1;
            sum ^= 1;
        }
    }

    static void nap(int ms) throws InterruptedException {
        Thread.sleep(ms);
    }

    static void dying() {
        falling();
    }

    static void falling() {
        throw new IllegalStateException("on purpose");
    }
}
