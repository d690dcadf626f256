#include "bridge/ThreadTable.h"

#include <algorithm>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "FakeVm.h"

namespace bridge {
namespace {

JNIEnv* envAt(std::uintptr_t number) { return reinterpret_cast<JNIEnv*>(0x10000 + number * 1184); }

ThreadInfo info(JNIEnv* env, pid_t tid, std::string name = {}) {
    ThreadInfo result;
    result.env = env;
    result.tid = tid;
    result.name = std::move(name);
    return result;
}

TEST(ThreadTable, KeepsWhatAThreadWasAnnouncedWith) {
    ThreadTable table;
    int object = 0;
    const auto id = reinterpret_cast<jobjectID>(&object);
    ThreadInfo given = info(envAt(1), 100, "main");
    given.group = "system";
    given.parent = "none";
    given.object = id;
    given.javaThread = &object;
    const auto [record, isNew] = table.insert(given);
    EXPECT_TRUE(isNew);
    EXPECT_EQ(table.find(envAt(1)), record);
    EXPECT_EQ(record->env(), envAt(1));
    EXPECT_EQ(table.object(envAt(1)), id);
    ThreadInfo read;
    ASSERT_TRUE(table.describe(envAt(1), read));
    EXPECT_EQ(read.name, "main");
    EXPECT_EQ(read.group, "system");
    EXPECT_EQ(read.parent, "none");
    EXPECT_EQ(read.tid, 100);
    EXPECT_EQ(read.javaThread, &object);
    EXPECT_EQ(read.object, id);
    EXPECT_FALSE(table.describe(envAt(2), read));
    EXPECT_EQ(table.find(nullptr), nullptr);
    EXPECT_EQ(table.object(envAt(2)), nullptr);
}

TEST(ThreadTable, TheSameThreadAnnouncedTwiceIsOneThread) {
    ThreadTable table;
    const auto first = table.insert(info(envAt(1), 100));
    table.setStorage(envAt(1), &table);
    const auto second = table.insert(info(envAt(1), 100, "main"));
    EXPECT_FALSE(second.isNew);
    EXPECT_EQ(second.record, first.record);
    EXPECT_EQ(second.record->name, "main"); // what was missing is filled in
    EXPECT_EQ(table.storage(envAt(1)), &table);
    EXPECT_EQ(table.size(), 1u);
    EXPECT_EQ(table.insert(info(envAt(1), 100, "other")).record->name, "main");
}

TEST(ThreadTable, AReusedEnvironmentIsANewThread) {
    ThreadTable table;
    table.insert(info(envAt(1), 100, "first"));
    table.setStorage(envAt(1), &table);
    const auto again = table.insert(info(envAt(1), 101, "second")); // no end was seen
    EXPECT_TRUE(again.isNew);
    EXPECT_EQ(table.storage(envAt(1)), nullptr);
    EXPECT_EQ(table.size(), 1u);
    ThreadInfo read;
    ASSERT_TRUE(table.describe(envAt(1), read));
    EXPECT_EQ(read.name, "second");
}

TEST(ThreadTable, AnEndedEnvironmentHasNoStorage) {
    ThreadTable table;
    table.insert(info(envAt(1), 100));
    table.setStorage(envAt(1), &table);
    table.remove(envAt(1));
    EXPECT_EQ(table.storage(envAt(1)), nullptr);
    table.setStorage(envAt(1), &table);
    EXPECT_EQ(table.storage(envAt(1)), nullptr);
    table.remove(envAt(1)); // unknown by now
    table.insert(info(envAt(1), 101));
    EXPECT_EQ(table.storage(envAt(1)), nullptr);
    EXPECT_EQ(table.storage(envAt(9)), nullptr);
}

TEST(ThreadTable, ARecordIsNotUsedAgainBeforeItsSlotIsIdle) {
    ThreadTable table;
    ThreadRecord* first = table.insert(info(envAt(1), 100)).record;
    first->slot.state = SampleSlot::kResumed; // its handler has not returned
    table.remove(envAt(1));
    ThreadRecord* second = table.insert(info(envAt(2), 101)).record;
    EXPECT_NE(second, first);
    first->slot.state = SampleSlot::kIdle;
    EXPECT_EQ(table.insert(info(envAt(3), 102)).record, first);
}

TEST(ThreadTable, ListsTheLivingOnes) {
    ThreadTable table;
    for (std::uintptr_t i = 0; i < 5000; i++)
        table.insert(info(envAt(i), static_cast<pid_t>(i + 1)));
    for (std::uintptr_t i = 0; i < 5000; i += 2) table.remove(envAt(i));
    const std::vector<JNIEnv*> live = table.environments();
    EXPECT_EQ(live.size(), 2500u);
    EXPECT_EQ(table.size(), 2500u);
    const std::set<JNIEnv*> set(live.begin(), live.end());
    for (std::uintptr_t i = 0; i < 5000; i++) {
        EXPECT_EQ(set.count(envAt(i)), i % 2) << i;
        EXPECT_EQ(table.find(envAt(i)) != nullptr, i % 2 == 1) << i;
    }
}

TEST(ThreadTable, AThreadOutsideNativeCodeIsStuck) {
    FakeVm vm;
    ASSERT_TRUE(vm.ready);
    FakeJavaThread thread;
    ThreadInfo given = info(thread.env(), 100);
    given.javaThread = &thread;
    const ThreadRecord& record = *vm.threads.insert(given).record;
    thread.threadState = VmStructs::kInNative;
    EXPECT_FALSE(ThreadTable::isStuckInVm(vm.structs, record));
    thread.threadState = VmStructs::kBlocked;
    EXPECT_TRUE(ThreadTable::isStuckInVm(vm.structs, record));
    vm.threads.remove(thread.env());
    EXPECT_FALSE(ThreadTable::isStuckInVm(vm.structs, record));
}

// Threads that come and go under the eyes of readers: a living environment is always found with its
// own storage, whatever happens around it.
TEST(ThreadTable, ReadersSeeTheirOwnStorageWhileThreadsComeAndGo) {
    ThreadTable table;
    constexpr int kThreads = 4;
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    std::vector<int> values(kThreads);
    for (std::size_t i = 0; i < kThreads; i++) {
        // all in the buckets that the churn below changes
        JNIEnv* mine = envAt(1000 + i * 7);
        table.insert(info(mine, static_cast<pid_t>(1000 + i)));
        table.setStorage(mine, &values[i]);
        readers.emplace_back([&, i, mine] {
            std::uintptr_t other = i;
            while (!stop) {
                table.storage(envAt(other++ % 300)); // forget the last one found
                if (table.storage(mine) != &values[i]) wrong++;
            }
        });
    }
    for (std::uintptr_t round = 0; round < 300; round++) {
        for (std::uintptr_t i = 0; i < 40; i++) {
            table.insert(info(envAt((round * 3 + i) % 300), static_cast<pid_t>(1 + i)));
        }
        for (std::uintptr_t i = 0; i < 40; i++) table.remove(envAt((round * 3 + i) % 300));
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    EXPECT_EQ(wrong, 0);
}

TEST(ThreadListLock, GivesUpInTimeAndMayBeReleasedByAnother) {
    ThreadListLock lock;
    lock.lock();
    std::thread([&] {
        EXPECT_FALSE(lock.tryLockFor(5));
        lock.unlock();
    }).join();
    EXPECT_TRUE(lock.tryLockFor(0));
    lock.unlock();
}

TEST(ThreadListLock, ExcludesAndWakesWaiters) {
    ThreadListLock lock;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++) {
        threads.emplace_back([&] {
            for (int k = 0; k < 2000; k++) {
                lock.lock();
                counter++;
                lock.unlock();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, 8000);
}

} // namespace
} // namespace bridge
