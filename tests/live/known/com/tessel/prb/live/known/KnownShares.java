package com.tessel.prb.live.known;

import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.nio.ByteBuffer;
import java.nio.channels.Pipe;

/**
 * One kind of work per thread, in static methods: fixed shares, a counted loop that its caller
 * swallows, a recursion under a lock that another thread wants, a wait, bursts after a blocking
 * read, and an echo over a socket.
 */
public final class KnownShares {
    static final int TABLE = 4096;
    static final int[] table = new int[TABLE];
    static final Object lock = new Object();
    static final Object never = new Object();

    private KnownShares() {}

    public static void main(String[] args) throws Exception {
        int seconds = Seconds.of(args);
        Truth truth = new Truth();
        Truth.Ledger own = truth.open();
        for (int i = 0; i < TABLE; i++) {
            table[i] = i * 0x9E3779B1 >>> 3;
        }
        Pipe pipe = Pipe.open();
        ServerSocket listener = new ServerSocket(0, 1, InetAddress.getLoopbackAddress());
        Socket client = new Socket(listener.getInetAddress(), listener.getLocalPort());
        Socket server = listener.accept();
        client.setTcpNoDelay(true);
        server.setTcpNoDelay(true);
        Role[] roles = {
            new Mixer(truth), new Counter(truth), new Climber(truth), new Blocked(truth),
            new Waiter(truth), new Burster(truth, pipe.source()), new Feeder(truth, pipe.sink()),
            new EchoClient(truth, client), new EchoServer(truth, server),
        };
        for (Role role : roles) {
            role.start();
        }
        Thread.sleep(seconds * 1000L);
        for (Role role : roles) {
            role.finish();
        }
        synchronized (never) {
            never.notifyAll();
        }
        long sink = 0;
        for (Role role : roles) {
            sink += role.await();
        }
        client.close();
        server.close();
        listener.close();
        own.close();
        truth.print("KnownShares", sink);
    }

    /** Four methods that share a thread 45 : 30 : 15 : 10, give or take the processor. */
    private static final class Mixer extends Role {
        Mixer(Truth truth) {
            super("mixer", truth);
        }

        @Override
        void play(Truth.Ledger ledger) {
            Truth.Section alpha = ledger.section(KnownShares.class, "alpha");
            Truth.Section beta = ledger.section(KnownShares.class, "beta");
            Truth.Section gamma = ledger.section(KnownShares.class, "gamma");
            Truth.Section delta = ledger.section(KnownShares.class, "delta");
            long begin = Truth.cpuNs();
            while (running()) {
                sink += alpha(450000, (int) sink);
                long afterAlpha = Truth.cpuNs();
                sink += beta(570000, (int) sink);
                long afterBeta = Truth.cpuNs();
                sink += gamma(135000, (int) sink);
                long afterGamma = Truth.cpuNs();
                sink += delta(149000, (int) sink);
                long end = Truth.cpuNs();
                alpha.add(afterAlpha - begin);
                beta.add(afterBeta - afterAlpha);
                gamma.add(afterGamma - afterBeta);
                delta.add(end - afterGamma);
                begin = end;
            }
        }
    }

    static int alpha(int steps, int seed) {
        int h = seed | 1;
        for (int i = 0; i < steps; i++) {
            h = h * 31 + table[h >>> 20];
            h ^= h >>> 11;
            if ((h & 0x3FF) == 0) {
                h += table[i & (TABLE - 1)];
            }
        }
        return h;
    }

    static int beta(int steps, int seed) {
        int low = seed;
        int high = ~seed;
        for (int i = 0; i < steps; i++) {
            int next = table[(low ^ i) & (TABLE - 1)];
            if (next > high) {
                high = next - (low >> 1);
            } else {
                low += next ^ high;
            }
        }
        return low ^ high;
    }

    static int gamma(int steps, int seed) {
        long product = seed | 1;
        for (int i = 0; i < steps; i++) {
            product = product * 6364136223846793005L + table[(int) (product >>> 52)];
            product ^= product >>> 29;
        }
        return (int) (product >>> 32);
    }

    static int delta(int steps, int seed) {
        double x = 1.0 + (seed & 0xFF) / 512.0;
        for (int i = 0; i < steps; i++) {
            x = x * 1.0000001 + table[i & (TABLE - 1)] * 1e-12;
            if (x > 2.0) {
                x -= 1.0;
            }
        }
        return (int) (x * 1e8);
    }

    /** A loop with polls, and within the same compiled code one that has none. */
    private static final class Counter extends Role {
        Counter(Truth truth) {
            super("counter", truth);
        }

        @Override
        void play(Truth.Ledger ledger) {
            Truth.Section spread = ledger.section(KnownShares.class, "spread");
            Truth.Section counted = ledger.section(KnownShares.class, "counted");
            while (running()) {
                sink += spread(500000L, 1400, (int) sink, spread, counted);
            }
        }
    }

    /** Own work first, then the counted loop, which is small and hot enough to be inlined here. */
    static int spread(long steps, int rounds, int seed, Truth.Section own, Truth.Section counted) {
        long begin = Truth.cpuNs();
        int h = seed;
        for (long i = 0; i < steps; i++) {
            h = h * 17 + table[(h ^ (int) i) & (TABLE - 1)];
            h ^= h >>> 9;
        }
        long middle = Truth.cpuNs();
        for (int i = 0; i < rounds; i++) {
            h = counted(table, h);
        }
        long end = Truth.cpuNs();
        own.add(middle - begin);
        counted.add(end - middle);
        return h;
    }

    /** The bound is fixed and small, so that compilers leave out every poll. */
    static int counted(int[] data, int seed) {
        int h = seed;
        for (int i = 0; i < 900; i++) {
            h = (h ^ data[i]) * 0x01000193;
        }
        return h;
    }

    /** Climbs a tree of calls while holding the lock, then lets it go for a moment. */
    private static final class Climber extends Role {
        Climber(Truth truth) {
            super("climber", truth);
        }

        @Override
        void play(Truth.Ledger ledger) throws InterruptedException {
            Truth.Section climb = ledger.section(KnownShares.class, "climb");
            while (running()) {
                synchronized (lock) {
                    long begin = Truth.cpuNs();
                    sink += climb(17, (int) sink);
                    climb.add(Truth.cpuNs() - begin);
                }
                Thread.sleep(1);
            }
        }
    }

    static int climb(int height, int seed) {
        int h = seed * 0x85EBCA6B + height;
        for (int i = 0; i < 8; i++) {
            h += table[(h >>> 20)];
            h ^= h << 7;
        }
        if (height == 0) {
            return h;
        }
        return climb(height - 1, h) ^ climb(height - 1, h + 1);
    }

    private static final class Blocked extends Role {
        Blocked(Truth truth) {
            super("blocked", truth);
        }

        @Override
        void play(Truth.Ledger ledger) {
            while (running()) {
                long begin = System.nanoTime();
                synchronized (lock) {
                    ledger.addBlocked(System.nanoTime() - begin);
                    sink++;
                }
                begin = System.nanoTime();
                Thread.yield();
            }
        }
    }

    private static final class Waiter extends Role {
        Waiter(Truth truth) {
            super("waiter", truth);
        }

        @Override
        void play(Truth.Ledger ledger) throws InterruptedException {
            long begin = System.nanoTime();
            synchronized (never) {
                while (running()) {
                    never.wait();
                }
            }
            ledger.addBlocked(System.nanoTime() - begin);
        }
    }

    /** Works for about 0.2 ms, then blocks in a read, over and over. */
    private static final class Burster extends Role {
        private final Pipe.SourceChannel source;

        Burster(Truth truth, Pipe.SourceChannel source) {
            super("burster", truth);
            this.source = source;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            Truth.Section burst = ledger.section(KnownShares.class, "burst");
            ByteBuffer one = ByteBuffer.allocateDirect(1);
            while (source.read(one) == 1) {
                one.clear();
                long begin = Truth.cpuNs();
                sink += burst(80000, (int) sink);
                burst.add(Truth.cpuNs() - begin);
            }
        }
    }

    static int burst(int steps, int seed) {
        int a = seed;
        int b = 1;
        for (int i = 0; i < steps; i++) {
            a += table[b & (TABLE - 1)];
            b = b * 5 + (a >>> 13);
            if ((b & 7) == 3) {
                a = Integer.rotateLeft(a, 5);
            }
        }
        return a ^ b;
    }

    private static final class Feeder extends Role {
        private final Pipe.SinkChannel pipe;

        Feeder(Truth truth, Pipe.SinkChannel pipe) {
            super("feeder", truth);
            this.pipe = pipe;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            ByteBuffer one = ByteBuffer.allocateDirect(1);
            while (running()) {
                Thread.sleep(1);
                pipe.write(one);
                one.clear();
                sink++;
            }
            pipe.close();
        }
    }

    /** Sends a line, waits for it to come back. */
    private static final class EchoClient extends Role {
        private final Socket socket;

        EchoClient(Truth truth, Socket socket) {
            super("echo-client", truth);
            this.socket = socket;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            byte[] line = new byte[64];
            InputStream in = socket.getInputStream();
            OutputStream out = socket.getOutputStream();
            while (running()) {
                line[0]++;
                out.write(line);
                for (int got = 0; got < line.length; ) {
                    int n = in.read(line, got, line.length - got);
                    if (n < 0) {
                        throw new IllegalStateException("the echo ended");
                    }
                    got += n;
                }
                sink++;
            }
            socket.shutdownOutput();
        }
    }

    private static final class EchoServer extends Role {
        private final Socket socket;

        EchoServer(Truth truth, Socket socket) {
            super("echo-server", truth);
            this.socket = socket;
        }

        @Override
        void play(Truth.Ledger ledger) throws Exception {
            byte[] chunk = new byte[256];
            InputStream in = socket.getInputStream();
            OutputStream out = socket.getOutputStream();
            for (int n = in.read(chunk); n >= 0; n = in.read(chunk)) {
                out.write(chunk, 0, n);
                sink++;
            }
        }
    }
}
