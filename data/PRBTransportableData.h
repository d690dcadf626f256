// The base of every record that leaves the agent: how it streams itself into a buffer, how it is
// rebuilt from one, and the extra values that it carries.
#ifndef PRB_DATA_PRBTRANSPORTABLEDATA_H
#define PRB_DATA_PRBTRANSPORTABLEDATA_H

#include "core/PRBCollectable.h"
#include "data/PRBKeyValueSet.h"
#include "data/PRBRecordReader.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

class PRBBuffer;
class PRBSocketConnection;

// The encoding of a record's texts. 0 is the platform's own, 2 as a target means the same;
// other values name foreign encodings, which are noted and passed through unchanged.
enum _CharacterEncoding : int {};

// A plain record has no keys of its own and carries only its key/value set; a sample supplies
// the keys. A record belongs to one thread at a time.
class PRBTransportableData : public PRBCollectable {
public:
    static constexpr _CharacterEncoding PlatformNativeFormat{0};

    PRBTransportableData() = default;
    PRBTransportableData(const PRBTransportableData& other);
    PRBTransportableData& operator=(const PRBTransportableData& other);

    std::uint16_t isA() const override { return 0x7FF5; }
    PRBCollectable* newSpecies() const override;
    PRBCollectable* copy() const override { return clone(); }

    virtual int getNumNumericKeys() const { return 0; }
    virtual int getNumStringKeys() const { return 0; }
    // Fill the keys of the record. REQUIRES: room for as many as the count says.
    virtual void numericKeys(int* keys) const;
    virtual void stringKeys(int* keys) const;
    virtual void streamID(PRBBuffer& buffer) const;
    virtual void streamData(PRBBuffer& buffer) const;
    virtual void buildFromDataString(const char* text);
    virtual long long getNumericValueForStream(unsigned key) const {
        return getNumericData(static_cast<int>(key));
    }
    // Null values are not streamed.
    virtual bool valueIsNull(long long value) const { return value == 0; }
    virtual bool valueIsNull(const std::string& text) const { return text.empty(); }
    // The whole record, into an empty buffer; at most one allocation.
    virtual void stream(PRBBuffer& buffer) const;
    virtual int getDataType() const { return 0; }
    virtual void saveNumericData(int key, long long value);
    virtual long long getNumericData(int key) const;
    // All keys and values in four new arrays, each of at least one element; the caller deletes
    // them with delete[].
    virtual void getDataArrays(int& numNumeric, int& numString, int** numericKeys,
                               long long** numericValues, int** stringKeys,
                               std::string** stringValues) const;
    virtual unsigned int send(PRBSocketConnection& connection) const;
    virtual void saveStringData(int key, const char* text); // null counts as empty
    // Valid until the record changes.
    virtual const std::string& getStringData(int key) const;
    // saveStringData for a text without a terminator. REQUIRES: no zero byte in it.
    virtual void saveText(int key, std::string_view text);
    virtual PRBTransportableData* clone() const; // owned by the caller
    virtual void save(const PRBKeyValueSet& set);

    // Reads the fields of a record whose header has been read.
    void saveData(PRBBuffer& buffer);
    // Reads a whole record; null unless it is a sample of a known type. REQUIRES: well-formed
    // bytes.
    static std::unique_ptr<PRBTransportableData> buildFromBuffer(PRBBuffer& buffer);
    // The same for any bytes: null, and the reason in `error`, unless they are one whole sample
    // of a known type. Keys that its class does not have are passed over, as above.
    static std::unique_ptr<PRBTransportableData>
    buildFromBufferChecked(const void* bytes, std::size_t length, PRBWireError& error);

    static std::string convertString(const char* text, _CharacterEncoding from,
                                     _CharacterEncoding to);
    void setToBeSentAs(_CharacterEncoding encoding) { toBeSentAs_ = encoding; }
    _CharacterEncoding getToBeSentAs() const { return toBeSentAs_; }
    _CharacterEncoding getSourceEncoding() const { return source_; }
    const PRBKeyValueSet* getKeyValueSet() const { return set_.get(); } // null when none
    void dumpToLog() const;

protected:
    void streamKeyValueSet(PRBBuffer& buffer) const;
    std::size_t keyValueSetSize() const; // an upper bound of the bytes of its fields
    void streamText(PRBBuffer& buffer, int key, const char* text) const;
    static const std::string& emptyText();

private:
    _CharacterEncoding source_ = PlatformNativeFormat; // of the record it was rebuilt from
    _CharacterEncoding toBeSentAs_ = PlatformNativeFormat;
    std::unique_ptr<PRBKeyValueSet> set_;
};

#endif
