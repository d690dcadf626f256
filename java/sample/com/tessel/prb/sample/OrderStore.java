package com.tessel.prb.sample;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.Iterator;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;

/** Everything that was sold, in memory, behind one monitor that all threads meet at. */
final class OrderStore {
    private static final int KEEP = 2000;

    /** What one customer has bought. */
    static final class Account {
        final int customer;
        long orders;
        long cents;

        Account(int customer) {
            this.customer = customer;
        }
    }

    private final LinkedHashMap<Long, Order> recent = new LinkedHashMap<>();
    private final Map<Integer, Account> accounts = new TreeMap<>();
    private final Map<Integer, Long> soldPieces = new HashMap<>();
    private long orders;
    private long cents;
    private long cleaned;

    synchronized void book(Order order, long total) {
        recent.put(order.id, order);
        Account account = accounts.get(order.customer);
        if (account == null) {
            account = new Account(order.customer);
            accounts.put(order.customer, account);
        }
        account.orders++;
        account.cents += total;
        for (int i = 0; i < order.products.length; i++) {
            Long sold = soldPieces.get(order.products[i]);
            soldPieces.put(order.products[i], (sold == null ? 0 : sold) + order.quantities[i]);
        }
        orders++;
        cents += total;
        if (recent.size() > KEEP) {
            notifyAll(); // The cleaner waits for this.
        }
    }

    /** Copies of the accounts, so that a report needs the monitor for a moment only. */
    synchronized List<Account> accounts() {
        List<Account> copies = new ArrayList<>();
        for (Account account : accounts.values()) {
            Account copy = new Account(account.customer);
            copy.orders = account.orders;
            copy.cents = account.cents;
            copies.add(copy);
        }
        return copies;
    }

    synchronized Map<Integer, Long> soldPieces() {
        return new TreeMap<>(soldPieces);
    }

    /** Waits until there is something to clean, or for the time; drops the oldest orders. */
    synchronized void clean(long maxWaitMs) throws InterruptedException {
        if (recent.size() <= KEEP) {
            wait(maxWaitMs);
        }
        Iterator<Order> oldest = recent.values().iterator();
        for (int surplus = recent.size() - KEEP / 2; surplus > 0; surplus--) {
            oldest.next();
            oldest.remove();
            cleaned++;
        }
    }

    synchronized long orders() {
        return orders;
    }

    synchronized long cents() {
        return cents;
    }

    synchronized long cleaned() {
        return cleaned;
    }
}
