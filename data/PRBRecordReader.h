// The bounds-checked way to read a record whose bytes come from elsewhere (a capture file, a
// socket, a fuzzer): header and fields as they are, whatever the sample type and keys.
#ifndef PRB_DATA_PRBRECORDREADER_H
#define PRB_DATA_PRBRECORDREADER_H

#include <cstddef>
#include <cstdint>
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
    bool next(Field& field) noexcept;
    const PRBWireError& error() const { return error_; }

private:
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
