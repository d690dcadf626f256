package com.tessel.prb.workanalysis;

/**
 * The option text of the bridge, as far as the driver is concerned: key=value, comma between
 * them, "\," for a comma and "\\" for a backslash within a value. What it cannot understand is
 * said in one line and left out; an option never stops the program.
 */
final class DriverOptions {
    static final int DEFAULT_INTERVAL_MS = 10;
    static final long DEFAULT_POLL_MS = 1000;
    private static final int MAX_INTERVAL_MS = 60000;
    private static final long MIN_POLL_MS = 20;
    private static final long MAX_POLL_MS = 3600000;

    /** Keys that the bridge reads. */
    private static final String[] OF_THE_BRIDGE = {
        "lib", "jar", "driver", "fork", "frees", "recompile", "detach", "reply",
    };

    /** The text as given. */
    final String text;

    String file = "prb-%p.prb";
    String name = "";
    String lib = "";
    String dataAsked = DataKind.DEFAULTS;
    int dataBits = DataKind.bitsOf(split(DataKind.DEFAULTS));
    int intervalMs = DEFAULT_INTERVAL_MS;
    long pollMs = DEFAULT_POLL_MS;
    /** Masks joined by commas, as the agent wants them. */
    String classMasks = "*";
    String methodMasks = "*";
    /** The agent's own option text. */
    String agentOptions = "";
    /** Some methods are timed, which the bridge does; the times arrive with these kinds of data. */
    private boolean timed;

    DriverOptions(String optionText) {
        text = optionText == null ? "" : optionText;
        StringBuilder item = new StringBuilder();
        int equals = -1;
        // "quiet" counts wherever it stands, so the remarks wait for the end of the text.
        StringBuilder remarks = new StringBuilder();
        for (int i = 0; i <= text.length(); i++) {
            char c = i < text.length() ? text.charAt(i) : ',';
            if (i == text.length() || c == ',') {
                if (item.length() != 0) {
                    String key = equals < 0 ? item.toString() : item.substring(0, equals);
                    String value = equals < 0 ? "" : item.substring(equals + 1);
                    set(key, value, equals >= 0, remarks);
                }
                item.setLength(0);
                equals = -1;
                continue;
            }
            if (c == '\\' && i + 1 < text.length()
                    && (text.charAt(i + 1) == ',' || text.charAt(i + 1) == '\\')) {
                c = text.charAt(++i);
            } else if (c == '=' && equals < 0) {
                equals = item.length();
            }
            item.append(c);
        }
        if (timed) {
            dataBits |= DataKind.THREADS | DataKind.METHODS;
        }
        if (remarks.length() != 0) {
            Messages.remark(remarks.toString());
        }
    }

    /** The name of the capture file, with the process id where it asks for it. */
    static String expandFile(String pattern, int processId) {
        StringBuilder name = new StringBuilder();
        for (int i = 0; i < pattern.length(); i++) {
            char c = pattern.charAt(i);
            char next = i + 1 < pattern.length() ? pattern.charAt(i + 1) : 0;
            if (c == '%' && next == 'p') {
                name.append(processId);
                i++;
            } else if (c == '%' && next == '%') {
                name.append('%');
                i++;
            } else {
                name.append(c);
            }
        }
        return name.toString();
    }

    /** Splits at '+'; empty parts are skipped. */
    static String[] split(String list) {
        int count = 0;
        for (int pass = 0; ; pass++) {
            String[] parts = pass == 0 ? null : new String[count];
            count = 0;
            int start = 0;
            for (int i = 0; i <= list.length(); i++) {
                if (i == list.length() || list.charAt(i) == '+') {
                    if (i > start) {
                        if (parts != null) {
                            parts[count] = list.substring(start, i);
                        }
                        count++;
                    }
                    start = i + 1;
                }
            }
            if (parts != null) {
                return parts;
            }
        }
    }

    private void set(String key, String value, boolean hasValue, StringBuilder remarks) {
        if (key.startsWith("agent.")) {
            String item = key.substring(6) + (hasValue ? "=" + value : "");
            agentOptions = agentOptions.length() == 0 ? item : agentOptions + "," + item;
        } else if (key.equals("file")) {
            file = value.length() == 0 ? file : value;
        } else if (key.equals("name")) {
            name = value;
        } else if (key.equals("lib")) {
            lib = value;
        } else if (key.equals("data")) {
            setData(value, remarks);
        } else if (key.equals("interval")) {
            long given = decimal(value, 1);
            if (given < 1 || given > MAX_INTERVAL_MS) {
                remark(remarks, "interval '" + value + "' is not a number of milliseconds from 1"
                        + " to " + MAX_INTERVAL_MS + ", " + intervalMs + " is used");
            } else {
                intervalMs = (int) given;
            }
        } else if (key.equals("poll")) {
            long given = decimal(value, 1000);
            if (given < MIN_POLL_MS || given > MAX_POLL_MS) {
                remark(remarks, "poll '" + value + "' is not a number of seconds from 0.02 to 3600, "
                        + pollMs / 1000 + " is used");
            } else {
                pollMs = given;
            }
        } else if (key.equals("exact")) {
            timed = true;
        } else if (key.equals("classes")) {
            classMasks = masks(value);
        } else if (key.equals("methods")) {
            methodMasks = masks(value);
        } else if (key.equals("quiet")) {
            Messages.setQuiet(!value.equals("no"));
        } else {
            for (int i = 0; i < OF_THE_BRIDGE.length; i++) {
                if (OF_THE_BRIDGE[i].equals(key)) {
                    return;
                }
            }
            remark(remarks, "unknown option '" + key + "' is ignored");
        }
    }

    private void setData(String value, StringBuilder remarks) {
        String[] names = split(value);
        int bits = 0;
        for (int i = 0; i < names.length; i++) {
            int bit = DataKind.bitOf(names[i]);
            if (bit == 0) {
                remark(remarks, "unknown data '" + names[i] + "' is ignored, there are "
                        + DataKind.namesOf(DataKind.ALL_BITS, ", "));
            }
            bits |= bit;
        }
        if (bits != 0) {
            dataAsked = value;
            dataBits = bits;
        }
    }

    private static void remark(StringBuilder remarks, String text) {
        if (remarks.length() != 0) {
            remarks.append("; ");
        }
        remarks.append(text);
    }

    private static String masks(String value) {
        String[] parts = split(value);
        StringBuilder joined = new StringBuilder();
        for (int i = 0; i < parts.length; i++) {
            if (i != 0) {
                joined.append(',');
            }
            joined.append(parts[i]);
        }
        // An empty list would mean that nothing is measured, which nobody asks for.
        return joined.length() == 0 ? "*" : joined.toString();
    }

    /** Reads digits, with a fraction when the scale (a power of ten) leaves room; -1 if it is none. */
    private static long decimal(String value, long scale) {
        int point = value.indexOf('.');
        int wholeEnd = point < 0 ? value.length() : point;
        if (wholeEnd > 9 || value.length() == (point < 0 ? 0 : 1) || point >= 0 && scale == 1) {
            return -1;
        }
        long number = 0;
        long unit = scale;
        for (int i = 0; i < value.length(); i++) {
            char c = value.charAt(i);
            if (i == point) {
                continue;
            }
            if (c < '0' || c > '9') {
                return -1;
            }
            if (i < wholeEnd) {
                number = number * 10 + (c - '0') * scale;
            } else {
                unit /= 10; // Digits finer than the scale count nothing.
                number += (c - '0') * unit;
            }
        }
        return number;
    }
}
