#include "bridge/AllocationEvents.h"

#include <algorithm>
#include <atomic>
#include <limits>
#include <memory>
#include <mutex>

#include "bridge/Arenas.h"
#include "bridge/BridgeLink.h"
#include "bridge/ClassEvents.h"
#include "bridge/ClassMemo.h"
#include "bridge/ClassTypes.h"
#include "bridge/CollectionEvents.h"
#include "bridge/Context.h"
#include "bridge/HandleSlots.h"
#include "bridge/HeapFigures.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectEvents.h"
#include "bridge/ObjectIds.h"
#include "bridge/RawMonitor.h"
#include "bridge/RestrictedEnv.h"
#include "bridge/TrackedObjects.h"
#include "bridge/TransientIds.h"
#include "bridge/VmEvents.h"

namespace bridge {
namespace {

std::atomic<uint32_t> classClassId{0}; // java.lang.Class
std::atomic<bool> slotsVerified{false};
std::atomic<bool> epochsCounted{false};
std::atomic<bool> tracking{false};
std::atomic<bool> freesRefused{false};

// An event is being delivered on this thread.
__attribute__((tls_model("initial-exec"))) constinit thread_local bool inside = false;
class Inside {
public:
    Inside() { inside = true; }
    ~Inside() { inside = false; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

ClassTypes& classTypes() {
    static ClassTypes& the = *new ClassTypes;
    return the;
}

// The calling thread's; null when memory is short.
ClassMemo* classMemo() {
    // The pointer is looked at with every allocation, also by threads that are ending.
    __attribute__((tls_model("initial-exec"))) static constinit thread_local ClassMemo* memo =
        nullptr;
    struct Holder {
        std::unique_ptr<ClassMemo> held;
        bool ended = false;
        ~Holder() {
            memo = nullptr;
            ended = true;
        }
    };
    static thread_local Holder holder;
    if (!memo && !holder.ended) {
        holder.held.reset(new (std::nothrow) ClassMemo);
        memo = holder.held.get();
    }
    return memo;
}

TrackedObjects& tracked() {
    static TrackedObjects& the = *new TrackedObjects(AllocationEvents::kMostTracked);
    return the;
}

void deleteReference(void* jni, jweak reference) {
    static_cast<JNIEnv*>(jni)->DeleteWeakGlobalRef(reference);
}

bool hasDied(jweak reference) { return HandleSlots::peek(reference) == nullptr; }

void deliverFree(uint32_t id) {
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_OBJECT_FREE;
    event.env_id = RestrictedEnv::env();
    event.u.obj_free.obj_id = idOf(id);
    events().deliver(event);
}

uint32_t classIdOf(JNIEnv* jni, jclass type) {
    jlong tag = 0;
    if (context().jvmti->GetTag(type, &tag) == JVMTI_ERROR_NONE && tag > 0 &&
        tag < jlong{IdTable::kFirstObject})
        return static_cast<uint32_t>(tag);
    return objectIds().of(jni, type); // first sight
}

// kUnknown while the class is being read on another thread.
jint typeOf(uint32_t classId) {
    const jint known = classTypes().find(classId);
    if (known != ClassTypes::kUnknown) return known;
    const ClassRecord::Pointer record = classes().find(classId);
    if (!record) return ClassTypes::kUnknown;
    const jint type = ObjectEvents::typeOf(record->name());
    classTypes().put(classId, type);
    return type;
}

KnownClass askClass(JNIEnv* jni, jclass type) {
    const uint32_t id = classIdOf(jni, type);
    return {id, typeOf(id)};
}

// The address of a class object tells the class as long as no collection comes between the look
// at the address and what is known of it.
KnownClass classOf(JNIEnv* jni, jclass type) {
    const bool canLook = epochsCounted.load(std::memory_order_relaxed) &&
                         slotsVerified.load(std::memory_order_relaxed);
    ClassMemo* memo = canLook ? classMemo() : nullptr;
    if (!memo) return askClass(jni, type);
    const uint32_t epoch = CollectionEvents::epoch();
    const void* mirror = HandleSlots::peek(type);
    if (CollectionEvents::epoch() == epoch)
        if (const KnownClass* known = memo->find(mirror, epoch)) return *known;
    const KnownClass asked = askClass(jni, type);
    if (asked.id != 0 && asked.type != ClassTypes::kUnknown && CollectionEvents::epoch() == epoch)
        memo->put(mirror, epoch, asked);
    return asked;
}

void track(JNIEnv* jni, jobject object, uint32_t id) {
    if (!tracked().reserve(deleteReference, jni)) return;
    if (const jweak reference = jni->NewWeakGlobalRef(object))
        tracked().add(id, reference);
    else
        jni->ExceptionClear();
}

void deliver(JNIEnv* jni, jobject object, jclass type, jlong size) {
    const KnownClass known = classOf(jni, type);
    if (known.id == 0 || known.id == classClassId.load(std::memory_order_relaxed)) return;
    const bool look = slotsVerified.load(std::memory_order_relaxed);
    const uint32_t id = transientIds().take();
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_OBJECT_ALLOC;
    event.env_id = jni;
    event.u.obj_alloc.arena_id = Arenas::ofNew(look ? object : nullptr, size);
    event.u.obj_alloc.class_id = idOf(known.id);
    event.u.obj_alloc.is_array =
        known.type == ClassTypes::kUnknown ? jint{JVMPI_NORMAL_OBJECT} : known.type;
    event.u.obj_alloc.size =
        static_cast<jint>(std::min<jlong>(size, std::numeric_limits<jint>::max()));
    event.u.obj_alloc.obj_id = idOf(id);
    events().deliver(event);
    // Afterwards, so that no collection tells the end of an object whose beginning it did not.
    if (id != 0 && tracking.load(std::memory_order_acquire)) track(jni, object, id);
}

// ---- Checks -----------------------------------------------------------------------------------

bool stopsTheWorld() {
    const std::string& collector = heapFigures().collector();
    return collector == "Serial" || collector == "Parallel" || collector == "G1";
}

void verifySlots(JNIEnv* jni) {
    static std::once_flag once;
    std::call_once(once, [jni] {
        slotsVerified.store(stopsTheWorld() && HandleSlots::verify(jni), std::memory_order_relaxed);
    });
}

// REQUIRES: the live phase, a Java thread.
jint beginTracking(JNIEnv* jni) {
    verifySlots(jni);
    if (!slotsVerified.load(std::memory_order_relaxed)) {
        if (!freesRefused.exchange(true))
            noteLimit(stopsTheWorld()
                          ? "freed objects are not told: this JVM keeps weak references in "
                            "another way"
                          : "freed objects are not told by the " + heapFigures().collector() +
                                " collector");
        return JVMPI_NOT_AVAILABLE;
    }
    const jint result = VmEvents::follow(VmEventGroup::kCollections);
    if (result == JVMPI_SUCCESS) tracking.store(true, std::memory_order_release);
    return result;
}

void countEpochs() {
    epochsCounted.store(VmEvents::follow(VmEventGroup::kCollections) == JVMPI_SUCCESS,
                        std::memory_order_relaxed);
    CollectionEvents::newEpoch(); // what is remembered from before may have moved
}

// What threads have reserved for themselves before the event was on they fill without telling
// (seen: a megabyte of the main thread's first objects); a collection takes it from them.
void retireReserves() { context().jvmti->ForceGarbageCollection(); }

} // namespace

bool AllocationEvents::start(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> found(jni, jni->FindClass("java/lang/Class"));
    if (!found) return false;
    classClassId.store(objectIds().of(jni, found.get()), std::memory_order_relaxed);
    return classClassId.load(std::memory_order_relaxed) != 0;
}

void AllocationEvents::takeEffect(JNIEnv* jni) {
    if (events().isEnabled(JVMPI_EVENT_ARENA_NEW)) Arenas::announce(jni);
    if (events().isEnabled(JVMPI_EVENT_OBJECT_FREE)) beginTracking(jni);
    if (!events().isEnabled(JVMPI_EVENT_OBJECT_ALLOC)) return;
    verifySlots(jni);
    retireReserves();
}

void AllocationEvents::allocated(JNIEnv* jni, jobject object, jclass type, jlong size) noexcept {
    if (inside || !isLive() || !events().isEnabled(JVMPI_EVENT_OBJECT_ALLOC) ||
        RawMonitor::anyOwnedBySelf())
        return;
    const Inside scope;
    try {
        deliver(jni, object, type, size);
    } catch (...) {
        // Memory is short: this one goes untold.
    }
}

void AllocationEvents::collect() noexcept {
    if (tracksFrees()) tracked().collect(hasDied, deliverFree);
}

bool AllocationEvents::tracksFrees() { return tracking.load(std::memory_order_acquire); }

jint AllocationEvents::enable() {
    JNIEnv* jni = isLive() ? currentEnv() : nullptr;
    if (jni) verifySlots(jni);
    countEpochs();
    const jint result = VmEvents::follow(VmEventGroup::kAllocations);
    if (!jni || result != JVMPI_SUCCESS) return result;
    static std::atomic<bool> said{false};
    // Who attaches with data=alloc has been told already.
    if (VmEvents::takenLate(VmEventGroup::kAllocations) &&
        (context().options.data() & Options::kAlloc) == 0 && !said.exchange(true))
        noteLimit("allocations were asked for in a running JVM: about half a megabyte of each "
                  "thread that ran then is not counted");
    retireReserves();
    return JVMPI_SUCCESS;
}

void AllocationEvents::disable() {
    VmEvents::follow(VmEventGroup::kAllocations);
    VmEvents::follow(VmEventGroup::kCollections);
}

bool AllocationEvents::freesAvailable() {
    return context().options.frees() && VmEvents::available(VmEventGroup::kAllocations) &&
           !freesRefused.load(std::memory_order_relaxed);
}

jint AllocationEvents::enableFrees() {
    JNIEnv* jni = isLive() ? currentEnv() : nullptr;
    return jni ? beginTracking(jni) : jint{JVMPI_SUCCESS};
}

void AllocationEvents::disableFrees() {
    tracking.store(false, std::memory_order_release);
    VmEvents::follow(VmEventGroup::kCollections);
    if (JNIEnv* jni = isLive() ? currentEnv() : nullptr) tracked().clear(deleteReference, jni);
}

uint64_t AllocationEvents::untracked() { return tracked().refused(); }
uint64_t AllocationEvents::references() { return tracked().references(); }

} // namespace bridge
