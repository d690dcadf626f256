#include "bridge/ClassReader.h"

#include <cstring>

#include "bridge/Jvmti.h"

namespace bridge {
namespace {

constexpr jint kAccStatic = 8; // JVMS 4.5

struct Primitive {
    char signature;
    const char* name;
};
constexpr Primitive kPrimitives[] = {{'Z', "boolean"}, {'B', "byte"},   {'C', "char"},
                                     {'S', "short"},   {'I', "int"},    {'J', "long"},
                                     {'F', "float"},   {'D', "double"}, {'V', "void"}};

} // namespace

ClassReader::~ClassReader() {
    for (char* text : texts_) jvmti_->Deallocate(reinterpret_cast<unsigned char*>(text));
}

char* ClassReader::keep(char* text) {
    if (text) texts_.push_back(text);
    return text;
}

std::string ClassReader::nameOf(const char* signature) {
    const size_t length = strlen(signature);
    if (signature[0] == 'L' && length > 2) return std::string(signature + 1, length - 2);
    if (length == 1)
        for (const Primitive& primitive : kPrimitives)
            if (primitive.signature == signature[0]) return primitive.name;
    return signature;
}

bool ClassReader::read(jclass mirror) {
    JvmtiText signature(jvmti_);
    if (jvmti_->GetClassSignature(mirror, signature.out(), nullptr) != JVMTI_ERROR_NONE)
        return false;
    name_ = nameOf(signature.get());
    description_.name = name_.c_str();
    prepared_ = readMethods(mirror);
    description_.prepared = prepared_;
    if (!prepared_) return true;
    char* source = nullptr; // absent in many classes: an error that says nothing
    if (jvmti_->GetSourceFileName(mirror, &source) == JVMTI_ERROR_NONE)
        description_.source = keep(source);
    readFields(mirror);
    readInterfaces(mirror);
    return true;
}

bool ClassReader::readMethods(jclass mirror) {
    jint count = 0;
    JvmtiMemory<jmethodID> methods(jvmti_);
    if (jvmti_->GetClassMethods(mirror, &count, methods.out()) != JVMTI_ERROR_NONE) return false;
    description_.methods.reserve(static_cast<size_t>(count));
    texts_.reserve(static_cast<size_t>(count) * 2 + 8);
    for (jint i = 0; i < count; i++) {
        char* name = nullptr;
        char* signature = nullptr;
        if (jvmti_->GetMethodName(methods[i], &name, &signature, nullptr) != JVMTI_ERROR_NONE)
            continue;
        // Line numbers would cost a table per method; -1 is the interface's "unknown".
        description_.methods.push_back({keep(name), keep(signature), -1, -1, methods[i]});
    }
    return true;
}

void ClassReader::readFields(jclass mirror) {
    jint count = 0;
    JvmtiMemory<jfieldID> fields(jvmti_);
    if (jvmti_->GetClassFields(mirror, &count, fields.out()) != JVMTI_ERROR_NONE) return;
    for (jint i = 0; i < count; i++) {
        char* name = nullptr;
        char* signature = nullptr;
        jint modifiers = 0;
        if (jvmti_->GetFieldName(mirror, fields[i], &name, &signature, nullptr) !=
            JVMTI_ERROR_NONE) {
            description_.fields.push_back(kPrimitive); // keeps its place among the others
            continue;
        }
        const JVMPI_Field field{keep(name), keep(signature)};
        const bool isStatic =
            jvmti_->GetFieldModifiers(mirror, fields[i], &modifiers) == JVMTI_ERROR_NONE &&
            (modifiers & kAccStatic);
        (isStatic ? description_.statics : description_.instances).push_back(field);
        const bool isReference = signature[0] == 'L' || signature[0] == '[';
        description_.fields.push_back(isStatic ? (isReference ? kStaticReference : kStaticPrimitive)
                                               : (isReference ? kReference : kPrimitive));
    }
}

void ClassReader::readInterfaces(jclass mirror) {
    jint count = 0;
    JvmtiMemory<jclass> interfaces(jvmti_);
    if (jvmti_->GetImplementedInterfaces(mirror, &count, interfaces.out()) != JVMTI_ERROR_NONE)
        return;
    for (jint i = 0; i < count; i++) jni_->DeleteLocalRef(interfaces[i]);
    description_.interfaces = count;
}

} // namespace bridge
