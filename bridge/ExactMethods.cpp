#include "bridge/ExactMethods.h"

#include <atomic>
#include <deque>
#include <memory>
#include <mutex>

#include <fnmatch.h>

#include "bridge/Clocks.h"
#include "bridge/Context.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/VmEvents.h"

namespace bridge {
namespace {

// Never removed: the method of an unloaded class is not called any more.
struct ExactMethod {
    jmethodID id;
    uint32_t index;
    std::string name; // class, method and signature, separated by tabulators
    std::atomic<uint64_t> calls{0};
    std::atomic<uint64_t> elapsedNs{0};
};

// Methods by id: open addressing, read without a lock. A larger table takes the place of a full
// one, which stays for those who still read it.
struct Table {
    explicit Table(size_t size) : mask(size - 1), slots(new std::atomic<ExactMethod*>[size]()) {}
    size_t mask; // a power of two, less one
    std::unique_ptr<std::atomic<ExactMethod*>[]> slots;

    static size_t hash(jmethodID id) {
        const auto bits = reinterpret_cast<uintptr_t>(id);
        return (bits >> 3) * 0x9E3779B1U >> 7;
    }
    void put(ExactMethod* method) {
        size_t at = hash(method->id) & mask;
        while (slots[at].load(std::memory_order_relaxed)) at = (at + 1) & mask;
        slots[at].store(method, std::memory_order_release);
    }
    ExactMethod* find(jmethodID id) const {
        for (size_t at = hash(id) & mask;; at = (at + 1) & mask) {
            ExactMethod* method = slots[at].load(std::memory_order_acquire);
            if (!method || method->id == id) return method;
        }
    }
};

struct Methods {
    std::vector<Options::Exact> masks;
    std::mutex mutex; // guards what follows, but for reads of the present table
    std::deque<ExactMethod> all;
    std::deque<Table> tables;
    std::atomic<const Table*> table{nullptr};
};
Methods& methods() {
    static Methods& the = *new Methods;
    return the;
}

std::atomic<bool> timing{false};
jfieldID eetopField = nullptr; // Thread.eetop, 0 for virtual threads

// A call that is under way.
struct Call {
    ExactMethod* method;
    int64_t enteredNs;
    bool outermost; // of this method on this thread
};

// The calling thread's calls; made with its first one.
struct Calls {
    std::vector<Call> stack;
    std::vector<uint32_t> depth; // by the method's index
};
thread_local std::unique_ptr<Calls> calls;

bool isVirtual(JNIEnv* jni, jthread thread) {
    ExceptionShelter shelter(jni);
    return jni->GetLongField(thread, eetopField) == 0;
}

void deliver(jint type, JNIEnv* jni, jmethodID method) {
    JVMPI_Event event{};
    event.event_type = type;
    event.env_id = jni;
    event.u.method.method_id = method;
    events().deliver(event);
}

ExactMethod* find(jmethodID method) {
    const Table* table = methods().table.load(std::memory_order_acquire);
    return table ? table->find(method) : nullptr;
}

void push(ExactMethod& method) {
    if (!calls) calls = std::make_unique<Calls>();
    if (calls->depth.size() <= method.index) calls->depth.resize(method.index + 1);
    calls->stack.push_back({&method, 0, calls->depth[method.index] == 0});
    calls->depth[method.index]++;
    method.calls.fetch_add(1, std::memory_order_relaxed);
}

// Takes the call off, and those above it whose exits the VM has not told. False: it is not there.
bool pop(const ExactMethod& method, int64_t now) {
    if (!calls || calls->depth.size() <= method.index || calls->depth[method.index] == 0)
        return false;
    for (;;) {
        const Call call = calls->stack.back();
        calls->stack.pop_back();
        calls->depth[call.method->index]--;
        if (call.outermost)
            call.method->elapsedNs.fetch_add(static_cast<uint64_t>(now - call.enteredNs),
                                             std::memory_order_relaxed);
        if (call.method == &method) return true;
    }
}

} // namespace

void ExactMethods::choose(const std::vector<Options::Exact>& masks) { methods().masks = masks; }

bool ExactMethods::chosen() { return !methods().masks.empty(); }

bool ExactMethods::isOn() { return timing.load(std::memory_order_acquire); }

void ExactMethods::announce() { timing.store(chosen(), std::memory_order_release); }

void ExactMethods::begin() {
    if (isOn()) VmEvents::want(VmEventGroup::kMethods, true);
}

void ExactMethods::end() {
    if (isOn()) VmEvents::want(VmEventGroup::kMethods, false);
    timing.store(false, std::memory_order_release);
}

bool ExactMethods::matches(const std::string& mask, const char* name) {
    return fnmatch(mask.c_str(), name, FNM_NOESCAPE) == 0;
}

void ExactMethods::add(const ClassDescription& type) {
    Methods& the = methods();
    for (const JVMPI_Method& method : type.methods) {
        bool named = false;
        for (const Options::Exact& mask : the.masks)
            named = named ||
                    (matches(mask.type, type.name) && matches(mask.method, method.method_name));
        if (!named) continue;
        const std::lock_guard<std::mutex> guard(the.mutex);
        if (find(method.method_id)) continue;
        ExactMethod& exact = the.all.emplace_back();
        exact.id = method.method_id;
        exact.index = static_cast<uint32_t>(the.all.size() - 1);
        exact.name =
            std::string(type.name) + "\t" + method.method_name + "\t" + method.method_signature;
        if (the.tables.empty() || the.all.size() * 2 > the.tables.back().mask) {
            constexpr size_t kFirst = 256;
            Table& larger = the.tables.emplace_back(
                the.tables.empty() ? kFirst : (the.tables.back().mask + 1) * 4);
            for (ExactMethod& known : the.all) larger.put(&known);
            the.table.store(&larger, std::memory_order_release);
        } else {
            the.tables.back().put(&exact);
        }
    }
}

bool ExactMethods::start(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> thread(jni, jni->FindClass("java/lang/Thread"));
    eetopField = thread ? jni->GetFieldID(thread.get(), "eetop", "J") : nullptr;
    return eetopField != nullptr;
}

void ExactMethods::entered(JNIEnv* jni, jthread thread, jmethodID method) noexcept {
    if (!isLive() || !eetopField) return;
    ExactMethod* exact = find(method);
    const bool asked = events().isEnabled(JVMPI_EVENT_METHOD_ENTRY);
    if ((!exact && !asked) || isVirtual(jni, thread)) return;
    try {
        if (exact) push(*exact);
        deliver(JVMPI_EVENT_METHOD_ENTRY, jni, method);
        // Read last, so that the profiler's own work before it is not the method's.
        if (exact) calls->stack.back().enteredNs = monotonicNs();
    } catch (...) {
        // Memory is short: this call goes untold.
    }
}

void ExactMethods::left(JNIEnv* jni, jthread thread, jmethodID method) noexcept {
    if (!isLive() || !eetopField) return;
    const int64_t now = monotonicNs();
    ExactMethod* exact = find(method);
    const bool asked = events().isEnabled(JVMPI_EVENT_METHOD_EXIT);
    if ((!exact && !asked) || isVirtual(jni, thread)) return;
    const bool known = exact && pop(*exact, now);
    if (known || asked) deliver(JVMPI_EVENT_METHOD_EXIT, jni, method);
}

std::vector<std::string> ExactMethods::lines() {
    Methods& the = methods();
    const std::lock_guard<std::mutex> guard(the.mutex);
    std::vector<std::string> lines;
    for (const ExactMethod& method : the.all) {
        const uint64_t count = method.calls.load(std::memory_order_relaxed);
        if (count == 0) continue;
        lines.push_back(method.name + "\t" + std::to_string(count) + "\t" +
                        std::to_string(method.elapsedNs.load(std::memory_order_relaxed)));
    }
    return lines;
}

} // namespace bridge
