package com.tessel.prb.live.known;

import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;

/**
 * What a program really used: CPU time per thread, from the start of the thread to its end, and
 * per method, from sections that are long beside the cost of reading the clock.
 */
final class Truth {
    private static final ThreadMXBean CLOCK = ManagementFactory.getThreadMXBean();

    /** What one thread measured; used by this thread until it is closed. */
    static final class Ledger {
        private final String thread;
        private final Map<String, Section> sections = new TreeMap<>();
        private long threadNs;
        private long blockedNs;

        private Ledger(String thread) {
            this.thread = thread;
        }

        /** Answers the section of a method, "class.method"; to be looked up before the loop. */
        Section section(Class<?> type, String method) {
            Section section = new Section();
            sections.put(type.getName() + "." + method, section);
            return section;
        }

        /** Wall time that the thread spent waiting for a monitor or for a signal. */
        void addBlocked(long ns) {
            blockedNs += ns;
        }

        /** Takes the CPU time of the whole life of the calling thread. */
        void close() {
            threadNs = cpuNs();
        }
    }

    /** CPU time of one method on one thread. */
    static final class Section {
        private long ns;

        void add(long more) {
            ns += more;
        }
    }

    private final List<Ledger> ledgers = new ArrayList<>();
    private final long beginNs = System.nanoTime();

    /** CPU time of the calling thread. */
    static long cpuNs() {
        return CLOCK.getCurrentThreadCpuTime();
    }

    /** A ledger for the calling thread, under its name. */
    synchronized Ledger open() {
        Ledger ledger = new Ledger(Thread.currentThread().getName());
        ledgers.add(ledger);
        return ledger;
    }

    /** Prints one JSON object; all ledgers are closed. */
    synchronized void print(String program, long sink) {
        Map<String, Long> methods = new TreeMap<>();
        Map<String, Long> threads = new TreeMap<>();
        Map<String, Long> blocked = new TreeMap<>();
        long total = 0;
        for (Ledger ledger : ledgers) {
            threads.put(ledger.thread, ledger.threadNs);
            blocked.put(ledger.thread, ledger.blockedNs);
            total += ledger.threadNs;
            for (Map.Entry<String, Section> section : ledger.sections.entrySet()) {
                Long before = methods.get(section.getKey());
                methods.put(section.getKey(), section.getValue().ns + (before == null ? 0 : before));
            }
        }
        StringBuilder json = new StringBuilder();
        json.append("{\"program\": \"").append(program).append("\", \"elapsed_ns\": ");
        json.append(System.nanoTime() - beginNs).append(", \"total_cpu_ns\": ").append(total);
        append(json, "threads", threads);
        append(json, "blocked_ns", blocked);
        append(json, "methods", methods);
        json.append(", \"sink\": ").append(sink).append("}");
        System.out.println(json);
    }

    private static void append(StringBuilder json, String name, Map<String, Long> values) {
        json.append(", \"").append(name).append("\": {");
        String joint = "";
        for (Map.Entry<String, Long> value : values.entrySet()) {
            json.append(joint).append('"').append(value.getKey()).append("\": ");
            json.append(value.getValue());
            joint = ", ";
        }
        json.append('}');
    }
}
