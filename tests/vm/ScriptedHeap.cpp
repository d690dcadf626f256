#include "tests/vm/ScriptedHeap.h"

#include <algorithm>
#include <cstring>

namespace scripted {

std::size_t elementSize(jint elementType) {
    switch (elementType) {
    case JVMPI_BOOLEAN:
    case JVMPI_BYTE:
        return 1;
    case JVMPI_CHAR:
    case JVMPI_SHORT:
        return 2;
    case JVMPI_FLOAT:
    case JVMPI_INT:
        return 4;
    case JVMPI_DOUBLE:
    case JVMPI_LONG:
        return 8;
    default:
        return 0;
    }
}

DumpBuilder& DumpBuilder::u1(unsigned value) {
    bytes_.push_back(static_cast<char>(value & 0xff));
    return *this;
}

DumpBuilder& DumpBuilder::u2(unsigned value) { return u1(value >> 8).u1(value); }

DumpBuilder& DumpBuilder::u4(std::uint32_t value) { return u2(value >> 16).u2(value & 0xffff); }

DumpBuilder& DumpBuilder::id(const void* value) {
    const auto word = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(value));
    char raw[4];
    std::memcpy(raw, &word, sizeof raw);
    bytes_.insert(bytes_.end(), raw, raw + sizeof raw);
    return *this;
}

DumpBuilder& DumpBuilder::zeros(std::size_t count) {
    bytes_.insert(bytes_.end(), count, '\0');
    return *this;
}

DumpBuilder& DumpBuilder::cutLast(std::size_t count) {
    bytes_.erase(bytes_.end() - static_cast<std::ptrdiff_t>(std::min(count, bytes_.size())),
                 bytes_.end());
    return *this;
}

DumpBuilder& DumpBuilder::object(jint type, jobjectID object) {
    return u1(static_cast<unsigned>(type)).id(object);
}

DumpBuilder& DumpBuilder::rootJniGlobal(jobjectID object, jobject ref) {
    return u1(JVMPI_GC_ROOT_JNI_GLOBAL).id(object).id(ref);
}

DumpBuilder& DumpBuilder::rootJniLocal(jobjectID object, JNIEnv* env, jint frame) {
    return u1(JVMPI_GC_ROOT_JNI_LOCAL).id(object).id(env).u4(static_cast<std::uint32_t>(frame));
}

DumpBuilder& DumpBuilder::rootJavaFrame(jobjectID object, JNIEnv* env, jint frame) {
    return u1(JVMPI_GC_ROOT_JAVA_FRAME).id(object).id(env).u4(static_cast<std::uint32_t>(frame));
}

DumpBuilder& DumpBuilder::rootNativeStack(jobjectID object, JNIEnv* env) {
    return u1(JVMPI_GC_ROOT_NATIVE_STACK).id(object).id(env);
}

DumpBuilder& DumpBuilder::rootStickyClass(jobjectID object) {
    return u1(JVMPI_GC_ROOT_STICKY_CLASS).id(object);
}

DumpBuilder& DumpBuilder::rootThreadBlock(jobjectID object, JNIEnv* env) {
    return u1(JVMPI_GC_ROOT_THREAD_BLOCK).id(object).id(env);
}

DumpBuilder& DumpBuilder::rootMonitorUsed(jobjectID object) {
    return u1(JVMPI_GC_ROOT_MONITOR_USED).id(object);
}

DumpBuilder& DumpBuilder::classDump(jobjectID cls, jobjectID super,
                                    const std::vector<jobjectID>& interfaces, jint constants,
                                    const std::vector<jobjectID>& staticReferences) {
    // Class, superclass, loader, signers, protection domain, class name, two reserved words.
    u1(JVMPI_GC_CLASS_DUMP).id(cls).id(super).zeros(24);
    for (const jobjectID interface : interfaces) id(interface);
    u2(static_cast<unsigned>(constants)).zeros(static_cast<std::size_t>(constants) * 7);
    for (const jobjectID reference : staticReferences) id(reference);
    return *this;
}

DumpBuilder& DumpBuilder::instance(jobjectID object, jobjectID cls,
                                   const std::vector<jobjectID>& references) {
    u1(JVMPI_GC_INSTANCE_DUMP).id(object).id(cls);
    u4(static_cast<std::uint32_t>(references.size() * 4));
    for (const jobjectID reference : references) id(reference);
    return *this;
}

DumpBuilder& DumpBuilder::objectArray(jobjectID array, jobjectID elementClass,
                                      const std::vector<jobjectID>& elements) {
    u1(JVMPI_GC_OBJ_ARRAY_DUMP).id(array).u4(static_cast<std::uint32_t>(elements.size()));
    id(elementClass);
    for (const jobjectID element : elements) id(element);
    return *this;
}

DumpBuilder& DumpBuilder::primitiveArray(jobjectID array, jint elementType, jint count) {
    u1(JVMPI_GC_PRIM_ARRAY_DUMP).id(array).u4(static_cast<std::uint32_t>(count));
    // The type takes one byte of a prefix whose length is a multiple of 4.
    u1(static_cast<unsigned>(elementType)).zeros(3);
    return zeros(elementSize(elementType) * static_cast<std::size_t>(count));
}

} // namespace scripted
