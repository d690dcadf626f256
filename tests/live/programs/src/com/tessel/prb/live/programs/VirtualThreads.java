package com.tessel.prb.live.programs;

import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicLong;

/**
 * Thousands of virtual threads that compute, sleep and meet at a lock. --seconds N --wave N. Where
 * the JVM has none, threads of the ordinary kind do the same.
 */
public final class VirtualThreads {
    private static final Object LOCK = new Object();

    private VirtualThreads() {}

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        int wave = args.get("wave", 200);
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

    private static long wave(int count) throws Exception {
        AtomicLong sum = new AtomicLong();
        CountDownLatch done = new CountDownLatch(count);
        for (int i = 0; i < count; i++) {
            int number = i;
            start(() -> {
                sum.addAndGet(task(number));
                done.countDown();
            });
        }
        done.await();
        return sum.get();
    }

    static long task(int number) {
        long h = Work.piece(number, 20000);
        try {
            Thread.sleep(1);
            synchronized (LOCK) {
                h += Work.piece(number + 1, 500);
                if (number % 50 == 0) {
                    LOCK.wait(1);
                }
            }
        } catch (InterruptedException e) {
            throw new IllegalStateException(e);
        }
        return h;
    }

    private static void start(Runnable work) throws Exception {
        try {
            Thread.class.getMethod("startVirtualThread", Runnable.class).invoke(null, work);
        } catch (NoSuchMethodException e) {
            new Thread(work).start();
        }
    }
}
