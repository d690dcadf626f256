package com.tessel.prb.live.programs;

/** Options of the form --name value. */
final class Args {
    private final String[] args;

    Args(String[] args) {
        this.args = args;
    }

    String get(String name, String otherwise) {
        for (int i = 0; i + 1 < args.length; i += 2) {
            if (args[i].equals("--" + name)) {
                return args[i + 1];
            }
        }
        return otherwise;
    }

    int get(String name, int otherwise) {
        return Integer.parseInt(get(name, Integer.toString(otherwise)));
    }
}
