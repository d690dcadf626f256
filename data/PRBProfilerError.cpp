#include "data/PRBProfilerError.h"

PRBProfilerError::PRBProfilerError(const PRBReturnCode& rc, const char* text) {
    Trace trace(description(), "constructor");
    const unsigned code = rc;
    saveNumericData(kReturnCodeKey, code);
    if (text != nullptr) saveStringData(kTextKey, text);
    if (PRBTrace::isDebugEnabled(PRBComponent::kProfilerError))
        PRBTrace::log("Profiler error %i detected.  Text = %s", static_cast<int>(code),
                      getStringData(kTextKey).c_str());
}
