package com.tessel.prb.workanalysis;

import java.util.ArrayList;
import java.util.IdentityHashMap;
import java.util.List;
import java.util.Map;

/**
 * Asks the agent who refers to given objects, where that is known. Prints a line for each
 * difference and, at the end, the number of comparisons; exits with 1 after a difference. The
 * arguments: the agent's path, how many times each question is asked, how many objects lie
 * around, how many threads allocate and force collections meanwhile, and "polls" if another
 * thread polls heap data all the while.
 */
final class ReferencesProbe {
    private static int compared;
    private static int wrong;
    private static long collector;
    private static volatile boolean ended;
    private static boolean storm;

    static final class Target {
        long number;

        Target(long number) {
            this.number = number;
        }
    }

    interface Numbered {
        Object MARK = new StringBuilder("mark"); // counts among the fields of who implements it
        int FIRST = Integer.parseInt("1");
    }

    interface Named extends Numbered {
        String PREFIX = new String("prefix");
    }

    static class Base implements Named {
        static int made;
        byte small;
        Object base;
        long large;
    }

    static final class Derived extends Base implements Comparable<Derived> {
        static final Object LOCK = new Object();
        boolean flag;
        Object first;
        int between;
        Object second;
        double last;

        @Override
        public int compareTo(Derived other) {
            return between - other.between;
        }
    }

    static final class Statics implements Named {
        static int count = 3;
        static Object held;
        static long more = 4;
        static Object alsoHeld;
    }

    static final class Linked {
        Linked next;
        Object other;
    }

    /** Answers what was found, each once; an object that is there twice is a difference. */
    private static Map<Object, Boolean> ask(String what, Object[] targets) {
        Object[] found = (Object[]) Profiler.getReferencesToObjectsNative(
                collector, targets, Object.class);
        Map<Object, Boolean> set = new IdentityHashMap<>();
        if (found == null) {
            differ(what + ": no answer");
            return set;
        }
        for (Object object : found) {
            if (object == null) {
                if (storm) {
                    continue; // it died before it was fetched
                }
                differ(what + ": a null among " + found.length);
            } else if (set.put(object, true) != null) {
                differ(what + ": twice " + nameOf(object));
            }
        }
        return set;
    }

    private static void expect(String what, Object[] targets, Object... referrers) {
        Map<Object, Boolean> found = ask(what, targets);
        synchronized (ReferencesProbe.class) {
            ++compared;
            // The question itself refers to what it asks for.
            if (found.remove(targets) == null) {
                differ(what + ": the list of targets is missing");
            }
            found.remove(referrers); // when a referrer is a target too
            for (Object referrer : referrers) {
                if (found.remove(referrer) == null) {
                    differ(what + ": missing " + nameOf(referrer));
                }
            }
            for (Object more : found.keySet()) {
                differ(what + ": not expected " + nameOf(more));
            }
        }
    }

    private static synchronized void differ(String text) {
        ++wrong;
        System.out.println(text);
    }

    private static String nameOf(Object object) {
        return object instanceof Class ? "" + object : "a " + object.getClass().getName();
    }

    private static void questions() {
        Target target = new Target(1);
        Target other = new Target(2);
        Object[] one = {target};
        Object both = new Object[] {target, other}; // refers to the first one as well
        Object[] two = (Object[]) both;

        expect("nobody", one, both);
        Derived first = new Derived();
        first.first = target;
        expect("a field behind a superclass's and interfaces'", one, both, first);
        first.second = target;
        expect("two fields of one object", one, both, first);
        first.first = null;
        expect("the later of two fields", one, both, first);
        Derived inherits = new Derived();
        inherits.base = target;
        expect("an inherited field", one, both, first, inherits);
        first.second = other;
        expect("several targets", two, (Object) one, first, inherits);
        inherits.second = other;
        expect("several targets in one object", two, (Object) one, first, inherits);
        expect("one of them", one, both, inherits);
        inherits.base = null;
        expect("no more", one, both);

        Object[] array = new Object[100];
        array[99] = target;
        Target[] typed = {null, other, target};
        Object[][] outer = {array, typed};
        expect("arrays", one, both, array, typed);
        expect("an array of arrays", new Object[] {array}, (Object) outer);
        array[99] = null;
        typed[2] = null;
        outer[0] = null;
        expect("arrays that were cleared", one, both);

        Linked chain = new Linked();
        chain.next = new Linked();
        chain.next.next = new Linked();
        expect("the middle of a chain", new Object[] {chain.next}, chain);
        expect("its end", new Object[] {chain.next.next}, chain.next);
        chain.other = chain;
        expect("an object that refers to itself", new Object[] {chain}, chain);

        // Targets without references, and targets that are arrays of primitives.
        byte[] bytes = new byte[33];
        long[] longs = {7, 8};
        chain.other = bytes;
        chain.next.other = longs;
        expect("arrays of primitives", new Object[] {bytes, longs}, chain, chain.next);
        expect("nulls among the targets", new Object[] {null, bytes, null}, chain);

        Class<?> type = Linked.class;
        chain.other = type;
        Map<Object, Boolean> found = ask("a class", new Object[] {type});
        ++compared;
        if (!found.containsKey(chain) || found.containsKey(chain.next)) {
            differ("a class: not its referrer, or one that is none");
        }
        chain.other = null;
        if (two.length + outer.length == 0) {
            throw new IllegalStateException();
        }
    }

    /** Static fields are one set for the process: one thread asks. */
    private static void statics() {
        Target target = new Target(3);
        Object[] one = {target};
        Statics.alsoHeld = target;
        expect("a static field", one, Statics.class);
        Statics.held = target;
        expect("two static fields", one, Statics.class);
        Statics.alsoHeld = null;
        expect("the first of two static fields", one, Statics.class);
        Statics.held = null;
        expect("static fields that were cleared", one);
        expect("an interface's field", new Object[] {Numbered.MARK}, Numbered.class);
        expect("the field of an interface that extends one", new Object[] {Named.PREFIX},
                Named.class);
        expect("a static field of a class with interfaces", new Object[] {Derived.LOCK},
                Derived.class);
    }

    /** Many objects without anything to do with the question, and many answers. */
    private static void many(int objects) {
        Object[] all = new Object[objects];
        for (int i = 0; i < all.length; i++) {
            Linked linked = new Linked();
            linked.next = i % 3 == 0 || i == 0 ? null : (Linked) all[i - 1];
            linked.other = i % 2 == 0 ? new int[2] : null;
            all[i] = linked;
        }
        Target target = new Target(4);
        Object[] one = {target};
        List<Object> referrers = new ArrayList<>();
        for (int i = 0; i < objects; i += 1 + objects / 5000) {
            ((Linked) all[i]).other = target;
            referrers.add(all[i]);
        }
        expect("many", one, referrers.toArray());
        for (Object referrer : referrers) {
            ((Linked) referrer).other = null;
        }
        expect("many that let go", one);
    }

    private static final class Storm extends Thread {
        private Object last;

        Storm() {
            super("storm");
            setDaemon(true);
        }

        @Override
        public void run() {
            for (int i = 0; !ended; i++) {
                last = new Object[i % 500];
                if (i % 20000 == 0) {
                    System.gc();
                }
            }
        }
    }

    /** Polls of which each holds the classes of the heap: a dump of every object at each. */
    private static final class Polls extends Thread {
        Polls() {
            super("polls");
            Profiler.handleInitiateCollection(collector, DataKind.bitOf("heap"), 1, 10, "*", "*");
        }

        @Override
        public void run() {
            int polls = 0;
            for (; !ended; polls++) {
                byte[] records = Profiler.getProfilerData(collector, 0, null);
                if (records == null || records.length < 10000) {
                    differ("a poll without the heap's classes");
                    return;
                }
            }
            if (polls < 2) {
                differ("polls: " + polls);
            }
        }
    }

    private static Thread asking(final int rounds) {
        Thread thread = new Thread(new Runnable() {
            @Override
            public void run() {
                for (int i = 0; i < rounds; i++) {
                    questions();
                }
            }
        });
        thread.start();
        return thread;
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]); // natives are found by their symbols
        int rounds = Integer.parseInt(args[1]);
        collector = Profiler.InitProfiler("debug=no", new Collector());
        storm = !args[3].equals("0");
        for (int i = Integer.parseInt(args[3]); i > 0; i--) {
            new Storm().start();
        }
        Polls polls = args[4].equals("polls") ? new Polls() : null;
        if (polls != null) {
            polls.start();
        }
        Thread other = asking(rounds);
        for (int i = 0; i < rounds; i++) {
            questions();
            statics();
        }
        other.join();
        many(Integer.parseInt(args[2]));
        ended = true;
        if (polls != null) {
            polls.join();
        }
        System.out.println("compared " + compared);
        System.exit(wrong == 0 ? 0 : 1);
    }
}
