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
        DriverParts.test();
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
                + " directory); give another one by file= (prb: --out), the program runs unprofiled\n",
                run.errors);
        same("running false\nstopped false\nend\n", run.output);
    }

    private static void fullDiskAtStart() throws Exception {
        Run run = run(100, "return", "file=/dev/full,poll=0.02");
        same("prbprof: cannot write the capture file: /dev/full: No space left on device; give"
                + " another one by file= (prb: --out), the program runs unprofiled\n", run.errors);
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

    static void same(Object expected, Object actual) {
        if (expected == null ? actual != null : !expected.equals(actual)) {
            failures++;
            StackTraceElement[] stack = new Throwable().getStackTrace();
            System.out.println("FAILED " + stack[1] + "\n  expected: " + expected
                    + "\n  actual:   " + actual);
        }
    }
}
