package com.tessel.prb.bench;

/** Allocates small objects and does nothing else. Arguments: objects per thread, threads. */
public final class AllocationRate {
    private static final class Small {
        int number;
        Object next;
    }

    private static final class Line extends Thread {
        private final int objects;
        private volatile Object last; // what nobody can see is not allocated

        Line(int objects) {
            this.objects = objects;
        }

        @Override
        public void run() {
            for (int i = 0; i < objects; i++) {
                Small made = new Small();
                made.number = i;
                last = made;
            }
        }
    }

    private AllocationRate() {}

    public static void main(String[] args) throws InterruptedException {
        Line[] lines = new Line[Integer.parseInt(args[1])];
        for (int i = 0; i < lines.length; i++) {
            lines[i] = new Line(Integer.parseInt(args[0]));
            lines[i].start();
        }
        for (Line line : lines) {
            line.join();
        }
    }
}
