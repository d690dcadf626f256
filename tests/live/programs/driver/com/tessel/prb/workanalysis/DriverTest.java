package com.tessel.prb.workanalysis;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.FileInputStream;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;

/**
 * The driver against scripted natives: option texts, exact bytes, the sequence of calls, what is
 * said on standard error and what stands in the capture. Programs run in JVMs of their own.
 * Argument: a folder to work in.
 */
public final class DriverTest {
    private static int failures;
    private static File folder;

    private DriverTest() {}

    public static void main(String[] args) throws Exception {
        folder = new File(args[0]);
        folder.mkdirs();
        decimalsMasksAndEscapesOfOptions();
        whatIsWrongInOptionsIsLeftOut();
        fileNamesCarryTheProcessId();
        dataNamesAndBits();
        recordBytes();
        unsetValuesAreLeftOutAndPairsAreNot();
        largePollsAreCopiedWhole();
        requestsAreChecked();
        factsAreFound();
        bridgeOffersData();
        namesComeFromTheCommand();
        captureOfAPlainRun();
        optionsReachTheAgent();
        refusedDataIsNamed();
        nothingLeftToCollect();
        everyPollFailing();
        agentThatRefuses();
        noProfilerInterface();
        unwritablePath();
        fullDiskAtStart();
        fullDiskLater();
        stopWaitsForThePollThatRuns();
        interruptsChangeNothing();
        secondStart();
        hangingPollDelaysTheEndByTenSecondsAtMost();
        System.out.println(failures == 0 ? "all passed" : failures + " FAILED");
        System.exit(failures == 0 ? 0 : 1);
    }

    // Options.

    private static void decimalsMasksAndEscapesOfOptions() {
        DriverOptions options = new DriverOptions("file=a\\,b\\\\c%p,name=x=y,poll=0.25,"
                + "interval=7,classes=com.a.*+org.b.C,methods=get*,agent.debug=yes,"
                + "agent.filter=(A;B),data=gc+threads,lib=/l,jar=/j,driver=no,fork=plain");
        same("a,b\\c%p", options.file);
        same("x=y", options.name);
        same(250L, options.pollMs);
        same(7, options.intervalMs);
        same("com.a.*,org.b.C", options.classMasks);
        same("get*", options.methodMasks);
        same("debug=yes,filter=(A;B)", options.agentOptions);
        same(0x2200, options.dataBits);
        same("gc+threads", options.dataAsked);
        same("/l", options.lib);
        DriverOptions none = new DriverOptions(null);
        same("prb-%p.prb", none.file);
        same("", none.name);
        same(1000L, none.pollMs);
        same(10, none.intervalMs);
        same("*", none.classMasks);
        same("*", none.methodMasks);
        same("", none.agentOptions);
        same(0xC0600, none.dataBits);
        same(2000L, new DriverOptions("poll=2").pollMs);
        same(20L, new DriverOptions("poll=.0209").pollMs);
        same(3500L, new DriverOptions("poll=3.5").pollMs);
    }

    private static void whatIsWrongInOptionsIsLeftOut() {
        String[] polls = {"", ".", "x", "1.2.3", "0.019", "3600.001", "-1", "1e3", "9999999999"};
        for (String poll : polls) {
            same(1000L, new DriverOptions("quiet=yes,poll=" + poll).pollMs);
        }
        String[] intervals = {"", "0", "1.5", "60001", "ten", "99999999999999999999"};
        for (String interval : intervals) {
            same(10, new DriverOptions("quiet=yes,interval=" + interval).intervalMs);
        }
        same(0x200, new DriverOptions("quiet=yes,data=threads+nonsense").dataBits);
        same(0xC0600, new DriverOptions("quiet=yes,data=nonsense").dataBits);
        same("*", new DriverOptions("quiet=yes,methods=,classes=+").methodMasks);
        same("prb-%p.prb", new DriverOptions("quiet=yes,,file=,bogus,=,").file);
        Messages.setQuiet(false);
    }

    private static void fileNamesCarryTheProcessId() {
        same("/x/prb-77.prb", DriverOptions.expandFile("/x/prb-%p.prb", 77));
        same("77-77%q%p%", DriverOptions.expandFile("%p-%p%q%%p%", 77));
    }

    private static void dataNamesAndBits() {
        String[] names = {"threads", "methods", "contention", "heap", "gc", "alloc", "errors", "self"};
        int[] bits = {0x200, 0x400, 0x800, 0x1000, 0x2000, 0x8000, 0x40000, 0x80000};
        for (int i = 0; i < names.length; i++) {
            same(bits[i], DataKind.bitOf(names[i]));
            same(names[i], DataKind.namesOf(bits[i], "+"));
        }
        same(DataKind.ALL_BITS, DataKind.bitsOf(names));
        same(0, DataKind.bitOf("Threads"));
        same("threads+self", DataKind.namesOf(0x80200, "+"));
    }

    // Records.

    private static void recordBytes() {
        SampleWriter out = new SampleWriter();
        out.begin(SampleWriter.APPLICATION_SERVER, 0x123456789L, 2);
        out.number(SampleWriter.KEY_PROCESS_ID, 0x100000002L);
        out.text(SampleWriter.KEY_SERVER_NAME, "a\u00e4\u20ac");
        out.pair(2000, -2);
        out.pair(2001, "z");
        out.end();
        same("00000067" + "0000" + "0002" + "00000001"
                + "00000001" + "00000014" + "0000000123456789"
                + "00000001" + "00000015" + "0000000000000002"
                + "00000001" + "00000004" + "0000000100000002"
                + "00000002" + "00000005" + "00000006" + "61c3a4e282ac"
                + "00000001" + "000007d0" + "fffffffffffffffe"
                + "00000002" + "000007d1" + "00000001" + "7a", hex(out));
        out.clear(64);
        out.begin(SampleWriter.END_OF_SAMPLES, 5, 0);
        out.end();
        same("00000028" + "0000" + "0002" + "000003e6"
                + "00000001" + "00000014" + "0000000000000005"
                + "00000001" + "00000015" + "0000000000000000", hex(out));
    }

    private static void unsetValuesAreLeftOutAndPairsAreNot() {
        SampleWriter out = new SampleWriter();
        out.begin(1, -1, -1);
        out.number(4, -1);
        out.number(58, 0);
        out.text(5, "");
        out.text(5, null);
        out.pair(2000, -1);
        out.pair(2001, "");
        out.pair(2002, null);
        out.end();
        same("00000040" + "0000" + "0002" + "00000001"
                + "00000001" + "0000003a" + "0000000000000000"
                + "00000001" + "000007d0" + "ffffffffffffffff"
                + "00000002" + "000007d1" + "00000000"
                + "00000002" + "000007d2" + "00000000", hex(out));
    }

    private static void largePollsAreCopiedWhole() {
        byte[] poll = new byte[300001];
        for (int i = 0; i < poll.length; i++) {
            poll[i] = (byte) (i * 31);
        }
        SampleWriter out = new SampleWriter();
        out.append(poll);
        out.begin(998, 1, 0);
        out.end();
        same(poll.length + 44, out.size());
        same(true, Arrays.equals(poll, Arrays.copyOf(out.buffer(), poll.length)));
        out.clear(1000);
        same(0, out.size());
        same(1000, out.buffer().length);
    }

    private static void requestsAreChecked() throws InvalidRequest {
        DataRequest request = new DataRequest(0x600, 9);
        same(0x600L, request.getType());
        same(9, request.getThreadId());
        for (long wrong : new long[] {0, 0x100, 0x4000, 0x100000200L, -1}) {
            try {
                new DataRequest(wrong, 0);
                same("InvalidRequest", "nothing for " + wrong);
            } catch (InvalidRequest e) {
                same("no such data: 0x" + Long.toHexString(wrong), e.getMessage());
            }
        }
    }

    private static void factsAreFound() {
        String[] facts = {"version=1", null, "available=gc+heap", "availableX=no", "limits="};
        same("gc+heap", BridgeLink.fact(facts, "available"));
        same("1", BridgeLink.fact(facts, "version"));
        same("", BridgeLink.fact(facts, "limits"));
        same("", BridgeLink.fact(facts, "avail"));
        same(0, BridgeLink.readFacts().length); // Not bound here.
        same(0, BridgeLink.readCounters().length);
    }

    private static void bridgeOffersData() {
        String all = "quiet=yes,data=methods+contention+heap+gc+alloc+errors+self";
        String[] some = {"version=2", "available=threads+gc+alloc+what"};
        same(0xCA600, ProfilerDriver.available(new DriverOptions(all), some));
        same(0xC0600, ProfilerDriver.available(new DriverOptions(all), new String[0]));
        same(0x2000, ProfilerDriver.available(new DriverOptions("data=gc"), some));
        Messages.setQuiet(false);
    }

    private static void namesComeFromTheCommand() {
        same("com.x.Main", RunFacts.mainOf("com.x.Main --password secret"));
        same("app.jar", RunFacts.mainOf("/opt/lib/app.jar -v"));
        same("com.x.Main", RunFacts.mainOf("module/com.x.Main"));
        same("java", RunFacts.mainOf(""));
        same(32, RunFacts.wordBits("32", "i386"));
        same(64, RunFacts.wordBits("64", "amd64"));
        same(64, RunFacts.wordBits("unknown", "aarch64"));
        same(32, RunFacts.wordBits("", "i386"));
    }

    // Programs.

    private static void captureOfAPlainRun() throws Exception {
        File file = capture("plain.prb");
        Run run = run(350, "return", "file=" + file + ",poll=0.1,name=shop");
        same("InitProfiler '' Collector\n"
                + "initiate 42 0xc0600 1 10 * *\n"
                + "running true\n"
                + "poll 42 0 null on PRB_Poller_Thread in system, loader null, daemon true\n"
                + "stop 42\nstopped false\nend\n", run.output);
        same("", run.errors);
        same(0, run.code);
        List<CaptureReader.Sample> records = CaptureReader.read(file);
        CaptureReader.Sample first = records.get(0);
        same(1, first.type);
        same(4711L, first.fields.get(4));
        same("shop", first.fields.get(5));
        same(1L, first.fields.get(RunFacts.FORMAT_VERSION));
        same(System.getProperty("java.vm.name"), first.fields.get(RunFacts.JVM_NAME));
        same(System.getProperty("java.vm.version"), first.fields.get(RunFacts.JVM_VERSION));
        same("com.tessel.prb.workanalysis.DriverProgram", first.fields.get(RunFacts.MAIN));
        same(1234L, first.fields.get(RunFacts.AGENT_BUILD_LEVEL));
        same(10L, first.fields.get(RunFacts.INTERVAL_MS));
        same(100L, first.fields.get(RunFacts.POLL_MS));
        same("threads+methods+errors+self", first.fields.get(RunFacts.DATA_GIVEN));
        same(0xC0600L, first.fields.get(RunFacts.COLLECTION_TYPE));
        same(0L, first.fields.get(RunFacts.POLLS));
        same(0L, first.fields.get(RunFacts.NANOSECONDS));
        same(null, first.fields.get(RunFacts.END_MS));
        same("[4, 5, 20, 21]", sortedBelow(first, 2000));
        // Batches: the record of the poll unless it gave none, and an end; the last one with the
        // facts again between the two.
        int polls = 0;
        long written = 0;
        for (int i = 1; i < records.size(); i++) {
            CaptureReader.Sample sample = records.get(i);
            if (sample.type == 10) {
                same(polls + 1L, sample.fields.get(2));
                continue;
            }
            if (sample.type == 1) {
                same(records.size() - 2, i);
                same(polls + 1L, sample.fields.get(RunFacts.POLLS));
                same((polls + 1) / 3L, sample.fields.get(RunFacts.EMPTY_POLLS));
                same(0L, sample.fields.get(RunFacts.BATCHES_LOST));
                written = (Long) sample.fields.get(RunFacts.BYTES_WRITTEN);
                same(true, sample.fields.get(RunFacts.END_MS) != null);
                same(first.fields.get(RunFacts.START_MS), sample.fields.get(RunFacts.START_MS));
                continue;
            }
            same(998, sample.type);
            same("[20, 21]", sortedBelow(sample, Integer.MAX_VALUE));
            polls++;
        }
        same(998, records.get(records.size() - 1).type);
        same(1, records.get(records.size() - 2).type);
        same(true, polls >= 2);
        same(true, written > 0 && written < file.length());
    }

    private static void optionsReachTheAgent() throws Exception {
        File file = capture("options.prb");
        Run run = run(0, "return", "file=" + file + ",poll=5.5,interval=20,data=methods,"
                + "classes=com.a.*+b.*,methods=get*,agent.debug=yes,agent.port=1,bogus=2");
        same("InitProfiler 'debug=yes,port=1' Collector\n"
                + "initiate 42 0x600 5 20 com.a.*,b.* get*\n", run.output.substring(0,
                run.output.indexOf("running")));
        same("prbprof: unknown option 'bogus' is ignored\n", run.errors);
        CaptureReader.Sample first = CaptureReader.read(file).get(0);
        same("methods", first.fields.get(RunFacts.DATA_ASKED));
        same("threads+methods", first.fields.get(RunFacts.DATA_GIVEN));
        same("com.a.*,b.*", first.fields.get(RunFacts.CLASS_MASKS));
        same("debug=yes,port=1", first.fields.get(RunFacts.AGENT_OPTIONS));
        same("com.tessel.prb.workanalysis.DriverProgram", first.fields.get(5));
    }

    private static void refusedDataIsNamed() throws Exception {
        String options = "file=" + capture("refused.prb")
                + ",data=threads+contention+heap+gc+alloc";
        Run run = run(0, "return", options);
        same("prbprof: cannot collect contention, heap, gc, alloc in this JVM; the rest goes on\n",
                run.errors);
        same(true, run.output.contains("initiate 42 0x200 1 10 * *\n"));
        same("", run(0, "return", options + ",quiet=yes").errors);
    }

    private static void nothingLeftToCollect() throws Exception {
        File file = capture("nothing.prb");
        Run run = run(0, "return", "data=gc,quiet=yes,file=" + file);
        same("running false\nstopped false\nend\n", run.output);
        same("prbprof: nothing is left to collect, the program runs unprofiled\n", run.errors);
        same(false, file.exists());
    }

    private static void everyPollFailing() throws Exception {
        File file = capture("throws.prb");
        Run run = run(250, "return", "file=" + file + ",poll=0.05", "-Dstub.poll=throw");
        same("prbprof: a poll failed: java.lang.IllegalStateException: scripted\n", run.errors);
        same(true, run.output.endsWith("stop 42\nstopped false\nend\n"));
        List<CaptureReader.Sample> records = CaptureReader.read(file);
        CaptureReader.Sample last = records.get(records.size() - 2);
        same("polls failed", last.fields.get(RunFacts.LIMITS));
        same(0L, last.fields.get(RunFacts.POLLS));
    }

    private static void agentThatRefuses() throws Exception {
        Run run = run(0, "return", "file=" + capture("code.prb"), "-Dstub.initiate=35");
        same("prbprof: the agent refuses the collection (code 35), the program runs unprofiled\n",
                run.errors);
        same(true, run.output.endsWith("running false\nstopped false\nend\n"));
    }

    private static void noProfilerInterface() throws Exception {
        File file = capture("none.prb");
        Run run = run(0, "return", "file=" + file, "-Dstub.collector=0");
        same("prbprof: this JVM does not offer the profiler interface: start it with -agentpath"
                + " and libprbbridge.so; the program runs unprofiled\n", run.errors);
        same("InitProfiler '' Collector\nrunning false\nstopped false\nend\n", run.output);
        same(false, file.exists());
    }

    private static void unwritablePath() throws Exception {
        Run run = run(0, "return", "file=/no/such/folder/x.prb");
        same("prbprof: cannot write the capture file: /no/such/folder/x.prb (No such file or"
                + " directory); give another one by file=, the program runs unprofiled\n",
                run.errors);
        same("running false\nstopped false\nend\n", run.output);
    }

    private static void fullDiskAtStart() throws Exception {
        Run run = run(100, "return", "file=/dev/full,poll=0.02");
        same("prbprof: cannot write the capture file: /dev/full: No space left on device; give"
                + " another one by file=, the program runs unprofiled\n", run.errors);
        same("InitProfiler '' Collector\nrunning false\nstopped false\nend\n", run.output);
    }

    /** A limit on the size of files is a full disk for a file that has something in it. */
    private static void fullDiskLater() throws Exception {
        File file = capture("limit.prb");
        // The signal of the limit is ignored, so that the write fails instead. 4 KB hold the
        // first record and some batches.
        Run run = shell("trap '' XFSZ; ulimit -f 4; exec \"$@\"", 1500, "return",
                "file=" + file + ",poll=0.02", "-XX:-UsePerfData");
        same("prbprof: cannot write to " + file + ": File too large; what is in the file stays,"
                + " later polls are tried again\n", run.errors);
        same(true, run.output.endsWith("stop 42\nstopped false\nend\n"));
        List<CaptureReader.Sample> records = CaptureReader.read(file); // Whole records only.
        same(998, records.get(records.size() - 1).type);
        same(true, records.size() > 10);
    }

    private static void stopWaitsForThePollThatRuns() throws Exception {
        File file = capture("slow.prb");
        Run run = run(300, "return", "file=" + file + ",poll=0.05", "-Dstub.poll=slow");
        same(true, run.output.contains("in poll\nstop 42\nstopped false\nend\n"));
        List<CaptureReader.Sample> records = CaptureReader.read(file);
        // The poll that ran, and the last one.
        same("[1, 10, 998, 10, 1, 998]", types(records).toString());
        same(2L, records.get(3).fields.get(2));
        same("", run.errors);
    }

    private static void interruptsChangeNothing() throws Exception {
        File file = capture("interrupted.prb");
        Run run = run(200, "interrupted", "file=" + file + ",poll=30");
        same(true, run.output.endsWith("stop 42\nstopped true\nend\n"));
        same("", run.errors);
        same("[1, 10, 1, 998]", types(CaptureReader.read(file)).toString());
    }

    private static void secondStart() throws Exception {
        Run run = run(0, "twice", "file=" + capture("twice.prb"));
        same("prbprof: the profiler is started already, the second start is ignored\n",
                run.errors);
    }

    private static void hangingPollDelaysTheEndByTenSecondsAtMost() throws Exception {
        File file = capture("hang.prb");
        Run run = run(300, "return", "file=" + file + ",poll=0.05", "-Dstub.poll=hang");
        same("prbprof: the last poll did not end within 10 s; " + file
                + " ends with the poll before it\n", run.errors);
        same(true, run.output.endsWith("in poll\nstopped false\nend\n"));
        same(0, run.code);
        same("[1]", types(CaptureReader.read(file)).toString());
    }

    // Helpers.

    private static final class Run {
        String output;
        String errors;
        int code;
    }

    private static Run run(int ms, String how, String options, String... jvmOptions)
            throws Exception {
        return shell(null, ms, how, options, jvmOptions);
    }

    private static Run shell(String script, int ms, String how, String options,
            String... jvmOptions) throws Exception {
        List<String> command = new ArrayList<>();
        if (script != null) {
            command.addAll(Arrays.asList("/bin/sh", "-c", script, "sh"));
        }
        command.add(System.getProperty("java.home") + "/bin/java");
        command.addAll(Arrays.asList(jvmOptions));
        command.addAll(Arrays.asList("-cp", System.getProperty("java.class.path"),
                DriverProgram.class.getName(), options, Integer.toString(ms), how));
        File errors = new File(folder, "errors.txt");
        Process process = new ProcessBuilder(command).redirectError(errors).start();
        process.getOutputStream().close();
        Run run = new Run();
        run.output = readAll(process.getInputStream());
        run.code = process.waitFor();
        try (InputStream in = new FileInputStream(errors)) {
            run.errors = readAll(in);
        }
        return run;
    }

    private static String readAll(InputStream in) throws IOException {
        ByteArrayOutputStream all = new ByteArrayOutputStream();
        byte[] chunk = new byte[4096];
        for (int n = in.read(chunk); n >= 0; n = in.read(chunk)) {
            all.write(chunk, 0, n);
        }
        return new String(all.toByteArray(), StandardCharsets.UTF_8);
    }

    /** A path for a capture; some have a longer, older file under it. */
    private static File capture(String name) throws IOException {
        File file = new File(folder, name);
        file.delete();
        if (name.equals("plain.prb") || name.equals("slow.prb")) {
            try (FileOutputStream older = new FileOutputStream(file)) {
                older.write(new byte[100000]);
            }
        }
        return file;
    }

    private static List<Integer> types(List<CaptureReader.Sample> records) {
        List<Integer> types = new ArrayList<>();
        for (CaptureReader.Sample record : records) {
            types.add(record.type);
        }
        return types;
    }

    private static String sortedBelow(CaptureReader.Sample sample, int limit) {
        List<Integer> keys = new ArrayList<>();
        for (Integer key : sample.fields.keySet()) {
            if (key < limit) {
                keys.add(key);
            }
        }
        Collections.sort(keys);
        return keys.toString();
    }

    private static String hex(SampleWriter out) {
        StringBuilder digits = new StringBuilder();
        for (int i = 0; i < out.size(); i++) {
            digits.append(Character.forDigit(out.buffer()[i] >> 4 & 15, 16));
            digits.append(Character.forDigit(out.buffer()[i] & 15, 16));
        }
        return digits.toString();
    }

    private static void same(Object expected, Object actual) {
        if (expected == null ? actual != null : !expected.equals(actual)) {
            failures++;
            StackTraceElement[] stack = new Throwable().getStackTrace();
            System.out.println("FAILED " + stack[1] + "\n  expected: " + expected
                    + "\n  actual:   " + actual);
        }
    }
}
