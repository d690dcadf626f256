package com.tessel.prb.live.programs;

/**
 * Threads that allocate so many objects of classes of their own, and print how many. --objects N
 * of each kind.
 */
public final class CountedAllocations {
    private static final int TABLES = 1000;

    private static final class Small {
        private int number;
    }

    private static final class Kept {}

    /** Visible to everybody, so that no compiler leaves an object out. */
    private static volatile Object last;

    private static Object[] tables;

    private CountedAllocations() {}

    private static final class SmallOnes extends Thread {
        private final int objects;

        SmallOnes(int objects) {
            super("counted small");
            this.objects = objects;
        }

        @Override
        public void run() {
            for (int i = 0; i < objects; i++) {
                Small small = new Small();
                small.number = i;
                last = small;
            }
            last = null;
        }
    }

    private static final class Arrays extends Thread {
        private final int objects;

        Arrays(int objects) {
            super("counted arrays");
            this.objects = objects;
        }

        @Override
        public void run() {
            Object[] made = new Object[TABLES];
            int inEach = 3 * objects / TABLES;
            for (int i = 0; i < TABLES; i++) {
                made[i] = new Kept[inEach][1];
            }
            for (int i = 0; i < objects; i++) {
                last = new Kept();
            }
            tables = made;
        }
    }

    public static void main(String[] arguments) throws Exception {
        int objects = new Args(arguments).get("objects", 200000);
        Thread[] threads = {new SmallOnes(objects), new Arrays(objects)};
        for (Thread thread : threads) {
            thread.start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        System.out.println(objects + " " + objects + " " + 3 * objects + " " + tables.length);
    }
}
