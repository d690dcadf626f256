package com.tessel.prb.bench;

import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.atomic.AtomicLong;

/**
 * A fixed amount of work for a database in this process: many connections that read and write few
 * tables, so that they meet at its locks. Needs an SQL database's jar on the class path.
 *
 * <p>Arguments: JDBC URL, threads, transactions per thread. Prints the sum that the accounts must
 * have and fails when they do not have it.
 */
public final class DatabaseLoad {
    private static final int ACCOUNTS = 1000;
    private static final int START = 1000;

    private DatabaseLoad() {}

    public static void main(String[] args) throws Exception {
        String url = args[0];
        int threads = Integer.parseInt(args[1]);
        int transactions = Integer.parseInt(args[2]);
        try (Connection keeper = DriverManager.getConnection(url)) {
            fill(keeper);
            AtomicLong retries = new AtomicLong();
            List<Thread> all = new ArrayList<>();
            for (int i = 0; i < threads; i++) {
                long seed = i;
                Thread thread = new Thread(() -> work(url, seed, transactions, retries), "client-" + i);
                all.add(thread);
                thread.start();
            }
            for (Thread thread : all) {
                thread.join();
            }
            long sum = sum(keeper);
            System.out.println("sum " + sum);
            if (sum != (long) ACCOUNTS * START) {
                System.exit(1);
            }
        }
    }

    private static void fill(Connection connection) throws SQLException {
        try (Statement statement = connection.createStatement()) {
            statement.execute("create table account(id int primary key, owner varchar(40), balance int)");
            statement.execute("create table log(id bigint auto_increment primary key, a int, b int, amount int)");
            statement.execute("create index log_a on log(a)");
        }
        try (PreparedStatement insert = connection.prepareStatement("insert into account values(?, ?, ?)")) {
            for (int i = 0; i < ACCOUNTS; i++) {
                insert.setInt(1, i);
                insert.setString(2, "owner of account " + i);
                insert.setInt(3, START);
                insert.addBatch();
            }
            insert.executeBatch();
        }
    }

    private static void work(String url, long seed, int transactions, AtomicLong retries) {
        Random random = new Random(seed);
        try (Connection connection = DriverManager.getConnection(url)) {
            connection.setAutoCommit(false);
            for (int i = 0; i < transactions; i++) {
                if (i % 4 == 3) {
                    report(connection, random);
                } else {
                    while (!transfer(connection, random)) {
                        retries.incrementAndGet();
                    }
                }
            }
        } catch (SQLException e) {
            throw new IllegalStateException(e);
        }
    }

    /** Answers false when another transaction was in the way. */
    private static boolean transfer(Connection connection, Random random) throws SQLException {
        int from = random.nextInt(ACCOUNTS);
        int to = random.nextInt(ACCOUNTS);
        int amount = random.nextInt(10);
        try (PreparedStatement update =
                        connection.prepareStatement("update account set balance = balance + ? where id = ?");
                PreparedStatement log =
                        connection.prepareStatement("insert into log(a, b, amount) values(?, ?, ?)")) {
            update.setInt(1, -amount);
            update.setInt(2, Math.min(from, to));
            update.executeUpdate();
            update.setInt(1, amount);
            update.setInt(2, Math.max(from, to));
            update.executeUpdate();
            log.setInt(1, from);
            log.setInt(2, to);
            log.setInt(3, amount);
            log.executeUpdate();
            connection.commit();
            return true;
        } catch (SQLException e) {
            connection.rollback();
            return false;
        }
    }

    private static void report(Connection connection, Random random) throws SQLException {
        try (PreparedStatement query = connection.prepareStatement(
                "select owner, sum(amount) from log join account on log.a = account.id"
                        + " where log.a between ? and ? group by owner order by 2 desc")) {
            int first = random.nextInt(ACCOUNTS);
            query.setInt(1, first);
            query.setInt(2, first + 5);
            try (ResultSet result = query.executeQuery()) {
                while (result.next()) {
                    result.getString(1);
                }
            }
        }
        connection.commit();
    }

    private static long sum(Connection connection) throws SQLException {
        try (Statement statement = connection.createStatement();
                ResultSet result = statement.executeQuery("select sum(balance) from account")) {
            result.next();
            return result.getLong(1);
        }
    }
}
