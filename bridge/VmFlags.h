// The VM's own switches (the -XX options with yes or no), read and written in the memory where the
// VM keeps them. Where they lie is told by the tables gHotSpotVMStructs and gHotSpotVMTypes.
//
// Filled once, before other threads use it; constant afterwards and readable by every thread.
#ifndef PRB_BRIDGE_VMFLAGS_H
#define PRB_BRIDGE_VMFLAGS_H

#include <cstddef>
#include <optional>

#include "bridge/VmStructs.h"

namespace bridge {

class VmFlags {
public:
    // Finds the flags of the libjvm.so that is loaded. False if the VM does not describe them.
    // REQUIRES: vm.resolve() was true.
    bool resolve(const VmStructs& vm);
    // The same with the symbols of `lookup`, which tests make up.
    bool resolve(const VmStructs& vm, const VmStructs::SymbolLookup& lookup);

    // Whether a switch is on; empty for a name that the VM does not have, and for a value that is
    // neither yes nor no.
    std::optional<bool> isOn(const char* name) const;
    // Turns a switch; false, and nothing is written, where isOn is empty.
    // REQUIRES: the VM looks at this switch each time that it matters.
    bool turn(const char* name, bool on) const;

private:
    char* placeOf(const char* name) const;

    const char* flags_ = nullptr; // the first flag
    std::size_t count_ = 0;
    std::size_t stride_ = 0; // bytes of one flag
    std::size_t name_ = 0;   // offset of the name's address
    std::size_t value_ = 0;  // offset of the value's address
};

} // namespace bridge

#endif
