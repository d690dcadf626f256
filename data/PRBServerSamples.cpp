#include "data/PRBServerSamples.h"

PRBEJBBaseSample::PRBEJBBaseSample(const PRBSampleClass& description, const int* placement)
    : PRBCatalogueSample(description, placement) {
    PRBTraceScope trace(PRBTraceClass::kMember, "PRBCEBSA", "PRBEJBBaseSample constructor");
}

void PRBEJBSample::buildFromDataString(const char* text) {
    Trace trace(description(), "buildFromDataString");
    PRBSample::buildFromDataString(text);
}

void PRBDBConnectPoolSample::calculateRates(const PRBSample* previous) {
    PRBCatalogueSample::calculateRates(previous);
    auto& waited = getNumericValueEntry(kWaitTimeKey)->statistic;
    if (getNumericValueEntry(kHeldTimeKey)->statistic.isSet != 0 && waited.isSet == 0)
        waited = {.isSet = 1, .isDerived = 1, .derived = 0, .first = 0, .second = 0};
}
