#include "data/PRBMethodSummarySample.h"

#include "data/PRBMethodUsageSample.h"

PRBMethodSummarySample& PRBMethodSummarySample::operator=(const PRBMethodUsageSample& usage) {
    Trace trace(description(), "operator=");
    for (int key : {10, 11, 320}) // class, method, signature
        saveStringData(key, usage.getStringData(key).c_str());
    mergeSampleData(&usage);
    return *this;
}
