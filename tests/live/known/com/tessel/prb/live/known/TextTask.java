package com.tessel.prb.live.known;

/** Counts words in bytes, with a state per byte. */
final class TextTask implements Task {
    private final byte[] text = new byte[80000];

    TextTask() {
        for (int i = 0; i < text.length; i++) {
            text[i] = (byte) (i * 7919 % 13 == 0 ? ' ' : 'a' + i * 31 % 26);
        }
    }

    @Override
    public String method() {
        return "perform";
    }

    @Override
    public long perform(long seed) {
        text[(int) (seed & 0xFFFF)] ^= 1;
        int words = 0;
        int vowels = 0;
        int length = 0;
        long hash = seed;
        for (int i = 0; i < text.length; i++) {
            byte c = text[i];
            if (c == ' ') {
                words += length > 0 ? 1 : 0;
                hash = hash * 131 + length;
                length = 0;
            } else {
                length++;
                if (c == 'a' || c == 'e' || c == 'i' || c == 'o' || c == 'u') {
                    vowels++;
                }
            }
        }
        return hash + words * 31L + vowels;
    }
}
