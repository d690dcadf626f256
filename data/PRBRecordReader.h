// The bounds-checked way to read a record whose bytes come from elsewhere (a capture file, a
// socket, a fuzzer): header and fields as they are, whatever the sample type and keys.
#ifndef PRB_DATA_PRBRECORDREADER_H
#define PRB_DATA_PRBRECORDREADER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

// What is wrong with a record, and where.
struct PRBWireError {
    std::size_t offset = 0;         // of the first byte that is not as expected
    const char* expected = nullptr; // what should stand there; null: no error

    bool isSet() const { return expected != nullptr; }
    std::string text() const; // "offset 12: expected ..."; empty without an error
};

// Walks one record. Borrows the bytes, which must outlive the reader and the texts it answers;
// never reads outside of them and never throws. A plain value for one thread at a time.
class PRBRecordReader {
public:
    enum class Kind { Number, Text };
    struct Field {
        Kind kind = Kind::Number;
        int key = 0;
        long long number = 0;  // of a Number
        std::string_view text; // of a Text; any bytes, as sent
        std::size_t offset = 0;
    };

    static constexpr unsigned kPlainRecord = 0; // data type of a record without sample type
    static constexpr unsigned kSample = 2;      // data type of a sample

    // Reads the header; error() tells whether it was whole.
    PRBRecordReader(const void* bytes, std::size_t length);

    unsigned encoding() const { return encoding_; } // of the texts; 0 is the platform's own
    unsigned dataType() const { return dataType_; }
    bool isSample() const { return dataType_ == kSample; }
    int sampleType() const { return sampleType_; } // 0 for a plain record

    // The next field; false at the end of the record and at an error.
    bool next(Field& field) noexcept {
        const std::size_t left = length_ - position_;
        if (left == 0) return false;
        // What every whole field has at least; shorter ends are looked into by failShort.
        if (left < kTextHead) return failShort(left);
        const unsigned char* p = bytes_ + position_;
        const std::uint32_t type = int32At(p);
        field.offset = position_;
        field.key = static_cast<int>(int32At(p + 4));
        if (type == kNumericField) {
            if (left < kNumberSize) return failShort(left);
            field.kind = Kind::Number;
            field.number =
                static_cast<long long>(std::uint64_t{int32At(p + 8)} << 32 | int32At(p + 12));
            field.text = {};
            position_ += kNumberSize;
            return true;
        }
        if (type != kStringField) return failShort(left);
        const std::size_t size = int32At(p + kFieldHead);
        if (size > left - kTextHead)
            return fail(position_ + kFieldHead, "a text length within the record");
        field.kind = Kind::Text;
        field.number = 0;
        field.text = {reinterpret_cast<const char*>(p) + kTextHead, size};
        position_ += kTextHead + size;
        return true;
    }
    const PRBWireError& error() const { return error_; }

private:
    static constexpr std::uint32_t kNumericField = 1;
    static constexpr std::uint32_t kStringField = 2;
    static constexpr std::size_t kFieldHead = 8;   // type and key
    static constexpr std::size_t kTextHead = 12;   // and length
    static constexpr std::size_t kNumberSize = 16; // and value

    static std::uint32_t int32At(const unsigned char* p) {
        std::uint32_t value;
        std::memcpy(&value, p, sizeof value);
        return __builtin_bswap32(value);
    }
    bool failShort(std::size_t left) noexcept; // says what is wrong with a field's head
    bool fail(std::size_t offset, const char* expected) noexcept;

    const unsigned char* bytes_;
    std::size_t length_;
    std::size_t position_ = 0;
    unsigned encoding_ = 0;
    unsigned dataType_ = 0;
    int sampleType_ = 0;
    PRBWireError error_;
};

#endif
