// The link to the Java object that represents the collector on the Java side.
#ifndef PRB_COLLECTOR_PRBJAVACOLLECTOR_H
#define PRB_COLLECTOR_PRBJAVACOLLECTOR_H

#include <jni.h>

// Holds global references to the object and its class, and the methods that are called back.
// Built once, from InitProfiler; used from any attached thread. A method that the class does not
// have, a null object and an exception of the Java code all give the neutral answer, with no
// exception left pending. No lock is taken; callers hold none that a collection may want.
class PRBJavaCollector {
public:
    // Looks the methods up and asks the Java side for its build level.
    PRBJavaCollector(JNIEnv* env, jobject javaCollector);
    PRBJavaCollector(const PRBJavaCollector&) = delete;
    PRBJavaCollector& operator=(const PRBJavaCollector&) = delete;
    // Gives the references back; nothing else does, they live as long as the process.
    void release(JNIEnv* env);

    int getBuildLevel() const { return buildLevel_; } // of the Java side; 0 when not told
    // Bytes; -1 when not told. Also callable in a collection, with the restricted environment of
    // its events: makes no call then but that of the static method.
    jlong getFreeBytes(JNIEnv* env) const;
    jlong getTotalBytes(JNIEnv* env) const; // bytes; -1 when not told
    void writeToLog(JNIEnv* env, const char* text) const;
    // True when the Java side collects garbage collection data itself.
    bool isGCCollectionActive(JNIEnv* env) const;

    jmethodID getFreeBytesMethodId() const { return getFreeBytes_; }

private:
    jlong callLong(JNIEnv* env, jmethodID method) const;
    // Nothing can be pending in an environment with a function table other than the VM's own.
    bool threw(JNIEnv* env) const;

    jclass class_ = nullptr; // global
    jmethodID getBuildLevel_ = nullptr;
    jmethodID getFreeBytes_ = nullptr;
    jmethodID getTotalBytes_ = nullptr;
    jmethodID writeToLog_ = nullptr;
    jmethodID isGCCollectionActive_ = nullptr;
    jobject object_ = nullptr; // global
    int buildLevel_ = 0;
    const JNINativeInterface_* functions_ = nullptr; // of the VM's own environments
};

#endif
