package com.tessel.prb.live.known;

/** Sorts by shells: branches that depend on the data, and no method of the library. */
final class SortTask implements Task {
    private static final int[] GAPS = {701, 301, 132, 57, 23, 10, 4, 1};

    private final int[] values = new int[6000];

    @Override
    public String method() {
        return "perform";
    }

    @Override
    public long perform(long seed) {
        long state = seed | 1;
        for (int i = 0; i < values.length; i++) {
            state = state * 6364136223846793005L + 1442695040888963407L;
            values[i] = (int) (state >>> 33);
        }
        for (int gap : GAPS) {
            for (int i = gap; i < values.length; i++) {
                int value = values[i];
                int k = i;
                while (k >= gap && values[k - gap] > value) {
                    values[k] = values[k - gap];
                    k -= gap;
                }
                values[k] = value;
            }
        }
        return values[values.length / 2];
    }
}
