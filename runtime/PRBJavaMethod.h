// A method: its names and its class, learned from the class-load event of that class.
#ifndef PRB_RUNTIME_PRBJAVAMETHOD_H
#define PRB_RUNTIME_PRBJAVAMETHOD_H

#include "jvmpi/jvmpi.h"
#include "runtime/PRBJavaObject.h"
#include "runtime/PRBSharedText.h"

#include <atomic>

class PRBJavaClass;

// Kept in "_MethodTable" by method id; built there by the class-load handler, or empty at the
// first sight of an unknown method. A record found in the registry stays valid while the
// registry is held or inside a PRBReclaimer::Reader.
//
// The plain accessors ask the VM for what is missing, which delivers a class load on this
// thread: REQUIRES no registry held. The peek forms never call the VM.
class PRBJavaMethod : public PRBJavaObject {
public:
    PRBJavaMethod() = default;
    explicit PRBJavaMethod(jmethodID id) : methodId(id) {}
    PRBJavaMethod(const char* name, const char* signature, const PRBJavaClass* cls, jmethodID id);
    PRBJavaMethod(const PRBJavaMethod& other);
    PRBJavaMethod& operator=(const PRBJavaMethod& other);

    std::uint16_t isA() const override { return 32741; }
    std::uint32_t hash() const override { return foldPointer(methodId); }
    bool isEqual(const PRBCollectable* other) const override;

    // A method whose class cannot be found is monitored while nothing else was decided.
    int shouldBeMonitored() override;
    int peekShouldBeMonitored();
    // Is the answer of shouldBeMonitored one that stays until the decision epoch changes?
    bool isDecided() const;

    jmethodID getMethodId() const { return methodId; }
    const PRBJavaClass* getClass();
    const char* getMethodName();
    const char* getMethodSignature();
    const PRBJavaClass* peekClass() const { return cls.load(std::memory_order_acquire); }
    const char* peekMethodName() const { return methodName.c_str(); }
    const char* peekMethodSignature() const { return methodSignature.c_str(); }
    void setMethodName(const char* name) { methodName.set(name); }
    void setMethodSignature(const char* signature) { methodSignature.set(signature); }
    void setClass(const PRBJavaClass* c) { cls.store(c, std::memory_order_release); }

    // Asks the VM for the method's class and to report that class again; stores nothing itself.
    void resolveMethod();

    PRBJavaMethod* nextOfClass() const { return next; }

private:
    friend class PRBJavaClass;
    int decide(const PRBJavaClass& known);
    PRBSharedText methodName;
    PRBSharedText methodSignature;
    std::atomic<const PRBJavaClass*> cls{nullptr};
    jmethodID methodId = nullptr;
    PRBJavaMethod* next = nullptr; // in the class's list
};

#endif
