import com.tessel.prb.workanalysis.Profiler;
import java.util.ArrayList;
import java.util.List;

/**
 * Blocks, waits and collects, asks the probe what it was told, and ends with exit code 7.
 * Arguments: "events" or "lookups"; the milliseconds of the look-ups; "sizes", or "nosizes" for a
 * collector whose sizes the bridge cannot read, or "pauses" for one that works beside the program.
 */
public final class Stalls {
    private static final long ENTER = 54;
    private static final long ENTERED = 55;
    private static final long WAIT = 57;
    private static final long WAITED = 58;
    private static final long NORMAL_OBJECT = 0;
    private static final long OBJECT_ARRAY = 2;
    private static final long INT = 10;

    private Stalls() {}

    public static void main(String[] arguments) throws Exception {
        System.out.println("program begins");
        String kind = arguments[2];
        if (kind.equals("nosizes")) {
            Profiler.check("sizesUnknown", null);
        }
        if (arguments[0].equals("lookups")) {
            lookups(Long.parseLong(arguments[1]));
        } else {
            if (kind.equals("sizes")) {
                oneCollection();
            }
            monitors();
            virtualThreads();
        }
        System.out.println("program ends");
        System.exit(7);
    }

    private static void same(String what, long wanted, long got) {
        if (wanted != got) {
            Profiler.check("fail", what + " is " + got + " and not " + wanted);
        }
    }

    private static volatile Object sink;

    private static void oneCollection() {
        for (int i = 0; i < 5; i++) {
            for (int k = 0; k < 2000; k++) {
                sink = new byte[10000];
            }
            long starts = Profiler.number("starts", null);
            Profiler.number("runGC", null);
            same("starts of one collection", starts + 1, Profiler.number("starts", null));
            same("finishes", starts + 1, Profiler.number("finishes", null));
            same("total bytes", Runtime.getRuntime().totalMemory(),
                    Profiler.number("total", null));
            long used = Runtime.getRuntime().totalMemory() - Runtime.getRuntime().freeMemory();
            long told = Profiler.number("used", null);
            // Whoever allocated since has at most filled a few buffers.
            if (told > used || told < used - (32L << 20)) {
                Profiler.check("fail", told + " bytes used are told and not " + used);
            }
            long before = Profiler.number("free at start", null);
            long after = Profiler.number("total", null) - told;
            if (i > 0 && before >= after) {
                Profiler.check("fail", before + " free bytes became " + after);
            }
        }
    }

    private static void lookups(long milliseconds) throws Exception {
        List<Thread> all = new ArrayList<>();
        for (int i = 0; i < 3; i++) {
            Thread thread = new Thread(() -> Profiler.number("look up", milliseconds));
            all.add(thread);
            thread.start();
        }
        long collections = 0;
        while (all.stream().anyMatch(Thread::isAlive)) {
            for (int k = 0; k < 100; k++) {
                sink = new byte[10000];
            }
            if (collections++ % 2 == 0) {
                System.gc();
            } else {
                Profiler.number("runGC", null);
            }
        }
        if (Profiler.number("starts", null) < 20 || Profiler.number("lookups", null) < 20) {
            Profiler.check("fail", Profiler.number("starts", null) + " collections and "
                    + Profiler.number("lookups", null) + " look-ups");
        }
    }

    private static void awaitState(Thread thread, Thread.State state) throws Exception {
        while (thread.getState() != state) {
            Thread.sleep(1);
        }
    }

    private static void enterHere(Object lock) {
        synchronized (lock) {
            sink = lock;
        }
    }

    private static void waitHere(Object lock, long timeout) {
        synchronized (lock) {
            try {
                if (timeout == 0) {
                    lock.wait();
                } else {
                    lock.wait(timeout);
                }
            } catch (InterruptedException e) {
                sink = e;
            }
        }
    }

    private static Thread started(Runnable work) {
        Thread thread = new Thread(work);
        thread.start();
        return thread;
    }

    /** Lets a thread block entering the object's monitor, and another wait in it. */
    private static void block(Object lock) throws Exception {
        Thread enters;
        synchronized (lock) {
            enters = started(() -> enterHere(lock));
            awaitState(enters, Thread.State.BLOCKED);
            Thread.sleep(20); // The VM tells of the enter while the state is set.
        }
        enters.join();
        Thread waits = started(() -> waitHere(lock, 0));
        awaitState(waits, Thread.State.WAITING);
        Thread.sleep(20);
        synchronized (lock) {
            lock.notifyAll();
            Thread.sleep(1);
        }
        waits.join();
    }

    private static void seen(Object lock, long times, String type, long isArray) {
        seen(ENTER, lock, times, type, isArray, "Stalls.enterHere", 0, 0);
        seen(WAIT, lock, times, type, isArray, "Stalls.waitHere", 0, 0);
        seen(WAITED, lock, times, type, isArray, "Stalls.waitHere", 15, 600000);
    }

    private static void seen(Object... row) {
        for (int i = 0; i < row.length; i++) {
            if (i != 1 && row[i] instanceof Integer) {
                row[i] = (long) (Integer) row[i];
            }
        }
        Profiler.check("seen", row);
    }

    private static void monitors() throws Exception {
        Object plain = new Stalls();
        Object[] all = {plain, new int[7], new String[0][0], Stalls.class};
        block(plain); // before anything is switched on
        seen(plain, 0, "Stalls", NORMAL_OBJECT);
        Profiler.check("monitors on", null);
        for (Object lock : all) {
            block(lock);
            Profiler.check("notOutside", lock);
        }
        seen(plain, 1, "Stalls", NORMAL_OBJECT);
        seen(all[1], 1, "[I", INT);
        seen(all[2], 1, "[[Ljava/lang/String;", OBJECT_ARRAY);
        seen(all[3], 1, "java/lang/Class", NORMAL_OBJECT);
        Object timed = new Stalls();
        started(() -> waitHere(timed, 3)).join();
        seen(WAIT, timed, 1, "Stalls", NORMAL_OBJECT, "Stalls.waitHere", 3, 3);
        Profiler.check("monitors off", null);
        block(plain);
        seen(plain, 1, "Stalls", NORMAL_OBJECT);
    }

    /** Virtual threads (newer JVMs) fight for a monitor: nothing is told of them. */
    private static void virtualThreads() throws Exception {
        java.lang.reflect.Method start;
        try {
            start = Thread.class.getMethod("startVirtualThread", Runnable.class);
        } catch (NoSuchMethodException e) {
            return;
        }
        Profiler.check("monitors on", null);
        Object lock = new Stalls();
        List<Thread> all = new ArrayList<>();
        synchronized (lock) {
            for (int i = 0; i < 50; i++) {
                Runnable work = () -> {
                    enterHere(lock);
                    waitHere(lock, 1);
                };
                all.add((Thread) start.invoke(null, work));
            }
            Thread.sleep(50);
        }
        for (Thread thread : all) {
            thread.join();
        }
        seen(ENTER, lock, 0, "Stalls", NORMAL_OBJECT, "", 0, 0);
        seen(WAIT, lock, 0, "Stalls", NORMAL_OBJECT, "", 0, 0);
        Profiler.check("monitors off", null);
    }
}
