// The protocol of every object that the agent keeps in a registry, a list or a sorted
// collection, and its string form.
#ifndef PRB_CORE_PRBCOLLECTABLE_H
#define PRB_CORE_PRBCOLLECTABLE_H

#include "core/PRBMemoryManager.h"

#include <cstdint>
#include <string>

// Root of the collectables. Containers hold collectables by pointer and use only these
// operations; equality and order are by address unless a class says otherwise.
class PRBCollectable {
public:
    PRBCollectable() = default;
    PRBCollectable(const PRBCollectable&) = default;
    PRBCollectable& operator=(const PRBCollectable&) = default;

    virtual PRBCollectable* newSpecies() const;     // a new default object, owned by the caller
    virtual PRBCollectable* copy() const;           // a new copy, owned by the caller
    virtual std::uint16_t isA() const { return 0; } // the class identifier
    virtual ~PRBCollectable() = default;
    virtual std::uint32_t binaryStoreSize() const { return 0; } // not used by the agent
    virtual int compareTo(const PRBCollectable* other) const;
    virtual std::uint32_t hash() const;
    virtual bool isEqual(const PRBCollectable* other) const { return this == other; }
    // Binary save and restore (to a file, to a stream): not used; the wire format is PRBBuffer's.
    virtual void restoreGuts(int) {}
    virtual void restoreGuts(void*) {}
    virtual void saveGuts(int) const {}
    virtual void saveGuts(void*) const {}

    static void* operator new(std::size_t n) noexcept { return PRBMemoryManager::operator new(n); }
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* p, std::size_t n) noexcept {
        PRBMemoryManager::operator delete(p, n);
    }

protected:
    // Folds a pointer to the 32 bits of a hash: itself on 32-bit x86, low XOR high on 64 bit.
    static std::uint32_t foldPointer(const void* p) {
        auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(p));
        return static_cast<std::uint32_t>(bits ^ (bits >> 32));
    }
};

// A collectable that is also a string: filter entries, mask segments, buffers.
class PRBCollectableString : public PRBCollectable, public std::string {
public:
    PRBCollectableString() = default;
    PRBCollectableString(const std::string& text) : std::string(text) {}
    PRBCollectableString(const char* text) : std::string(text == nullptr ? "" : text) {}
    PRBCollectableString(const std::string& text, std::size_t pos, std::size_t n)
        : std::string(text, pos, n) {}

    PRBCollectable* newSpecies() const override;
    PRBCollectable* copy() const override;
    std::uint16_t isA() const override { return 1; }
    int compareTo(const PRBCollectable* other) const override; // lexical
    std::uint32_t hash() const override;
    bool isEqual(const PRBCollectable* other) const override; // case-sensitive
};

// Process-wide creation functions by class identifier; only identifier 0 is ever registered.
class PRBCollectableFactory {
public:
    using Create = PRBCollectable* (*)();
    static PRBCollectable* create(std::uint16_t identifier); // null for an unknown identifier
};
PRBCollectable* rwCreatePRBCollectable();

#endif
