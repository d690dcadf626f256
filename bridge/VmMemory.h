// Values in the VM's own memory. Its tables and records are read as they lie there: no type of ours
// stands behind them, and their alignment is the VM's affair.
#pragma once

#include <cstring>
#include <type_traits>

namespace bridge {

// REQUIRES: `place` can be read for sizeof(T) bytes.
template <typename T> T readAt(const void* place) {
    static_assert(std::is_trivially_copyable_v<T>);
    T value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

// Of a value that the VM may be changing. REQUIRES: `place` is aligned as the VM's own type is.
template <typename T> T loadAt(const void* place) {
    return __atomic_load_n(static_cast<const T*>(place), __ATOMIC_RELAXED);
}

} // namespace bridge
