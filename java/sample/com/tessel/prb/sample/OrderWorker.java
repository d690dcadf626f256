package com.tessel.prb.sample;

/** Takes orders from the queue, prices and books them. */
final class OrderWorker implements Runnable {
    private final OrderQueue queue;
    private final OrderStore store;
    private final PricingEngine pricing;

    OrderWorker(OrderQueue queue, OrderStore store, Catalogue catalogue) {
        this.queue = queue;
        this.store = store;
        pricing = new PricingEngine(catalogue);
    }

    @Override
    public void run() {
        try {
            for (Order order = queue.take(); order != null; order = queue.take()) {
                long total = pricing.priceOrder(order);
                store.book(order, total);
                order.setTotal(total);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
