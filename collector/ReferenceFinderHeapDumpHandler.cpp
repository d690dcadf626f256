#include "collector/ReferenceFinderHeapDumpHandler.h"

#include "collector/PRBHeapDumpRequest.h"
#include "collector/PRBJni.h"
#include "core/PRBMonitorGlobal.h"
#include "runtime/PRBJavaClass.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t kId = 4;           // bytes of an id in a dump
constexpr std::size_t kClassPrefix = 32; // class, superclass and further ids
constexpr std::size_t kConstant = 7;     // bytes of an entry of the constant pool

struct FixedRecord {
    int tag;
    std::size_t size; // bytes after the tag
};
constexpr FixedRecord kFixedRecords[] = {
    {JVMPI_GC_ROOT_JNI_GLOBAL, 8},   {JVMPI_GC_ROOT_JNI_LOCAL, 12},
    {JVMPI_GC_ROOT_JAVA_FRAME, 12},  {JVMPI_GC_ROOT_NATIVE_STACK, 8},
    {JVMPI_GC_ROOT_STICKY_CLASS, 4}, {JVMPI_GC_ROOT_THREAD_BLOCK, 8},
    {JVMPI_GC_ROOT_MONITOR_USED, 4},
};

// Bytes of an element of a primitive array, by its type; 0 for a type that is none.
constexpr std::size_t kElementSizes[] = {0, 0, 0, 0, 1, 2, 4, 8, 1, 2, 4, 8};

jobjectID toId(std::uint32_t id) {
    return reinterpret_cast<jobjectID>(static_cast<std::uintptr_t>(id));
}

std::vector<std::uint32_t> targetIds(const jobjectID* targets, int count) {
    std::vector<std::uint32_t> ids;
    for (int i = 0; targets != nullptr && i < count; ++i)
        ids.push_back(static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(targets[i])));
    return ids;
}

} // namespace

// Nothing is read beyond the end: callers ask has() first, which skip() does by itself.
class PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::Cursor {
public:
    Cursor(const char* begin, const char* end) : at_(begin), end_(end) {}

    const char* position() const { return at_; }
    bool atEnd() const { return at_ == end_; }
    bool has(std::uint64_t bytes) const { return bytes <= static_cast<std::size_t>(end_ - at_); }
    bool skip(std::uint64_t bytes) {
        if (!has(bytes)) return false;
        at_ += bytes;
        return true;
    }
    std::uint8_t byteAt(std::size_t offset) const { return static_cast<std::uint8_t>(at_[offset]); }
    std::uint32_t idAt(std::size_t offset) const { return load<std::uint32_t>(offset); }
    template <typename Count> Count countAt(std::size_t offset) const {
        return convertToLittleEndian(load<Count>(offset));
    }

private:
    template <typename T> T load(std::size_t offset) const {
        T value;
        std::memcpy(&value, at_ + offset, sizeof value);
        return value;
    }
    const char* at_;
    const char* const end_;
};

PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::ReferenceFinderHeapDumpHandler(
    JNIEnv* env, PRBWorkloadCollector* collector, PRBCollection* results, jobjectID* targets,
    int count)
    : env_(env), collector_(collector), results_(results), targets_(targetIds(targets, count)) {}

void PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::addNew(jobjectID id) {
    auto* found = new FoundReferenceObject(id);
    if (found != nullptr) results_->insert(found);
}

void PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::handleHeapDump(JVMPI_Event* event) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::handleHeapDump");
    if (event == nullptr) return;
    const char* begin = event->u.heap_dump.begin;
    const char* end = event->u.heap_dump.end;
    if (begin == nullptr || end == nullptr || begin > end) return;
    Cursor at(begin, end);
    while (!at.atEnd()) {
        const unsigned tag = at.byteAt(0);
        at.skip(1);
        if (!walkRecord(tag, at)) return;
    }
}

bool PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::walkRecord(unsigned tag, Cursor& at) {
    switch (tag) {
    case JVMPI_GC_CLASS_DUMP:
        return walkClass(at);
    case JVMPI_GC_INSTANCE_DUMP: {
        // The object, its class, the number of bytes.
        constexpr std::size_t prefix = 12;
        if (!at.has(prefix)) return false;
        return walkReferences(at, at.countAt<std::uint32_t>(8));
    }
    case JVMPI_GC_OBJ_ARRAY_DUMP: {
        // The array, the number of elements, their class.
        constexpr std::size_t prefix = 12;
        if (!at.has(prefix)) return false;
        return walkReferences(at, std::uint64_t{at.countAt<std::uint32_t>(4)} * kId);
    }
    case JVMPI_GC_PRIM_ARRAY_DUMP:
        return walkPrimitiveArray(at);
    default:
        break;
    }
    for (const FixedRecord& record : kFixedRecords)
        if (static_cast<unsigned>(record.tag) == tag) return at.skip(record.size);
    return true; // of a tag that is none only the tag itself is taken
}

bool PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::walkClass(Cursor& at) {
    classTrail_[nextInTrail_] = at.position();
    nextInTrail_ = (nextInTrail_ + 1) % kClassTrail;
    if (!at.has(kClassPrefix)) return false;
    const std::uint32_t id = at.idAt(0);
    PRBJavaClass* cls = PRBLookup::getClassForClassID(toId(id));
    if (cls == nullptr) {
        PRBTrace::log("Unable to locate pClassDumpPrefix->TheClass = %X", id);
        return false;
    }
    cls->setSuperClass(toId(at.idAt(kId)));

    const auto interfaces = static_cast<std::uint64_t>(std::max(cls->getNumInterfaces(), 0));
    constexpr std::size_t countOfConstants = 2;
    if (!at.skip(kClassPrefix) || !at.skip(interfaces * kId) || !at.has(countOfConstants))
        return false;
    const std::size_t constants = at.countAt<std::uint16_t>(0);
    if (!at.skip(countOfConstants) || !at.skip(constants * kConstant)) return false;
    for (int i = 0; i < cls->getNumStaticFields(); ++i) {
        const PRBJavaClass::Field& field = *cls->getStaticField(i);
        const bool isReference = field.getType() == PRBJavaClass::Field::kObject ||
                                 field.getType() == PRBJavaClass::Field::kArray;
        if (isReference && !at.skip(static_cast<std::uint64_t>(field.getLength()))) return false;
    }
    return true;
}

// An instance or an array: a prefix that begins with its id, then `bytes` of references.
bool PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::walkReferences(Cursor& at,
                                                                          std::uint64_t bytes) {
    constexpr std::size_t prefix = 12;
    if (!at.has(prefix + bytes)) return false;
    const auto end = prefix + static_cast<std::size_t>(bytes);
    for (std::size_t offset = prefix; offset + kId <= end; offset += kId) {
        if (!targets_.contains(at.idAt(offset))) continue;
        addNew(toId(at.idAt(0)));
        break; // once, however many targets it refers to
    }
    return at.skip(end);
}

bool PRBWorkloadCollector::ReferenceFinderHeapDumpHandler::walkPrimitiveArray(Cursor& at) {
    // The array, the number of elements, their type and three unused bytes.
    constexpr std::size_t prefix = 12;
    if (!at.has(prefix)) return false;
    const std::uint64_t count = at.countAt<std::uint32_t>(4);
    const unsigned type = at.byteAt(8);
    const std::size_t size = type < std::size(kElementSizes) ? kElementSizes[type] : 0;
    if (size == 0) {
        PRBTrace::log("Got undefined pArrayDumpPrefix->ElementType = %X", type);
        return false;
    }
    return at.skip(prefix + count * size);
}

// ---- From Java references to Java references ----

namespace {

// Null elements are left out: the id 0 would be found in every field that is null.
std::vector<jobjectID> idsOf(JNIEnv* env, const JVMPI_Interface& jvmpi, jobjectArray targets) {
    std::vector<jobjectID> ids;
    const jsize count = env->GetArrayLength(targets);
    ids.reserve(static_cast<std::size_t>(count));
    for (jsize i = 0; i < count; ++i) {
        PRBJni::LocalRef<jobject> target(env, env->GetObjectArrayElement(targets, i));
        if (PRBJni::clearException(env) || target.get() == nullptr) continue;
        if (jobjectID id = jvmpi.jobject2jobjectID(target.get())) ids.push_back(id);
    }
    return ids;
}

struct Results : PRBSlist {
    ~Results() override { clearAndDestroy(); }
};

} // namespace

jobjectArray PRBWorkloadCollector::getReferencesToTargetObjects(JNIEnv* env, jobjectArray targets,
                                                                jclass cls) {
    PRBTraceScope trace(PRBTraceClass::kMain, PRBComponent::kCollector,
                        "PRBWorkloadCollector::getReferencesToTargetObjects");
    using Handler = ReferenceFinderHeapDumpHandler;
    const JVMPI_Interface* jvmpi = getJVMPIInterface();
    if (env == nullptr || targets == nullptr || cls == nullptr || jvmpi == nullptr ||
        jvmpi->jobject2jobjectID == nullptr || jvmpi->jobjectID2jobject == nullptr)
        return nullptr;
    Results results;
    {
        std::vector<jobjectID> ids = idsOf(env, *jvmpi, targets);
        Handler handler(env, this, &results, ids.data(), static_cast<int>(ids.size()));
        PRBHeapDumpRequest::run(handler, JVMPI_DUMP_LEVEL_1);
    }
    jobjectArray answer = env->NewObjectArray(static_cast<jsize>(results.entries()), cls, nullptr);
    if (answer == nullptr || env->ExceptionCheck()) return nullptr; // out of memory, for Java
    PRBSlistIterator next(results);
    for (jsize i = 0; auto* found = static_cast<Handler::FoundReferenceObject*>(next()); ++i) {
        PRBJni::LocalRef<jobject> object(env, jvmpi->jobjectID2jobject(found->getId()));
        if (object.get() == nullptr) continue;
        env->SetObjectArrayElement(answer, i, object.get());
        PRBJni::clearException(env);
    }
    return answer;
}
