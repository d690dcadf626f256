// A failure that the Java side must learn about: return code and text.
#ifndef PRB_DATA_PRBPROFILERERROR_H
#define PRB_DATA_PRBPROFILERERROR_H

#include "core/PRBReturnCode.h"
#include "data/PRBSampleCatalogue.h"

// Made where the failure is found, queued, deleted by the data return once it is sent.
class PRBProfilerError : public PRBSampleOf<PRBProfilerError, PRBSampleCatalogue::kProfilerError> {
public:
    static constexpr int kReturnCodeKey = 360;
    static constexpr int kTextKey = 361;

    PRBProfilerError() = default;
    // A null text stays empty. Writes one line when debug is on.
    PRBProfilerError(const PRBReturnCode& rc, const char* text);
};

#endif
