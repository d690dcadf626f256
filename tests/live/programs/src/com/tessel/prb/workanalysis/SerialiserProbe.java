package com.tessel.prb.workanalysis;

import java.io.FileOutputStream;
import java.io.IOException;

/**
 * Serialises what its arguments say, so that another reader or writer can be compared byte for
 * byte. Usage: SerialiserProbe FILE ITEM..., with the items, in order:
 *
 * <pre>
 * begin:TYPE:SECONDS:DURATION   starts a record
 * number:KEY:VALUE              a numeric key of the sample (-1 is left out)
 * text:KEY:VALUE                a string key of the sample (empty is left out)
 * pair:KEY:VALUE                an extra number, always written
 * pairtext:KEY:VALUE            an extra text, always written
 * end                           ends the record
 * </pre>
 *
 * <p>With "-" as the FILE it prints the bytes as hexadecimal digits, one record chain per line.
 */
public final class SerialiserProbe {
    private SerialiserProbe() {}

    public static void main(String[] args) throws IOException {
        SampleWriter out = new SampleWriter();
        for (int i = 1; i < args.length; i++) {
            perform(out, args[i]);
        }
        if (args[0].equals("-")) {
            System.out.println(hex(out.buffer(), out.size()));
            return;
        }
        try (FileOutputStream file = new FileOutputStream(args[0])) {
            file.write(out.buffer(), 0, out.size());
        }
    }

    private static void perform(SampleWriter out, String item) {
        String[] parts = item.split(":", 4);
        String rest = parts.length < 3 ? "" : item.substring(parts[0].length() + parts[1].length() + 2);
        if (parts[0].equals("begin")) {
            out.begin(Integer.parseInt(parts[1]), Long.parseLong(parts[2]),
                    Integer.parseInt(parts[3]));
        } else if (parts[0].equals("number")) {
            out.number(Integer.parseInt(parts[1]), Long.parseLong(rest));
        } else if (parts[0].equals("text")) {
            out.text(Integer.parseInt(parts[1]), rest);
        } else if (parts[0].equals("pair")) {
            out.pair(Integer.parseInt(parts[1]), Long.parseLong(rest));
        } else if (parts[0].equals("pairtext")) {
            out.pair(Integer.parseInt(parts[1]), rest);
        } else if (parts[0].equals("end")) {
            out.end();
        } else {
            throw new IllegalArgumentException("no such item: " + item);
        }
    }

    private static String hex(byte[] bytes, int size) {
        StringBuilder digits = new StringBuilder();
        for (int i = 0; i < size; i++) {
            digits.append(Character.forDigit(bytes[i] >> 4 & 15, 16));
            digits.append(Character.forDigit(bytes[i] & 15, 16));
        }
        return digits.toString();
    }
}
