#include "data/PRBWorkloadSamples.h"

std::string PRBWorkloadBaseSample::getResourceName() const {
    PRBTraceScope trace(PRBTraceClass::kMember, "PRBCWBSA",
                        "PRBWorkloadBaseSample::getResourceName");
    return resourceName_;
}

// The comparisons are made against the values as they stand: once the ordering key has been
// taken over, the keys behind it in the class's array are no longer merged.
void PRBHTTPSample::mergeSampleData(const PRBSample* other) {
    Trace trace(description(), "mergeSampleData");
    if (other == nullptr) return;
    if (other->getNumericData(kOrderKey) < getNumericData(kOrderKey))
        for (int key : {777, 771, 772, 701, 702})
            saveStringData(key, other->getStringData(key).c_str());
    PRBSample::mergeSampleData(other);
}

void PRBHTTPSample::mergeNumericData(const PRBSample* other, unsigned key, _NumericValue* slot) {
    if (other == nullptr) return;
    const int own = static_cast<int>(key);
    const bool merge = own == kMaximumKey1 || own == kMaximumKey2
                           ? other->getNumericData(own) > getNumericData(own)
                           : other->getNumericData(kOrderKey) < getNumericData(kOrderKey);
    if (merge) PRBSample::mergeNumericData(other, key, slot);
}
