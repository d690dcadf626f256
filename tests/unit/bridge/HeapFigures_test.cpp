// A made-up VM with made-up heaps: the switches, the structures and Runtime's answers.
#include "bridge/HeapFigures.h"

#include <gtest/gtest.h>

#include "FakeSwitches.h"

namespace bridge {
namespace {

struct FakeSpace {
    int padding = 0;
    char* bottom = nullptr;
    char* top = nullptr;
    char* end = nullptr;

    // Addresses that nobody looks behind.
    FakeSpace(std::uintptr_t from, std::uintptr_t used, std::uintptr_t size)
        : bottom(reinterpret_cast<char*>(from)),
          top(reinterpret_cast<char*>(from + used)),
          end(reinterpret_cast<char*>(from + size)) {}
};

struct FakeSerial {
    struct Young {
        void* padding = nullptr;
        FakeSpace* eden;
        FakeSpace* from;
    };
    struct Old {
        FakeSpace* space;
    };
    FakeSpace eden{0x10000, 600, 1000};
    FakeSpace from{0x20000, 50, 100};
    FakeSpace to{0x30000, 0, 100};
    FakeSpace tenured{0x40000, 300, 5000};
    Young young{nullptr, &eden, &from};
    Old old{&tenured};
    struct Heap {
        int padding = 0;
        Young* young;
        Old* old;
    } heap{0, &young, &old};
    Heap* pointer = &heap;

    void describe(FakeSwitches& symbols) {
        symbols.on[0] = 1;
        symbols.add("Universe", "_collectedHeap", 0, &pointer);
        symbols.add("SerialHeap", "_young_gen", offsetof(Heap, young));
        symbols.add("SerialHeap", "_old_gen", offsetof(Heap, old));
        symbols.add("DefNewGeneration", "_eden_space", offsetof(Young, eden));
        symbols.add("DefNewGeneration", "_from_space", offsetof(Young, from));
        symbols.add("TenuredGeneration", "_the_space", offsetof(Old, space));
        symbols.add("ContiguousSpace", "_bottom", offsetof(FakeSpace, bottom));
        symbols.add("ContiguousSpace", "_top", offsetof(FakeSpace, top));
        symbols.add("ContiguousSpace", "_end", offsetof(FakeSpace, end));
    }
};

struct FakeG1 {
    struct Support {
        std::size_t eden = 20 * 1024;
        std::size_t survivor = 1024;
        std::size_t old = 79 * 1024;
    } support;
    struct Heap {
        std::size_t used = 40000;
        Support* support;
    } heap{40000, &support};
    Heap* pointer = &heap;
    std::size_t region = 1024;

    void describe(FakeSwitches& symbols) {
        symbols.on[2] = 1;
        symbols.add("Universe", "_collectedHeap", 0, &pointer);
        symbols.add("G1CollectedHeap", "_summary_bytes_used", offsetof(Heap, used));
        symbols.add("G1CollectedHeap", "_monitoring_support", offsetof(Heap, support));
        symbols.add("G1MonitoringSupport", "_eden_space_committed", offsetof(Support, eden));
        symbols.add("G1MonitoringSupport", "_survivor_space_committed",
                    offsetof(Support, survivor));
        symbols.add("G1MonitoringSupport", "_old_gen_committed", offsetof(Support, old));
        symbols.add("G1HeapRegion", "GrainBytes", 0, &region);
    }
};

bool find(FakeSwitches& symbols, HeapFigures& figures) {
    VmStructs vm;
    const auto lookup = symbols.lookup();
    VmFlags flags;
    return vm.resolve(lookup) && flags.resolve(vm, lookup) && figures.find(vm, flags);
}

// Runtime, scripted: one answer after the other, the last one for ever.
struct Runtime {
    std::vector<HeapSpace> answers;
    std::size_t asked = 0;
    static HeapSpace ask(void* context) {
        auto& self = *static_cast<Runtime*>(context);
        const std::size_t at = std::min(self.asked++, self.answers.size() - 1);
        return self.answers[at];
    }
};

bool verify(HeapFigures& figures, std::vector<HeapSpace> answers) {
    Runtime runtime{std::move(answers)};
    return figures.verify(Runtime::ask, &runtime);
}

TEST(HeapFigures, AddsUpTheSpacesOfGenerations) {
    FakeSwitches symbols;
    FakeSerial serial;
    serial.describe(symbols);
    HeapFigures figures;
    ASSERT_TRUE(find(symbols, figures));
    EXPECT_EQ(figures.collector(), "Serial");
    EXPECT_FALSE(figures.read().known()); // nobody has compared them yet
    ASSERT_TRUE(verify(figures, {{950, 6100}}));
    EXPECT_EQ(figures.read().used, 950);
    EXPECT_EQ(figures.read().total, 6100);
    EXPECT_EQ(figures.read().free(), 5150);
    // A collection: the survivor spaces change places.
    serial.young.from = &serial.to;
    serial.to.top += 20;
    serial.eden.top = serial.eden.bottom;
    EXPECT_EQ(figures.read().used, 320);
}

TEST(HeapFigures, AllocationBetweenTheLooksIsNoDisagreement) {
    FakeSwitches symbols;
    FakeSerial serial;
    serial.describe(symbols);
    HeapFigures figures;
    ASSERT_TRUE(find(symbols, figures));
    EXPECT_TRUE(verify(figures, {{900, 6100}, {1000, 6100}}));
}

TEST(HeapFigures, ACollectionBetweenTheLooksMeansAnotherTry) {
    FakeSwitches symbols;
    FakeSerial serial;
    serial.describe(symbols);
    HeapFigures figures;
    ASSERT_TRUE(find(symbols, figures));
    EXPECT_TRUE(verify(figures, {{2000, 9000}, {100, 6100}, {950, 6100}, {950, 6100}}));
}

TEST(HeapFigures, WhatDisagreesWithRuntimeIsNotBelieved) {
    const std::vector<HeapSpace> wrong[] = {
        {{950, 6000}},              // another total
        {{951, 6100}},              // less than Runtime's
        {{949, 6100}},              // more than Runtime's
        {{-1, -1}},                 // Runtime cannot be asked
        {{950, 6100}, {949, 6100}}, // collections without end
    };
    for (const auto& answers : wrong) {
        FakeSwitches symbols;
        FakeSerial serial;
        serial.describe(symbols);
        HeapFigures figures;
        ASSERT_TRUE(find(symbols, figures));
        EXPECT_FALSE(verify(figures, answers)) << answers[0].used << "/" << answers[0].total;
        EXPECT_EQ(figures.read().used, -1);
        EXPECT_EQ(figures.read().total, -1);
        EXPECT_EQ(figures.read().free(), -1);
    }
}

TEST(HeapFigures, TellsTheSpaceOfAnAddress) {
    FakeSwitches symbols;
    FakeSerial serial;
    serial.describe(symbols);
    HeapFigures figures;
    ASSERT_TRUE(find(symbols, figures));
    const auto at = [](std::uintptr_t address) { return reinterpret_cast<void*>(address); };
    EXPECT_EQ(figures.spaceOf(at(0x10000)), -1); // nobody has compared them yet
    ASSERT_TRUE(verify(figures, {{950, 6100}}));
    EXPECT_EQ(figures.spaceOf(at(0x0ffff)), -1);
    EXPECT_EQ(figures.spaceOf(at(0x10000)), 0);
    EXPECT_EQ(figures.spaceOf(at(0x10000 + 999)), 0); // not used yet, but eden's
    EXPECT_EQ(figures.spaceOf(at(0x10000 + 1000)), -1);
    EXPECT_EQ(figures.spaceOf(at(0x20000)), 1);
    EXPECT_EQ(figures.spaceOf(at(0x30000)), -1); // the other survivor space
    EXPECT_EQ(figures.spaceOf(at(0x40000 + 4999)), 2);
    // Survivor spaces change places.
    serial.young.from = &serial.to;
    EXPECT_EQ(figures.spaceOf(at(0x20000)), -1);
    EXPECT_EQ(figures.spaceOf(at(0x30000)), 1);
    EXPECT_EQ(figures.regionBytes(), 0);
}

TEST(HeapFigures, G1CountsByRegions) {
    struct Case {
        HeapSpace runtime;
        bool agrees;
    };
    const Case cases[] = {
        {{40000, 100 * 1024}, true},  {{41000, 100 * 1024}, true}, {{41100, 100 * 1024}, false},
        {{39999, 100 * 1024}, false}, {{40000, 103 * 1024}, true}, {{40000, 99 * 1024}, false},
        {{40000, 200 * 1024}, false},
    };
    for (const Case& row : cases) {
        FakeSwitches symbols;
        FakeG1 g1;
        g1.describe(symbols);
        HeapFigures figures;
        ASSERT_TRUE(find(symbols, figures));
        EXPECT_EQ(figures.collector(), "G1");
        EXPECT_EQ(figures.regionBytes(), 1024);
        EXPECT_EQ(verify(figures, {row.runtime}), row.agrees)
            << row.runtime.used << "/" << row.runtime.total;
    }
    // Half a region can be no figure of G1's.
    FakeSwitches symbols;
    FakeG1 g1;
    g1.support.old += 512;
    g1.describe(symbols);
    HeapFigures figures;
    ASSERT_TRUE(find(symbols, figures));
    EXPECT_FALSE(verify(figures, {{40000, 101 * 1024}}));
}

TEST(HeapFigures, AVmThatNamesNoFieldOrNoCollectorIsToldApart) {
    FakeSwitches symbols;
    FakeSerial serial;
    serial.describe(symbols);
    symbols.remove("DefNewGeneration", "_from_space");
    HeapFigures figures;
    EXPECT_FALSE(find(symbols, figures));
    EXPECT_EQ(figures.collector(), "Serial");
    EXPECT_FALSE(figures.read().known());

    FakeSwitches none;
    FakeSerial other;
    other.describe(none);
    none.on[0] = 0;
    HeapFigures unknown;
    EXPECT_FALSE(find(none, unknown));
    EXPECT_EQ(unknown.collector(), "");

    FakeSwitches noHeap;
    FakeSerial third;
    third.describe(noHeap);
    third.pointer = nullptr;
    HeapFigures early;
    EXPECT_FALSE(find(noHeap, early));
}

TEST(HeapFigures, NonsenseIsUnknown) {
    FakeSwitches symbols;
    FakeSerial serial;
    serial.describe(symbols);
    HeapFigures figures;
    ASSERT_TRUE(find(symbols, figures));
    ASSERT_TRUE(verify(figures, {{950, 6100}}));
    serial.eden.top = serial.eden.end + 100000;
    EXPECT_FALSE(figures.read().known());
    serial.eden.top = serial.eden.bottom;
    serial.young.from = nullptr;
    EXPECT_FALSE(figures.read().known());
}

} // namespace
} // namespace bridge
