// The two lists of masks that decide which classes and methods are monitored.
#ifndef PRB_CORE_PRBMASKLISTS_H
#define PRB_CORE_PRBMASKLISTS_H

#include "jvmpi/jvmpi.h"

namespace PRBMaskLists {

// Builds the lists, both empty, and their monitor; once per process. Before that nothing is
// monitored and setting a list has no effect.
void initialize(JVMPI_Interface* jvmpi);

// Replaces a list as a whole; then every record of the registry is told to decide again. A mask
// list is split on commas and blanks. An empty list monitors nothing.
void setClassMask(const char* list);
void setMethodMask(const char* list);

// First match wins. The names are the VM's own: slashes in class names; for methods the class
// name, a full stop and the method name. Takes "_MaskList" as a leaf; callable under registries.
bool shouldClassBeMonitored(const char* className);
bool shouldMethodBeMonitored(const char* methodName);

} // namespace PRBMaskLists

#endif
