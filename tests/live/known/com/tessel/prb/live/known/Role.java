package com.tessel.prb.live.known;

/** A thread of a program that keeps its own ledger. */
abstract class Role extends Thread {
    private final Truth truth;
    private volatile boolean stopping;
    private Exception failure;
    /** What the work came to, so that no compiler can leave it out. */
    long sink;

    Role(String name, Truth truth) {
        super(name);
        this.truth = truth;
    }

    abstract void play(Truth.Ledger ledger) throws Exception;

    /** Ends the loop of the role; what it waits for is woken by the caller. */
    void finish() {
        stopping = true;
    }

    final boolean running() {
        return !stopping;
    }

    @Override
    public final void run() {
        Truth.Ledger ledger = truth.open();
        try {
            play(ledger);
        } catch (Exception e) {
            failure = e;
        }
        ledger.close();
    }

    /** Waits for the end of the thread; a role that failed makes the truth worthless. */
    long await() throws Exception {
        join();
        if (failure != null) {
            throw new IllegalStateException(getName() + " failed", failure);
        }
        return sink;
    }
}
