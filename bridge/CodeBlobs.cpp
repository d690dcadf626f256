#include "bridge/CodeBlobs.h"

#include "bridge/VmMemory.h"

namespace bridge {
namespace {

constexpr int kMostHeaps = 8;              // HotSpot has one or three
constexpr unsigned kMostShift = 16;        // segments are 64 to 128 bytes
constexpr unsigned char kUnused = 0xFF;    // in the map: no block here
constexpr int kMostHops = 4096;            // 254 segments a hop
constexpr std::size_t kBlockAlignment = 8; // the header of a block is filled up to that
constexpr signed char kInUse = 0;          // nmethod's state

} // namespace

void CodeBlobs::resolve(const VmStructs& vm) {
    range_ = vm.codeRange();
    // The sweeper's own field: gone with it.
    if (!vm.fieldOffset("nmethod", "_stack_traversal_mark"))
        how_ = How::kAlways;
    else
        how_ = findFields(vm) ? How::kLookUp : How::kNever;
}

bool CodeBlobs::findFields(const VmStructs& vm) {
    struct Field {
        std::size_t CodeBlobs::*to;
        const char* type;
        const char* name;
    };
    const Field fields[] = {
        {&CodeBlobs::listLength_, "GrowableArrayBase", "_len"},
        {&CodeBlobs::listData_, "GrowableArray<int>", "_data"},
        {&CodeBlobs::memory_, "CodeHeap", "_memory"},
        {&CodeBlobs::map_, "CodeHeap", "_segmap"},
        {&CodeBlobs::segmentShift_, "CodeHeap", "_log2_segment_size"},
        {&CodeBlobs::spaceLow_, "VirtualSpace", "_low"},
        {&CodeBlobs::spaceHigh_, "VirtualSpace", "_high"},
        {&CodeBlobs::blockUsed_, "HeapBlock::Header", "_used"},
        {&CodeBlobs::headerSize_, "CodeBlob", "_header_size"},
        {&CodeBlobs::state_, "nmethod", "_state"},
    };
    for (const Field& field : fields) {
        const auto offset = vm.fieldOffset(field.type, field.name);
        if (!offset) return false;
        this->*field.to = *offset;
    }
    heaps_ = vm.staticAddress("CodeCache", "_heaps");
    return heaps_ != nullptr;
}

CodeBlobs::Space CodeBlobs::spaceAt(const char* heap, std::size_t field) const {
    return {readAt<std::uintptr_t>(heap + field + spaceLow_),
            readAt<std::uintptr_t>(heap + field + spaceHigh_)};
}

const char* CodeBlobs::blobAt(const char* heap, const Space& memory, std::uintptr_t pc) const {
    const auto shift = static_cast<unsigned>(readAt<int>(heap + segmentShift_));
    if (shift > kMostShift) return nullptr;
    const Space map = spaceAt(heap, map_);
    std::uintptr_t segment = (pc - memory.low) >> shift;
    // Each entry tells how far back the block begins, or how far to go back for another that does.
    for (int hops = 0; hops < kMostHops && map.low + segment < map.high; hops++) {
        const auto back = readAt<unsigned char>(reinterpret_cast<const void*>(map.low + segment));
        if (back == kUnused || back > segment) return nullptr;
        if (back != 0) {
            segment -= back;
            continue;
        }
        const auto* block = reinterpret_cast<const char*>(memory.low + (segment << shift));
        if (!readAt<bool>(block + blockUsed_)) return nullptr;
        return block + (blockUsed_ + kBlockAlignment) / kBlockAlignment * kBlockAlignment;
    }
    return nullptr;
}

bool CodeBlobs::isAlive(std::uintptr_t pc) const {
    if (how_ != How::kLookUp) return how_ == How::kAlways;
    const char* list = readAt<const char*>(heaps_);
    if (list == nullptr) return false;
    const int count = readAt<int>(list + listLength_);
    const char* data = readAt<const char*>(list + listData_);
    if (data == nullptr || count < 0 || count > kMostHeaps) return false;
    for (int i = 0; i < count; i++) {
        const char* heap =
            readAt<const char*>(data + static_cast<std::size_t>(i) * sizeof(const char*));
        const Space memory = spaceAt(heap, memory_);
        if (pc < memory.low || pc >= memory.high) continue;
        const char* blob = blobAt(heap, memory, pc);
        if (blob == nullptr) return false;
        // Stubs and the interpreter are smaller than a compiled method, and live for ever.
        const int header = readAt<int>(blob + headerSize_);
        if (header >= 0 && static_cast<std::size_t>(header) <= state_) return true;
        return readAt<signed char>(blob + state_) == kInUse;
    }
    return true; // not compiled code
}

} // namespace bridge
