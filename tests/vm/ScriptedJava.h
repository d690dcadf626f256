// The Java world of the scripted VM: classes, methods whose bodies are C++ functions, objects.
//
// Tests build these through ScriptedVm, which owns them all until it is destroyed; pointers stay
// valid for that long, also after an object was freed by a scripted collection.
#ifndef PRB_TESTS_VM_SCRIPTEDJAVA_H
#define PRB_TESTS_VM_SCRIPTEDJAVA_H

#include "jvmpi/jvmpi.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace scripted {

class ScriptedVm;
class ScriptedThread;
class ScriptedClass;
struct ScriptedObject;

// One argument or result. Integers of every width live in `number`.
struct JavaValue {
    jlong number = 0;
    ScriptedObject* object = nullptr;

    JavaValue() = default;
    JavaValue(bool v) : number(v ? 1 : 0) {}
    JavaValue(int v) : number(v) {}
    JavaValue(long v) : number(v) {}
    JavaValue(long long v) : number(v) {}
    JavaValue(ScriptedObject* v) : object(v) {}
    JavaValue(std::nullptr_t) {}
};

// What a method body is given.
struct JavaCall {
    ScriptedVm& vm;
    ScriptedThread& thread;
    ScriptedObject* self; // null for a static method
    std::vector<JavaValue> args;

    // Makes an exception pending on the calling thread; the body's result is then ignored.
    void throwNew(const std::string& className, const std::string& message = "");
};

using MethodBody = std::function<JavaValue(JavaCall&)>;

struct MethodSpec {
    std::string name;
    std::string signature;
    bool isStatic = false;
    MethodBody body = nullptr; // null: answers 0 or null
    jint startLine = 1;
    jint endLine = 1;
};

struct ScriptedMethod {
    ScriptedClass* owner = nullptr;
    jmethodID id = nullptr;
    MethodSpec spec;
};

struct FieldSpec {
    std::string name;
    std::string signature;
    ScriptedObject* value = nullptr; // of a static field of a reference type, for level-1 dumps
};

struct ClassSpec {
    std::string name; // as the VM has it inside: "com/x/Order", "[I"
    std::string source = "";
    std::vector<MethodSpec> methods = {};
    std::vector<FieldSpec> statics = {};
    std::vector<FieldSpec> instances = {};
    std::vector<std::string> interfaces = {};
    std::string superclass = "java/lang/Object";
    jint constants = 0;      // entries of the constant pool in a level-1 dump
    bool nullSource = false; // the CLASS_LOAD event carries a null source name
};

class ScriptedClass {
public:
    const std::string& name() const { return spec.name; }
    jobjectID id() const; // of the class object; changes when a collection moves it
    ScriptedMethod* find(const std::string& name, const std::string& signature,
                         bool isStatic) const; // through the superclasses, or null
    // REQUIRES: the class has exactly one method of that name.
    ScriptedMethod& method(const std::string& name) const;
    jmethodID methodId(const std::string& name) const { return method(name).id; }

    ClassSpec spec;
    ScriptedClass* superclass = nullptr;
    ScriptedObject* mirror = nullptr; // the java/lang/Class object
    std::vector<std::unique_ptr<ScriptedMethod>> methods;
    bool unloaded = false;
};

struct ScriptedObject {
    enum Kind { kPlain, kClass, kString, kBytes, kLongs, kObjects };

    Kind kind = kPlain;
    ScriptedClass* cls = nullptr;
    jobjectID id = nullptr;
    ScriptedClass* mirrorOf = nullptr;       // kClass
    std::string text;                        // kString: modified UTF-8; exceptions: the message
    std::vector<jbyte> bytes;                // kBytes
    std::vector<jlong> longs;                // kLongs
    std::vector<ScriptedObject*> elements;   // kObjects
    std::vector<ScriptedObject*> references; // of a plain object, for level-1 dumps
    ScriptedThread* thread = nullptr;        // of a java/lang/Thread object

    // As the profiler sees it. Only objects made by ScriptedVm::allocate are on the heap.
    bool onHeap = false;
    bool freed = false;
    jint arena = 1;
    jint arrayType = JVMPI_NORMAL_OBJECT;
    jint size = 16;  // bytes
    jint length = 0; // elements of a primitive array in a level-1 dump
};

} // namespace scripted

#endif
