package com.tessel.prb.live.known;

/** Evaluates polynomials: all of it in a counted loop that the caller swallows. */
final class PolynomialTask implements Task {
    private static final int DEGREE = 600;

    private final double[] coefficients = new double[DEGREE];

    PolynomialTask() {
        for (int i = 0; i < DEGREE; i++) {
            coefficients[i] = (i % 7 - 3) * 0.1;
        }
    }

    @Override
    public String method() {
        return "evaluate";
    }

    @Override
    public long perform(long seed) {
        double sum = (seed & 15) * 0.01;
        for (int i = 0; i < 250; i++) {
            sum = evaluate(0.5 + sum * 1e-4);
        }
        return (long) (sum * 1e12);
    }

    private double evaluate(double x) {
        double value = 0;
        for (int i = 0; i < DEGREE; i++) {
            value = value * x + coefficients[i];
        }
        return value;
    }
}
