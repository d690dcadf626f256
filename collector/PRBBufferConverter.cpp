#include "collector/PRBBufferConverter.h"

#include "core/PRBMemoryManager.h"
#include "data/PRBBuffer.h"

#include <arpa/inet.h>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>

namespace {

constexpr std::size_t kLengthField = 4;

struct Block {
    explicit Block(std::size_t n)
        : size(n), bytes(static_cast<char*>(PRBMemoryManager::allocate(n))) {}
    ~Block() {
        if (bytes != nullptr) PRBMemoryManager::release(bytes, size);
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    const std::size_t size;
    char* const bytes;
};

} // namespace

jbyteArray PRBBufferConverter::convertBufferCollectionToJavaByteArray(JNIEnv* env, PRBSlist& list) {
    std::uint64_t total = 0;
    PRBSlistIterator next(list);
    while (auto* buffer = static_cast<const PRBBuffer*>(next()))
        total += kLengthField + buffer->size();

    if (total == 0 || total > static_cast<std::uint64_t>(std::numeric_limits<jsize>::max())) {
        list.clearAndDestroy();
        return nullptr;
    }
    Block block(static_cast<std::size_t>(total));
    char* out = block.bytes;
    while (std::unique_ptr<PRBBuffer> buffer{static_cast<PRBBuffer*>(list.get())}) {
        if (out == nullptr) continue;
        const std::uint32_t length = htonl(static_cast<std::uint32_t>(buffer->size()));
        std::memcpy(out, &length, kLengthField);
        std::memcpy(out + kLengthField, buffer->data(), buffer->size());
        out += kLengthField + buffer->size();
    }
    if (block.bytes == nullptr) return nullptr;

    jbyteArray array = env->NewByteArray(static_cast<jsize>(total));
    if (array == nullptr || env->ExceptionCheck()) return nullptr;
    env->SetByteArrayRegion(array, 0, static_cast<jsize>(total),
                            reinterpret_cast<const jbyte*>(block.bytes));
    return array;
}
