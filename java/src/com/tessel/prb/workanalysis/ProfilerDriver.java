package com.tessel.prb.workanalysis;

import java.io.File;
import java.io.IOException;

/**
 * Runs one collection: starts it, polls the agent from a thread of its own and appends what it
 * gives to the capture file. When it has ended another one can be started.
 *
 * <p>The bridge calls {@link #start} when the VM is up, or when somebody attaches to it, and
 * {@link #stop} when it goes down, or when he leaves. As a
 * -javaagent, {@link #premain} does the same with a shutdown hook. Nothing that goes wrong here
 * reaches the program: it is said in one line, and the program runs on.
 */
public final class ProfilerDriver implements Runnable {
    static final String POLLER_NAME = "PRB_Poller_Thread";

    /** How long the end of the JVM may be held up by a last poll that does not come back. */
    private static final long MAX_STOP_MS = 10000;

    /** A batch larger than this gives its memory back. */
    private static final int KEPT_BUFFER = 256 * 1024;

    private static final Object startLock = new Object();
    private static ProfilerDriver running;
    private static boolean hooked;

    private final Object lock = new Object();
    private final DriverOptions options;
    private final CaptureFile file;
    private final RunFacts facts;
    private final long collector;
    private final SampleWriter out = new SampleWriter();
    /** What the last poll asks for; null: what the collection gathers. */
    private DataRequest lastRequest;
    private boolean stopping;
    private boolean finished;
    private boolean failureSaid;

    private ProfilerDriver(DriverOptions options, CaptureFile file, RunFacts facts,
            long collector) {
        this.options = options;
        this.file = file;
        this.facts = facts;
        this.collector = collector;
    }

    /** Entry of -javaagent: the option text of the bridge, where lib= names the agent's library. */
    public static void premain(String optionText) {
        try {
            String lib = new DriverOptions(optionText).lib;
            System.load(lib.length() != 0 ? new File(lib).getAbsolutePath() : besideTheJar());
        } catch (Throwable t) {
            Messages.say("cannot load the agent: " + t + "; the program runs unprofiled");
            return;
        }
        start(optionText);
        stopAtShutdown();
    }

    /**
     * Stops by a shutdown hook. The bridge asks for it where the collector has ended before the
     * VM tells that it dies: Java code that allocates then may wait for memory for ever.
     */
    static void stopAtShutdown() {
        synchronized (startLock) {
            if (hooked || running == null) {
                return;
            }
            hooked = true;
            // Plain names for what a thread dump shows.
            Runtime.getRuntime().addShutdownHook(new Thread(null, new StopHook(), "PRB_Stop_Thread"));
        }
    }

    /** Starts the collection that the text asks for; never throws. */
    static void start(String optionText) {
        try {
            synchronized (startLock) {
                if (running != null) {
                    Messages.remark("the profiler is started already, the second start is ignored");
                    return;
                }
                running = launch(new DriverOptions(optionText));
            }
        } catch (Throwable t) {
            Messages.say("cannot start: " + t + "; the program runs unprofiled");
        }
    }

    /** Takes the last poll and closes the capture; never throws, waits 10 s at most. */
    static void stop() {
        try {
            ProfilerDriver driver;
            synchronized (startLock) {
                driver = running;
            }
            if (driver == null) {
                return;
            }
            // Whoever stops it too, meanwhile, waits as well.
            driver.finish();
            synchronized (startLock) {
                if (running == driver) {
                    running = null;
                }
            }
        } catch (Throwable t) {
            Messages.say("the capture may lack its end: " + t);
        }
    }

    /** The capture that is being written, as an absolute path; "" when no collection runs. */
    static String capture() {
        synchronized (startLock) {
            return running == null ? "" : new File(running.file.path()).getAbsolutePath();
        }
    }

    /** The body of the polling thread. */
    @Override
    public void run() {
        try {
            long pollNs = options.pollMs * 1000000L;
            long next = System.nanoTime() + pollNs;
            while (waitUntil(next)) {
                poll(false);
                // A poll that took longer than its period is not made up for.
                long now = System.nanoTime();
                next = now - next < pollNs ? next + pollNs : now + pollNs;
            }
            poll(true);
        } catch (Throwable t) {
            Messages.say("polling ended early: " + t);
        } finally {
            file.close();
            synchronized (lock) {
                finished = true;
                lock.notifyAll();
            }
        }
    }

    private static ProfilerDriver launch(DriverOptions options) throws InvalidRequest {
        int type = available(options, BridgeLink.readFacts());
        if (type == 0) {
            Messages.say("nothing is left to collect, the program runs unprofiled");
            return null;
        }
        int processId = BackgroundThread.getCurrentProcessIdNative();
        String path = DriverOptions.expandFile(options.file, processId);
        CaptureFile file;
        try {
            file = new CaptureFile(path);
        } catch (IOException e) {
            sayUnwritable(path, e);
            return null;
        }
        ProfilerDriver driver = null;
        try {
            driver = initiate(options, file, processId, type);
        } finally {
            if (driver == null) {
                file.abandon();
            }
        }
        return driver;
    }

    private static void sayUnwritable(String path, IOException e) {
        Messages.say("cannot write the capture file: " + CaptureFile.reason(e, path)
                + "; give another one by file= (prb: --out), the program runs unprofiled");
    }

    private static ProfilerDriver initiate(DriverOptions options, CaptureFile file, int processId,
            int type) throws InvalidRequest {
        long collector = Profiler.InitProfiler(options.agentOptions, new Collector());
        if (collector == 0) {
            Messages.say("this JVM does not offer the profiler interface: start it with"
                    + " -agentpath and libprbbridge.so; the program runs unprofiled");
            return null;
        }
        RunFacts facts = new RunFacts(options, processId, type);
        ProfilerDriver driver = new ProfilerDriver(options, file, facts, collector);
        if (countsOnlyAllocations(type)) {
            driver.lastRequest = new DataRequest(type | DataKind.HEAP, 0);
        }
        facts.write(driver.out, file, false);
        try {
            file.begin(driver.out.buffer(), driver.out.size());
        } catch (IOException e) {
            sayUnwritable(file.path(), e);
            return null;
        }
        driver.out.clear(KEPT_BUFFER);
        long code = Profiler.handleInitiateCollection(collector, type,
                (int) Math.max(1, options.pollMs / 1000), options.intervalMs,
                options.classMasks, options.methodMasks);
        if (code != 0) {
            Messages.say("the agent refuses the collection (code " + code
                    + "), the program runs unprofiled");
            return null;
        }
        try {
            startPoller(driver);
        } catch (Throwable t) {
            Profiler.handleStopCollection(collector);
            Messages.say("cannot start the polling thread: " + t
                    + "; the program runs unprofiled");
            return null;
        }
        return driver;
    }

    /**
     * Allocations are counted by class, and classes are told with a look at the heap. Without
     * heap data asked for, one look at the end tells the sums of the whole run.
     */
    private static boolean countsOnlyAllocations(int type) {
        String offered = BridgeLink.fact(BridgeLink.readFacts(), "available");
        return (type & (DataKind.ALLOC | DataKind.HEAP)) == DataKind.ALLOC
                && (DataKind.bitsOf(DriverOptions.split(offered)) & DataKind.HEAP) != 0;
    }

    /** Answers the collection type that is asked for, less what this JVM cannot give. */
    static int available(DriverOptions options, String[] facts) {
        int asked = options.dataBits;
        if ((asked & DataKind.METHODS) != 0) {
            asked |= DataKind.THREADS; // Nothing samples without it.
        }
        String offered = BridgeLink.fact(facts, "available");
        int can = DataKind.ALWAYS_AVAILABLE | DataKind.bitsOf(DriverOptions.split(offered));
        int refused = asked & ~can;
        if (refused != 0) {
            Messages.remark("cannot collect " + DataKind.namesOf(refused, ", ")
                    + " in this JVM; the rest goes on");
        }
        return asked & can;
    }

    /** The poller belongs to the system, not to a group or loader of the program. */
    private static void startPoller(ProfilerDriver driver) {
        ThreadGroup group = Thread.currentThread().getThreadGroup();
        while (group.getParent() != null) {
            group = group.getParent();
        }
        Thread poller = new Thread(group, driver, POLLER_NAME);
        poller.setDaemon(true);
        poller.setContextClassLoader(null);
        poller.start();
    }

    /** Sleeps; answers false as soon as the run ends. */
    private boolean waitUntil(long deadline) {
        synchronized (lock) {
            while (!stopping) {
                long left = deadline - System.nanoTime();
                if (left <= 0) {
                    return true;
                }
                try {
                    lock.wait(left / 1000000L, (int) (left % 1000000L));
                } catch (InterruptedException e) {
                    continue; // Somebody interrupts every thread there is: not us.
                }
            }
            return false;
        }
    }

    private void poll(boolean last) {
        long begin = System.nanoTime();
        try {
            byte[] records = Profiler.getProfilerData(collector, 0, last ? lastRequest : null);
            facts.polls++;
            if (records == null) {
                facts.emptyPolls++;
            } else {
                facts.largestPoll = Math.max(facts.largestPoll, records.length);
                out.append(records);
            }
        } catch (Throwable t) {
            sayFailure("a poll failed: " + t);
            facts.limits = "polls failed";
        }
        if (last) {
            Profiler.handleStopCollection(collector);
        }
        facts.pollNs += System.nanoTime() - begin;
        try {
            if (last) {
                facts.write(out, file, true);
            }
            out.begin(SampleWriter.END_OF_SAMPLES, System.currentTimeMillis() / 1000, 0);
            out.end();
            flush();
        } catch (Throwable t) {
            sayFailure("a poll is lost: " + t);
            facts.limits = "polls failed";
            out.clear(KEPT_BUFFER);
        }
    }

    private void flush() {
        file.write(out.buffer(), out.size());
        out.clear(KEPT_BUFFER);
    }

    /** Once: a program that runs out of memory fails every poll. */
    private void sayFailure(String text) {
        if (!failureSaid) {
            failureSaid = true;
            Messages.say(text);
        }
    }

    /** Lets the poller take the last poll and waits for it, whatever thread this is. */
    private void finish() {
        long deadline = System.nanoTime() + MAX_STOP_MS * 1000000L;
        boolean interrupted = false;
        boolean ended;
        synchronized (lock) {
            stopping = true;
            lock.notifyAll();
            while (!finished) {
                long left = (deadline - System.nanoTime()) / 1000000L;
                if (left <= 0) {
                    break;
                }
                try {
                    lock.wait(left);
                } catch (InterruptedException e) {
                    interrupted = true;
                }
            }
            ended = finished;
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
        if (!ended) {
            Messages.say("the last poll did not end within " + MAX_STOP_MS / 1000 + " s; "
                    + file.path() + " ends with the poll before it");
        }
    }

    /** libprbprof.so in the folder of the jar that this class comes from. */
    private static String besideTheJar() throws Exception {
        File jar = new File(ProfilerDriver.class.getProtectionDomain().getCodeSource()
                .getLocation().toURI());
        return new File(jar.getParentFile(), "libprbprof.so").getPath();
    }

    private static final class StopHook implements Runnable {
        StopHook() {}

        @Override
        public void run() {
            stop();
        }
    }
}
