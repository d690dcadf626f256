import com.tessel.prb.workanalysis.Profiler;
import java.lang.reflect.Array;
import java.util.ArrayList;
import java.util.List;

/**
 * Allocates what it can count itself, asks the probe what it was told, and ends with exit code 7.
 * Arguments: "frees", or "nofrees" for a collector that does not tell; the arenas; the
 * milliseconds of the storm.
 */
public final class Allocations {
    private static final int MANY = 100000;
    private static final long NORMAL_OBJECT = 0;
    private static final long OBJECT_ARRAY = 2;
    private static final long LONG = 11;
    /** Bytes before the first element of a long[] on both word sizes. */
    private static final long HEADER = 16;

    private static volatile Object sink;

    static class Plain implements Cloneable {
        int number;
        long wide;

        Plain() {}

        Object copy() throws CloneNotSupportedException {
            return clone();
        }
    }

    static final class Derived extends Plain {
        Object more;
    }

    static final class FromVirtual {}

    static final class Unseen {}

    static final class Stormy {}

    static class Victim {}

    static final class Kept {}

    /** Two classes that loaders of their own define again and again. */
    static final class One implements Runnable {
        volatile Object made;

        @Override
        public void run() {
            for (int i = 0; i < 100; i++) {
                made = new One();
            }
        }
    }

    static final class Two implements Runnable {
        volatile Object made;

        @Override
        public void run() {
            for (int i = 0; i < 100; i++) {
                made = new Two();
            }
        }
    }

    private static final class Loader extends ClassLoader {
        Runnable define(Class<?> type) throws Exception {
            byte[] bytes;
            try (java.io.InputStream in = type.getResourceAsStream(type.getName() + ".class")) {
                bytes = in.readAllBytes();
            }
            Class<?> defined = defineClass(type.getName(), bytes, 0, bytes.length);
            java.lang.reflect.Constructor<?> made = defined.getDeclaredConstructor();
            made.setAccessible(true);
            return (Runnable) made.newInstance();
        }
    }

    private Allocations() {}

    public static void main(String[] arguments) throws Exception {
        System.out.println("program begins");
        boolean frees = arguments[0].equals("frees");
        for (int i = 0; i < 1000; i++) {
            sink = new Unseen();
        }
        Profiler.check("on", null);
        Profiler.check("arenas", arguments[1]);
        known();
        if (arguments[1].contains("Old") || arguments[1].contains("Tenured")) {
            sink = new long[15 << 20]; // 120 MB: more than any eden of this heap
            same("[J", 8L * (15 << 20) + HEADER, "allocated", 1);
            same("[J", 8L * (15 << 20) + HEADER, "old", 1);
            same("Allocations$Plain", 0, "old", 0);
        }
        movingClasses();
        virtualThreads();
        Profiler.check("allocate in handler", null);
        sink = new Plain();
        Profiler.check("allocate under monitor", null);
        Profiler.check(frees ? "frees on" : "frees refused", null);
        if (frees) {
            freed();
        }
        storm(Long.parseLong(arguments[2]));
        if (frees) {
            Profiler.check("frees off", null);
            victims(1000);
            Profiler.number("runGC", null);
            same("Allocations$Victim", 0, "freed", freedVictims);
        }
        Profiler.check("off", null);
        for (int i = 0; i < MANY; i++) {
            sink = new Unseen();
        }
        same("Allocations$Unseen", 0, "allocated", 0);
        System.out.println("program ends");
        System.exit(7);
    }

    private static void same(String type, long size, String what, long wanted) {
        long got = Profiler.number(what, new Object[] {type, size});
        if (wanted != got) {
            Profiler.check("fail", what + " of " + type + " is " + got + " and not " + wanted);
        }
    }

    private static void known() throws Exception {
        List<Thread> all = new ArrayList<>();
        for (int i = 0; i < 4; i++) {
            Thread thread = new Thread(() -> {
                for (int k = 0; k < MANY; k++) {
                    sink = new Derived();
                }
            });
            all.add(thread);
            thread.start();
        }
        for (int i = 0; i < MANY; i++) {
            sink = new Plain();
        }
        Plain plain = new Plain();
        for (int i = 0; i < 1000; i++) {
            sink = plain.copy();
            sink = Plain.class.getDeclaredConstructor().newInstance();
            sink = new long[1237];
            sink = new Plain[17];
            sink = new Derived[3][5]; // one and three
            long[] numbers = (long[]) Array.newInstance(long.class, 1239);
            sink = numbers.clone();
            sink = java.util.Arrays.copyOf(numbers, 1241);
        }
        for (Thread thread : all) {
            thread.join();
        }
        same("Allocations$Plain", 0, "allocated", MANY + 1 + 2000);
        same("Allocations$Plain", 0, "type", NORMAL_OBJECT);
        same("Allocations$Derived", 0, "allocated", 4L * MANY);
        same("[J", 8 * 1237 + HEADER, "allocated", 1000);
        same("[J", 8 * 1239 + HEADER, "allocated", 2000);
        same("[J", 8 * 1241 + HEADER, "allocated", 1000);
        same("[J", 8 * 1237 + HEADER, "type", LONG);
        same("[LAllocations$Plain;", 0, "allocated", 1000);
        same("[LAllocations$Plain;", 0, "type", OBJECT_ARRAY);
        same("[[LAllocations$Derived;", 0, "allocated", 1000);
        same("[[LAllocations$Derived;", 0, "type", OBJECT_ARRAY);
        same("[LAllocations$Derived;", 0, "allocated", 3000);
        same("Allocations$Unseen", 0, "allocated", 0);
    }

    /** What virtual threads (newer JVMs) allocate is told of their carriers. */
    private static void virtualThreads() throws Exception {
        java.lang.reflect.Method start;
        try {
            start = Thread.class.getMethod("startVirtualThread", Runnable.class);
        } catch (NoSuchMethodException e) {
            return;
        }
        List<Thread> all = new ArrayList<>();
        for (int i = 0; i < 20; i++) {
            Runnable work = () -> {
                for (int k = 0; k < 1000; k++) {
                    sink = new FromVirtual();
                    if (k % 100 == 0) {
                        Thread.yield();
                    }
                }
            };
            all.add((Thread) start.invoke(null, work));
        }
        for (Thread thread : all) {
            thread.join();
        }
        same("Allocations$FromVirtual", 0, "allocated", 20000);
    }

    /** Class objects that collections move to where other ones lay. */
    private static void movingClasses() throws Exception {
        Runnable[] all = new Runnable[90];
        long ones = 0;
        long twos = 0;
        for (int round = 0; round < 12; round++) {
            for (int i = 0; i < all.length; i++) {
                boolean one = (i + round) % 3 == 0;
                if (all[i] == null) {
                    all[i] = new Loader().define(one ? One.class : Two.class);
                    ones += one ? 1 : 0;
                    twos += one ? 0 : 1;
                }
            }
            for (Runnable made : all) {
                made.run();
                ones += made.getClass().getName().endsWith("One") ? 100 : 0;
                twos += made.getClass().getName().endsWith("Two") ? 100 : 0;
            }
            for (int i = round % 2; i < all.length; i += 2) {
                all[i] = null;
            }
            Profiler.number("runGC", null);
            for (Runnable made : all) {
                if (made != null) {
                    made.run();
                    ones += made.getClass().getName().endsWith("One") ? 100 : 0;
                    twos += made.getClass().getName().endsWith("Two") ? 100 : 0;
                }
            }
        }
        same("Allocations$One", 0, "allocated", ones);
        same("Allocations$Two", 0, "allocated", twos);
    }

    private static long freedVictims;

    private static void victims(int count) {
        for (int i = 0; i < count; i++) {
            sink = new Victim();
        }
        sink = null;
    }

    /** One collection tells the ends of all that died before it, and of nothing else. */
    private static void freed() {
        for (int round = 0; round < 5; round++) {
            Profiler.number("runGC", null);
            long starts = Profiler.number("starts", null);
            victims(MANY);
            Object[] kept = new Object[1000];
            for (int i = 0; i < kept.length; i++) {
                kept[i] = new Kept();
            }
            if (Profiler.number("starts", null) != starts) {
                freedVictims = Profiler.number("freed", new Object[] {"Allocations$Victim", 0L});
                continue; // Something else collected: nobody can say what was told.
            }
            Profiler.number("runGC", null);
            freedVictims += MANY;
            same("Allocations$Victim", 0, "freed", freedVictims);
            same("Allocations$Kept", 0, "freed", 0);
            sink = kept;
            sink = null;
        }
        // Those that outlived a collection are known to nobody.
        Profiler.number("runGC", null);
        same("Allocations$Kept", 0, "freed", 0);
        if (freedVictims < MANY) {
            Profiler.check("fail", "no round was left alone");
        }
    }

    private static volatile boolean stormEnds;

    /** Collections one after the other while threads allocate. */
    private static void storm(long milliseconds) throws Exception {
        List<Thread> all = new ArrayList<>();
        long[] made = new long[3];
        for (int i = 0; i < made.length; i++) {
            int mine = i;
            Thread thread = new Thread(() -> {
                long count = 0;
                while (!stormEnds) {
                    for (int k = 0; k < 100; k++) {
                        sink = new Stormy();
                    }
                    count += 100;
                }
                made[mine] = count;
            });
            all.add(thread);
            thread.start();
        }
        long end = System.nanoTime() + milliseconds * 1000000;
        for (int collections = 0; collections < 5 || System.nanoTime() < end; collections++) {
            Profiler.number("runGC", null);
        }
        stormEnds = true;
        long sum = 0;
        for (int i = 0; i < made.length; i++) {
            all.get(i).join();
            sum += made[i];
        }
        same("Allocations$Stormy", 0, "allocated", sum);
    }
}
