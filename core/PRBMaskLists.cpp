#include "core/PRBMaskLists.h"

#include "core/PRBContext.h"
#include "core/PRBJavaRawMonitor.h"
#include "core/PRBMonitorHashTable.h"
#include "core/PRBStringMask.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaMethod.h"

#include <atomic>

namespace {

struct Lists {
    explicit Lists(JVMPI_Interface* jvmpi) : monitor("_MaskList", jvmpi) {}
    PRBJavaRawMonitor monitor; // guards both lists
    PRBSlist classes, methods; // of PRBStringMask
};
std::atomic<Lists*> installed{nullptr};

// A masks' walk never waits for a registry: the list is replaced first and the registry walked
// afterwards, as pollers ask for a decision while they hold registries.
void setNewMaskList(const char* list, PRBSlist Lists::*which, PRBMonitorHashTable* registry,
                    void (*decideAgain)(PRBCollectable*)) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kMonitorGlobal,
                        "PRBMonitorGlobal::setNewMaskList");
    Lists* lists = installed.load(std::memory_order_acquire);
    if (lists == nullptr) return;
    PRBSlist masks;
    PRBTokenizer next(list == nullptr ? "" : list);
    for (std::string text = next(", "); !text.empty(); text = next(", ")) {
        auto* mask = new PRBStringMask(text.c_str(), kExactCase);
        mask->buildMaskSegments(); // before other threads match against it
        masks.insert(mask);
    }
    {
        PRBMonitorGuard guard(lists->monitor);
        (lists->*which).swap(masks);
    }
    masks.clearAndDestroy(); // the old ones
    if (registry == nullptr) return;
    PRBTableWalk walk(*registry);
    while (PRBCollectable* record = walk()) decideAgain(record);
}

bool matches(PRBSlist Lists::*which, const char* name) {
    Lists* lists = installed.load(std::memory_order_acquire);
    if (lists == nullptr || name == nullptr) return false;
    PRBMonitorGuard guard(lists->monitor);
    PRBSlistIterator next(lists->*which);
    while (PRBCollectable* item = next())
        if (*static_cast<const PRBStringMask*>(item) == name) return true;
    return false;
}

// With the registry held only what needs no call of the VM is decided; the rest is at the next
// query.
void decideClass(PRBCollectable* record) {
    auto* cls = static_cast<PRBJavaClass*>(record);
    cls->markUndecided();
    cls->shouldBeMonitored();
}

void decideMethod(PRBCollectable* record) {
    auto* method = static_cast<PRBJavaMethod*>(record);
    method->markUndecided();
    method->peekShouldBeMonitored();
}

} // namespace

void PRBMaskLists::initialize(JVMPI_Interface* jvmpi) {
    Lists* none = nullptr;
    auto* lists = new Lists(jvmpi);
    if (!installed.compare_exchange_strong(none, lists, std::memory_order_acq_rel)) delete lists;
}

void PRBMaskLists::setClassMask(const char* list) {
    setNewMaskList(list, &Lists::classes, PRBContext::getClassTable(), decideClass);
}

void PRBMaskLists::setMethodMask(const char* list) {
    setNewMaskList(list, &Lists::methods, PRBContext::getMethodTable(), decideMethod);
}

bool PRBMaskLists::shouldClassBeMonitored(const char* className) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kMonitorGlobal,
                        "PRBMonitorGlobal::shouldClassBeMonitored");
    return trace.returns(matches(&Lists::classes, className));
}

bool PRBMaskLists::shouldMethodBeMonitored(const char* methodName) {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kMonitorGlobal,
                        "PRBMonitorGlobal::shouldMethodBeMonitored");
    return trace.returns(matches(&Lists::methods, methodName));
}
