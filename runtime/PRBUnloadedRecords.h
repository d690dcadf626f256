// What becomes of the records of unloaded classes and of their methods.
#ifndef PRB_RUNTIME_PRBUNLOADEDRECORDS_H
#define PRB_RUNTIME_PRBUNLOADEDRECORDS_H

#include <cstddef>

class PRBJavaClass;
class PRBJavaMethod;

// Called by the class-unload handler with the records already out of their registries.
//
// Frequency and contention records cache pointers to classes without a lock or a count, so the
// record of a class that was ever lent to one (a few hundred bytes) is kept for good: marked dead
// it answers "do not monitor". One that was lent to records of objects waits until the object
// registry has been emptied, as every collection does at its end. Other classes, and methods,
// are cached nowhere beyond a PRBReclaimer::Reader and are deleted.
namespace PRBUnloadedRecords {

void retireClass(PRBJavaClass* cls); // marks it dead
void retireMethod(PRBJavaMethod* method);

// A collection has emptied the object registry. REQUIRES: the registry held. Two instructions.
void objectsEmptied();
// Retires the classes that waited for it. For whoever reclaims now and then. REQUIRES: not inside
// a collection pause. Cheap when there are none.
void release();

std::size_t deadClasses();    // kept so far
std::size_t waitingClasses(); // of those that wait for the object registry to be emptied

} // namespace PRBUnloadedRecords

#endif
