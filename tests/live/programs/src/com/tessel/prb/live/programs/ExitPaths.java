package com.tessel.prb.live.programs;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.InputStreamReader;

/**
 * Works for a time and ends in one of the ways in which programs end. Usage:
 * --how return|exit|uncaught|halt|wait|echo|daemon [--code N] [--seconds N].
 */
public final class ExitPaths {
    private ExitPaths() {}

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        String how = args.get("how", "return");
        int code = args.get("code", 0);
        Runtime.getRuntime().addShutdownHook(new Thread("program-hook") {
            @Override
            public void run() {
                System.out.println("hook ran");
            }
        });
        if (how.equals("echo")) {
            echo();
            return;
        }
        long first = work();
        long deadline = Work.deadline(args.get("seconds", 1));
        while (!Work.over(deadline)) {
            Work.check(first, work());
        }
        Work.print(first);
        if (how.equals("exit")) {
            System.exit(code);
        } else if (how.equals("halt")) {
            Runtime.getRuntime().halt(code);
        } else if (how.equals("uncaught")) {
            throw new IllegalStateException("nobody catches this");
        } else if (how.equals("wait")) {
            System.out.println("ready");
            synchronized (ExitPaths.class) {
                while (true) {
                    ExitPaths.class.wait(); // For the signal that ends the program.
                }
            }
        } else if (how.equals("daemon")) {
            startDaemon();
        } else if (!how.equals("return")) {
            throw new IllegalArgumentException("no such way to end: " + how);
        }
    }

    /** Copies standard input to standard output, line by line. */
    private static void echo() throws IOException {
        BufferedReader in = new BufferedReader(new InputStreamReader(System.in));
        int lines = 0;
        for (String line = in.readLine(); line != null; line = in.readLine()) {
            System.out.println(line);
            lines++;
        }
        System.out.println("lines " + lines);
    }

    /** A thread that still works when the JVM goes down. */
    private static void startDaemon() {
        Thread daemon = new Thread("program-daemon") {
            @Override
            public void run() {
                for (long first = work(); ; ) {
                    Work.check(first, work());
                }
            }
        };
        daemon.setDaemon(true);
        daemon.start();
    }

    private static long work() {
        long sum = 0;
        for (int i = 0; i < 100; i++) {
            sum += Work.piece(i, 1000);
        }
        return sum;
    }
}
