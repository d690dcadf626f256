#include "collector/NativeTraceTable.h"

#include <cstring>
#include <limits>
#include <new>

std::atomic<NativeTraceTable*> NativeTraceTable::newest{nullptr};

NativeTraceTable::NativeTraceTable(std::int32_t entrySize, std::int32_t entries, char* start)
    : entrySize_(entrySize),
      entries_(entries),
      start_(start),
      end_(start + static_cast<std::size_t>(entrySize) * static_cast<std::size_t>(entries)),
      next_(start) {}

NativeTraceTable* NativeTraceTable::create(std::int32_t entrySize, std::int32_t entries) {
    if (entrySize <= 0 || entries <= 0) return nullptr;
    const std::int64_t size = static_cast<std::int64_t>(entrySize) * entries;
    if (size > std::numeric_limits<std::int32_t>::max()) return nullptr;

    const auto bytes = static_cast<std::size_t>(size);
    auto* area = static_cast<char*>(PRBMemoryManager::allocate(bytes));
    if (area == nullptr) return nullptr;
    std::memset(area, 0, bytes);
    auto* table = new NativeTraceTable(entrySize, entries, area);
    if (table == nullptr) {
        PRBMemoryManager::release(area, bytes);
        return nullptr;
    }
    table->older_ = newest.load(std::memory_order_relaxed);
    while (!newest.compare_exchange_weak(table->older_, table, std::memory_order_release,
                                         std::memory_order_relaxed)) {
    }
    return table;
}

NativeTraceTable* NativeTraceTable::fromHandle(std::int64_t handle) {
    NativeTraceTable* table = newest.load(std::memory_order_acquire);
    while (table != nullptr && table->toHandle() != handle) table = table->older_;
    return table;
}

std::int64_t NativeTraceTable::toHandle() const { return reinterpret_cast<std::intptr_t>(this); }

void NativeTraceTable::write(const char* text) {
    if (text == nullptr) return;
    char* entry = next_.load(std::memory_order_relaxed);
    char* at = nullptr;
    do {
        at = entry >= end_ ? start_ : entry;
    } while (!next_.compare_exchange_weak(entry, at + entrySize_, std::memory_order_relaxed));

    const std::size_t length = ::strnlen(text, static_cast<std::size_t>(entrySize_));
    for (std::size_t i = 0; i < static_cast<std::size_t>(entrySize_); ++i)
        std::atomic_ref<char>(at[i]).store(i < length ? text[i] : '\0', std::memory_order_relaxed);
}
