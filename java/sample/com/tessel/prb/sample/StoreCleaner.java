package com.tessel.prb.sample;

/** Keeps the store small; waits most of the time. */
final class StoreCleaner implements Runnable {
    private static final long MAX_WAIT_MS = 500;

    private final OrderStore store;

    StoreCleaner(OrderStore store) {
        this.store = store;
    }

    @Override
    public void run() {
        try {
            while (true) {
                store.clean(MAX_WAIT_MS);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
