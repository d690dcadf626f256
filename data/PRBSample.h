// The base of every typed record: numeric values in one slot per key of the class, whose meaning
// comes from the key table.
#ifndef PRB_DATA_PRBSAMPLE_H
#define PRB_DATA_PRBSAMPLE_H

#include "core/PRBCollections.h"
#include "data/PRBKeyTable.h"
#include "data/PRBTime.h"
#include "data/PRBTransportableData.h"

#include <cstdint>
#include <memory>
#include <string>

class PRBResourceAnchor;

// Sample type ids as they are sent. Ids without a class here pass through.
enum _SampleType : int {
    kSampleAppServer = 1,
    kSampleContainer = 2,
    kSampleTransaction = 3,
    kSampleObjectPool = 4,
    kSampleEJB = 5,
    kSampleEJBMethod = 6,
    kSampleDBConnectPool = 7,
    kSampleApplication = 8,
    kSampleServlet = 9,
    kSampleThread = 10,
    kSampleMethodUsage = 11,
    kSampleContention = 12,
    kSampleHeap = 13,
    kSampleGarbageCollection = 14,
    kSampleProfilerError = 17,
    kSampleProfilerResource = 18,
    kSampleWorkloadSum = 31,
    kSampleWorkloadDetail = 32,
    kSampleHTTP = 33,
    kSampleDataSourceDet = 34,
    kSampleWorkloadException = 36,
    kSampleMethodSummary = 37,
    kSampleAppServerOverview = 39,
    kSampleEnd = 998,
};

// Where the data of a sample type comes from.
enum _DataSource : int { kServerCounters = 0, kProfiler = 1, kWorkloadAnalysis = 2 };

// One row of a class's keyword table; a null keyword ends the table.
struct PRBKeyword {
    const char* keyword;
    int key;
};

// Built by the thread that fills, streams and deletes it; not locked.
class PRBSample : public PRBTransportableData {
public:
// A value of a key, by the key's type. 32 bytes and the same layout on both word sizes: the
// slots are dumped as they are. All views begin with the set flag.
#pragma pack(push, 4)
    union _NumericValue {
        struct {
            std::uint32_t isSet;
            std::int64_t value;
        } plain;
        struct {
            std::uint32_t isSet, isDerived;
            std::int64_t counted;
            std::int64_t interval;
            std::int64_t derived; // rate per second, average or percent
        } counter;
        struct {
            std::uint32_t isSet, isDerived;
            std::int64_t derived;
            double first, second;
        } statistic;
        unsigned char bytes[32];
    };
#pragma pack(pop)
    static_assert(sizeof(_NumericValue) == 32);

    // The keys of every sample: its time in seconds and its duration.
    static constexpr int kTimeKey = 20;
    static constexpr int kDurationKey = 21;
    static constexpr int SampleIntKeys[] = {kTimeKey, kDurationKey};
    static constexpr int NumSampleIntKeys = 2;

    // `intKeys` are borrowed for the life of the sample; one zeroed slot each is allocated.
    PRBSample(unsigned numIntKeys, const unsigned* intKeys);
    ~PRBSample() override;
    PRBSample(const PRBSample& other);
    // REQUIRES: both have the same keys; otherwise the slots stay as they are.
    PRBSample& operator=(const PRBSample& other);

    using PRBTransportableData::valueIsNull;
    int getNumNumericKeys() const override;
    void numericKeys(int* keys) const override; // 20, 21, then the class's
    void streamID(PRBBuffer& buffer) const override;
    void buildFromDataString(const char* text) override;
    long long getNumericValueForStream(unsigned key) const override;
    bool valueIsNull(long long value) const override { return value == -1; }
    int getDataType() const override { return 2; }
    void saveNumericData(int key, long long value) override; // -1 makes a key unset
    long long getNumericData(int key) const override;        // -1 when unset
    PRBSample* clone() const override = 0;

    virtual const PRBKeyword* getZAMKeywordTable() const { return nullptr; }
    // Maps each key id below kNumKeys to its index among the class's keys, -1 for other keys.
    virtual const int* getKeyPlacementArray() const { return nullptr; }
    virtual void sumStatInfoData(unsigned key, double first, double second);
    virtual void sumNumericData(int key, long long value);
    virtual void mergeNumericData(const PRBSample* other, unsigned key, _NumericValue* slot);
    virtual _SampleType getSampleType() const = 0;
    virtual void saveStatInfoData(unsigned key, double first, double second);
    virtual std::string getResourceName() const { return {}; }
    virtual void calculateRates(const PRBSample* previous); // null when there is none
    // A new anchor that identifies the sample's resource (anchors/), owned by the caller.
    virtual PRBResourceAnchor* getResourceAnchor() const;
    // True when the class's counters restart at each sample.
    virtual bool isIntervalSample() const { return false; }
    virtual void mergeSampleData(const PRBSample* other);
    virtual void mergeIntoHistoricalSample(const PRBSample* other);
    virtual bool shouldCreateSummarySamples() const { return false; }
    virtual void resetRates();
    virtual void createSummarizedSamples(PRBCollection&) {}

    // The derived values; -1 while they are not calculated, 0 for keys of other types.
    long long getRate(int key) const;
    long long getPercent(int key) const;
    bool wereRatesCalculated() const;
    // What a statistic gained since the previous sample (null: since the start): the first and
    // the second of its pair. 0 for other keys.
    double getTotalForStatinfo(unsigned key, const PRBSample* previous) const;
    double getTotalNumSamplesForStatinfo(unsigned key, const PRBSample* previous) const;
    // The interval value of the key that a derived value is taken over; 0 when there is none.
    long long getTotalCount(unsigned key, const PRBSample* previous) const;

    const PRBTime& getSampleTime() const { return time_; }
    std::uint32_t getDuration() const { return duration_; }

    // Sets the time to now and reads keyword lines.
    void buildFromSampleString(const char* text);
    static std::unique_ptr<PRBSample> buildFromSampleString(_SampleType type, const char* text);
    // An empty sample; null for ids without a class that may be received.
    static std::unique_ptr<PRBSample> buildFromType(_SampleType type);
    // Reads the sample type id and builds an empty sample of it.
    static std::unique_ptr<PRBSample> buildFromBuffer(PRBBuffer& buffer);

    static const char* getSampleTypeInEnglish(_SampleType type);
    static _DataSource getDataSource(_SampleType type);
    // REQUIRES: room for kNumKeys ints.
    static constexpr void createKeyPlacementArray(int* placement, const unsigned* keys, int count) {
        for (int i = 0; i < kNumKeys; ++i) placement[i] = -1;
        for (int i = 0; i < count; ++i)
            if (keys[i] < static_cast<unsigned>(kNumKeys)) placement[keys[i]] = i;
    }
    static const PRBKeyTableEntry* getKeyTableEntry(int key) { return prbKeyTableEntry(key); }
    static int getScaleFactorMultiplier(int key); // 1 for an unknown key
    // Texts of the server's performance counters. Independent of the locale; nothing that reads
    // as a number gives 0.
    static long long convertStringValueToInt(const char* text, unsigned key = 0);
    static double convertStringValueToDouble(const char* text);
    static void convertPerfLoadValue(const char* text, double& first, double& second);

protected:
    // For classes that hold their own slots: they attach them before anything else is called.
    struct OwnSlots {};
    PRBSample(unsigned numIntKeys, const unsigned* intKeys, OwnSlots);
    PRBSample(const PRBSample& other, OwnSlots);
    void attachSlots(_NumericValue* slots) { slots_ = slots; }

    // Fills the interval and derived values. Counters in `cumulative` are treated as running
    // counters whatever the key table says.
    void deriveRates(const PRBSample* previous, const unsigned* cumulative = nullptr,
                     unsigned numCumulative = 0);

    _NumericValue* getNumericValueEntry(int key);
    const _NumericValue* getNumericValueEntry(int key) const;
    const _NumericValue* slots() const { return slots_; } // one per class key, in key order
    _NumericValue* slots() { return slots_; }
    unsigned numClassKeys() const { return numIntKeys_; }
    const unsigned* classKeys() const { return intKeys_; }

private:
    long long elapsedMs(const PRBSample* previous) const;
    long long intervalOf(int key, const PRBSample* previous, bool running) const;
    void saveKeyword(const PRBKeyword& keyword, const char* value);

    PRBTime time_;
    std::uint32_t duration_ = 0;
    _NumericValue* slots_ = nullptr;
    unsigned numIntKeys_;
    const unsigned* intKeys_;
    bool slotsAllocated_;
};

#endif
