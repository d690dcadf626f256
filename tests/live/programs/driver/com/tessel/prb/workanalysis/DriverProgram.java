package com.tessel.prb.workanalysis;

/** The profiled program of a test: starts the driver, lives for a while, stops it. */
final class DriverProgram {
    private DriverProgram() {}

    /** Arguments: the option text, milliseconds to live, and how to end. */
    public static void main(String[] args) throws Exception {
        if (args[0].equals("null")) {
            ProfilerDriver.start(null);
        } else {
            ProfilerDriver.start(args[0]);
        }
        System.out.println("running " + (ProfilerDriver.capture().length() != 0));
        Thread.sleep(Long.parseLong(args[1]));
        if (args[2].equals("interrupted")) {
            interruptEverybody();
            Thread.currentThread().interrupt();
        } else if (args[2].equals("twice")) {
            ProfilerDriver.start(args[0]);
        }
        ProfilerDriver.stop();
        System.out.println("stopped " + Thread.interrupted());
        ProfilerDriver.stop();
        System.out.println("end");
        // A poller that hangs is a daemon: it must not keep the program.
    }

    private static void interruptEverybody() {
        ThreadGroup group = Thread.currentThread().getThreadGroup();
        while (group.getParent() != null) {
            group = group.getParent();
        }
        Thread[] all = new Thread[100];
        int count = group.enumerate(all);
        for (int i = 0; i < count; i++) {
            if (all[i].getName().equals(ProfilerDriver.POLLER_NAME)) {
                all[i].interrupt();
            }
        }
    }
}
