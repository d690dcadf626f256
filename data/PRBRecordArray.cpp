#include "data/PRBRecordArray.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr std::size_t kFirstBlock = 64 * 1024;

} // namespace

bool PRBRecordArray::reserve(std::size_t more) {
    if (more <= capacity_ - size_) return true;
    if (more > kMost - size_) return false;
    // The C library moves the pages of a large block instead of copying them.
    const std::size_t capacity =
        std::max({kFirstBlock, std::min(capacity_ * 2, kMost), size_ + more});
    void* block = std::realloc(bytes_, capacity);
    if (block == nullptr) return false;
    PRBMemoryManager::count(capacity - capacity_);
    bytes_ = static_cast<unsigned char*>(block);
    capacity_ = capacity;
    return true;
}

bool PRBRecordArray::add(const PRBTransportableData& record) {
    record_.clear();
    record.stream(record_);
    if (!reserve(kLengthField + record_.size())) return false;
    const std::uint32_t length = __builtin_bswap32(static_cast<std::uint32_t>(record_.size()));
    std::memcpy(bytes_ + size_, &length, kLengthField);
    std::memcpy(bytes_ + size_ + kLengthField, record_.data(), record_.size());
    size_ += kLengthField + record_.size();
    return true;
}

void PRBRecordArray::swap(PRBRecordArray& other) noexcept {
    record_.swap(other.record_);
    std::swap(bytes_, other.bytes_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
}

void PRBRecordArray::clear() {
    std::free(bytes_);
    PRBMemoryManager::uncount(capacity_);
    bytes_ = nullptr;
    size_ = capacity_ = 0;
}
