package com.tessel.prb.sample;

import java.util.Arrays;

/** Finds the cheapest way to make up each line of an order from packs. One per worker. */
final class PricingEngine {
    private static final int UNREACHED = Integer.MAX_VALUE / 2;

    private final Catalogue catalogue;
    private final int[] cheapest = new int[Order.MAX_QUANTITY + 1];

    PricingEngine(Catalogue catalogue) {
        this.catalogue = catalogue;
    }

    /** Answers the price of the order in cents. This is where the server's time should go. */
    long priceOrder(Order order) {
        int[] sizes = catalogue.packSizes();
        int[] best = cheapest;
        long total = 0;
        for (int line = 0; line < order.products.length; line++) {
            int[] prices = catalogue.packPrices(order.products[line]);
            int quantity = order.quantities[line];
            best[0] = 0;
            Arrays.fill(best, 1, quantity + 1, UNREACHED);
            for (int pieces = 1; pieces <= quantity; pieces++) {
                int lowest = UNREACHED;
                for (int pack = 0; pack < sizes.length && sizes[pack] <= pieces; pack++) {
                    int price = best[pieces - sizes[pack]] + prices[pack];
                    // Handling costs grow with the number of packs that one shipment holds.
                    price += (pieces % (sizes[pack] + 7)) * 3 / (pack + 1);
                    if (price < lowest) {
                        lowest = price;
                    }
                }
                best[pieces] = lowest;
            }
            total += best[quantity];
        }
        return total;
    }
}
