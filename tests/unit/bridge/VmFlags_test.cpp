// The switches of a made-up VM.
#include "bridge/VmFlags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeSwitches.h"

namespace bridge {
namespace {

TEST(VmFlags, ReadsSwitchesByName) {
    FakeSwitches symbols;
    symbols.on[2] = 1;
    VmStructs vm;
    const auto lookup = symbols.lookup();
    ASSERT_TRUE(vm.resolve(lookup)) << vm.problem();
    VmFlags flags;
    EXPECT_EQ(flags.isOn("UseG1GC"), std::nullopt); // not resolved
    ASSERT_TRUE(flags.resolve(vm, lookup));
    EXPECT_EQ(flags.isOn("UseSerialGC"), false);
    EXPECT_EQ(flags.isOn("UseG1GC"), true);
    EXPECT_EQ(flags.isOn("UseNothing"), std::nullopt);
    EXPECT_EQ(flags.isOn("NotASwitch"), std::nullopt);
}

TEST(VmFlags, TurnsSwitchesAndNothingElse) {
    FakeSwitches symbols;
    VmStructs vm;
    const auto lookup = symbols.lookup();
    ASSERT_TRUE(vm.resolve(lookup)) << vm.problem();
    VmFlags flags;
    EXPECT_FALSE(flags.turn("UseG1GC", true)); // not resolved
    ASSERT_TRUE(flags.resolve(vm, lookup));
    EXPECT_TRUE(flags.turn("UseG1GC", true));
    EXPECT_THAT(symbols.on, testing::ElementsAre(0, 0, 1, 7));
    EXPECT_TRUE(flags.turn("UseG1GC", false));
    EXPECT_FALSE(flags.turn("UseNothing", true));
    EXPECT_FALSE(flags.turn("NotASwitch", true));
    EXPECT_THAT(symbols.on, testing::ElementsAre(0, 0, 0, 7));
}

TEST(VmFlags, WhatTheVmDoesNotDescribeIsMissing) {
    struct Case {
        const char* what;
        void (*spoil)(FakeSwitches& symbols);
    };
    const Case cases[] = {
        {"no name", [](FakeSwitches& s) { s.remove("JVMFlag", "_name"); }},
        {"no value", [](FakeSwitches& s) { s.remove("JVMFlag", "_addr"); }},
        {"no array", [](FakeSwitches& s) { s.remove("JVMFlag", "flags"); }},
        {"no count", [](FakeSwitches& s) { s.remove("JVMFlag", "numFlags"); }},
        {"no types", [](FakeSwitches& s) { s.withoutTypes = true; }},
        {"no size", [](FakeSwitches& s) { s.types[1].name = "Other"; }},
        {"too small", [](FakeSwitches& s) { s.types[1].size = sizeof(void*); }},
        {"too many", [](FakeSwitches& s) { s.count = ~std::size_t{0}; }},
        {"no stride", [](FakeSwitches& s) { s.words.erase("gHotSpotVMTypeEntryArrayStride"); }},
    };
    for (const Case& row : cases) {
        FakeSwitches symbols;
        row.spoil(symbols);
        VmStructs vm;
        const auto lookup = symbols.lookup();
        ASSERT_TRUE(vm.resolve(lookup)) << row.what;
        VmFlags flags;
        EXPECT_FALSE(flags.resolve(vm, lookup)) << row.what;
        EXPECT_EQ(flags.isOn("UseG1GC"), std::nullopt) << row.what;
    }
}

} // namespace
} // namespace bridge
