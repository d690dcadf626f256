#include "runtime/PRBJavaMethod.h"

#include "core/PRBFormat.h"
#include "core/PRBMaskLists.h"
#include "core/PRBTrace.h"
#include "core/PRBVm.h"
#include "runtime/PRBJavaClass.h"

#include <string>

namespace {

// A copy is in no registry and outlives its class.
const PRBJavaClass* lent(const PRBJavaClass* cls) {
    if (cls != nullptr) cls->lend();
    return cls;
}

} // namespace

PRBJavaMethod::PRBJavaMethod(const char* name, const char* signature, const PRBJavaClass* ofClass,
                             jmethodID id)
    : methodName(name), methodSignature(signature), cls(ofClass), methodId(id) {}

PRBJavaMethod::PRBJavaMethod(const PRBJavaMethod& other)
    : PRBJavaObject(other),
      methodName(other.methodName),
      methodSignature(other.methodSignature),
      cls(lent(other.peekClass())),
      methodId(other.methodId) {}

PRBJavaMethod& PRBJavaMethod::operator=(const PRBJavaMethod& other) {
    if (this == &other) return *this;
    PRBJavaObject::operator=(other);
    methodName = other.methodName;
    methodSignature = other.methodSignature;
    setClass(lent(other.peekClass()));
    methodId = other.methodId;
    return *this;
}

bool PRBJavaMethod::isEqual(const PRBCollectable* other) const {
    return other != nullptr && other->isA() == isA() &&
           static_cast<const PRBJavaMethod*>(other)->methodId == methodId;
}

int PRBJavaMethod::shouldBeMonitored() {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kMethod,
                        "PRBJavaMethod::shouldBeMonitored");
    if (peekClass() == nullptr) resolveMethod();
    return trace.returns(peekShouldBeMonitored());
}

int PRBJavaMethod::peekShouldBeMonitored() {
    const PRBJavaClass* known = peekClass();
    if (known != nullptr) return decide(*known);
    int status = getStatus();
    return status == PRBMonitored::kUndecided ? PRBMonitored::kMonitor : status;
}

int PRBJavaMethod::decide(const PRBJavaClass& known) {
    if (known.isDead()) return PRBMonitored::kIgnore;
    std::uint32_t word = readDecision();
    if ((word & 3U) != PRBMonitored::kUndecided) return static_cast<int>(word & 3U);
    std::string full = known.getClassName();
    full += '.';
    full += methodName.c_str();
    return storeDecision(word, PRBMaskLists::shouldMethodBeMonitored(full.c_str()));
}

bool PRBJavaMethod::isDecided() const {
    return peekClass() != nullptr && getStatus() != PRBMonitored::kUndecided;
}

const PRBJavaClass* PRBJavaMethod::getClass() {
    if (peekClass() == nullptr) resolveMethod();
    return peekClass();
}

const char* PRBJavaMethod::getMethodName() {
    if (methodName.empty()) resolveMethod();
    return methodName.c_str();
}

const char* PRBJavaMethod::getMethodSignature() {
    if (methodSignature.empty()) resolveMethod();
    return methodSignature.c_str();
}

void PRBJavaMethod::resolveMethod() {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kMethod,
                        "PRBJavaMethod::resolveMethod");
    if (methodId == nullptr) return;
    if (PRBTrace::isDebugEnabled(PRBComponent::kMethod))
        PRBTrace::log(
            "PRBJavaMethod::resolveMethod about to call GetMethodClass for method " PRB_PTR,
            prbPtr(methodId));
    jobjectID classId = PRBVm::getMethodClass(methodId);
    if (classId == nullptr) return;
    if (PRBTrace::isDebugEnabled(PRBComponent::kMethod))
        PRBTrace::log("PRBJavaMethod::resolveMethod about to call RequestEvent for class " PRB_PTR,
                      prbPtr(classId));
    PRBVm::requestEvent(JVMPI_EVENT_CLASS_LOAD, classId);
}
