// The samples of workload analysis: they come from the Java side and are summed by receivers.
#ifndef PRB_DATA_PRBWORKLOADSAMPLES_H
#define PRB_DATA_PRBWORKLOADSAMPLES_H

#include "data/PRBSampleCatalogue.h"

#include <string>

// Common base of the workload samples: the name of their resource is no key of theirs and is
// not sent.
class PRBWorkloadBaseSample : public PRBCatalogueSample {
public:
    std::string getResourceName() const override;
    void setResourceName(const char* name) { resourceName_ = name == nullptr ? "" : name; }

protected:
    using PRBCatalogueSample::PRBCatalogueSample;

private:
    std::string resourceName_;
};

class PRBWorkloadSumSample
    : public PRBSampleOf<PRBWorkloadSumSample, PRBSampleCatalogue::kWorkloadSum,
                         PRBWorkloadBaseSample> {};

class PRBWorkloadDetailSample
    : public PRBSampleOf<PRBWorkloadDetailSample, PRBSampleCatalogue::kWorkloadDetail,
                         PRBWorkloadBaseSample> {};

class PRBWorkloadExceptionSample
    : public PRBSampleOf<PRBWorkloadExceptionSample, PRBSampleCatalogue::kWorkloadException,
                         PRBWorkloadBaseSample> {
public:
    std::uint16_t isA() const override { return 32700; }
};

// One web session or request. Merging compares the age of the two samples key by key.
class PRBHTTPSample : public PRBSampleOf<PRBHTTPSample, PRBSampleCatalogue::kHTTP> {
public:
    static constexpr int kOrderKey = 770;    // the sample with the smaller value wins
    static constexpr int kMaximumKey1 = 773; // the larger value wins
    static constexpr int kMaximumKey2 = 775;

    void mergeSampleData(const PRBSample* other) override;
    void mergeNumericData(const PRBSample* other, unsigned key, _NumericValue* slot) override;
};

class PRBDataSourceDetSample
    : public PRBSampleOf<PRBDataSourceDetSample, PRBSampleCatalogue::kDataSourceDet> {};

#endif
