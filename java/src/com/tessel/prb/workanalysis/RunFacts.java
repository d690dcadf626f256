package com.tessel.prb.workanalysis;

/**
 * What the Application Server record tells about the run beyond its own keys: pairs under keys
 * from 2000 up. This is the table of them; docs/capture-format.md is its text.
 */
final class RunFacts {
    static final int FORMAT_VERSION = 2000;
    static final int JVM_NAME = 2001;
    static final int JVM_VERSION = 2002;
    static final int JVM_VENDOR = 2003;
    static final int WORD_BITS = 2004;
    static final int JAVA_VERSION = 2005;
    static final int MAIN = 2006;
    static final int SYSTEM = 2007;
    static final int PROCESSORS = 2008;
    static final int AGENT_BUILD_LEVEL = 2009;
    static final int JAVA_BUILD_LEVEL = 2010;
    static final int BRIDGE_VERSION = 2011;
    static final int OPTIONS = 2012;
    static final int AGENT_OPTIONS = 2013;
    static final int INTERVAL_MS = 2014;
    static final int POLL_MS = 2015;
    static final int DATA_ASKED = 2016;
    static final int DATA_GIVEN = 2017;
    static final int COLLECTION_TYPE = 2018;
    static final int CLASS_MASKS = 2019;
    static final int METHOD_MASKS = 2020;
    static final int NANOSECONDS = 2021;
    static final int START_MS = 2022;
    static final int BRIDGE_FACTS = 2023;
    static final int NOW_MS = 2030;
    static final int ELAPSED_NS = 2031;
    static final int POLLS = 2032;
    static final int EMPTY_POLLS = 2033;
    static final int BATCHES_LOST = 2034;
    static final int BYTES_WRITTEN = 2035;
    static final int LARGEST_POLL = 2036;
    static final int POLL_NS = 2037;
    static final int LIMITS = 2038;
    static final int END_MS = 2039;
    static final int COUNTER_NAMES = 2099;
    static final int FIRST_COUNTER = 2100;

    static final int CURRENT_FORMAT = 1;

    private final DriverOptions options;
    private final int processId;
    private final String main;
    private final int type;
    private final long startMs = System.currentTimeMillis();
    private final long startNs = System.nanoTime();

    /** What the driver counts while the run lasts; the poller's alone. */
    int polls;
    int emptyPolls;
    int largestPoll;
    long pollNs;
    String limits = "";

    RunFacts(DriverOptions options, int processId, int type) {
        this.options = options;
        this.processId = processId;
        this.type = type;
        main = mainOf(property("sun.java.command"));
    }

    /** Writes the record; the last one of a run carries its end. */
    void write(SampleWriter out, CaptureFile file, boolean last) {
        long now = System.currentTimeMillis();
        String[] facts = BridgeLink.readFacts();
        out.begin(SampleWriter.APPLICATION_SERVER, now / 1000, 0);
        out.number(SampleWriter.KEY_PROCESS_ID, processId);
        out.text(SampleWriter.KEY_SERVER_NAME, options.name.length() != 0 ? options.name : main);
        writeSetting(out, facts);
        writeProgress(out, facts, now, file);
        if (last) {
            out.pair(END_MS, now);
        }
        out.pair(COUNTER_NAMES, BridgeLink.fact(facts, "counters"));
        long[] counters = BridgeLink.readCounters();
        for (int i = 0; i < counters.length; i++) {
            out.pair(FIRST_COUNTER + i, counters[i]);
        }
        out.end();
    }

    private void writeSetting(SampleWriter out, String[] facts) {
        out.pair(FORMAT_VERSION, CURRENT_FORMAT);
        out.pair(JVM_NAME, property("java.vm.name"));
        out.pair(JVM_VERSION, property("java.vm.version"));
        out.pair(JVM_VENDOR, property("java.vm.vendor"));
        out.pair(WORD_BITS, wordBits(property("sun.arch.data.model"), property("os.arch")));
        out.pair(JAVA_VERSION, property("java.version"));
        out.pair(MAIN, main);
        out.pair(SYSTEM, property("os.name") + " " + property("os.version") + " "
                + property("os.arch"));
        out.pair(PROCESSORS, Runtime.getRuntime().availableProcessors());
        out.pair(AGENT_BUILD_LEVEL, Globals.getNativeLibraryBuildLevel());
        out.pair(JAVA_BUILD_LEVEL, Collector.BUILD_LEVEL);
        out.pair(BRIDGE_VERSION, BridgeLink.fact(facts, "version"));
        out.pair(OPTIONS, options.text);
        out.pair(AGENT_OPTIONS, options.agentOptions);
        out.pair(INTERVAL_MS, options.intervalMs);
        out.pair(POLL_MS, options.pollMs);
        out.pair(DATA_ASKED, options.dataAsked);
        out.pair(DATA_GIVEN, DataKind.namesOf(type, "+"));
        out.pair(COLLECTION_TYPE, type);
        out.pair(CLASS_MASKS, options.classMasks);
        out.pair(METHOD_MASKS, options.methodMasks);
        out.pair(NANOSECONDS, BridgeLink.fact(facts, "nanoseconds").equals("1") ? 1 : 0);
        out.pair(START_MS, startMs);
        StringBuilder lines = new StringBuilder();
        for (int i = 0; i < facts.length; i++) {
            lines.append(facts[i]).append('\n');
        }
        out.pair(BRIDGE_FACTS, lines.toString());
    }

    private void writeProgress(SampleWriter out, String[] facts, long now, CaptureFile file) {
        out.pair(NOW_MS, now);
        out.pair(ELAPSED_NS, System.nanoTime() - startNs);
        out.pair(POLLS, polls);
        out.pair(EMPTY_POLLS, emptyPolls);
        out.pair(BATCHES_LOST, file.batchesLost());
        out.pair(BYTES_WRITTEN, file.bytesWritten());
        out.pair(LARGEST_POLL, largestPoll);
        out.pair(POLL_NS, pollNs);
        String ofTheBridge = BridgeLink.fact(facts, "limits");
        boolean both = ofTheBridge.length() != 0 && limits.length() != 0;
        out.pair(LIMITS, ofTheBridge + (both ? "; " : "") + limits);
    }

    /**
     * The main class or jar of a command, without its folder. The arguments are not kept: they
     * may hold what a capture file must not show.
     */
    static String mainOf(String command) {
        int end = command.indexOf(' ');
        String first = end < 0 ? command : command.substring(0, end);
        String name = first.substring(first.lastIndexOf('/') + 1);
        return name.length() == 0 ? "java" : name;
    }

    static int wordBits(String dataModel, String architecture) {
        if (dataModel.equals("32") || dataModel.equals("64")) {
            return dataModel.equals("32") ? 32 : 64;
        }
        return architecture.indexOf("64") >= 0 ? 64 : 32;
    }

    static String property(String name) {
        String value = System.getProperty(name);
        return value == null ? "" : value;
    }
}
