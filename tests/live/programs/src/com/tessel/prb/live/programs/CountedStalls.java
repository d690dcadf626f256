package com.tessel.prb.live.programs;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadInfo;
import java.lang.management.ThreadMXBean;

/**
 * Threads that stand still in two methods, one blocked and one waiting, and what the JVM itself
 * counted of that: "blocked N times, T ms" and "waited N times, T ms". --seconds N --threads N.
 */
public final class CountedStalls {
    private CountedStalls() {}

    private static final class Worker extends Thread {
        private final Object shared;
        private final Object own = new Object();
        private final long deadline;
        private ThreadInfo info;

        Worker(Object shared, long deadline) {
            this.shared = shared;
            this.deadline = deadline;
        }

        @Override
        public void run() {
            try {
                while (!Work.over(deadline)) {
                    contend();
                    pause();
                }
            } catch (InterruptedException e) {
                throw new IllegalStateException(e);
            }
            info = ManagementFactory.getThreadMXBean().getThreadInfo(getId());
        }

        private void contend() {
            synchronized (shared) {
                long end = System.nanoTime() + 2_000_000;
                while (System.nanoTime() < end) {
                    Work.piece(1, 50);
                }
            }
        }

        private void pause() throws InterruptedException {
            synchronized (own) {
                own.wait(3);
            }
        }
    }

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        ThreadMXBean threads = ManagementFactory.getThreadMXBean();
        threads.setThreadContentionMonitoringEnabled(true);
        // What the workers load is loaded before: class loading blocks and waits as well.
        threads.getThreadInfo(Thread.currentThread().getId());
        Work.piece(1, 50);
        Object shared = new Object();
        long deadline = Work.deadline(args.get("seconds", 3));
        Worker[] workers = new Worker[args.get("threads", 4)];
        for (int i = 0; i < workers.length; i++) {
            workers[i] = new Worker(shared, deadline);
            workers[i].start();
        }
        long blocked = 0;
        long blockedMs = 0;
        long waited = 0;
        long waitedMs = 0;
        for (Worker worker : workers) {
            worker.join();
            blocked += worker.info.getBlockedCount();
            blockedMs += worker.info.getBlockedTime();
            waited += worker.info.getWaitedCount();
            waitedMs += worker.info.getWaitedTime();
        }
        System.out.println("blocked " + blocked + " times, " + blockedMs + " ms");
        System.out.println("waited " + waited + " times, " + waitedMs + " ms");
        System.out.println("checksum " + Work.piece(1, 50));
    }
}
