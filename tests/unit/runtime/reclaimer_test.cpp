// Deferred deletion and texts that are replaced under their readers.
#include "runtime/PRBReclaimer.h"
#include "runtime/PRBSharedText.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

std::atomic<int> deleted{0};
struct Thing {
    int value = 1;
    ~Thing() {
        value = 0;
        ++deleted;
    }
};

TEST(Reclaimer, deletesWhatNoReaderCanSee) {
    deleted = 0;
    PRBReclaimer::retire(new Thing);
    EXPECT_EQ(PRBReclaimer::pending(), 1u);
    PRBReclaimer::reclaim();
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
    PRBReclaimer::retire(static_cast<Thing*>(nullptr));
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
}

TEST(Reclaimer, waitsForReadersThatStartedBefore) {
    deleted = 0;
    auto reader = std::make_unique<PRBReclaimer::Reader>();
    PRBReclaimer::retire(new Thing);
    for (int i = 0; i < 5; ++i) {
        PRBReclaimer::Reader another; // comes and goes
        PRBReclaimer::reclaim();
    }
    EXPECT_EQ(deleted, 0);
    reader.reset();
    PRBReclaimer::reclaim();
    PRBReclaimer::reclaim();
    EXPECT_EQ(deleted, 1);
}

TEST(Reclaimer, readersMayNest) {
    deleted = 0;
    {
        PRBReclaimer::Reader outer;
        { PRBReclaimer::Reader inner; }
        PRBReclaimer::retire(new Thing);
        PRBReclaimer::reclaim();
        PRBReclaimer::reclaim();
        EXPECT_EQ(deleted, 0);
    }
    PRBReclaimer::reclaim();
    PRBReclaimer::reclaim();
    EXPECT_EQ(deleted, 1);
}

TEST(Reclaimer, neverDeletesUnderAReader) {
    deleted = 0;
    std::atomic<Thing*> shared{new Thing};
    std::atomic<bool> stop{false};
    std::atomic<long> bad{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            while (!stop) {
                PRBReclaimer::Reader hold;
                if (shared.load()->value != 1) ++bad;
            }
        });
    constexpr int kReplaced = 20000;
    for (int i = 0; i < kReplaced; ++i) {
        PRBReclaimer::retire(shared.exchange(new Thing));
        if (i % 8 == 0) PRBReclaimer::reclaim();
    }
    stop = true;
    for (std::thread& reader : readers) reader.join();
    for (int i = 0; i < 3; ++i) PRBReclaimer::reclaim();
    EXPECT_EQ(bad, 0);
    EXPECT_EQ(deleted, kReplaced);
    EXPECT_EQ(PRBReclaimer::pending(), 0u);
    delete shared.load();
}

TEST(SharedText, isReadableWhileItIsReplaced) {
    PRBSharedText text("start");
    std::atomic<bool> stop{false};
    std::atomic<long> bad{0};
    std::thread reader([&] {
        while (!stop) {
            const std::string seen = text.c_str();
            if (seen != "start" && seen.rfind("text ", 0) != 0) ++bad;
        }
    });
    for (int i = 0; i < 2000; ++i) text.set(("text " + std::to_string(i)).c_str());
    stop = true;
    reader.join();
    EXPECT_EQ(bad, 0);
    EXPECT_STREQ(text.c_str(), "text 1999");
}

} // namespace
