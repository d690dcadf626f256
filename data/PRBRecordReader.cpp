#include "data/PRBRecordReader.h"

namespace {

std::uint32_t int32At(const unsigned char* p) {
    return static_cast<std::uint32_t>(p[0]) << 24 | static_cast<std::uint32_t>(p[1]) << 16 |
           static_cast<std::uint32_t>(p[2]) << 8 | p[3];
}

constexpr std::uint32_t kNumericField = 1;
constexpr std::uint32_t kStringField = 2;
constexpr std::size_t kFieldHead = 8; // type and key

} // namespace

std::string PRBWireError::text() const {
    if (!isSet()) return {};
    return "offset " + std::to_string(offset) + ": expected " + expected;
}

bool PRBRecordReader::fail(std::size_t offset, const char* expected) noexcept {
    error_ = {offset, expected};
    position_ = length_;
    return false;
}

PRBRecordReader::PRBRecordReader(const void* bytes, std::size_t length)
    : bytes_(static_cast<const unsigned char*>(bytes)), length_(bytes == nullptr ? 0 : length) {
    if (length_ < 4) {
        fail(0, "a record header of 4 bytes: text encoding, data type");
        return;
    }
    encoding_ = static_cast<unsigned>(bytes_[0] << 8 | bytes_[1]);
    dataType_ = static_cast<unsigned>(bytes_[2] << 8 | bytes_[3]);
    position_ = 4;
    if (dataType_ == kPlainRecord) return;
    if (dataType_ != kSample) {
        fail(2, "data type 2 (sample) or 0 (plain record)");
    } else if (length_ < 8) {
        fail(4, "a sample type of 4 bytes");
    } else {
        sampleType_ = static_cast<int>(int32At(bytes_ + 4));
        position_ = 8;
    }
}

bool PRBRecordReader::next(Field& field) noexcept {
    if (position_ == length_) return false;
    const std::size_t left = length_ - position_;
    const unsigned char* p = bytes_ + position_;
    if (left < 4) return fail(position_, "a field type of 4 bytes");
    const std::uint32_t type = int32At(p);
    if (type != kNumericField && type != kStringField)
        return fail(position_, "field type 1 (number) or 2 (text)");
    if (left < kFieldHead) return fail(position_ + 4, "a key of 4 bytes");
    field.offset = position_;
    field.key = static_cast<int>(int32At(p + 4));
    if (type == kNumericField) {
        if (left < kFieldHead + 8) return fail(position_ + kFieldHead, "a number of 8 bytes");
        field.kind = Kind::Number;
        field.number = static_cast<long long>(static_cast<std::uint64_t>(int32At(p + 8)) << 32 |
                                              int32At(p + 12));
        field.text = {};
        position_ += kFieldHead + 8;
        return true;
    }
    if (left < kFieldHead + 4) return fail(position_ + kFieldHead, "a text length of 4 bytes");
    const std::size_t size = int32At(p + kFieldHead);
    if (size > left - kFieldHead - 4)
        return fail(position_ + kFieldHead, "a text length within the record");
    field.kind = Kind::Text;
    field.number = 0;
    field.text = {reinterpret_cast<const char*>(p) + kFieldHead + 4, size};
    position_ += kFieldHead + 4 + size;
    return true;
}
