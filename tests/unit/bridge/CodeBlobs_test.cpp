// A made-up memory of compiled code: which places in it are alive.
#include "bridge/CodeBlobs.h"

#include <array>
#include <cstring>

#include <gtest/gtest.h>

#include "FakeVm.h"

namespace bridge {
namespace {

constexpr unsigned kShift = 6;
constexpr std::size_t kSegments = 400;
constexpr int kStubHeader = 40;

struct FakeSpace {
    char* low = nullptr;
    char* high = nullptr;
};
struct FakeHeap {
    int padding = 0;
    FakeSpace memory;
    FakeSpace map;
    int shift = kShift;
};
struct FakeList {
    int length = 1;
    FakeHeap** data = nullptr;
};
struct FakeBlock {
    std::size_t length;
    bool used;
};
constexpr std::size_t kBlockHeader = (sizeof(FakeBlock) + 7) / 8 * 8;
struct FakeMethod {
    const void* table;
    int headerSize;
    char code[60];
    signed char state;
};

class CodeBlobsTest : public testing::Test {
protected:
    CodeBlobsTest() {
        map.fill(0xFF);
        heap.memory = {memory.data(), memory.data() + memory.size()};
        heap.map = {reinterpret_cast<char*>(map.data()),
                    reinterpret_cast<char*>(map.data() + map.size())};
        symbols.add("GrowableArrayBase", "_len", offsetof(FakeList, length));
        symbols.add("GrowableArray<int>", "_data", offsetof(FakeList, data));
        symbols.add("CodeHeap", "_memory", offsetof(FakeHeap, memory));
        symbols.add("CodeHeap", "_segmap", offsetof(FakeHeap, map));
        symbols.add("CodeHeap", "_log2_segment_size", offsetof(FakeHeap, shift));
        symbols.add("VirtualSpace", "_low", offsetof(FakeSpace, low));
        symbols.add("VirtualSpace", "_high", offsetof(FakeSpace, high));
        symbols.add("HeapBlock::Header", "_used", offsetof(FakeBlock, used));
        symbols.add("CodeBlob", "_header_size", offsetof(FakeMethod, headerSize));
        symbols.add("nmethod", "_state", offsetof(FakeMethod, state));
        symbols.add("nmethod", "_stack_traversal_mark", 4);
        symbols.add("CodeCache", "_heaps", 0, &listAddress);
    }
    // A block of some segments, as the VM lays it out; answers an address in its last one.
    std::uintptr_t block(std::size_t first, std::size_t segments, bool used, int headerSize,
                         signed char state) {
        char* start = memory.data() + (first << kShift);
        const FakeBlock header{segments, used};
        std::memcpy(start, &header, sizeof header);
        FakeMethod method{};
        method.headerSize = headerSize;
        method.state = state;
        std::memcpy(start + kBlockHeader, &method, sizeof method);
        for (std::size_t i = 0; i < segments; i++)
            map[first + i] = static_cast<unsigned char>(i < 0xFE ? i : 0xFE);
        return reinterpret_cast<std::uintptr_t>(start + (segments << kShift) - 1);
    }
    CodeBlobs& resolved() {
        EXPECT_TRUE(vm.resolve(symbols.lookup())) << vm.problem();
        blobs.resolve(vm);
        return blobs;
    }

    alignas(64) std::array<char, kSegments << kShift> memory{};
    std::array<unsigned char, kSegments> map{};
    FakeHeap heap;
    FakeHeap* heaps = &heap;
    FakeList list{1, &heaps};
    FakeList* listAddress = &list;
    FakeSymbols symbols;
    VmStructs vm;
    CodeBlobs blobs;
};

TEST_F(CodeBlobsTest, OnlyMethodsInUseAndStubsAreAlive) {
    constexpr int kMethodHeader = sizeof(FakeMethod);
    const std::uintptr_t stub = block(0, 3, true, kStubHeader, 3);
    const std::uintptr_t inUse = block(3, 4, true, kMethodHeader, 0);
    const std::uintptr_t notEntrant = block(7, 4, true, kMethodHeader, 1);
    const std::uintptr_t zombie = block(11, 4, true, kMethodHeader, 3);
    const std::uintptr_t freed = block(15, 4, false, kMethodHeader, 0);
    const std::uintptr_t large = block(20, 300, true, kMethodHeader, 0);
    const std::uintptr_t installing = block(330, 2, true, kMethodHeader, -1);
    CodeBlobs& code = resolved();
    ASSERT_TRUE(code.searchable());
    EXPECT_TRUE(code.isAlive(stub));
    EXPECT_TRUE(code.isAlive(inUse));
    EXPECT_TRUE(code.isAlive(inUse - 200)); // in its first segment
    EXPECT_FALSE(code.isAlive(notEntrant)); // may become a zombie any time
    EXPECT_FALSE(code.isAlive(zombie));
    EXPECT_FALSE(code.isAlive(freed));
    EXPECT_TRUE(code.isAlive(large));
    EXPECT_FALSE(code.isAlive(installing));
    EXPECT_FALSE(code.isAlive(reinterpret_cast<std::uintptr_t>(memory.data() + (350 << kShift))));
    // Outside: nothing that the VM could take for compiled code.
    EXPECT_TRUE(code.isAlive(reinterpret_cast<std::uintptr_t>(&code)));
    EXPECT_TRUE(code.isAlive(reinterpret_cast<std::uintptr_t>(memory.data()) - 1));
}

TEST_F(CodeBlobsTest, AMapThatLeadsNowhereIsDead) {
    const std::uintptr_t pc = block(5, 2, true, sizeof(FakeMethod), 0);
    CodeBlobs& code = resolved();
    map[6] = 7; // before the beginning
    EXPECT_FALSE(code.isAlive(pc));
    heap.map.high = heap.map.low;
    EXPECT_FALSE(code.isAlive(pc));
    heap.shift = 60;
    EXPECT_FALSE(code.isAlive(pc));
    list.length = 1000;
    EXPECT_FALSE(code.isAlive(pc));
    listAddress = nullptr;
    EXPECT_FALSE(code.isAlive(pc));
}

TEST_F(CodeBlobsTest, AVmWithoutASweeperHasNoZombies) {
    const std::uintptr_t pc = block(5, 2, true, sizeof(FakeMethod), 3);
    symbols.remove("nmethod", "_stack_traversal_mark");
    CodeBlobs& code = resolved();
    EXPECT_TRUE(code.searchable());
    EXPECT_TRUE(code.isAlive(pc));
}

TEST_F(CodeBlobsTest, AVmWithASweeperThatHidesAFieldIsNotSearched) {
    EXPECT_TRUE(resolved().searchable());
    for (const char* type : {"GrowableArrayBase", "GrowableArray<int>", "CodeHeap", "VirtualSpace",
                             "HeapBlock::Header", "CodeBlob"}) {
        FakeSymbols few;
        few.add("nmethod", "_stack_traversal_mark", 4);
        for (const auto& entry : symbols.all())
            if (entry.type && std::string(type) != entry.type)
                few.add(entry.type, entry.field, entry.offset, entry.address);
        VmStructs other;
        ASSERT_TRUE(other.resolve(few.lookup())) << type;
        CodeBlobs code;
        code.resolve(other);
        EXPECT_FALSE(code.searchable()) << type;
    }
}

} // namespace
} // namespace bridge
