package com.tessel.prb.sample;

/** The products, each sold in packs of several sizes; larger packs are cheaper by the piece. */
final class Catalogue {
    static final int PRODUCTS = 64;
    private static final int[] PACK_SIZES = {1, 3, 5, 8, 12, 20, 25, 40, 60, 75, 100, 144};

    private final int[][] packPrices = new int[PRODUCTS][PACK_SIZES.length];

    Catalogue() {
        Numbers numbers = new Numbers(20240229);
        for (int product = 0; product < PRODUCTS; product++) {
            int piece = 150 + numbers.below(850);
            for (int pack = 0; pack < PACK_SIZES.length; pack++) {
                // Up to 30 % off, with some noise, so that the best combination is not obvious.
                int percent = 100 - 30 * pack / PACK_SIZES.length + numbers.below(7) - 3;
                packPrices[product][pack] = piece * PACK_SIZES[pack] * percent / 100;
            }
        }
    }

    int[] packSizes() {
        return PACK_SIZES;
    }

    /** Prices in cents, one per pack size. */
    int[] packPrices(int product) {
        return packPrices[product];
    }
}
