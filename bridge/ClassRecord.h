// What the bridge knows of one class, in the layout in which the profiler interface reports it.
// One block of memory holds the record, the arrays and all texts, so that a class costs one
// allocation and a report copies nothing. Immutable; shared by the table and by reports that are
// under way while the class is unloaded.
#ifndef PRB_BRIDGE_CLASSRECORD_H
#define PRB_BRIDGE_CLASSRECORD_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "jvmpi/jvmpi.h"

namespace bridge {

// What a field holds, as a character of ClassDescription::fields.
enum FieldKind : char {
    kStaticReference = 'S',
    kStaticPrimitive = 's',
    kReference = 'R',
    kPrimitive = 'r',
};

// The input: pointers are borrowed for the call. Texts are the VM's modified UTF-8.
struct ClassDescription {
    const char* name = "";        // with slashes; arrays as in a descriptor
    const char* source = nullptr; // null when the class file names none
    jint interfaces = 0;
    std::vector<JVMPI_Method> methods;
    std::vector<JVMPI_Field> statics;
    std::vector<JVMPI_Field> instances;
    std::string fields;   // FieldKind of all of them, in the order of declaration
    bool prepared = true; // false: more will be known later
};

class ClassRecord {
public:
    using Pointer = std::shared_ptr<const ClassRecord>;
    static Pointer make(uint32_t id, const ClassDescription& description);

    ClassRecord(const ClassRecord&) = delete;
    ClassRecord& operator=(const ClassRecord&) = delete;

    uint32_t id() const { return id_; }
    const char* name() const { return name_; }
    const char* source() const { return source_; } // "" when there is none
    jint interfaces() const { return interfaces_; }
    size_t methodCount() const { return static_cast<size_t>(methodCount_); }
    const JVMPI_Method& method(size_t index) const { return methods_[index]; }
    const char* fields() const { return fields_; } // FieldKind of each, in order
    bool prepared() const { return prepared_; }
    size_t bytes() const { return bytes_; }

    // Fills u.class_load. The event's pointers are this record's.
    void report(JVMPI_Event& event) const;

private:
    ClassRecord() = default;

    uint32_t id_ = 0;
    jint interfaces_ = 0;
    jint methodCount_ = 0;
    jint staticCount_ = 0;
    jint instanceCount_ = 0;
    bool prepared_ = true;
    size_t bytes_ = 0;
    char* name_ = nullptr;
    char* source_ = nullptr;
    char* fields_ = nullptr;
    JVMPI_Method* methods_ = nullptr;
    JVMPI_Field* statics_ = nullptr;
    JVMPI_Field* instances_ = nullptr;
};

} // namespace bridge

#endif
