package com.tessel.prb.sample;

import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.HttpURLConnection;
import java.net.URL;
import java.nio.charset.StandardCharsets;

/** A customer that places one order after the other over HTTP and keeps its own books. */
final class LoadClient implements Runnable {
    private static final int REPORT_EVERY = 50;

    private final int customer;
    private final URL url;
    private volatile boolean stopping;
    private int orders;
    private long cents;
    private IOException failure;

    LoadClient(int customer, URL url) {
        this.customer = customer;
        this.url = url;
    }

    void stop() {
        stopping = true;
    }

    /** To be read when the thread has ended. */
    int orders() {
        return orders;
    }

    long cents() {
        return cents;
    }

    /** What ended the client early, or null. */
    IOException failure() {
        return failure;
    }

    @Override
    public void run() {
        try {
            while (!stopping) {
                cents += place(Order.generate(customer, orders));
                orders++;
                if (orders % REPORT_EVERY == 0) {
                    readReport();
                }
            }
        } catch (IOException e) {
            failure = e;
        }
    }

    private long place(Order order) throws IOException {
        HttpURLConnection connection = (HttpURLConnection) url.openConnection();
        connection.setRequestMethod("POST");
        connection.setDoOutput(true);
        byte[] body = order.format().getBytes(StandardCharsets.UTF_8);
        connection.setFixedLengthStreamingMode(body.length);
        try (OutputStream out = connection.getOutputStream()) {
            out.write(body);
        }
        try (InputStream in = connection.getInputStream()) {
            long total = Long.parseLong(OrderEndpoint.readAll(in));
            if (total < 0) {
                throw new IOException("order " + order.id + " was refused");
            }
            return total;
        }
    }

    private void readReport() throws IOException {
        try (InputStream in = url.openConnection().getInputStream()) {
            if (OrderEndpoint.readAll(in).length() == 0) {
                throw new IOException("the report is empty");
            }
        }
    }
}
