package com.tessel.prb.live.programs;

import java.io.BufferedReader;
import java.io.InputStreamReader;
import java.util.ArrayList;
import java.util.List;

/**
 * Keeps known numbers of objects of its own classes and stands still. In the middle of its time
 * it prints the JVM's own histogram of the heap twice, {@code --between MS} apart, each with the
 * time before and after it. --objects N, --between MS, --storm N (threads that allocate and force
 * collections all the while), --jcmd PATH.
 */
public final class KnownHeap {
    private KnownHeap() {}

    static final class Leaf {
        int value;

        Leaf(int value) {
            this.value = value;
        }
    }

    static final class Pair {
        final Object left;
        final Object right;
        final long stamp;

        Pair(Object left, Object right) {
            this.left = left;
            this.right = right;
            this.stamp = 7;
        }
    }

    enum Colour { RED, GREEN }

    static Object[] kept;
    private static String jcmd;

    private static final class Storm extends Thread {
        private final long deadline;
        private Object last;

        Storm(long deadline) {
            super("storm");
            this.deadline = deadline;
            setDaemon(true);
        }

        @Override
        public void run() {
            for (int i = 0; !Work.over(deadline); i++) {
                last = new int[i % 1000];
                if (i % 5000 == 0) {
                    System.gc();
                }
            }
        }
    }

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        jcmd = args.get("jcmd", "jcmd");
        int objects = args.get("objects", 10000);
        int between = args.get("between", 2000);
        kept = new Object[objects];
        for (int i = 0; i < objects; i++) {
            Leaf leaf = new Leaf(i);
            // One in four is a pair with its leaf, one in eight an array of longs of its own.
            kept[i] = i % 4 == 0 ? new Pair(leaf, Colour.RED) : i % 8 == 1 ? (Object) new Leaf[i % 5] : leaf;
        }
        for (int i = args.get("storm", 0); i > 0; i--) {
            new Storm(Work.deadline(between / 1000 + 2)).start();
        }
        histogram(); // what it takes to make one is there from now on
        List<String> first = histogram();
        Thread.sleep(between);
        List<String> second = histogram();
        print("first", first);
        print("second", second);
        long sum = 0;
        for (Object object : kept) {
            sum += object instanceof Leaf ? ((Leaf) object).value : 1;
        }
        System.out.println("kept " + kept.length + " sum " + sum);
    }

    private static void print(String title, List<String> lines) {
        System.out.println("histogram " + title);
        for (String line : lines) {
            System.out.println(line);
        }
    }

    /** The lines of "jcmd GC.class_histogram" between two lines with the time in milliseconds. */
    private static List<String> histogram() throws Exception {
        List<String> lines = new ArrayList<>();
        lines.add("time " + System.currentTimeMillis());
        Process process = new ProcessBuilder(jcmd,
                new java.io.File("/proc/self").getCanonicalFile().getName(), "GC.class_histogram")
                .redirectErrorStream(true).start();
        try (BufferedReader out =
                new BufferedReader(new InputStreamReader(process.getInputStream()))) {
            for (String line; (line = out.readLine()) != null;) {
                lines.add(line);
            }
        }
        if (process.waitFor() != 0) {
            throw new IllegalStateException("jcmd failed: " + lines);
        }
        lines.add("time " + System.currentTimeMillis());
        return lines;
    }
}
