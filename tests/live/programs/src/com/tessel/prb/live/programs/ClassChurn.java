package com.tessel.prb.live.programs;

import java.util.concurrent.Callable;

/** Loads the same class over and over in loaders that are thrown away. --seconds N. */
public final class ClassChurn {
    private ClassChurn() {}

    /** The class that is loaded again and again. */
    public static final class Visitor implements Callable<Long> {
        private static final long SALT = Work.piece(7, 7);

        @Override
        public Long call() {
            long sum = SALT;
            for (int i = 0; i < 20; i++) {
                sum += once(i);
            }
            return sum;
        }

        private static long once(int i) {
            return Work.piece(i, 200);
        }
    }

    public static void main(String[] arguments) throws Exception {
        ThrowAwayLoader.Code own = new ThrowAwayLoader.Code(Visitor.class, Work.class);
        long deadline = Work.deadline(new Args(arguments).get("seconds", 2));
        long first = new Visitor().call();
        int loaded = 0;
        while (!Work.over(deadline) || loaded < 1000) {
            Class<?> copy = new ThrowAwayLoader(own).loadClass(Visitor.class.getName());
            Callable<?> fresh = (Callable<?>) copy.getDeclaredConstructor().newInstance();
            Work.check(first, (Long) fresh.call());
            if (++loaded % 1000 == 0) {
                System.gc(); // So that the classes go, too.
            }
        }
        System.err.println("classes loaded " + loaded);
        Work.print(first);
    }
}
