package com.tessel.prb.live.known;

/** Multiplies matrices. */
final class MatrixTask implements Task {
    private static final int SIZE = 96;

    private final double[][] left = new double[SIZE][SIZE];
    private final double[][] right = new double[SIZE][SIZE];
    private final double[][] product = new double[SIZE][SIZE];

    MatrixTask() {
        for (int i = 0; i < SIZE; i++) {
            for (int k = 0; k < SIZE; k++) {
                left[i][k] = 1.0 / (1 + i + k);
                right[i][k] = (i - k) * 0.01;
            }
        }
    }

    @Override
    public String method() {
        return "perform";
    }

    @Override
    public long perform(long seed) {
        left[(int) (seed & 63)][0] += 1e-9;
        for (int i = 0; i < SIZE; i++) {
            for (int k = 0; k < SIZE; k++) {
                double sum = 0;
                for (int m = 0; m < SIZE; m++) {
                    sum += left[i][m] * right[m][k];
                }
                product[i][k] = sum;
            }
        }
        return (long) (product[SIZE / 2][SIZE / 3] * 1e9);
    }
}
