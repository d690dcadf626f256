#include "bridge/MonitorEvents.h"

#include <atomic>

#include "bridge/ClassEvents.h"
#include "bridge/Clocks.h"
#include "bridge/Context.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectEvents.h"
#include "bridge/ObjectIds.h"

namespace bridge {
namespace {

jfieldID eetopField = nullptr;          // Thread.eetop, 0 for virtual threads
std::atomic<uint32_t> objectClassId{0}; // java.lang.Object

// The event that is being delivered on this thread; null outside. The profiler's callback may
// itself run into a monitor, so they nest.
struct Delivery {
    jobject object;
    uint32_t id;
};
constinit thread_local const Delivery* current = nullptr;
// When this thread's present wait began, CLOCK_MONOTONIC; 0: it was not reported.
constinit thread_local int64_t waitBeganNs = 0;

class DeliveryScope {
public:
    explicit DeliveryScope(const Delivery& delivery) : before_(current) { current = &delivery; }
    ~DeliveryScope() { current = before_; }
    DeliveryScope(const DeliveryScope&) = delete;
    DeliveryScope& operator=(const DeliveryScope&) = delete;

private:
    const Delivery* before_;
};

bool isAsked(jint type) { return isLive() && events().isEnabled(type); }

// `fill` completes the event, whose object is in place.
template <class Fill>
void deliver(jint type, JNIEnv* jni, jthread thread, jobject object, Fill fill) {
    if (!eetopField || !object) return;
    ExceptionShelter shelter(jni);
    if (jni->GetLongField(thread, eetopField) == 0) return;
    const Delivery delivery{object, objectIds().of(jni, object)};
    if (delivery.id == 0) return;
    const DeliveryScope scope(delivery);
    JVMPI_Event event{};
    event.event_type = type;
    event.env_id = jni;
    event.u.monitor.object = idOf(delivery.id);
    fill(event);
    events().deliver(event);
}

void deliverPlain(jint type, JNIEnv* jni, jthread thread, jobject object) noexcept {
    if (!isAsked(type)) return;
    try {
        deliver(type, jni, thread, object, [](JVMPI_Event&) {});
    } catch (...) {
        // Memory is short: this one goes untold.
    }
}

} // namespace

bool MonitorEvents::start(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    LocalRef<jclass> thread(jni, jni->FindClass("java/lang/Thread"));
    LocalRef<jclass> object(jni, jni->FindClass("java/lang/Object"));
    if (!thread || !object) return false;
    eetopField = jni->GetFieldID(thread.get(), "eetop", "J");
    objectClassId.store(objectIds().of(jni, object.get()), std::memory_order_relaxed);
    return eetopField != nullptr && objectClassId.load(std::memory_order_relaxed) != 0;
}

void MonitorEvents::contendedEnter(JNIEnv* jni, jthread thread, jobject object) noexcept {
    deliverPlain(JVMPI_EVENT_MONITOR_CONTENDED_ENTER, jni, thread, object);
}

void MonitorEvents::contendedEntered(JNIEnv* jni, jthread thread, jobject object) noexcept {
    deliverPlain(JVMPI_EVENT_MONITOR_CONTENDED_ENTERED, jni, thread, object);
}

void MonitorEvents::wait(JNIEnv* jni, jthread thread, jobject object, jlong timeout) noexcept {
    if (!isAsked(JVMPI_EVENT_MONITOR_WAIT)) return;
    try {
        deliver(JVMPI_EVENT_MONITOR_WAIT, jni, thread, object, [timeout](JVMPI_Event& event) {
            event.u.monitor_wait.timeout = timeout;
            waitBeganNs = monotonicNs();
        });
    } catch (...) {
        waitBeganNs = 0; // memory is short: this one goes untold
    }
}

void MonitorEvents::waited(JNIEnv* jni, jthread thread, jobject object) noexcept {
    const int64_t began = waitBeganNs;
    waitBeganNs = 0;
    if (!isAsked(JVMPI_EVENT_MONITOR_WAITED)) return;
    try {
        deliver(JVMPI_EVENT_MONITOR_WAITED, jni, thread, object, [began](JVMPI_Event& event) {
            event.u.monitor_wait.timeout = began ? (monotonicNs() - began) / 1000000 : 0;
        });
    } catch (...) {
        // Memory is short: this one goes untold.
    }
}

bool MonitorEvents::inCallback() { return current != nullptr; }

jint MonitorEvents::requestAllocation(void* objectId) {
    const uint32_t id = numberOf(static_cast<jobjectID>(objectId));
    const Delivery* delivery = current;
    if (!isLive() || !delivery || id == 0 || delivery->id != id) return JVMPI_FAIL;
    JNIEnv* jni = currentEnv();
    return jni ? ObjectEvents::answerRequest(jni, delivery->object, id) : jint{JVMPI_FAIL};
}

jint MonitorEvents::framesToSkip(const jvmtiFrameInfo* frames, jint count) {
    if (!current) return 0;
    const uint32_t object = objectClassId.load(std::memory_order_relaxed);
    jint skipped = 0;
    while (skipped < count && skipped < kMostSkipped &&
           classes().classOf(frames[skipped].method) == object)
        skipped++;
    return skipped;
}

} // namespace bridge
