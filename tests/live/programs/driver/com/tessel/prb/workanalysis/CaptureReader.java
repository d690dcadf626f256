package com.tessel.prb.workanalysis;

import java.io.DataInputStream;
import java.io.EOFException;
import java.io.File;
import java.io.FileInputStream;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** Reads captures, with no code of the writer's. */
final class CaptureReader {
    /** One record: its type and its fields in order, texts as String, numbers as Long. */
    static final class Sample {
        final int type;
        final Map<Integer, Object> fields = new LinkedHashMap<>();

        Sample(int type) {
            this.type = type;
        }
    }

    private CaptureReader() {}

    static List<Sample> read(File file) throws IOException {
        List<Sample> records = new ArrayList<>();
        try (DataInputStream in = new DataInputStream(new FileInputStream(file))) {
            while (true) {
                int length;
                try {
                    length = in.readInt();
                } catch (EOFException end) {
                    return records;
                }
                records.add(record(in, length));
            }
        }
    }

    private static Sample record(DataInputStream in, int length) throws IOException {
        if (in.readShort() != 0 || in.readShort() != 2) {
            throw new IOException("not a sample in native encoding");
        }
        Sample sample = new Sample(in.readInt());
        int left = length - 8;
        while (left > 0) {
            int kind = in.readInt();
            int key = in.readInt();
            Object value;
            if (kind == 1) {
                value = in.readLong();
                left -= 16;
            } else if (kind == 2) {
                byte[] text = new byte[in.readInt()];
                in.readFully(text);
                value = new String(text, StandardCharsets.UTF_8);
                left -= 12 + text.length;
            } else {
                throw new IOException("field of kind " + kind);
            }
            if (sample.fields.put(key, value) != null) {
                throw new IOException("key " + key + " twice");
            }
        }
        if (left != 0) {
            throw new IOException("fields end outside their record");
        }
        return sample;
    }
}
