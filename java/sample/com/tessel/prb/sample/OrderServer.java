package com.tessel.prb.sample;

import com.sun.net.httpserver.HttpServer;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.URL;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.ThreadFactory;
import java.util.concurrent.atomic.AtomicInteger;

/**
 * An order-processing server with its own customers: it runs for a fixed time and says how many
 * orders it processed. Usage: OrderServer [--seconds N] [--threads N] [--port N].
 */
public final class OrderServer {
    private static final int CHECKED_ORDERS = 300;

    private final Catalogue catalogue = new Catalogue();
    private final OrderStore store = new OrderStore();
    private final OrderQueue queue = new OrderQueue();
    private final ReportWriter reports = new ReportWriter(store, 250);
    private final List<Thread> workers = new ArrayList<>();
    private final List<Thread> background = new ArrayList<>();
    private final HttpServer http;
    private final ExecutorService httpThreads;

    private OrderServer(int port, int threads) throws IOException {
        for (int i = 1; i <= threads; i++) {
            workers.add(new Thread(new OrderWorker(queue, store, catalogue), "order-worker-" + i));
        }
        background.add(new Thread(reports, "report-writer"));
        background.add(new Thread(new StoreCleaner(store), "store-cleaner"));
        http = HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), port), 0);
        // One thread per customer: each waits while its order is priced.
        httpThreads = Executors.newFixedThreadPool(threads * 2, named("http-"));
        http.setExecutor(httpThreads);
        http.createContext("/orders", new OrderEndpoint(queue, reports));
    }

    public static void main(String[] args) throws Exception {
        long seconds = 10;
        int threads = 4;
        int port = 0;
        for (int i = 0; i < args.length; i += 2) {
            int value = i + 1 < args.length ? number(args[i + 1]) : -1;
            if (value < 0) {
                usage();
            } else if (args[i].equals("--seconds")) {
                seconds = value;
            } else if (args[i].equals("--threads") && value > 0) {
                threads = value;
            } else if (args[i].equals("--port") && value < 65536) {
                port = value;
            } else {
                usage();
            }
        }
        // An answer is two small writes: without this the second waits for an acknowledgement.
        System.setProperty("sun.net.httpserver.nodelay", "true");
        OrderServer server = new OrderServer(port, threads);
        System.exit(server.run(seconds, threads * 2) ? 0 : 1);
    }

    private boolean run(long seconds, int customers) throws Exception {
        long checksum = checksum();
        startAll(workers);
        startAll(background);
        http.start();
        int port = http.getAddress().getPort();
        String host = http.getAddress().getAddress().getHostAddress();
        URL url = new URL("http", host, port, "/orders");
        System.out.println("order server on " + host + ":" + port + " for " + seconds + " s");

        List<LoadClient> clients = new ArrayList<>();
        List<Thread> clientThreads = new ArrayList<>();
        for (int i = 1; i <= customers; i++) {
            LoadClient client = new LoadClient(i, url);
            clients.add(client);
            clientThreads.add(new Thread(client, "customer-" + i));
        }
        long begin = System.nanoTime();
        startAll(clientThreads);
        Thread.sleep(seconds * 1000);
        for (LoadClient client : clients) {
            client.stop();
        }
        joinAll(clientThreads);
        double elapsed = (System.nanoTime() - begin) / 1e9;
        close();
        return report(clients, elapsed, checksum);
    }

    private void close() throws InterruptedException {
        http.stop(0);
        httpThreads.shutdownNow();
        queue.close();
        joinAll(workers);
        for (Thread thread : background) {
            thread.interrupt();
        }
        joinAll(background);
    }

    /** Prints the figures; answers whether customers and store agree on what was sold. */
    private boolean report(List<LoadClient> clients, double elapsed, long checksum) {
        long orders = 0;
        long cents = 0;
        boolean failed = false;
        for (LoadClient client : clients) {
            orders += client.orders();
            cents += client.cents();
            if (client.failure() != null) {
                System.out.println("customer failed: " + client.failure());
                failed = true;
            }
        }
        boolean balanced = orders == store.orders() && cents == store.cents();
        System.out.println("orders            " + orders);
        System.out.println("orders per second " + Math.round(orders / elapsed * 10) / 10.0);
        System.out.println("reports written   " + reports.written());
        System.out.println("orders cleaned    " + store.cleaned());
        System.out.println("books             " + (balanced ? "balanced" : "NOT balanced"));
        System.out.println("checksum          " + Long.toHexString(checksum));
        return balanced && !failed;
    }

    /** Prices the same orders in every run: the result never changes. */
    private long checksum() {
        PricingEngine pricing = new PricingEngine(catalogue);
        long sum = 0;
        for (int n = 0; n < CHECKED_ORDERS; n++) {
            sum = sum * 31 + pricing.priceOrder(Order.parse(Order.generate(n % 8, n).format()));
        }
        return sum;
    }

    private static void startAll(List<Thread> threads) {
        for (Thread thread : threads) {
            thread.start();
        }
    }

    private static void joinAll(List<Thread> threads) throws InterruptedException {
        for (Thread thread : threads) {
            thread.join();
        }
    }

    private static ThreadFactory named(final String prefix) {
        final AtomicInteger next = new AtomicInteger();
        return new ThreadFactory() {
            @Override
            public Thread newThread(Runnable body) {
                return new Thread(body, prefix + next.incrementAndGet());
            }
        };
    }

    private static int number(String text) {
        try {
            return Integer.parseInt(text);
        } catch (NumberFormatException e) {
            return -1;
        }
    }

    private static void usage() {
        System.err.println("usage: OrderServer [--seconds N] [--threads N] [--port N]");
        System.exit(2);
    }
}
