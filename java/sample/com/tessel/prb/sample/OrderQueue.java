package com.tessel.prb.sample;

import java.util.ArrayDeque;

/** Orders on their way from the network to the workers; a full queue holds the network up. */
final class OrderQueue {
    private static final int CAPACITY = 64;

    private final ArrayDeque<Order> waiting = new ArrayDeque<>();
    private boolean closed;

    /** Answers whether the order was taken. */
    synchronized boolean put(Order order) throws InterruptedException {
        while (waiting.size() >= CAPACITY && !closed) {
            wait();
        }
        if (closed) {
            return false;
        }
        waiting.add(order);
        notifyAll();
        return true;
    }

    /** Answers null when the queue is closed and empty. */
    synchronized Order take() throws InterruptedException {
        while (waiting.isEmpty() && !closed) {
            wait();
        }
        Order order = waiting.poll();
        notifyAll();
        return order;
    }

    synchronized void close() {
        closed = true;
        notifyAll();
    }
}
