package com.tessel.prb.live.known;

import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.nio.channels.Pipe;
import java.util.concurrent.locks.LockSupport;

/**
 * Several threads run the same mixture of tasks behind one interface. Beside them: two threads
 * that fight for a monitor, one that parks, bursts that a socket wakes, and a pipe that goes in
 * circles.
 */
public final class KnownTasks {
    static final Object shared = new Object();

    private KnownTasks() {}

    public static void main(String[] args) throws Exception {
        int seconds = Seconds.of(args);
        Truth truth = new Truth();
        Truth.Ledger own = truth.open();
        ServerSocket listener = new ServerSocket(0, 1, InetAddress.getLoopbackAddress());
        Socket ringing = new Socket(listener.getInetAddress(), listener.getLocalPort());
        Socket rung = listener.accept();
        ringing.setTcpNoDelay(true);
        Pipe there = Pipe.open();
        Pipe back = Pipe.open();
        Role[] roles = {
            new Worker("task-1", truth), new Worker("task-2", truth),
            new Fighter("fighter-1", truth), new Fighter("fighter-2", truth),
            new Parker(truth), new Bell(truth, ringing.getOutputStream()),
            new Sprinter(truth, rung.getInputStream()),
            new Sender(truth, there.sink(), back.source()),
            new Returner(truth, there.source(), back.sink()),
        };
        for (Role role : roles) {
            role.start();
        }
        Thread.sleep(seconds * 1000L);
        for (Role role : roles) {
            role.finish();
            LockSupport.unpark(role);
        }
        long sink = 0;
        for (Role role : roles) {
            sink += role.await();
        }
        ringing.close();
        rung.close();
        listener.close();
        own.close();
        truth.print("KnownTasks", sink);
    }

    /** Runs the tasks in a fixed order, some more often than others. */
    private static final class Worker extends Role {
        private static final int[] PATTERN = {0, 1, 0, 2, 3, 0, 1, 4, 0, 2, 1, 0, 3};

        Worker(String name, Truth truth) {
            super(name, truth);
        }

        @Override
        void play(Truth.Ledger ledger) {
            Task[] tasks = {
                new MatrixTask(), new SortTask(), new TextTask(), new TreeTask(),
                new PolynomialTask(),
            };
            Truth.Section[] sections = new Truth.Section[tasks.length];
            for (int i = 0; i < tasks.length; i++) {
                sections[i] = ledger.section(tasks[i].getClass(), tasks[i].method());
            }
            long begin = Truth.cpuNs();
            for (int i = 0; running(); i++) {
                int which = PATTERN[i % PATTERN.length];
                sink += tasks[which].perform(sink);
                long end = Truth.cpuNs();
                sections[which].add(end - begin);
                begin = end;
            }
        }
    }

    /** Half of its time it works with the monitor held, and both want it. */
    private static final class Fighter extends Role {
        private final int[] scores = new int[1024];

        Fighter(String name, Truth truth) {
            super(name, truth);
        }

        @Override
        void play(Truth.Ledger ledger) throws InterruptedException {
            Truth.Section fight = ledger.section(Fighter.class, "fight");
            while (running()) {
                long begin = System.nanoTime();
                synchronized (shared) {
                    ledger.addBlocked(System.nanoTime() - begin);
                    long before = Truth.cpuNs();
                    sink += fight(200000, (int) sink);
                    fight.add(Truth.cpuNs() - before);
                }
                Thread.sleep(1);
            }
        }

        private int fight(int blows, int seed) {
            int won = 0;
            int h = seed | 1;
            for (int i = 0; i < blows; i++) {
                h ^= h << 13;
                h ^= h >>> 17;
                h ^= h << 5;
                if (scores[h & 1023]++ > i) {
                    won += h;
                }
            }
            return won ^ h;
        }
    }

    private static final class Parker extends Role {
        Parker(Truth truth) {
            super("parker", truth);
        }

        @Override
        void play(Truth.Ledger ledger) {
            long begin = System.nanoTime();
            while (running()) {
                LockSupport.parkNanos(this, 500000000L);
                sink++;
            }
            ledger.addBlocked(System.nanoTime() - begin);
        }
    }

    private static final class Bell extends Role {
        private final OutputStream out;

        Bell(Truth truth, OutputStream out) {
            super("bell", truth);
            this.out = out;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            while (running()) {
                LockSupport.parkNanos(700000L);
                out.write(1);
            }
            out.write(0);
        }
    }

    /** Sprints for about 0.2 ms at each ring. */
    private static final class Sprinter extends Role {
        private final InputStream in;

        Sprinter(Truth truth, InputStream in) {
            super("sprinter", truth);
            this.in = in;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            Truth.Section sprint = ledger.section(Sprinter.class, "sprint");
            while (in.read() == 1) {
                long begin = Truth.cpuNs();
                sink += sprint(110000, sink);
                sprint.add(Truth.cpuNs() - begin);
            }
        }

        static long sprint(int steps, long seed) {
            long x = seed;
            long y = 88172645463325252L;
            for (int i = 0; i < steps; i++) {
                y ^= y << 13;
                y ^= y >>> 7;
                y ^= y << 17;
                x += y % 1021;
            }
            return x;
        }
    }

    /** Sends blocks round and pauses after every ten. */
    private static final class Sender extends Role {
        private final Pipe.SinkChannel there;
        private final Pipe.SourceChannel back;

        Sender(Truth truth, Pipe.SinkChannel there, Pipe.SourceChannel back) {
            super("sender", truth);
            this.there = there;
            this.back = back;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            ByteBuffer block = ByteBuffer.allocateDirect(4096);
            while (running()) {
                for (int i = 0; i < 10; i++) {
                    block.clear();
                    while (block.hasRemaining()) {
                        there.write(block);
                    }
                    block.clear();
                    while (block.hasRemaining() && back.read(block) >= 0) {
                        sink++;
                    }
                }
                Thread.sleep(1);
            }
            there.close();
        }
    }

    private static final class Returner extends Role {
        private final Pipe.SourceChannel there;
        private final Pipe.SinkChannel back;

        Returner(Truth truth, Pipe.SourceChannel there, Pipe.SinkChannel back) {
            super("returner", truth);
            this.there = there;
            this.back = back;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            ByteBuffer block = ByteBuffer.allocateDirect(4096);
            while (there.read(block) >= 0) {
                block.flip();
                while (block.hasRemaining()) {
                    back.write(block);
                }
                block.clear();
                sink++;
            }
            back.close();
        }
    }
}
