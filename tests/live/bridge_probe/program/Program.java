import com.tessel.prb.workanalysis.Profiler;
import java.io.InputStream;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;

/** Does what a program does, asks the probe what it saw, and ends with exit code 7. */
public final class Program {
    private static final int THREADS = 60;
    private static final int COPIES = 2000;

    private Program() {}

    public static void main(String[] arguments) throws Exception {
        System.out.println("program begins");
        Thread busy = new Thread(Program::burn, "busy");
        busy.setDaemon(true);
        busy.start();
        Thread allocating = new Thread(Program::allocate, "allocating");
        allocating.setDaemon(true);
        allocating.start();
        threads();
        requests();
        classes();
        ids();
        sameIdsForAll();
        churn();
        monitors();
        try {
            Profiler.idWhileThrowing(new Object());
            Profiler.check("fail", "the pending exception is lost");
        } catch (IllegalArgumentException expected) {
            Profiler.check("equal", new String[] {"kept", expected.getMessage()});
        }
        fork();
        awaitAtLeast("traces of busy", 20);
        Profiler.check("samples", null);
        System.out.println("program ends");
        System.exit(7);
    }

    private static volatile double sink;

    private static void burn() {
        while (true) {
            double sum = 0;
            for (int i = 1; i < 100000; i++) {
                sum += Math.sqrt(i);
            }
            sink = sum;
        }
    }

    private static void allocate() {
        byte[][] kept = new byte[64][];
        for (int i = 0; ; i++) {
            kept[i % kept.length] = new byte[10000];
        }
    }

    private static void awaitAtLeast(String number, long least) throws Exception {
        for (int i = 0; i < 3000 && Profiler.number(number, null) < least; i++) {
            Thread.sleep(10);
        }
        Profiler.check("atLeast " + number, least);
    }

    private static void threads() throws Exception {
        ThreadGroup outer = new ThreadGroup("outer group");
        ThreadGroup inner = new ThreadGroup(outer, "inner group");
        List<Thread> all = new ArrayList<>();
        for (int i = 0; i < THREADS; i++) {
            Thread thread = new Thread(inner, () -> Profiler.check("inThread", null),
                    "w\u00f6rker " + i);
            all.add(thread);
            thread.start();
        }
        for (Thread thread : all) {
            thread.join();
        }
        awaitAtLeast("worker ends", THREADS);
        Profiler.check("threads", THREADS);
    }

    private static void requests() throws Exception {
        CountDownLatch running = new CountDownLatch(1);
        CountDownLatch end = new CountDownLatch(1);
        Thread thread = new Thread(() -> {
            running.countDown();
            try {
                end.await();
            } catch (InterruptedException e) {
                return;
            }
        }, "asked for");
        thread.start();
        running.await();
        long id = Profiler.number("id", thread);
        Profiler.check("requestThread", id);
        end.countDown();
        thread.join();
        for (int i = 0; i < 1000 && Profiler.number("requestThread", id) == 0; i++) {
            Thread.sleep(5);
        }
        Profiler.check("requestEndedThread", id);
    }

    private static void classes() {
        new Known().run(); // a class has methods once it is linked
        Profiler.check("known class", Known.class);
        Profiler.check("class name java/lang/String", String.class);
        Profiler.check("class name [I", int[].class);
        Profiler.check("class name [[LKnown;", Known[][].class);
        Profiler.check("class name int", int.class);
        Runnable lambda = () -> Known.shared++;
        Profiler.check("hidden class", lambda.getClass());
    }

    private static void ids() throws Exception {
        Object object = new Object();
        long id = Profiler.number("id", object);
        Profiler.check("objectId", id);
        Profiler.check("same", new Object[] {object, Profiler.object(id)});
        Profiler.check("classId", Profiler.number("id", Program.class));
        Profiler.check("same",
                new Object[] {Program.class, Profiler.object(Profiler.number("id", Program.class))});
        Profiler.check("same", new Object[] {null, Profiler.object(0x7ffffffe)});
        Profiler.check("same", new Object[] {null, Profiler.object(-1)});
        long dead = Profiler.number("id", new Object());
        for (int i = 0; i < 200 && Profiler.object(dead) != null; i++) {
            Profiler.number("runGC", null);
            Thread.sleep(5);
        }
        Profiler.check("same", new Object[] {null, Profiler.object(dead)});
        Profiler.check("same", new Object[] {object, Profiler.object(id)});
    }

    private static void sameIdsForAll() throws Exception {
        Object[] objects = new Object[2000];
        for (int i = 0; i < objects.length; i++) {
            objects[i] = i % 5 == 0 ? java.lang.reflect.Array.newInstance(String.class, i % 3)
                    : new Object();
        }
        long[][] seen = new long[3][objects.length];
        List<Thread> askers = new ArrayList<>();
        for (long[] mine : seen) {
            Thread thread = new Thread(() -> {
                for (int i = 0; i < objects.length; i++) {
                    mine[i] = Profiler.number("id", objects[i]);
                }
            });
            askers.add(thread);
            thread.start();
        }
        for (Thread asker : askers) {
            asker.join();
        }
        for (int i = 0; i < objects.length; i++) {
            if (seen[0][i] == 0 || seen[0][i] != seen[1][i] || seen[0][i] != seen[2][i]) {
                Profiler.check("fail", "object " + i + " has several ids");
            }
        }
    }

    /** Loads the bytes it is given, once each. */
    private static final class Loader extends ClassLoader {
        Class<?> define(byte[] bytes) {
            return defineClass("Known", bytes, 0, bytes.length);
        }
    }

    private static void churn() throws Exception {
        byte[] bytes;
        try (InputStream in = Program.class.getResourceAsStream("/Known.class")) {
            bytes = in.readAllBytes();
        }
        for (int i = 0; i < COPIES; i++) {
            Class<?> copy = new Loader().define(bytes);
            ((Runnable) copy.getDeclaredConstructor().newInstance()).run();
            if (i % 100 == 0) {
                Profiler.check("known class", copy);
            }
            if (i % 500 == 499) {
                System.gc();
            }
        }
        System.gc();
        for (int i = 0; i < 500 && Profiler.number("unloads of Known", null) < COPIES - 10; i++) {
            Thread.sleep(10);
            System.gc();
        }
        Profiler.check("atLeast unloads of Known", (long) (COPIES - 10));
        Profiler.check("unloaded methods", null);
    }

    private static void monitors() throws Exception {
        List<Thread> all = new ArrayList<>();
        for (int i = 0; i < 4; i++) {
            Thread thread = new Thread(() -> Profiler.check("countUnderMonitor", 20000L));
            all.add(thread);
            thread.start();
        }
        for (Thread thread : all) {
            thread.join();
        }
        Profiler.check("counted", 4 * 20000L);
    }

    private static void fork() {
        List<byte[]> heap = new ArrayList<>();
        for (int i = 0; i < 150; i++) {
            heap.add(new byte[1 << 20]);
        }
        Profiler.check("fork", heap.size());
    }
}
