// The live objects of one class.
#ifndef PRB_DATA_PRBHEAPSAMPLE_H
#define PRB_DATA_PRBHEAPSAMPLE_H

#include "data/PRBSampleCatalogue.h"

class PRBHeapSample : public PRBSampleOf<PRBHeapSample, PRBSampleCatalogue::kHeap> {
public:
    // The part before the last '/' of an internal class name ("java/lang/String" gives
    // "java/lang"); a name without one is answered as it is.
    static std::string convertClassNameToPackageName(const char* className);
};

#endif
