// Reads what the VM knows of a class into a description. The VM's texts live as long as the
// reader.
#ifndef PRB_BRIDGE_CLASSREADER_H
#define PRB_BRIDGE_CLASSREADER_H

#include <string>
#include <vector>

#include <jvmti.h>

#include "bridge/ClassRecord.h"

namespace bridge {

class ClassReader {
public:
    ClassReader(jvmtiEnv* jvmti, JNIEnv* jni) : jvmti_(jvmti), jni_(jni) {}
    ~ClassReader();
    ClassReader(const ClassReader&) = delete;
    ClassReader& operator=(const ClassReader&) = delete;

    // False if the VM refuses even the name. A class that is not prepared yet has a name and
    // nothing else: prepared() tells.
    bool read(jclass mirror);
    bool prepared() const { return prepared_; }
    const ClassDescription& description() const { return description_; }

    // The name that the profiler interface uses for a class with this signature:
    // "Ljava/lang/String;" is java/lang/String, arrays keep their signature, primitives get
    // their Java names.
    static std::string nameOf(const char* signature);

private:
    char* keep(char* text);
    bool readMethods(jclass mirror);
    void readFields(jclass mirror);
    void readInterfaces(jclass mirror);

    jvmtiEnv* jvmti_;
    JNIEnv* jni_;
    bool prepared_ = false;
    std::string name_;
    ClassDescription description_;
    std::vector<char*> texts_;
};

} // namespace bridge

#endif
