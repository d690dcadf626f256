#include "bridge/VmFlags.h"

#include <cstring>

#include <dlfcn.h>

#include "bridge/VmMemory.h"

namespace bridge {
namespace {

constexpr std::size_t kMostFlags = 100000; // HotSpot has about two thousand
constexpr std::size_t kWidest = 4096;      // bytes of one flag, or of one entry

std::optional<std::uint64_t> wordOf(const VmStructs::SymbolLookup& lookup, const char* symbol) {
    const void* word = lookup(symbol);
    if (!word) return std::nullopt;
    const auto value = readAt<std::uint64_t>(word);
    return value > kWidest ? std::nullopt : std::optional(value);
}

// Bytes of one object of a type of the VM; 0 if it does not tell.
std::size_t sizeOfType(const VmStructs::SymbolLookup& lookup, const char* type) {
    const auto name = wordOf(lookup, "gHotSpotVMTypeEntryTypeNameOffset");
    const auto size = wordOf(lookup, "gHotSpotVMTypeEntrySizeOffset");
    const auto stride = wordOf(lookup, "gHotSpotVMTypeEntryArrayStride");
    const void* start = lookup("gHotSpotVMTypes");
    if (!name || !size || !stride || *stride == 0 || !start) return 0;
    const char* entry = readAt<const char*>(start);
    for (; entry; entry += *stride) {
        const char* known = readAt<const char*>(entry + *name);
        if (!known) return 0;
        if (std::strcmp(known, type) != 0) continue;
        const auto bytes = readAt<std::uint64_t>(entry + *size);
        return bytes > kWidest ? 0 : static_cast<std::size_t>(bytes);
    }
    return 0;
}

} // namespace

bool VmFlags::resolve(const VmStructs& vm) {
    void* library = dlopen("libjvm.so", RTLD_LAZY | RTLD_NOLOAD);
    if (!library) return false;
    const bool whole = resolve(vm, [library](const char* name) { return dlsym(library, name); });
    dlclose(library); // the VM itself keeps it loaded
    return whole;
}

bool VmFlags::resolve(const VmStructs& vm, const VmStructs::SymbolLookup& lookup) {
    const auto name = vm.fieldOffset("JVMFlag", "_name");
    const auto value = vm.fieldOffset("JVMFlag", "_addr");
    const void* start = vm.staticAddress("JVMFlag", "flags");
    const void* count = vm.staticAddress("JVMFlag", "numFlags");
    const std::size_t stride = sizeOfType(lookup, "JVMFlag");
    if (!name || !value || !start || !count || stride == 0) return false;
    if (*name + sizeof(void*) > stride || *value + sizeof(void*) > stride) return false;
    count_ = readAt<std::size_t>(count);
    if (count_ > kMostFlags) return false;
    flags_ = readAt<const char*>(start);
    stride_ = stride;
    name_ = *name;
    value_ = *value;
    return flags_ != nullptr;
}

std::optional<bool> VmFlags::isOn(const char* name) const {
    const char* place = placeOf(name);
    return place ? std::optional(__atomic_load_n(place, __ATOMIC_RELAXED) == 1) : std::nullopt;
}

bool VmFlags::turn(const char* name, bool on) const {
    char* place = placeOf(name);
    if (place) __atomic_store_n(place, static_cast<char>(on), __ATOMIC_RELAXED);
    return place != nullptr;
}

// Null for a name that the VM does not have, and for a value that is neither yes nor no.
char* VmFlags::placeOf(const char* name) const {
    if (!flags_) return nullptr;
    for (std::size_t i = 0; i < count_; i++) {
        const char* flag = flags_ + i * stride_;
        const char* known = readAt<const char*>(flag + name_);
        if (!known) break; // the last one
        if (std::strcmp(known, name) != 0) continue;
        char* place = readAt<char*>(flag + value_);
        if (!place || static_cast<unsigned char>(__atomic_load_n(place, __ATOMIC_RELAXED)) > 1)
            return nullptr;
        return place;
    }
    return nullptr;
}

} // namespace bridge
