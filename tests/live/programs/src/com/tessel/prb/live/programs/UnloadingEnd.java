package com.tessel.prb.live.programs;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;

/**
 * Ends right after a collection that has freed many classes, while other threads make the VM
 * collect again and again. --classes N.
 */
public final class UnloadingEnd {
    private UnloadingEnd() {}

    private static volatile Object sink;

    /** Large arrays: with most collectors each of them may ask for a collection. */
    private static final class Hoarder implements Runnable {
        @Override
        public void run() {
            List<byte[]> kept = new ArrayList<>();
            for (;;) {
                kept.add(new byte[3 << 20]);
                if (kept.size() > 16) {
                    kept.clear();
                }
                sink = kept;
            }
        }
    }

    public static void main(String[] arguments) throws Exception {
        int classes = new Args(arguments).get("classes", 3000);
        for (int i = 0; i < 2; i++) {
            Thread hoarder = new Thread(new Hoarder(), "hoarder " + i);
            hoarder.setDaemon(true);
            hoarder.start();
        }
        long sum = 0;
        List<Class<?>> copies = new ArrayList<>();
        ThrowAwayLoader.Code own =
                new ThrowAwayLoader.Code(ClassChurn.Visitor.class, Work.class);
        for (int i = 0; i < classes; i++) {
            Class<?> copy =
                    new ThrowAwayLoader(own).loadClass(ClassChurn.Visitor.class.getName());
            sum += (Long) ((Callable<?>) copy.getDeclaredConstructor().newInstance()).call();
            copies.add(copy);
        }
        Work.print(sum);
        copies = null;
        System.gc();
    }
}
