// The symbols of a made-up VM with a table of switches.
#ifndef PRB_TESTS_UNIT_BRIDGE_FAKESWITCHES_H
#define PRB_TESTS_UNIT_BRIDGE_FAKESWITCHES_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "FakeVm.h"

namespace bridge {

struct FakeFlag {
    void* value;
    const char* name;
};
struct FakeType {
    const char* name;
    std::uint64_t size;
};

// The symbols with a table of switches, all off.
class FakeSwitches : public FakeSymbols {
public:
    FakeSwitches() {
        add("JVMFlag", "_addr", offsetof(FakeFlag, value));
        add("JVMFlag", "_name", offsetof(FakeFlag, name));
        add("JVMFlag", "flags", 0, &firstFlag);
        add("JVMFlag", "numFlags", 0, &count);
        set("gHotSpotVMTypeEntryTypeNameOffset", offsetof(FakeType, name));
        set("gHotSpotVMTypeEntrySizeOffset", offsetof(FakeType, size));
        set("gHotSpotVMTypeEntryArrayStride", sizeof(FakeType));
    }

    VmStructs::SymbolLookup lookup() {
        return [inner = FakeSymbols::lookup(), this](const char* name) -> void* {
            if (withoutTypes && std::string("gHotSpotVMTypes") == name) return nullptr;
            if (std::string("gHotSpotVMTypes") == name) return &firstType;
            return inner(name);
        };
    }

    unsigned char on[4] = {0, 0, 0, 7};
    FakeFlag flags[5] = {{&on[0], "UseSerialGC"},
                         {&on[1], "UseParallelGC"},
                         {&on[2], "UseG1GC"},
                         {&on[3], "NotASwitch"},
                         {nullptr, nullptr}};
    FakeFlag* firstFlag = flags;
    std::size_t count = 5;
    FakeType types[3] = {{"JavaThread", 800}, {"JVMFlag", sizeof(FakeFlag)}, {nullptr, 0}};
    FakeType* firstType = types;
    bool withoutTypes = false;
};

} // namespace bridge

#endif
