// The VM's memory of compiled code, as far as the sampler's handler must know it: where it lies,
// and whether code that a word on the stack points to is alive.
//
// HotSpot before 20 has a sweeper, which makes compiled methods that nobody runs any more into
// zombies before it frees them. A stack walk that is begun in a zombie ends the process ("unsafe
// access to zombie method"): AsyncGetCallTrace means to be excused from that check, but some builds
// (17.0.15) look at a flag that it does not set. A word that was left on the stack may well point
// into one. A method in use cannot become one while the handler runs: before that every thread has
// to answer the VM.
#ifndef PRB_BRIDGE_CODEBLOBS_H
#define PRB_BRIDGE_CODEBLOBS_H

#include <cstddef>
#include <cstdint>

#include "bridge/VmStructs.h"

namespace bridge {

class CodeBlobs {
public:
    // Finds what the VM describes. REQUIRES: vm.resolve() was true.
    void resolve(const VmStructs& vm);

    // False in a VM with zombies that does not tell which they are: no stack may be walked from a
    // place that was guessed.
    bool searchable() const { return how_ != How::kNever; }
    // The bounds of all compiled code, where the VM tells them.
    const CodeRange& range() const { return range_; }
    // Whether a stack may be walked from this place in the code. Async-signal-safe.
    bool isAlive(std::uintptr_t pc) const;

private:
    enum class How { kAlways, kLookUp, kNever };
    // One of the VM's heaps of code, read anew each time: it grows.
    struct Space {
        std::uintptr_t low;
        std::uintptr_t high;
    };
    bool findFields(const VmStructs& vm);
    Space spaceAt(const char* heap, std::size_t field) const;
    // The start of the blob with this address, null in a free part.
    const char* blobAt(const char* heap, const Space& memory, std::uintptr_t pc) const;

    How how_ = How::kAlways;
    CodeRange range_;
    const void* heaps_ = nullptr; // where the VM keeps the pointer to its list of heaps
    // Offsets in the VM's objects, bytes.
    std::size_t listLength_ = 0, listData_ = 0;
    std::size_t memory_ = 0, map_ = 0, segmentShift_ = 0;
    std::size_t spaceLow_ = 0, spaceHigh_ = 0;
    std::size_t blockUsed_ = 0;
    std::size_t headerSize_ = 0, state_ = 0;
};

} // namespace bridge

#endif
