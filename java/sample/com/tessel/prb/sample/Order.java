package com.tessel.prb.sample;

/** One order of a customer; priced once, by a worker, while the one who placed it waits. */
final class Order {
    static final int MAX_LINES = 6;
    static final int MAX_QUANTITY = 4000;

    final long id;
    final int customer;
    final int[] products;
    final int[] quantities;
    private long total = -1;
    private boolean refused;

    Order(long id, int customer, int[] products, int[] quantities) {
        this.id = id;
        this.customer = customer;
        this.products = products;
        this.quantities = quantities;
    }

    /** The order that a customer places as its n-th: always the same one. */
    static Order generate(int customer, int n) {
        Numbers numbers = new Numbers(customer * 1000003L + n);
        int lines = 2 + numbers.below(MAX_LINES - 1);
        int[] products = new int[lines];
        int[] quantities = new int[lines];
        for (int i = 0; i < lines; i++) {
            products[i] = numbers.below(Catalogue.PRODUCTS);
            quantities[i] = MAX_QUANTITY / 3 + numbers.below(MAX_QUANTITY * 2 / 3);
        }
        return new Order(customer * 10000000L + n, customer, products, quantities);
    }

    /** Reads "id;customer;product*quantity;...". */
    static Order parse(String text) {
        String[] parts = text.split(";");
        if (parts.length < 3 || parts.length > 2 + MAX_LINES) {
            throw new IllegalArgumentException("an order has 1 to " + MAX_LINES + " lines");
        }
        int[] products = new int[parts.length - 2];
        int[] quantities = new int[parts.length - 2];
        for (int i = 0; i < products.length; i++) {
            int star = parts[i + 2].indexOf('*');
            products[i] = Integer.parseInt(parts[i + 2].substring(0, star));
            quantities[i] = Integer.parseInt(parts[i + 2].substring(star + 1));
            if (products[i] < 0 || products[i] >= Catalogue.PRODUCTS || quantities[i] < 1
                    || quantities[i] > MAX_QUANTITY) {
                throw new IllegalArgumentException("no such line: " + parts[i + 2]);
            }
        }
        return new Order(Long.parseLong(parts[0]), Integer.parseInt(parts[1]), products,
                quantities);
    }

    String format() {
        StringBuilder text = new StringBuilder();
        text.append(id).append(';').append(customer);
        for (int i = 0; i < products.length; i++) {
            text.append(';').append(products[i]).append('*').append(quantities[i]);
        }
        return text.toString();
    }

    synchronized void setTotal(long cents) {
        total = cents;
        notifyAll();
    }

    synchronized void refuse() {
        refused = true;
        notifyAll();
    }

    /** Waits until the order is priced; answers -1 when the server closes before that. */
    synchronized long awaitTotal() throws InterruptedException {
        while (total < 0 && !refused) {
            wait();
        }
        return total;
    }
}
