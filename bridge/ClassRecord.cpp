#include "bridge/ClassRecord.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace bridge {
namespace {

size_t textBytes(const char* text) { return text ? strlen(text) + 1 : 1; }

size_t fieldBytes(const std::vector<JVMPI_Field>& fields) {
    size_t bytes = fields.size() * sizeof(JVMPI_Field);
    for (const JVMPI_Field& field : fields)
        bytes += textBytes(field.field_name) + textBytes(field.field_signature);
    return bytes;
}

// Hands out the block's parts one after the other: arrays first, so that they stay aligned.
class Cutter {
public:
    explicit Cutter(char* at) : at_(at) {}

    template <class T> T* array(size_t count) {
        T* result = reinterpret_cast<T*>(at_);
        at_ += count * sizeof(T);
        return result;
    }
    char* text(const char* from) {
        const size_t bytes = textBytes(from);
        char* result = at_;
        memcpy(result, from ? from : "", bytes);
        at_ += bytes;
        return result;
    }
    void fields(const std::vector<JVMPI_Field>& from, JVMPI_Field* to) {
        for (const JVMPI_Field& field : from) {
            const JVMPI_Field copy{text(field.field_name), text(field.field_signature)};
            new (to++) JVMPI_Field(copy);
        }
    }

private:
    char* at_;
};

} // namespace

ClassRecord::Pointer ClassRecord::make(uint32_t id, const ClassDescription& from) {
    static_assert(sizeof(ClassRecord) % alignof(JVMPI_Method) == 0);
    static_assert(sizeof(JVMPI_Method) % alignof(JVMPI_Field) == 0);
    size_t bytes = sizeof(ClassRecord) + textBytes(from.name) + textBytes(from.source) +
                   from.fields.size() + 1 + fieldBytes(from.statics) + fieldBytes(from.instances) +
                   from.methods.size() * sizeof(JVMPI_Method);
    for (const JVMPI_Method& method : from.methods)
        bytes += textBytes(method.method_name) + textBytes(method.method_signature);

    char* block = static_cast<char*>(malloc(bytes));
    if (!block) throw std::bad_alloc();
    auto* record = new (block) ClassRecord;
    Pointer result(record, [](const ClassRecord* p) { free(const_cast<ClassRecord*>(p)); });

    Cutter cutter(block + sizeof(ClassRecord));
    record->id_ = id;
    record->bytes_ = bytes;
    record->interfaces_ = from.interfaces;
    record->methodCount_ = static_cast<jint>(from.methods.size());
    record->staticCount_ = static_cast<jint>(from.statics.size());
    record->instanceCount_ = static_cast<jint>(from.instances.size());
    record->methods_ = cutter.array<JVMPI_Method>(from.methods.size());
    record->statics_ = cutter.array<JVMPI_Field>(from.statics.size());
    record->instances_ = cutter.array<JVMPI_Field>(from.instances.size());
    record->name_ = cutter.text(from.name);
    record->source_ = cutter.text(from.source);
    record->fields_ = cutter.text(from.fields.c_str());
    record->prepared_ = from.prepared;
    JVMPI_Method* to = record->methods_;
    for (const JVMPI_Method& method : from.methods) {
        JVMPI_Method copy = method;
        copy.method_name = cutter.text(method.method_name);
        copy.method_signature = cutter.text(method.method_signature);
        new (to++) JVMPI_Method(copy);
    }
    cutter.fields(from.statics, record->statics_);
    cutter.fields(from.instances, record->instances_);
    return result;
}

void ClassRecord::report(JVMPI_Event& event) const {
    auto& load = event.u.class_load;
    load.class_name = name_;
    load.source_name = source_;
    load.num_interfaces = interfaces_;
    load.num_methods = methodCount_;
    load.methods = methods_;
    load.num_static_fields = staticCount_;
    load.statics = statics_;
    load.num_instance_fields = instanceCount_;
    load.instances = instances_;
    load.class_id = reinterpret_cast<jobjectID>(static_cast<uintptr_t>(id_));
}

} // namespace bridge
