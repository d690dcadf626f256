// Records in the framing in which a pass is returned: each behind its length, in one block.
#ifndef PRB_DATA_PRBRECORDARRAY_H
#define PRB_DATA_PRBRECORDARRAY_H

#include "data/PRBBuffer.h"
#include "data/PRBTransportableData.h"

#include <cstddef>

// For whoever needs many records as one byte string: they are streamed one after another into a
// single growing block, without a block per record. The block is counted as memory of the agent.
// Not locked.
class PRBRecordArray {
public:
    static constexpr std::size_t kLengthField = 4; // big-endian
    static constexpr std::size_t kMost = 0x7FFFFFFF;

    PRBRecordArray() = default;
    ~PRBRecordArray() { clear(); }
    PRBRecordArray(const PRBRecordArray&) = delete;
    PRBRecordArray& operator=(const PRBRecordArray&) = delete;

    // Streams the record to the end; false, and nothing is added, when there is no memory, or
    // when the whole would be more than a Java array can hold (2 GB).
    bool add(const PRBTransportableData& record);

    const unsigned char* data() const { return bytes_; } // null before the first record
    std::size_t size() const { return size_; }           // bytes
    void rewind() { size_ = 0; }                         // empty; keeps the memory for more
    void clear();                                        // empty; gives the memory back
    std::size_t capacity() const { return capacity_; }   // bytes
    void swap(PRBRecordArray& other) noexcept;

private:
    bool reserve(std::size_t more);

    PRBBuffer record_; // the one being added
    unsigned char* bytes_ = nullptr;
    std::size_t size_ = 0, capacity_ = 0;
};

#endif
