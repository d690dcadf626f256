package com.tessel.prb.workanalysis;

import java.nio.charset.StandardCharsets;

/**
 * Serialises framed sample records: 4 bytes of length, then encoding, data type, sample type and
 * fields, all big-endian. The order of the fields is the caller's: time and duration, the other
 * numeric keys of the sample, its string keys, then the pairs.
 *
 * <p>Not for use by several threads.
 */
final class SampleWriter {
    static final int APPLICATION_SERVER = 1;
    static final int END_OF_SAMPLES = 998;

    static final int KEY_PROCESS_ID = 4;
    static final int KEY_SERVER_NAME = 5;
    private static final int KEY_TIME = 20;
    private static final int KEY_DURATION = 21;

    private static final int NATIVE_ENCODING = 0;
    private static final int DATA_TYPE_SAMPLE = 2;
    private static final int FIELD_NUMBER = 1;
    private static final int FIELD_TEXT = 2;
    private static final long UNSET = -1;

    private byte[] bytes = new byte[2048];
    private int size;
    private int recordStart;

    /** Starts a record; seconds count from 1970, the duration is in seconds. */
    void begin(int sampleType, long seconds, int duration) {
        recordStart = size;
        putInt(0); // The length, known at the end.
        putShort(NATIVE_ENCODING);
        putShort(DATA_TYPE_SAMPLE);
        putInt(sampleType);
        number(KEY_TIME, seconds);
        number(KEY_DURATION, duration);
    }

    /** A numeric key of the sample: -1 is its "no value" and is left out. */
    void number(int key, long value) {
        if (value != UNSET) {
            pair(key, value);
        }
    }

    /** A string key of the sample: an empty text is its "no value" and is left out. */
    void text(int key, String value) {
        if (value != null && value.length() != 0) {
            pair(key, value);
        }
    }

    /** An extra value, written whatever it is. */
    void pair(int key, long value) {
        putInt(FIELD_NUMBER);
        putInt(key);
        putInt((int) (value >> 32));
        putInt((int) value);
    }

    /** An extra text, written even when empty; null is empty. */
    void pair(int key, String value) {
        byte[] utf8 = value == null ? new byte[0] : value.getBytes(StandardCharsets.UTF_8);
        putInt(FIELD_TEXT);
        putInt(key);
        putInt(utf8.length);
        putBytes(utf8);
    }

    /** Ends the record that was begun. */
    void end() {
        int length = size - recordStart - 4;
        bytes[recordStart] = (byte) (length >> 24);
        bytes[recordStart + 1] = (byte) (length >> 16);
        bytes[recordStart + 2] = (byte) (length >> 8);
        bytes[recordStart + 3] = (byte) length;
    }

    /** Appends records that are framed already. */
    void append(byte[] framed) {
        putBytes(framed);
    }

    int size() {
        return size;
    }

    /** The bytes so far are the first size() of this array, until the next call that writes. */
    byte[] buffer() {
        return bytes;
    }

    /** Forgets everything written; a buffer that one large poll has blown up is given back. */
    void clear(int keepAtMost) {
        size = 0;
        recordStart = 0;
        if (bytes.length > keepAtMost) {
            bytes = new byte[keepAtMost];
        }
    }

    private void putShort(int value) {
        ensure(2);
        bytes[size++] = (byte) (value >> 8);
        bytes[size++] = (byte) value;
    }

    private void putInt(int value) {
        ensure(4);
        bytes[size++] = (byte) (value >> 24);
        bytes[size++] = (byte) (value >> 16);
        bytes[size++] = (byte) (value >> 8);
        bytes[size++] = (byte) value;
    }

    private void putBytes(byte[] more) {
        ensure(more.length);
        System.arraycopy(more, 0, bytes, size, more.length);
        size += more.length;
    }

    private void ensure(int more) {
        if (bytes.length - size < more) {
            long wanted = Math.max((long) size + more, 2L * bytes.length);
            byte[] larger = new byte[(int) Math.min(wanted, Integer.MAX_VALUE - 8)];
            System.arraycopy(bytes, 0, larger, 0, size);
            bytes = larger;
        }
    }
}
