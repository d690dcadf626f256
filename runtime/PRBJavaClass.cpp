#include "runtime/PRBJavaClass.h"

#include "core/PRBMaskLists.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaMethod.h"

#include <new>

namespace {

struct FieldRow {
    char signature;
    PRBJavaClass::Field::Type type;
    int length; // bytes
};
constexpr FieldRow kFieldTypes[] = {
    {'Z', PRBJavaClass::Field::kBoolean, 1}, {'C', PRBJavaClass::Field::kChar, 2},
    {'B', PRBJavaClass::Field::kByte, 1},    {'S', PRBJavaClass::Field::kShort, 2},
    {'I', PRBJavaClass::Field::kInt, 4},     {'J', PRBJavaClass::Field::kLong, 8},
    {'F', PRBJavaClass::Field::kFloat, 4},   {'D', PRBJavaClass::Field::kDouble, 8},
    {'L', PRBJavaClass::Field::kObject, 4},  {'[', PRBJavaClass::Field::kArray, 4},
};

std::size_t bytesOf(int fields) {
    return static_cast<std::size_t>(fields) * sizeof(PRBJavaClass::Field);
}

// Null, and a count of 0, when the event lists none.
PRBJavaClass::Field* copyFields(const JVMPI_Field* fields, int& count) {
    void* block =
        fields == nullptr || count <= 0 ? nullptr : PRBMemoryManager::allocate(bytesOf(count));
    if (block == nullptr) {
        count = 0;
        return nullptr;
    }
    auto* copy = static_cast<PRBJavaClass::Field*>(block);
    for (int i = 0; i < count; ++i) {
        new (copy + i) PRBJavaClass::Field;
        copy[i].setType(fields[i].field_signature);
    }
    return copy;
}

// Takes `amount` away unless that would fall below zero.
void subtractFloored(std::atomic<long long>& counter, long long amount) {
    const long long value = counter.load(std::memory_order_relaxed);
    if (value >= amount) counter.store(value - amount, std::memory_order_relaxed);
}

} // namespace

void PRBJavaClass::Field::setType(const char* signature) {
    if (signature == nullptr) return;
    for (const FieldRow& row : kFieldTypes)
        if (row.signature == *signature) type = row.type;
}

int PRBJavaClass::Field::getLength() const {
    for (const FieldRow& row : kFieldTypes)
        if (row.type == type) return row.length;
    return 0;
}

PRBJavaClass::PRBJavaClass(JVMPI_Event* event) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kClass, "PRBJavaClass constructor");
    const auto& load = event->u.class_load;
    className.set(load.class_name);
    sourceName.set(load.source_name);
    setNewId(load.class_id);
    learnShape(event);
}

void PRBJavaClass::learnShape(const JVMPI_Event* event) {
    if (getNumInterfaces() != 0 || getNumStaticFields() != 0 || getNumInstanceFields() != 0) return;
    const auto& load = event->u.class_load;
    int statics = load.num_static_fields;
    int instances = load.num_instance_fields;
    staticFields = copyFields(load.statics, statics);
    instanceFields = copyFields(load.instances, instances);
    numStaticFields.store(statics, std::memory_order_release);
    numInstanceFields.store(instances, std::memory_order_release);
    numInterfaces.store(load.num_interfaces, std::memory_order_release);
}

PRBJavaClass::~PRBJavaClass() {
    // Most are keys of a look-up and have none.
    if (staticFields != nullptr) PRBMemoryManager::release(staticFields, bytesOf(numStaticFields));
    if (instanceFields != nullptr)
        PRBMemoryManager::release(instanceFields, bytesOf(numInstanceFields));
}

bool PRBJavaClass::isEqual(const PRBCollectable* other) const {
    return other != nullptr && other->isA() == isA() &&
           static_cast<const PRBJavaClass*>(other)->getClassId() == getClassId();
}

int PRBJavaClass::shouldBeMonitored() {
    PRBTraceScope trace(PRBTraceClass::kFrequent, PRBComponent::kClass,
                        "PRBJavaClass::shouldBeMonitored");
    if (isDead()) return trace.returns(PRBMonitored::kIgnore);
    std::uint32_t word = readDecision();
    if ((word & 3U) != PRBMonitored::kUndecided) return trace.returns(static_cast<int>(word & 3U));
    return trace.returns(
        storeDecision(word, PRBMaskLists::shouldClassBeMonitored(className.c_str())));
}

void PRBJavaClass::learnNames(const char* name, const char* source) {
    bool renamed = className.empty() && name != nullptr && *name != '\0';
    if (renamed) className.set(name);
    if (sourceName.empty()) sourceName.set(source);
    if (renamed) markUndecided();
}

void PRBJavaClass::objectCreated(int size) {
    add(allocations, 1);
    add(liveObjects, 1);
    add(liveBytes, size);
}

void PRBJavaClass::objectFreed(int size) {
    add(frees, 1);
    subtractFloored(liveObjects, 1);
    subtractFloored(liveBytes, size);
}

void PRBJavaClass::resetStats() {
    for (auto* figure : {&liveObjects, &liveBytes, &allocations, &frees, &moves})
        figure->store(0, std::memory_order_relaxed);
}

void PRBJavaClass::dumpEnds() {
    liveObjects.store(dumpObjects, std::memory_order_relaxed);
    liveBytes.store(dumpBytes, std::memory_order_relaxed);
}

void PRBJavaClass::markDead() {
    dead.store(true, std::memory_order_release);
    newDecisionEpoch();
}

void PRBJavaClass::addMethod(PRBJavaMethod* method) {
    method->next = methods;
    methods = method;
}
