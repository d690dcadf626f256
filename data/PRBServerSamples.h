// The samples of a server's own performance counters, built from keyword lines.
#ifndef PRB_DATA_PRBSERVERSAMPLES_H
#define PRB_DATA_PRBSERVERSAMPLES_H

#include "data/PRBSampleCatalogue.h"

// Common base of the samples of the EJB family.
class PRBEJBBaseSample : public PRBCatalogueSample {
protected:
    PRBEJBBaseSample(const PRBSampleClass& description, const int* placement);
};

class PRBContainerSample
    : public PRBSampleOf<PRBContainerSample, PRBSampleCatalogue::kContainer, PRBEJBBaseSample> {};

class PRBTransactionSample
    : public PRBSampleOf<PRBTransactionSample, PRBSampleCatalogue::kTransaction, PRBEJBBaseSample> {
};

class PRBObjectPoolSample
    : public PRBSampleOf<PRBObjectPoolSample, PRBSampleCatalogue::kObjectPool, PRBEJBBaseSample> {};

class PRBEJBSample : public PRBSampleOf<PRBEJBSample, PRBSampleCatalogue::kEJB, PRBEJBBaseSample> {
public:
    void buildFromDataString(const char* text) override;
};

class PRBEJBMethodSample
    : public PRBSampleOf<PRBEJBMethodSample, PRBSampleCatalogue::kEJBMethod, PRBEJBBaseSample> {};

class PRBDBConnectPoolSample
    : public PRBSampleOf<PRBDBConnectPoolSample, PRBSampleCatalogue::kDBConnectPool> {
public:
    static constexpr int kWaitTimeKey = 246; // average time a request waited
    static constexpr int kHeldTimeKey = 247; // average time a connection was held

    // A pool that reports how long connections were held but no waiting had no waiting.
    void calculateRates(const PRBSample* previous) override;
};

class PRBApplicationSample
    : public PRBSampleOf<PRBApplicationSample, PRBSampleCatalogue::kApplication> {};

class PRBServletSample : public PRBSampleOf<PRBServletSample, PRBSampleCatalogue::kServlet> {};

#endif
