#include "data/PRBRecordReader.h"

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

bool PRBRecordReader::failShort(std::size_t left) noexcept {
    if (left < 4) return fail(position_, "a field type of 4 bytes");
    const std::uint32_t type = int32At(bytes_ + position_);
    if (type != kNumericField && type != kStringField)
        return fail(position_, "field type 1 (number) or 2 (text)");
    if (left < kFieldHead) return fail(position_ + 4, "a key of 4 bytes");
    return fail(position_ + kFieldHead,
                type == kNumericField ? "a number of 8 bytes" : "a text length of 4 bytes");
}
