package com.tessel.prb.live.programs;

import java.lang.reflect.InvocationHandler;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * Handles signals of its own in Java and in native code while it works, looks that each arrives,
 * and lets SIGTERM end it with the code given. --library FILE --seconds N --code N.
 */
public final class Signals {
    private static final String[] NAMES = {"TERM", "HUP", "INT", "USR2"};
    private static final int NATIVE_PER_ROUND = 2;

    private Signals() {}

    private static native void install();

    private static native int send();

    private static native int ticks();

    private static native int strangers();

    /** The class without a name for it here: compilers warn of it. */
    private static final class Signal {
        private final Class<?> type = Class.forName("sun.misc.Signal");
        private final Class<?> handlerType = Class.forName("sun.misc.SignalHandler");
        private final Object signal;

        Signal(String name) throws Exception {
            signal = type.getConstructor(String.class).newInstance(name);
        }

        void handle(final Runnable action) throws Exception {
            InvocationHandler handler = new InvocationHandler() {
                @Override
                public Object invoke(Object proxy, Method method, Object[] args) {
                    if (method.getName().equals("handle")) {
                        action.run();
                    }
                    return null;
                }
            };
            Object proxy = Proxy.newProxyInstance(Signals.class.getClassLoader(),
                    new Class<?>[] {handlerType}, handler);
            type.getMethod("handle", type, handlerType).invoke(null, signal, proxy);
        }

        void raise() throws Exception {
            type.getMethod("raise", type).invoke(null, signal);
        }
    }

    private static long work() {
        long sum = 0;
        for (int i = 0; i < 30; i++) {
            sum += Work.piece(i, 10000);
        }
        return sum;
    }

    public static void main(String[] arguments) throws Exception {
        final Args args = new Args(arguments);
        System.load(args.get("library", ""));
        install();
        final AtomicInteger[] counts = new AtomicInteger[NAMES.length];
        Signal[] signals = new Signal[NAMES.length];
        for (int i = 0; i < NAMES.length; i++) {
            final AtomicInteger count = new AtomicInteger();
            counts[i] = count;
            signals[i] = new Signal(NAMES[i]);
            try {
                signals[i].handle(new Runnable() {
                    @Override
                    public void run() {
                        count.incrementAndGet();
                    }
                });
            } catch (InvocationTargetException e) {
                System.out.println(NAMES[i] + " refused");
                signals[i] = null;
            }
        }
        long deadline = Work.deadline(args.get("seconds", 2));
        long first = work();
        int rounds = 0;
        while (!Work.over(deadline)) {
            rounds++;
            for (int i = 0; i < NAMES.length; i++) {
                if (signals[i] != null) {
                    signals[i].raise();
                }
            }
            if (send() != rounds * NATIVE_PER_ROUND) {
                System.out.println("a native handler was not called");
                System.exit(3);
            }
            Work.check(first, work());
            for (int i = 0; i < NAMES.length; i++) {
                while (signals[i] != null && counts[i].get() < rounds && !Work.over(deadline)) {
                    Work.check(first, work());
                }
            }
        }
        for (int i = 0; i < NAMES.length; i++) {
            // The last one may still be under way.
            boolean all = counts[i].get() == rounds || counts[i].get() == rounds - 1;
            System.out.println(NAMES[i] + (all ? " handled" : " LOST"));
        }
        System.out.println("ticks " + (ticks() > 100) + " strangers " + strangers());
        Work.print(first);
        final int code = args.get("code", 0);
        Signal last = new Signal("TERM");
        last.handle(new Runnable() {
            @Override
            public void run() {
                System.exit(code);
            }
        });
        last.raise();
        Thread.sleep(20000);
    }
}
