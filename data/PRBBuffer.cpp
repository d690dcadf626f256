#include "data/PRBBuffer.h"

#include "core/PRBTrace.h"
#include "data/PRBRecordReader.h"

#include <algorithm>
#include <cassert>
#include <cstring>

namespace {

PRBTraceScope traced(const char* operation) {
    return PRBTraceScope(PRBTraceClass::kFrequent, PRBComponent::kBuffer, operation);
}

unsigned long long bigEndian(const unsigned char* bytes, std::size_t n) {
    unsigned long long value = 0;
    for (std::size_t i = 0; i < n; ++i) value = value << 8 | bytes[i];
    return value;
}

} // namespace

PRBCollectable* PRBBuffer::newSpecies() const { return new PRBBuffer; }
PRBCollectable* PRBBuffer::copy() const { return new PRBBuffer(*this); }

void PRBBuffer::put(unsigned long long value, int bytes) {
    char big[8];
    for (int i = 0; i < bytes; ++i) big[i] = static_cast<char>(value >> 8 * (bytes - 1 - i) & 0xFF);
    append(big, static_cast<std::size_t>(bytes));
}

void PRBBuffer::streamInt(unsigned long value) {
    auto trace = traced("PRBBuffer::streamInt");
    put(value & 0xFFFFFFFFul, 4);
}

void PRBBuffer::streamShortInt(unsigned short value) {
    auto trace = traced("PRBBuffer::streamShortInt");
    put(value, 2);
}

void PRBBuffer::streamLong(long long value) {
    auto trace = traced("PRBBuffer::streamLong");
    put(static_cast<unsigned long long>(value), 8);
}

void PRBBuffer::streamIntField(int key, long long value) {
    auto trace = traced("PRBBuffer::streamIntField");
    streamInt(kNumericField);
    streamInt(static_cast<unsigned>(key));
    streamLong(value);
}

void PRBBuffer::streamStringField(int key, const char* text) {
    streamStringField(key, text, text == nullptr ? 0 : std::strlen(text));
}

void PRBBuffer::streamStringField(int key, const char* text, std::size_t length) {
    auto trace = traced("PRBBuffer::streamStringField");
    streamInt(kStringField);
    streamInt(static_cast<unsigned>(key));
    streamInt(static_cast<unsigned long>(length));
    if (length != 0) append(text, length);
}

// The next bytes, moved past; `padded` receives them with zeros behind where they run out.
const unsigned char* PRBBuffer::take(std::size_t length, unsigned char* padded) {
    std::size_t left = size() - std::min<std::size_t>(position_, size());
    assert(length <= left && "buffer from elsewhere: read it through PRBRecordReader");
    const auto* bytes = reinterpret_cast<const unsigned char*>(data()) + (size() - left);
    if (length <= left) {
        position_ += static_cast<std::uint32_t>(length);
        return bytes;
    }
    std::memset(padded, 0, length);
    if (left != 0) std::memcpy(padded, bytes, left);
    position_ = static_cast<std::uint32_t>(size());
    return padded;
}

int PRBBuffer::getNextFieldType() {
    auto trace = traced("PRBBuffer::getNextFieldType");
    if (position_ >= size()) return trace.returns(0);
    return trace.returns(getNextIntField());
}

int PRBBuffer::getNextKey() {
    auto trace = traced("PRBBuffer::getNextKey");
    return trace.returns(getNextIntField());
}

int PRBBuffer::getNextIntField() {
    auto trace = traced("PRBBuffer::getNextIntField");
    unsigned char padded[4];
    return trace.returns(static_cast<int>(static_cast<unsigned>(bigEndian(take(4, padded), 4))));
}

unsigned short PRBBuffer::getNextShortIntField() {
    auto trace = traced("PRBBuffer::getNextShortIntField");
    unsigned char padded[2];
    return trace.returns(static_cast<unsigned short>(bigEndian(take(2, padded), 2)));
}

long long PRBBuffer::getNextLongField() {
    auto trace = traced("PRBBuffer::getNextLongField");
    unsigned char padded[8];
    return trace.returns(static_cast<long long>(bigEndian(take(8, padded), 8)));
}

std::string PRBBuffer::getNextStringField() {
    auto trace = traced("PRBBuffer::getNextStringField");
    std::size_t length = static_cast<unsigned>(getNextIntField());
    std::size_t left = size() - position_;
    assert(length <= left && "buffer from elsewhere: read it through PRBRecordReader");
    length = std::min(length, left);
    std::string text(data() + position_, length);
    position_ += static_cast<std::uint32_t>(length);
    trace.returns(length);
    return text;
}

unsigned int PRBBuffer::send() {
    auto trace = traced("PRBBuffer::send");
    PRBReturnCode rc;
    if (connection_ != nullptr) rc = connection_->send(*this);
    return trace.returns(static_cast<unsigned>(rc));
}

bool PRBBuffer::isWellFormed(const void* bytes, std::size_t length) {
    PRBRecordReader reader(bytes, length);
    for (PRBRecordReader::Field field; reader.next(field);) {
    }
    return !reader.error().isSet();
}
