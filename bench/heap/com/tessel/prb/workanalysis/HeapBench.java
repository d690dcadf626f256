package com.tessel.prb.workanalysis;

import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Arrays;

/**
 * What heap data and the search for references cost in a heap of so many objects, each beside the
 * VM's own bare walk, in turns; medians. Arguments: the agent's path, objects, rounds.
 *
 * <p>A poll forces a collection first, whose time is measured alone in each round and taken off.
 * Use a collector with one thread (Serial), so that processor time is the elapsed time of an idle
 * machine.
 */
final class HeapBench {
    private static final int FIELDS_BEFORE_TIMES = 11; // of /proc/self/stat, behind the name
    private static final double TICK_MS = 10;

    static final class Node {
        Object next;
        Object other;
        int value;
    }

    static final class Target {}

    private static Object[] heap;

    /** A walk over all objects of the heap, whose classes are tagged; the callback adds up. */
    static native long walkObjects();

    /** A walk over all references of the heap; the callback counts. */
    static native long walkReferences();

    private interface Work {
        void run() throws Exception;
    }

    private static final class Figure {
        final String name;
        final Work work;
        final double[] cpu;
        final double[] elapsed;

        Figure(String name, int rounds, Work work) {
            this.name = name;
            this.work = work;
            cpu = new double[rounds];
            elapsed = new double[rounds];
        }

        void measure(int round) throws Exception {
            double cpuBefore = processMs();
            long before = System.nanoTime();
            work.run();
            elapsed[round] = (System.nanoTime() - before) / 1e6;
            cpu[round] = processMs() - cpuBefore;
        }

        double cpu() {
            return median(cpu);
        }

        void print(double less, int objects) {
            System.out.printf("  %-34s %8.0f ms processor, %8.0f ms elapsed, %6.0f ns an object%n",
                    name, cpu() - less, median(elapsed), (cpu() - less) * 1e6 / objects);
        }
    }

    /** User and system time of the process. */
    private static double processMs() throws Exception {
        String stat = new String(Files.readAllBytes(Paths.get("/proc/self/stat")));
        String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
        return (Long.parseLong(fields[FIELDS_BEFORE_TIMES])
                + Long.parseLong(fields[FIELDS_BEFORE_TIMES + 1])) * TICK_MS;
    }

    private static double median(double[] values) {
        double[] sorted = values.clone();
        Arrays.sort(sorted);
        return sorted[sorted.length / 2];
    }

    private static void fill(int objects) {
        heap = new Object[objects / 2];
        Node last = null;
        for (int i = 0; i < heap.length; i++) {
            Node node = new Node();
            node.next = last;
            node.other = i % 2 == 0 ? new int[i % 8] : new Object[] {node, last};
            heap[i] = node;
            last = i % 100 == 0 ? null : node;
        }
    }

    public static void main(String[] args) throws Exception {
        System.load(args[0]);
        final int objects = Integer.parseInt(args[1]);
        int rounds = Integer.parseInt(args[2]);
        fill(objects);
        final long collector = Profiler.InitProfiler("debug=no", new Collector());
        Profiler.handleInitiateCollection(collector, DataKind.bitOf("heap"), 1, 10, "*", "*");
        final Object[] targets = {new Target(), new Target()};
        ((Node) heap[7]).other = targets[0];
        ((Node) heap[heap.length - 7]).other = targets[1];

        Figure gc = new Figure("a forced collection", rounds, System::gc);
        Figure bareWalk = new Figure("bare walk over objects", rounds, HeapBench::walkObjects);
        Figure poll = new Figure("heap by class, collection taken off", rounds, () -> {
            if (Profiler.getProfilerData(collector, 0, null) == null) {
                throw new IllegalStateException("no heap data");
            }
        });
        Figure bareFollow = new Figure("bare walk over references", rounds,
                HeapBench::walkReferences);
        Figure references = new Figure("who refers to two objects", rounds, () -> {
            Object[] found = (Object[]) Profiler.getReferencesToObjectsNative(
                    collector, targets, Object.class);
            if (found == null || found.length < 3) {
                throw new IllegalStateException("not found");
            }
        });
        Figure[] all = {gc, bareWalk, poll, bareFollow, references};
        for (Figure figure : all) {
            figure.work.run();
        }
        for (int round = 0; round < rounds; round++) {
            for (Figure figure : all) {
                figure.measure(round);
            }
        }
        System.out.println(objects + " objects, medians of " + rounds + " rounds");
        for (Figure figure : all) {
            figure.print(figure == poll ? gc.cpu() : 0, objects);
        }
        System.exit(0);
    }
}
