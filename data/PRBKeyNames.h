// Names for people: what a tool prints instead of the numbers of sample types and keys.
#ifndef PRB_DATA_PRBKEYNAMES_H
#define PRB_DATA_PRBKEYNAMES_H

struct PRBSampleClass;

// A short name such as "threadId"; null when there is none, and the number is to be shown. Names
// of server counters are the servers' own keywords. The same key may have another name in
// another sample type.
const char* prbKeyName(int sampleType, int key);

// The display name of a sample type, with names for those that receivers call "Unknown"; null
// for a type that nobody knows.
const char* prbSampleTypeName(int sampleType);

// The description of a sample type's class; null when it has none.
const PRBSampleClass* prbSampleClass(int sampleType);

#endif
