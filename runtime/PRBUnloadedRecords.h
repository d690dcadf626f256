// What becomes of the records of unloaded classes and of their methods.
#ifndef PRB_RUNTIME_PRBUNLOADEDRECORDS_H
#define PRB_RUNTIME_PRBUNLOADEDRECORDS_H

#include <cstddef>

class PRBJavaClass;
class PRBJavaMethod;

// Called by the class-unload handler with the records already out of their registries.
//
// Frequency, contention and object records cache pointers to classes without a lock or a count,
// so the record of a class that was ever lent to one (a few hundred bytes) is kept for good:
// marked dead it answers "do not monitor". Other classes, and methods, are cached nowhere beyond
// a PRBReclaimer::Reader and are deleted.
namespace PRBUnloadedRecords {

void retireClass(PRBJavaClass* cls); // marks it dead
void retireMethod(PRBJavaMethod* method);
std::size_t deadClasses(); // kept so far

} // namespace PRBUnloadedRecords

#endif
