#include "data/PRBHeapSample.h"

std::string PRBHeapSample::convertClassNameToPackageName(const char* className) {
    std::string name = className == nullptr ? "" : className;
    const std::size_t slash = name.rfind('/');
    if (slash != std::string::npos) name.resize(slash);
    return name;
}
