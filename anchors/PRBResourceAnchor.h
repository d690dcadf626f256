// The identity of one monitored resource and the keeper of its samples: the latest one, and a
// historical one into which interval samples accumulate.
#ifndef PRB_ANCHORS_PRBRESOURCEANCHOR_H
#define PRB_ANCHORS_PRBRESOURCEANCHOR_H

#include "core/PRBCollectable.h"
#include "data/PRBSample.h"

#include <cstdint>
#include <memory>
#include <string>

// Made by receivers, one per resource, and kept in a PRBAnchorCollection. An anchor whose
// identifying fields are wild (an empty text, an all-ones number) is a pattern for many. Not
// locked: its owner serialises access. Identifying fields must not change while the anchor is in
// a hashed collection, nor be expected to change hash() once that was asked for.
//
// History can be restarted without a jump in the rates: the owner sets the reset as pending; the
// next historical save or reset turns that into "history restarted"; the next sample then gets
// no rates against the sample before the restart, and both flags are clear again. Interval
// samples carry no running counters and always get their rates.
class PRBResourceAnchor : public PRBCollectable {
public:
    PRBResourceAnchor();
    PRBResourceAnchor(_SampleType type, const std::string& name);
    // Clones the samples; starts without interval and without flags.
    PRBResourceAnchor(const PRBResourceAnchor& other);
    // Clones the other's samples and lets go of its own, which stay alive: whoever still points
    // at them owns them. The hash, once computed, and the interval id stay.
    PRBResourceAnchor& operator=(const PRBResourceAnchor& other);
    ~PRBResourceAnchor() override;

    std::uint16_t isA() const override { return 0x7FF9; }
    std::uint32_t hash() const override; // getHashKey() at the first call, the same ever after
    bool isEqual(const PRBCollectable* other) const override; // false for what is no anchor
    PRBCollectable* newSpecies() const override { return new PRBResourceAnchor; }
    PRBCollectable* copy() const override { return clone(); }

    virtual std::uint32_t getHashKey() const { return createHashKey(resourceName_.c_str()); }
    // Both owned by the anchor and null when there is none; the historical one with its rates.
    virtual PRBSample* getLastSample() const { return last_.get(); }
    virtual PRBSample* getLastHistoricalSample();

    // Takes the sample over. Samples of the same non-zero interval id are merged into one.
    // REQUIRES: not the anchor's own last or historical sample. Null is ignored.
    virtual void saveNewSample(PRBSample* sample, unsigned int intervalId);
    // Takes the sample over unless history was restarted meanwhile: answers whether it did, and
    // otherwise the sample stays the caller's. Null is ignored.
    virtual bool saveNewHistoricalSample(PRBSample* sample);
    virtual void resetHistoricalSample();
    // Asks for history to restart with the next sample.
    void setResetPending(int pending) { resetPending_ = pending != 0; }

    // Is this anchor, which is specific, one of those that the pattern stands for?
    virtual bool doesItMatch(const PRBResourceAnchor& pattern) const;
    virtual bool isSpecific() const;
    virtual PRBResourceAnchor* clone() const { return new PRBResourceAnchor(*this); }
    // "name=value" pairs by which a receiver asks for more about the resource, joined with
    // commas; null for classes that have none, empty while the anchor is not specific. Valid
    // until the next call.
    virtual const char* getAdditionalPollParameters() const { return nullptr; }
    // A hash over every identifying field, for collections of many anchors: getHashKey() looks
    // at the ends of a text only. Equal for equal anchors of one class.
    virtual std::uint64_t identityHash() const;

    _SampleType getSampleType() const { return type_; }
    const std::string& getResourceName() const { return resourceName_; }
    void setSampleType(_SampleType type) { type_ = type; }
    void setResourceName(const std::string& name) { resourceName_ = name; }
    unsigned int getIntervalId() const { return intervalId_; } // of the last sample; 0: none
    bool isResetPending() const { return resetPending_; }
    bool isHistoryRestarted() const { return historyRestarted_; }

    // A text's key: its first four bytes, XORed with its last four when it is longer; shorter
    // texts are filled up with zeros. The machine's byte order.
    static std::uint32_t createHashKey(const char* text);

private:
    void restartHistory(); // a pending reset comes into force

    _SampleType type_{0};
    std::string resourceName_;
    std::unique_ptr<PRBSample> last_;
    std::unique_ptr<PRBSample> historical_;
    unsigned int intervalId_ = 0;
    bool resetPending_ = false;
    bool historyRestarted_ = false;
    mutable bool hashCached_ = false;
    mutable std::uint32_t cachedHash_ = 0;
};

#endif
