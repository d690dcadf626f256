package com.tessel.prb.live.programs;

/**
 * Computes, and starts a child process now and then, whose exit code must be its own. Usage:
 * [--seconds N]. Prints "ready" when it works.
 */
public final class Children {
    private Children() {}

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        long deadline = Work.deadline(args.get("seconds", 6));
        System.out.println("ready");
        int wrong = 0;
        int children = 0;
        while (!Work.over(deadline)) {
            long end = System.nanoTime() + 200000000L;
            while (!Work.over(end)) {
                compute();
            }
            int expected = 1 + children % 9;
            Process child = new ProcessBuilder("sh", "-c", "exit " + expected).start();
            wrong += child.waitFor() == expected ? 0 : 1;
            children++;
        }
        System.out.println("children " + (children > 0 ? "some" : "none") + " wrong " + wrong);
    }

    private static long compute() {
        long sum = 0;
        for (int i = 0; i < 100; i++) {
            sum += Work.piece(i, 1000);
        }
        return sum;
    }
}
