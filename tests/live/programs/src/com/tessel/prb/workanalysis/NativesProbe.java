package com.tessel.prb.workanalysis;

import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Arrays;
import java.util.Objects;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.AtomicReference;

/**
 * Calls the agent's natives in a JVM as Java code sees them, before and after initialisation,
 * and compares what they answer. Prints a line for each difference and, at the end, the number
 * of comparisons; exits with 1 after a difference. The first argument is the agent's path, the
 * second says whether there is a bridge: "alone" or "bridge".
 */
final class NativesProbe {
    private static int compared;
    private static int wrong;

    public static void main(String[] args) throws Exception {
        System.load(args[0]); // natives are found by their symbols
        withoutHandles();
        if (args[1].equals("alone")) {
            same("no profiler interface", 0L, Profiler.InitProfiler("debug=no", new Collector()));
        } else {
            collecting();
        }
        System.out.println("compared " + compared);
        System.exit(wrong == 0 ? 0 : 1);
    }

    private static void same(String what, Object expected, Object answered) {
        ++compared;
        if (!Objects.deepEquals(expected, answered)) {
            ++wrong;
            System.out.println(what + ": expected " + show(expected) + ", not " + show(answered));
        }
    }

    private static String show(Object value) {
        return value instanceof Object[] ? Arrays.toString((Object[]) value) : "" + value;
    }

    /** What needs no collector, and what every native answers to handles that are none. */
    private static void withoutHandles() throws Exception {
        same("level", 1204019, Globals.getNativeLibraryBuildLevel());
        same("too old", false, Globals.testJavaCompatibleBuildLevel(1203317));
        same("old enough", true, Globals.testJavaCompatibleBuildLevel(1203318));
        same("this side", true, Globals.testJavaCompatibleBuildLevel(Collector.getBuildLevel()));
        same("directory", Paths.get("").toAbsolutePath().toString(),
                Globals.getCurrentWorkingDirectoryNative());
        same("process", Integer.parseInt(Paths.get("/proc/self").toRealPath().getFileName().toString()),
                BackgroundThread.getCurrentProcessIdNative());
        same("address space", 0, BackgroundThread.getCurrentASIDNative());
        same("start parms", null, BackgroundThread.getStartParms());
        same("command parms", null, BackgroundThread.getCommandPromptParms());
        same("space name", null, BackgroundThread.getCurrentAddressSpaceName());
        same("space start", null, BackgroundThread.getCurrentAddressSpaceStartSTCKValue());
        same("task block", 0L, InstrumentedMethodEntry.getMVSTCBAddress());
        Globals.writeToMVSConsoleNative("text");
        Globals.writeToMVSConsoleNative(null);

        environment();
        hexDumps();
        Object text = "any text";
        same("converted", true, TransportableData.convertText(text) == text);
        same("converted null", null, TransportableData.convertText(null));

        same("id of null", 0, Profiler.getObjectId(null));
        same("size of null", 0, Profiler.getObjectSize(null));
        same("id of an object", true, Profiler.getObjectId(text) != 0);
        same("size of an unknown object", 0, Profiler.getObjectSize(new Object()));

        for (long handle : new long[] {0, 1, -1, 4096, 0x7FFFFFFF, Long.MIN_VALUE}) {
            String with = " with " + handle;
            same("start" + with, 0L, Profiler.handleInitiateCollection(handle, -1, 0, 0, null, null));
            same("stop" + with, 0L, Profiler.handleStopCollection(handle));
            same("poll" + with, null, Profiler.getProfilerData(handle, 0, null));
            same("references" + with, null,
                    Profiler.getReferencesToObjectsNative(handle, null, null));
            same("state" + with, (short) 0, InstrumentedStack.getStateNative(handle));
            Profiler.createNewInstrumentedProfilingEntry(null, handle);
            Profiler.removeTopInstrumentedProfilingEntry(null, handle);
            Collector.writeToInternalTraceNative(handle, "lost");
        }
        same("no table of nothing", 0L, Collector.initializeInternalTrace(0, 5));
        same("no table below zero", 0L, Collector.initializeInternalTrace(8, -1));
        long table = Collector.initializeInternalTrace(16, 3);
        same("a table", true, table != 0);
        for (int i = 0; i < 10; ++i) {
            Collector.writeToInternalTraceNative(table, "longer than the entry " + i);
        }
        Collector.writeToInternalTraceNative(table, null);
    }

    /** As many elements as the process has variables, all but the last filled in their order. */
    private static void environment() throws Exception {
        String[] raw = new String(Files.readAllBytes(Paths.get("/proc/self/environ"))).split("\0");
        String[] told = StaticConfigDataSampleSource.getEnvVars();
        same("variables", true, told != null && told.length > 1);
        same("the last", null, told[told.length - 1]);
        // The launcher may add variables of its own, which only the process's list shows.
        for (int i = 0; i + 1 < told.length; ++i) {
            same("a variable", true, told[i] != null && told[i].indexOf('=') > 0);
        }
        same("the one of the test", true,
                !Arrays.asList(raw).contains("PRB_PROBE=1")
                        || Arrays.asList(told).contains("PRB_PROBE=1"));
    }

    private static void hexDumps() {
        byte[] data = new byte[40];
        for (int i = 0; i < data.length; ++i) {
            data[i] = (byte) ('A' + i % 26);
        }
        String[] lines = AgentConnection.createHexDumpString(data, "a title");
        same("lines", true, lines != null && lines.length >= 3);
        same("the first", true, lines[0].startsWith("a title"));
        same("bytes", true, String.join("", lines).replace(" ", "").contains("41424344"));
        same("nothing", new String[] {"a title"},
                AgentConnection.createHexDumpString(new byte[0], "a title"));
        same("null", new String[] {"a title"}, AgentConnection.createHexDumpString(null, "a title"));
        same("nothing at all", new String[] {""}, AgentConnection.createHexDumpString(null, null));
    }

    /** Under the bridge: a collector, polled by two threads at once while it starts and stops. */
    private static void collecting() throws Exception {
        long collector = Profiler.InitProfiler("debug=no", new Collector());
        same("a handle", true, collector != 0);
        same("the same again", collector, Profiler.InitProfiler(null, null));
        same("present", true, Globals.determineIfProfilerPresent());
        same("another handle", null, Profiler.getProfilerData(collector + 8, 0, null));
        same("free at the last collection", -1L, Collector.getNumBytesFreeAtLastGC());
        same("total at the last collection", -1L, Collector.getTotalBytesAtLastGC());
        same("state", true, InstrumentedStack.registerWithProfilerNative() != 0);

        int type = 0x200 | 0x400 | 0x800 | 0x2000 | 0x40000 | 0x80000;
        same("start", 0L, Profiler.handleInitiateCollection(collector, type, 1, 5, "com.*", "*"));
        same("odd requests", true, Profiler.getProfilerData(collector, 7, "no request") != null);

        CountDownLatch go = new CountDownLatch(1);
        AtomicInteger polls = new AtomicInteger();
        AtomicReference<String> trouble = new AtomicReference<>();
        Thread[] pollers = new Thread[2];
        for (int t = 0; t < pollers.length; ++t) {
            pollers[t] = new Thread(() -> {
                try {
                    go.await();
                    for (int i = 0; i < 200; ++i) {
                        byte[] data = Profiler.getProfilerData(collector, 0, null);
                        String bad = framing(data);
                        if (bad != null) {
                            trouble.set(bad);
                        }
                        polls.incrementAndGet();
                    }
                } catch (Throwable e) {
                    trouble.set(e.toString());
                }
            }, "poller-" + t);
            pollers[t].start();
        }
        go.countDown();
        for (int i = 0; i < 100; ++i) {
            same("stop", 0L, Profiler.handleStopCollection(collector));
            same("start", 0L,
                    Profiler.handleInitiateCollection(collector, type, 1, 5, "com.*", "*"));
        }
        for (Thread poller : pollers) {
            poller.join();
        }
        same("polls", 400, polls.get());
        same("trouble", null, trouble.get());
        same("stop", 0L, Profiler.handleStopCollection(collector));
        same("stop again", 0L, Profiler.handleStopCollection(collector));
    }

    /** Null for a poll that is framed to its last byte and has its one resource record. */
    private static String framing(byte[] data) {
        if (data == null) {
            return "a poll without the resource record";
        }
        int resources = 0;
        int at = 0;
        while (at < data.length) {
            int length = number(data, at);
            if (length < 8 || length > data.length - at - 4) {
                return "a record of " + length + " bytes at " + at + " of " + data.length;
            }
            resources += number(data, at + 8) == 18 ? 1 : 0;
            at += 4 + length;
        }
        return resources == 1 ? null : resources + " resource records in one poll";
    }

    private static int number(byte[] data, int at) {
        return (data[at] & 0xFF) << 24 | (data[at + 1] & 0xFF) << 16 | (data[at + 2] & 0xFF) << 8
                | (data[at + 3] & 0xFF);
    }
}
