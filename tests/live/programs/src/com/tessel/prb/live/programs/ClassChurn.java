package com.tessel.prb.live.programs;

import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.util.HashMap;
import java.util.Map;
import java.util.concurrent.Callable;

/** Loads the same class over and over in loaders that are thrown away. --seconds N. */
public final class ClassChurn {
    private ClassChurn() {}

    /** The class that is loaded again and again. */
    public static final class Visitor implements Callable<Long> {
        private static final long SALT = Work.piece(7, 7);

        @Override
        public Long call() {
            long sum = SALT;
            for (int i = 0; i < 20; i++) {
                sum += once(i);
            }
            return sum;
        }

        private static long once(int i) {
            return Work.piece(i, 200);
        }
    }

    /** Has its own copies of the visitor and of what it uses; the rest comes from the parent. */
    private static final class ThrowAwayLoader extends ClassLoader {
        private final Map<String, byte[]> own;

        ThrowAwayLoader(Map<String, byte[]> own) {
            super(ClassChurn.class.getClassLoader());
            this.own = own;
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

    public static void main(String[] arguments) throws Exception {
        Map<String, byte[]> own = new HashMap<>();
        own.put(Visitor.class.getName(), codeOf(Visitor.class));
        own.put(Work.class.getName(), codeOf(Work.class));
        long deadline = Work.deadline(new Args(arguments).get("seconds", 2));
        long first = new Visitor().call();
        int loaded = 0;
        while (!Work.over(deadline) || loaded < 100) {
            Class<?> copy = new ThrowAwayLoader(own).loadClass(Visitor.class.getName());
            Callable<?> fresh = (Callable<?>) copy.getDeclaredConstructor().newInstance();
            Work.check(first, (Long) fresh.call());
            if (++loaded % 1000 == 0) {
                System.gc(); // So that the classes go, too.
            }
        }
        System.err.println("classes loaded " + loaded);
        Work.print(first);
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
