package com.tessel.prb.live.programs;

/**
 * Threads that fight for a few monitors, and wait and notify between the rounds. No payment may
 * get lost. --seconds N --threads N.
 */
public final class LockFights {
    private static final int MONITORS = 3;
    private static final int PAYMENTS = 200;

    private LockFights() {}

    private static final class Account {
        private long balance;

        synchronized void pay(long amount) {
            balance += amount;
            Work.piece(amount, 300);
        }

        synchronized long balance() {
            return balance;
        }
    }

    /** Where fighters wait for one another, a moment at most. */
    private static final class Corner {
        private long visits;

        synchronized void rest() throws InterruptedException {
            visits++;
            notifyAll();
            wait(1);
        }

        synchronized long visits() {
            return visits;
        }
    }

    private static final class Fighter extends Thread {
        private final int number;
        private final Account[] accounts;
        private final Corner corner;
        private final long deadline;
        private long rounds;
        private Exception failure;

        Fighter(int number, Account[] accounts, Corner corner, long deadline) {
            super("fighter-" + number);
            this.number = number;
            this.accounts = accounts;
            this.corner = corner;
            this.deadline = deadline;
        }

        @Override
        public void run() {
            try {
                while (!Work.over(deadline) || rounds == 0) {
                    for (int i = 0; i < PAYMENTS; i++) {
                        accounts[(number + i) % MONITORS].pay(i);
                    }
                    rounds++;
                    corner.rest();
                }
            } catch (InterruptedException e) {
                failure = e;
            }
        }
    }

    public static void main(String[] arguments) throws Exception {
        Args args = new Args(arguments);
        int threads = args.get("threads", 6);
        long deadline = Work.deadline(args.get("seconds", 2));
        Account[] accounts = new Account[MONITORS];
        for (int i = 0; i < MONITORS; i++) {
            accounts[i] = new Account();
        }
        Corner corner = new Corner();
        Fighter[] fighters = new Fighter[threads];
        for (int i = 0; i < threads; i++) {
            fighters[i] = new Fighter(i, accounts, corner, deadline);
            fighters[i].start();
        }
        long rounds = 0;
        for (Fighter fighter : fighters) {
            fighter.join();
            if (fighter.failure != null) {
                throw fighter.failure;
            }
            rounds += fighter.rounds;
        }
        long paid = 0;
        for (Account account : accounts) {
            paid += account.balance();
        }
        // What one fighter pays in one round is 0 + 1 + ... + (PAYMENTS - 1).
        Work.check(rounds * (PAYMENTS * (PAYMENTS - 1) / 2), paid);
        Work.check(rounds, corner.visits());
        System.err.println("rounds " + rounds);
        Work.print(paid / rounds);
    }
}
