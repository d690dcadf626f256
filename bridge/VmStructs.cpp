#include "bridge/VmStructs.h"

#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

#include "bridge/VmMemory.h"

namespace bridge {

namespace {

// The table's own layout, each exported as a 64-bit word under this name.
struct Layout {
    const char* symbol;
    std::uint64_t VmFieldTable::*word;
};
constexpr Layout kLayout[] = {
    {"gHotSpotVMStructEntryTypeNameOffset", &VmFieldTable::typeName},
    {"gHotSpotVMStructEntryFieldNameOffset", &VmFieldTable::fieldName},
    {"gHotSpotVMStructEntryIsStaticOffset", &VmFieldTable::isStatic},
    {"gHotSpotVMStructEntryOffsetOffset", &VmFieldTable::offset},
    {"gHotSpotVMStructEntryAddressOffset", &VmFieldTable::address},
    {"gHotSpotVMStructEntryArrayStride", &VmFieldTable::stride},
};

// Widest entry that is believed: names, type text, flag, offset and address need 40 bytes.
constexpr std::uint64_t kMaxStride = 4096;

constexpr int kOsRunnable = 2; // OSThread::_state of a thread that runs

} // namespace

bool VmStructs::fail(std::string text) {
    if (problem_.empty()) problem_ = std::move(text);
    return false;
}

bool VmStructs::resolve() {
    void* library = dlopen("libjvm.so", RTLD_LAZY | RTLD_NOLOAD);
    if (!library) return fail("this process has no libjvm.so: the JVM is not HotSpot");
    const bool whole = resolve([library](const char* name) { return dlsym(library, name); });
    dlclose(library); // the VM itself keeps it loaded
    return whole;
}

bool VmStructs::resolve(const SymbolLookup& lookup) {
    if (!readTable(lookup)) return false;
    asyncGetCallTrace_ = reinterpret_cast<AsyncGetCallTraceFn>(lookup("AsyncGetCallTrace"));
    if (!asyncGetCallTrace_) return fail("the JVM does not export AsyncGetCallTrace");
    // Without the bounds of the code cache a few more stacks cannot be walked; that is no reason to
    // decline.
    code_.low = static_cast<const std::uintptr_t*>(staticAddress("CodeCache", "_low_bound"));
    code_.high = static_cast<const std::uintptr_t*>(staticAddress("CodeCache", "_high_bound"));
    // A field of Thread that JDK 17 lists under JavaThread.
    const std::optional<std::size_t> listed = fieldOffset("JavaThread", "_osthread");
    if (listed)
        osThread_ = *listed;
    else if (!need("Thread", "_osthread", osThread_))
        return false;
    return need("OSThread", "_thread_id", threadId_) && need("OSThread", "_state", osState_) &&
           need("JavaThread", "_thread_state", threadState_);
}

bool VmStructs::readTable(const SymbolLookup& lookup) {
    const void* start = lookup("gHotSpotVMStructs");
    if (!start) return fail("the JVM does not export gHotSpotVMStructs: it is not HotSpot");
    table_.entries = readAt<const char*>(start);
    if (!table_.entries) return fail("the JVM's table gHotSpotVMStructs is empty");
    for (const Layout& item : kLayout) {
        const void* word = lookup(item.symbol);
        if (!word) return fail(std::string("the JVM does not export ") + item.symbol);
        table_.*item.word = readAt<std::uint64_t>(word);
        if (table_.*item.word > kMaxStride) {
            return fail(std::string("the JVM exports an impossible ") + item.symbol);
        }
    }
    if (table_.stride == 0) {
        return fail("the JVM exports an impossible gHotSpotVMStructEntryArrayStride");
    }
    return true;
}

VmStructs::Field VmStructs::entryAt(const char* entry) const {
    return {readAt<const char*>(entry + table_.typeName),
            readAt<const char*>(entry + table_.fieldName),
            readAt<std::int32_t>(entry + table_.isStatic) != 0,
            readAt<std::uint64_t>(entry + table_.offset), readAt<void*>(entry + table_.address)};
}

std::optional<VmStructs::Field> VmStructs::find(const char* type, const char* field) const {
    if (!table_.entries) return std::nullopt;
    for (const char* entry = table_.entries;; entry += table_.stride) {
        const Field found = entryAt(entry);
        if (!found.type) return std::nullopt;
        if (found.field && std::strcmp(found.type, type) == 0 &&
            std::strcmp(found.field, field) == 0) {
            return found;
        }
    }
}

std::optional<std::size_t> VmStructs::fieldOffset(const char* type, const char* field) const {
    const std::optional<Field> found = find(type, field);
    if (!found || found->isStatic) return std::nullopt;
    return static_cast<std::size_t>(found->offset);
}

void* VmStructs::staticAddress(const char* type, const char* field) const {
    const std::optional<Field> found = find(type, field);
    return found && found->isStatic ? found->address : nullptr;
}

bool VmStructs::need(const char* type, const char* field, std::size_t& offset) {
    const std::optional<std::size_t> found = fieldOffset(type, field);
    if (!found) {
        return fail(std::string("the JVM's table gHotSpotVMStructs does not name ") + type +
                    "::" + field);
    }
    offset = *found;
    return true;
}

const char* VmStructs::osThread(const void* javaThread) const {
    return __atomic_load_n(
        reinterpret_cast<char* const*>(static_cast<const char*>(javaThread) + osThread_),
        __ATOMIC_RELAXED);
}

pid_t VmStructs::osThreadId(const void* javaThread) const {
    const char* thread = osThread(javaThread);
    return thread ? read(thread, threadId_) : 0;
}

int VmStructs::osThreadState(const void* javaThread) const {
    const char* thread = osThread(javaThread);
    return thread ? read(thread, osState_) : -1;
}

bool VmStructs::sameFunctions(JNIEnv* env) const {
    return env && readAt<const void*>(env) == functions_;
}

bool VmStructs::verify(JNIEnv* self, jlong eetop) {
    if (!problem_.empty()) return false;
    const auto javaThread = static_cast<std::uintptr_t>(eetop);
    const auto env = reinterpret_cast<std::uintptr_t>(self);
    // The JNIEnv is a member of the JavaThread: it lies behind its start, within a few kilobytes.
    constexpr std::uintptr_t kMaxJavaThread = 64 * 1024;
    if (javaThread == 0 || env <= javaThread || env - javaThread > kMaxJavaThread) {
        return fail("Thread.eetop and the thread's JNIEnv do not belong together");
    }
    envDelta_ = env - javaThread;
    functions_ = readAt<const void*>(self);
    const void* thread = reinterpret_cast<const void*>(javaThread);
    if (osThreadId(thread) != gettid()) {
        return fail("OSThread::_thread_id is not the thread's id");
    }
    if (osThreadState(thread) != kOsRunnable) {
        return fail("OSThread::_state of the running thread is " +
                    std::to_string(osThreadState(thread)) + " and not " +
                    std::to_string(kOsRunnable));
    }
    if (threadState(thread) != kInNative) {
        return fail("JavaThread::_thread_state of a thread in native code is " +
                    std::to_string(threadState(thread)) + " and not " + std::to_string(kInNative));
    }
    ready_.store(true, std::memory_order_release);
    return true;
}

} // namespace bridge
