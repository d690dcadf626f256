// A small hash map for the bridge's tables: keys are integers or pointers other than 0, one
// array, linear probing, at most three quarters full. Not locked: each table has its own lock.
//
// The bridge keeps an entry for each method of the program; node-based maps would cost three
// times the memory.
#ifndef PRB_BRIDGE_FLATMAP_H
#define PRB_BRIDGE_FLATMAP_H

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

namespace bridge {

template <class Key, class Value> class FlatMap {
public:
    // The value of a key, or null; valid until the next put or erase.
    Value* find(Key key) {
        const size_t at = locate(key);
        return at == kNone ? nullptr : &slots_[at].value;
    }
    const Value* find(Key key) const { return const_cast<FlatMap*>(this)->find(key); }

    // Inserts or replaces. REQUIRES: key is not 0.
    void put(Key key, Value value) {
        if (Value* known = find(key)) {
            *known = std::move(value);
            return;
        }
        if ((count_ + 1) * 4 > slots_.size() * 3) grow();
        place(key, std::move(value));
        count_++;
    }

    bool erase(Key key) {
        size_t hole = locate(key);
        if (hole == kNone) return false;
        // Entries behind the hole move up as far as their own place allows.
        const size_t mask = slots_.size() - 1;
        for (size_t next = (hole + 1) & mask; slots_[next].key != Key{}; next = (next + 1) & mask) {
            const size_t home = homeOf(slots_[next].key);
            if (((next - home) & mask) < ((next - hole) & mask)) continue;
            slots_[hole] = std::move(slots_[next]);
            hole = next;
        }
        slots_[hole].key = Key{};
        slots_[hole].value = Value{};
        count_--;
        return true;
    }

    // Calls work(key, value) for each entry, in no order. It must not change the map.
    template <class Work> void forEach(Work work) const {
        for (const Slot& slot : slots_)
            if (slot.key != Key{}) work(slot.key, slot.value);
    }

    // Calls work(key, value) for each entry from a place on until it answers false; answers the
    // place to go on from, 0 when there are no more. Entries that change places between two calls
    // may be left out.
    template <class Work> size_t forEachFrom(size_t place, Work work) const {
        for (; place < slots_.size(); place++)
            if (slots_[place].key != Key{} && !work(slots_[place].key, slots_[place].value))
                return (place + 1) % slots_.size();
        return 0;
    }

    size_t size() const { return count_; }
    size_t bytes() const { return slots_.capacity() * sizeof(Slot); }

private:
    struct Slot {
        Key key{};
        Value value{};
    };
    static constexpr size_t kNone = ~size_t{0};
    static constexpr size_t kFirstSize = 64; // sizes are powers of two

    size_t homeOf(Key key) const {
        uint64_t bits;
        if constexpr (std::is_pointer_v<Key>)
            bits = reinterpret_cast<uintptr_t>(key);
        else
            bits = key;
        // Fibonacci hashing: the upper half of the product depends on all bits of the key.
        return static_cast<size_t>((bits * 0x9E3779B97F4A7C15u) >> 32) & (slots_.size() - 1);
    }

    size_t locate(Key key) const {
        if (slots_.empty() || key == Key{}) return kNone;
        const size_t mask = slots_.size() - 1;
        for (size_t at = homeOf(key); slots_[at].key != Key{}; at = (at + 1) & mask)
            if (slots_[at].key == key) return at;
        return kNone;
    }

    void place(Key key, Value&& value) {
        const size_t mask = slots_.size() - 1;
        size_t at = homeOf(key);
        while (slots_[at].key != Key{}) at = (at + 1) & mask;
        slots_[at].key = key;
        slots_[at].value = std::move(value);
    }

    void grow() {
        std::vector<Slot> old(slots_.empty() ? kFirstSize : slots_.size() * 2);
        old.swap(slots_);
        for (Slot& slot : old)
            if (slot.key != Key{}) place(slot.key, std::move(slot.value));
    }

    std::vector<Slot> slots_;
    size_t count_ = 0;
};

} // namespace bridge

#endif
