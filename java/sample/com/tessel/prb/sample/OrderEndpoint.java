package com.tessel.prb.sample;

import com.sun.net.httpserver.HttpExchange;
import com.sun.net.httpserver.HttpHandler;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;

/** POST /orders: the body is an order, the answer its price. GET /orders: the last report. */
final class OrderEndpoint implements HttpHandler {
    private final OrderQueue queue;
    private final ReportWriter reports;

    OrderEndpoint(OrderQueue queue, ReportWriter reports) {
        this.queue = queue;
        this.reports = reports;
    }

    @Override
    public void handle(HttpExchange exchange) throws IOException {
        try {
            if (exchange.getRequestMethod().equals("POST")) {
                answer(exchange, place(readAll(exchange.getRequestBody())));
            } else {
                answer(exchange, reports.latest());
            }
        } catch (IllegalArgumentException | StringIndexOutOfBoundsException e) {
            exchange.sendResponseHeaders(400, -1);
        } catch (InterruptedException e) {
            exchange.sendResponseHeaders(503, -1);
            Thread.currentThread().interrupt();
        } finally {
            exchange.close();
        }
    }

    private String place(String text) throws InterruptedException {
        Order order = Order.parse(text);
        if (!queue.put(order)) {
            order.refuse();
        }
        return Long.toString(order.awaitTotal());
    }

    private static void answer(HttpExchange exchange, String text) throws IOException {
        byte[] body = text.getBytes(StandardCharsets.UTF_8);
        exchange.sendResponseHeaders(200, body.length == 0 ? -1 : body.length);
        exchange.getResponseBody().write(body);
    }

    static String readAll(InputStream in) throws IOException {
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        byte[] chunk = new byte[512];
        for (int n = in.read(chunk); n >= 0; n = in.read(chunk)) {
            all.write(chunk, 0, n);
        }
        return new String(all.toByteArray(), StandardCharsets.UTF_8);
    }
}
