package com.tessel.prb.workanalysis;

import java.io.IOException;
import java.net.ServerSocket;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.List;
import java.util.function.BooleanSupplier;

/**
 * Starts and stops the sampler again and again and looks at this process's children as the
 * system lists them. Prints a line for each surprise and, at the end, the number of
 * comparisons; exits with 1 after a surprise. The first argument is the agent's path.
 */
final class ChildrenProbe {
    private static final int ACTIVATIONS = 10;
    private static final int MANY = 500; // polls of the process list, 20 ms apart

    private static int compared;
    private static int wrong;

    private ChildrenProbe() {}

    public static void main(String[] args) throws Exception {
        System.load(args[0]); // natives are found by their symbols
        long collector = Profiler.InitProfiler("debug=no", new Collector());
        try (ServerSocket server = new ServerSocket(0)) {
            same("has a socket", true, server.getLocalPort() > 0 && openSockets("self") > 0);
            same("children before", "[]", children().toString());
            for (int i = 1; i <= ACTIVATIONS && wrong == 0; i++) {
                start(collector);
                same("a child of " + i, true, eventually(() -> isReady(children())));
                // The one before has been collected by now: there is no zombie.
                same("children of " + i, 1, children().size());
                stop(collector);
                same("its end " + i, true, eventually(ChildrenProbe::noneLives));
            }
            for (int i = 1; i <= ACTIVATIONS && wrong == 0; i++) {
                start(collector);
                stop(collector); // mostly before the sampler's thread has woken up
            }
            Thread.sleep(200); // time to wake up in
            same("none stays", true, eventually(ChildrenProbe::noneLives));
            start(collector);
            same("a last child", true, eventually(() -> isReady(children())));
            same("the only child", 1, children().size());
            stop(collector);
        }
        System.out.println("compared " + compared);
        System.exit(wrong == 0 ? 0 : 1);
    }

    private static void start(long collector) {
        int type = 0x200 | 0x400;
        same("start", 0L, Profiler.handleInitiateCollection(collector, type, 1, 5, "*", "*"));
    }

    private static void stop(long collector) {
        same("stop", 0L, Profiler.handleStopCollection(collector));
    }

    private static void same(String what, Object expected, Object answered) {
        compared++;
        if (!expected.equals(answered)) {
            wrong++;
            System.out.println(what + ": expected " + expected + ", not " + answered);
        }
    }

    /** False when it has not come true after many looks. */
    private static boolean eventually(BooleanSupplier condition) {
        for (int i = 0; i < MANY; i++) {
            if (condition.getAsBoolean()) {
                return true;
            }
            try {
                Thread.sleep(20);
            } catch (InterruptedException e) {
                return false;
            }
        }
        return false;
    }

    /** One child, alive, that has let go of all it inherited and holds its two pipe ends. */
    private static boolean isReady(List<String> children) {
        if (children.size() != 1 || isZombie(children.get(0))) {
            return false;
        }
        String child = children.get(0).substring(2);
        List<String> open = descriptors(child);
        return open.size() == 2 && open.get(0).startsWith("pipe:")
                && open.get(1).startsWith("pipe:") && openSockets(child) == 0;
    }

    private static boolean noneLives() {
        for (String child : children()) {
            if (!isZombie(child)) {
                return false;
            }
        }
        return true;
    }

    private static boolean isZombie(String child) {
        return child.charAt(0) == 'Z';
    }

    /** This process's children, each as its state, a blank and its id. */
    private static List<String> children() {
        List<String> found = new ArrayList<>();
        String self = String.valueOf(BackgroundThread.getCurrentProcessIdNative());
        for (Path process : list(Paths.get("/proc"), "[0-9]*")) {
            String stat;
            try {
                stat = new String(Files.readAllBytes(process.resolve("stat")));
            } catch (IOException gone) {
                continue;
            }
            String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
            if (fields[1].equals(self)) {
                found.add(fields[0] + " " + process.getFileName());
            }
        }
        return found;
    }

    private static int openSockets(String process) {
        int sockets = 0;
        for (String target : descriptors(process)) {
            sockets += target.startsWith("socket:") ? 1 : 0;
        }
        return sockets;
    }

    private static List<String> descriptors(String process) {
        List<String> targets = new ArrayList<>();
        for (Path descriptor : list(Paths.get("/proc", process, "fd"), "*")) {
            try {
                targets.add(Files.readSymbolicLink(descriptor).toString());
            } catch (IOException gone) {
                continue;
            }
        }
        return targets;
    }

    private static List<Path> list(Path folder, String pattern) {
        List<Path> entries = new ArrayList<>();
        try (DirectoryStream<Path> stream = Files.newDirectoryStream(folder, pattern)) {
            stream.forEach(entries::add);
        } catch (IOException | java.nio.file.DirectoryIteratorException gone) {
            return entries;
        }
        return entries;
    }
}
