// The samples of one pass, each in its serialised form behind its length: the bytes that the
// pass returns.
#ifndef PRB_COLLECTOR_PRBSAMPLELIST_H
#define PRB_COLLECTOR_PRBSAMPLELIST_H

#include "data/PRBRecordArray.h"

class PRBSample;

// Passes follow one another and are of much the same size, so their memory is kept from one to
// the next: a list takes what is kept and gives it back at its end. A pass inside another, which
// a call of Java may begin, finds nothing kept and has memory of its own.
class PRBSampleList {
public:
    // What lies between two passes. Not locked: passes are serial.
    class Kept {
    public:
        std::size_t capacity() const { return array_.capacity(); } // bytes

    private:
        friend class PRBSampleList;
        PRBRecordArray array_;
        unsigned smallPasses_ = 0; // one after another
    };
    // Memory of which this many passes in a row need less than a quarter goes back, unless it is
    // little.
    static constexpr unsigned kSmallPasses = 8;
    static constexpr std::size_t kLittle = 1024 * 1024; // bytes

    explicit PRBSampleList(Kept& kept) : kept_(kept) { array_.swap(kept.array_); }
    ~PRBSampleList();
    PRBSampleList(const PRBSampleList&) = delete;
    PRBSampleList& operator=(const PRBSampleList&) = delete;

    // Streams the sample to the end; the sample itself is not kept. Throws std::bad_alloc when
    // there is no memory, or when the pass would be more than a Java array can hold.
    void save(const PRBSample& sample);

    const unsigned char* data() const { return array_.data(); }
    std::size_t size() const { return array_.size(); } // bytes

private:
    Kept& kept_;
    PRBRecordArray array_;
};

#endif
