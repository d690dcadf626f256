package com.tessel.prb.sample;

import java.util.Collections;
import java.util.Comparator;
import java.util.List;
import java.util.Map;

/** Writes a sales report again and again: sorts, formats, and leaves garbage behind. */
final class ReportWriter implements Runnable {
    private final OrderStore store;
    private final long periodMs;
    private volatile String latest = "nothing sold yet\n";
    private volatile int written;

    ReportWriter(OrderStore store, long periodMs) {
        this.store = store;
        this.periodMs = periodMs;
    }

    String latest() {
        return latest;
    }

    int written() {
        return written;
    }

    @Override
    public void run() {
        try {
            while (!Thread.currentThread().isInterrupted()) {
                latest = write(store.accounts(), store.soldPieces());
                written++;
                Thread.sleep(periodMs);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    private static String write(List<OrderStore.Account> accounts, Map<Integer, Long> sold) {
        Collections.sort(accounts, new Comparator<OrderStore.Account>() {
            @Override
            public int compare(OrderStore.Account a, OrderStore.Account b) {
                return Long.compare(b.cents, a.cents);
            }
        });
        StringBuilder report = new StringBuilder();
        report.append("customer      orders          total        average\n");
        for (OrderStore.Account account : accounts) {
            report.append(String.format("%8d %11d %14s %14s%n", account.customer, account.orders,
                    money(account.cents), money(account.cents / Math.max(1, account.orders))));
        }
        report.append("product       pieces\n");
        for (Map.Entry<Integer, Long> product : sold.entrySet()) {
            report.append(String.format("%8d %11d%n", product.getKey(), product.getValue()));
        }
        return report.toString();
    }

    private static String money(long cents) {
        return cents / 100 + "." + (cents / 10) % 10 + cents % 10;
    }
}
