package com.tessel.prb.workanalysis;

/**
 * Stands in for the class of natives: tells what it is called with, on standard output, and
 * answers what system properties script.
 */
final class Profiler {
    private static int polls;

    private Profiler() {}

    static long InitProfiler(String options, Object collector) {
        System.out.println("InitProfiler '" + options + "' "
                + collector.getClass().getSimpleName());
        return Long.getLong("stub.collector", 42);
    }

    static long handleInitiateCollection(long collector, int type, int pollingFrequency,
            int samplingInterval, String classMasks, String methodMasks) {
        System.out.println("initiate " + collector + " 0x" + Integer.toHexString(type) + " "
                + pollingFrequency + " " + samplingInterval + " " + classMasks + " "
                + methodMasks);
        return Integer.getInteger("stub.initiate", 0);
    }

    static long handleStopCollection(long collector) {
        System.out.println("stop " + collector);
        return 0;
    }

    /** Poll n answers one record of type 10 whose only field, key 2, is n; every third is null. */
    static byte[] getProfilerData(long collector, int extra, Object request) {
        int poll = ++polls;
        Thread thread = Thread.currentThread();
        if (poll == 1) {
            System.out.println("poll " + collector + " " + extra + " " + request + " on "
                    + thread.getName() + " in " + thread.getThreadGroup().getName() + ", loader "
                    + thread.getContextClassLoader() + ", daemon " + thread.isDaemon());
        }
        String script = System.getProperty("stub.poll", "");
        if (script.equals("throw")) {
            throw new IllegalStateException("scripted");
        }
        if (script.equals("hang") || script.equals("slow") && poll == 1) {
            System.out.println("in poll");
            sleep(script.equals("hang") ? 3600000 : 700);
        }
        if (poll % 3 == 0) {
            return null;
        }
        SampleWriter out = new SampleWriter();
        out.begin(10, 1, 0);
        out.number(2, poll);
        out.end();
        byte[] bytes = new byte[out.size()];
        System.arraycopy(out.buffer(), 0, bytes, 0, bytes.length);
        return bytes;
    }

    private static void sleep(long ms) {
        long end = System.nanoTime() + ms * 1000000L;
        while (System.nanoTime() - end < 0) {
            try {
                Thread.sleep(5);
            } catch (InterruptedException e) {
                System.out.println("the poller was interrupted");
            }
        }
    }
}
