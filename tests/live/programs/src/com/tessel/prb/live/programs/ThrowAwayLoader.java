package com.tessel.prb.live.programs;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.util.HashMap;
import java.util.Map;

/** Has its own copies of some classes, which go with it; the rest comes from the parent. */
final class ThrowAwayLoader extends ClassLoader {
    /** The classes to copy. */
    static final class Code {
        private final Map<String, byte[]> own = new HashMap<>();

        Code(Class<?>... types) throws IOException {
            for (Class<?> type : types) {
                own.put(type.getName(), codeOf(type));
            }
        }

        private static byte[] codeOf(Class<?> type) throws IOException {
            String name = type.getName();
            String file = name.substring(name.lastIndexOf('.') + 1) + ".class";
            try (InputStream in = type.getResourceAsStream(file)) {
                ByteArrayOutputStream all = new ByteArrayOutputStream();
                byte[] chunk = new byte[4096];
                for (int n = in.read(chunk); n >= 0; n = in.read(chunk)) {
                    all.write(chunk, 0, n);
                }
                return all.toByteArray();
            }
        }
    }

    private final Map<String, byte[]> own;

    ThrowAwayLoader(Code code) {
        super(ThrowAwayLoader.class.getClassLoader());
        own = code.own;
    }

    @Override
    protected Class<?> loadClass(String name, boolean resolve) throws ClassNotFoundException {
        byte[] code = own.get(name);
        if (code == null) {
            return super.loadClass(name, resolve);
        }
        Class<?> known = findLoadedClass(name);
        return known != null ? known : defineClass(name, code, 0, code.length);
    }
}
