package com.tessel.prb.workanalysis;

/** Stands in for the driver: tells the probe when the bridge starts and stops it. */
final class ProfilerDriver {
    private ProfilerDriver() {}

    static void start(String optionText) {
        Profiler.check("driverStart", optionText);
        if (optionText.contains("name=throw")) {
            throw new IllegalStateException("thrown by the test\nin two lines");
        }
    }

    static void stopAtShutdown() {
        Runtime.getRuntime().addShutdownHook(new Thread(ProfilerDriver::stop));
    }

    static String capture() {
        return "";
    }

    static void stop() {
        Profiler.check("facts", BridgeLink.facts());
        Profiler.check("counters", BridgeLink.counters());
        Profiler.check("driverStop", null);
    }
}
