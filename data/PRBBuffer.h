// The byte string into which one record is serialised, and from which it is rebuilt. All
// integers are big-endian; the end of the string is the end of the record.
#ifndef PRB_DATA_PRBBUFFER_H
#define PRB_DATA_PRBBUFFER_H

#include "core/PRBCollectable.h"
#include "data/PRBSocketConnection.h"

#include <cstddef>
#include <string>

// Made per sample by the data return, kept in its list, dropped when the pass ends. Not locked:
// one thread at a time.
//
// The getNext operations trust the bytes, which are the agent's own: they assert that enough are
// left, and where assertions are off they read zeros (and shorter strings) beyond the end. Bytes
// from elsewhere go through PRBRecordReader or PRBTransportableData::buildFromBufferChecked.
class PRBBuffer : public PRBCollectableString {
public:
    PRBBuffer() = default;
    explicit PRBBuffer(PRBSocketConnection& connection) : connection_(&connection) {}
    PRBBuffer(PRBSocketConnection& connection, const std::string& bytes)
        : PRBCollectableString(bytes), connection_(&connection) {}
    // A buffer to read from, for the Java side's bytes.
    PRBBuffer(const void* bytes, std::size_t length)
        : PRBCollectableString(std::string(static_cast<const char*>(bytes), length)) {}

    PRBCollectable* newSpecies() const override;
    PRBCollectable* copy() const override;

    void streamInt(unsigned long value); // the low 32 bits
    void streamShortInt(unsigned short value);
    void streamLong(long long value);
    void streamIntField(int key, long long value); // 16 bytes: the value is always 8
    void streamStringField(int key, const char* text);
    void streamStringField(int key, const char* text, std::size_t length);

    int getNextFieldType(); // kNumericField, any other value: a string field; 0 at the end
    int getNextKey();
    int getNextIntField();
    unsigned short getNextShortIntField();
    long long getNextLongField();
    std::string getNextStringField();

    // The connection's return code; without a connection 0, and nothing is sent.
    unsigned int send();

    // True when the bytes are one whole record: a known header, and fields up to the very end.
    static bool isWellFormed(const void* bytes, std::size_t length);

    static constexpr int kNumericField = 1;
    static constexpr int kStringField = 2;
    static constexpr std::size_t kNumericFieldSize = 16;
    static constexpr std::size_t kStringFieldHead = 12;

private:
    const unsigned char* take(std::size_t length, unsigned char* padded);
    void put(unsigned long long value, int bytes);

    std::uint32_t position_ = 0; // bytes already read
    PRBSocketConnection* connection_ = nullptr;
};

#endif
