// Passes for whose samples there is no memory.
#include "tests/vm/collector/DataReturnTest.h"

// A sanitizer brings an allocator of its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

#include <atomic>
#include <cstddef>

using ::testing::IsEmpty;

namespace {

std::atomic<bool> refusing{false};

} // namespace

// The block of a pass is what the agent grows with realloc.
extern "C" {
void* __libc_realloc(void*, std::size_t);
__attribute__((visibility("default"))) void* realloc(void* p, std::size_t size) {
    return refusing.load() ? nullptr : __libc_realloc(p, size);
}
}

namespace {

class NoMemory : public DataReturn {
public:
    // What a poll for the types answers while there is none.
    std::optional<std::vector<jbyte>> pollWithout(int types) {
        auto& request = scripted::makeRequest(vm, types, 0);
        refusing.store(true);
        auto bytes = pollBytes(&request);
        refusing.store(false);
        return bytes;
    }
    // Something of every kind to tell.
    void work(scripted::ScriptedThread& worker) {
        runCycle();
        block(worker, 20);
        queueError(74, "text");
    }
};

TEST_F(NoMemory, endsAPassWhereverItComesAndTheNextOneIsWhole) {
    scripted::ScriptedThread& worker = startSampling(0xC3E00);
    PRBMonitorHashTable& all = *PRBContext::getThreadTable();
    for (int kind : {0x200, 0x400, 0x800, 0x1000, 0x2000, 0x40000, 0x80000, 0xC3E00}) {
        work(worker);
        const std::size_t before = all.entries();
        vm.endThread(vm.startThread({.name = "gone"}));
        EXPECT_FALSE(pollWithout(kind).has_value()) << kind;
        EXPECT_EQ(vm.exceptionLeft(), "");
        EXPECT_EQ(all.entries(), before) << "ended threads are purged all the same";
        EXPECT_EQ(sampler().getCurrentState(), 0);
        EXPECT_THAT(vm.mainThread().heldMonitors(), IsEmpty());
        EXPECT_EQ(monitor().registerHeapDumpHandler(nullptr), nullptr);
    }
    work(worker);
    std::vector<int> types = typesOf(poll());
    types.erase(std::unique(types.begin(), types.end()), types.end());
    EXPECT_EQ(types,
              (std::vector<int>{kThread, kMethod, kContention, kHeap, kGc, kError, kResource}));
}

TEST_F(NoMemory, givesAStepABadCodeAfterWhichNothingIsGathered) {
    scripted::ScriptedThread& worker = startSampling(0xC3E00, "debug=PUBLIC");
    work(worker);
    vm.recorder().clear();
    EXPECT_FALSE(pollWithout(0xC3C00).has_value());
    EXPECT_FALSE(pollWithout(0xC3800).has_value());
    EXPECT_EQ(vm.recorder().count("RunGC"), 0U);
    Texts sent;
    for (const std::string& line : logTexts())
        if (line.find("Sent ") == 0) sent.push_back(line);
    EXPECT_EQ(sent, (Texts{"Sent MethodFrequency sample to agent: RC = 3",
                           "Sent Contention sample to agent: RC = 3"}));
    EXPECT_FALSE(pollOf(kError).empty()) << "errors wait for a pass that can carry them";
}

} // namespace

#endif
