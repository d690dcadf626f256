package com.tessel.prb.live.known;

/** The one option of these programs: --seconds N, 20 without it. */
final class Seconds {
    private Seconds() {}

    static int of(String[] args) {
        if (args.length == 0) {
            return 20;
        }
        if (args.length != 2 || !args[0].equals("--seconds")) {
            throw new IllegalArgumentException("usage: [--seconds N]");
        }
        return Integer.parseInt(args[1]);
    }
}
