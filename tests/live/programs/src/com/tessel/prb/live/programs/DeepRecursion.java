package com.tessel.prb.live.programs;

/**
 * Recursions of a known depth, and now and then one without an end that the stack's overflow
 * stops. --seconds N --depth N.
 */
public final class DeepRecursion {
    private DeepRecursion() {}

    public static void main(String[] arguments) throws Exception {
        final Args args = new Args(arguments);
        final int depth = args.get("depth", 3000);
        Thread diver = new Thread(null, null, "diver", 16 << 20) {
            @Override
            public void run() {
                long deadline = Work.deadline(args.get("seconds", 2));
                long first = down(depth, 1);
                int dives = 0;
                while (!Work.over(deadline)) {
                    Work.check(first, down(depth, 1));
                    if (++dives % 50 == 0 && !overflows()) {
                        throw new IllegalStateException("the stack has no end");
                    }
                }
                Work.print(first);
            }
        };
        diver.start();
        diver.join();
    }

    private static long down(int depth, long carried) {
        long here = carried + Work.piece(depth, 40);
        return depth == 0 ? here : down(depth - 1, here) ^ here;
    }

    private static boolean overflows() {
        try {
            return down(Integer.MAX_VALUE, 1) == 0;
        } catch (StackOverflowError e) {
            return true;
        }
    }
}
