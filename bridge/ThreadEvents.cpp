#include "bridge/ThreadEvents.h"

#include <mutex>
#include <unordered_set>

#include <unistd.h>

#include "bridge/Announcements.h"
#include "bridge/Context.h"
#include "bridge/Interface.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectIds.h"
#include "bridge/RawMonitor.h"
#include "bridge/ThreadTable.h"

namespace bridge {
namespace {

jfieldID eetopField = nullptr; // Thread.eetop: the address of the thread's JavaThread

Announcements& announcements() {
    static Announcements& all = *new Announcements;
    return all;
}

// Threads that end while the older threads are taken in: the VM frees a JavaThread only after
// the thread has passed ended(), so one that is not in the set cannot be freed under the lock.
struct OlderThreads {
    std::mutex mutex;
    bool adding = false;
    std::unordered_set<JNIEnv*> ended;
};
OlderThreads& olderThreads() {
    static OlderThreads& state = *new OlderThreads;
    return state;
}

// JVMPI names the thread that started a thread; the VM keeps no such thing. The group that the
// thread's group belongs to is the nearest it can tell ("" for the topmost group).
void readGroup(JNIEnv* jni, jthreadGroup group, ThreadInfo& info) {
    jvmtiEnv* jvmti = context().jvmti;
    if (!group) return;
    jvmtiThreadGroupInfo own{};
    if (jvmti->GetThreadGroupInfo(group, &own) != JVMTI_ERROR_NONE) return;
    if (own.name) {
        info.group = own.name;
        jvmti->Deallocate(reinterpret_cast<unsigned char*>(own.name));
    }
    if (!own.parent) return;
    LocalRef<jthreadGroup> parent(jni, own.parent);
    jvmtiThreadGroupInfo above{};
    if (jvmti->GetThreadGroupInfo(parent.get(), &above) != JVMTI_ERROR_NONE) return;
    if (above.name) {
        info.parent = above.name;
        jvmti->Deallocate(reinterpret_cast<unsigned char*>(above.name));
    }
    if (above.parent) jni->DeleteLocalRef(above.parent);
}

void readThread(JNIEnv* jni, jthread thread, ThreadInfo& info) {
    jvmtiEnv* jvmti = context().jvmti;
    jvmtiThreadInfo got{};
    if (jvmti->GetThreadInfo(thread, &got) != JVMTI_ERROR_NONE) return;
    if (got.name) {
        info.name = got.name;
        jvmti->Deallocate(reinterpret_cast<unsigned char*>(got.name));
    }
    LocalRef<jthreadGroup> group(jni, got.thread_group);
    LocalRef<jobject> loader(jni, got.context_class_loader);
    readGroup(jni, group.get(), info);
}

// REQUIRES: the caller has claimed the thread.
void announce(JNIEnv* thread, jint requested) {
    struct Done {
        JNIEnv* env;
        ~Done() { announcements().announced(env); }
    } done{thread};
    ThreadInfo info;
    if (!threads().describe(thread, info)) return;
    JVMPI_Event event{};
    event.event_type = JVMPI_EVENT_THREAD_START | requested;
    event.env_id = requested ? currentEnv() : thread;
    event.u.thread_start.thread_name = info.name.data();
    event.u.thread_start.group_name = info.group.data();
    event.u.thread_start.parent_name = info.parent.data();
    event.u.thread_start.thread_id = info.object;
    event.u.thread_start.thread_env_id = thread;
    events().deliver(event);
}

ThreadInfo infoOf(JNIEnv* jni, jthread thread) {
    ThreadInfo info;
    info.object = idOf(objectIds().of(jni, thread));
    readThread(jni, thread, info);
    return info;
}

void insert(ThreadInfo& info, JNIEnv* env, pid_t tid) {
    info.env = env;
    info.tid = tid;
    info.javaThread = context().vmStructs.javaThreadOf(env);
    threads().insert(info);
    announcements().started(env);
}

void addOlder(JNIEnv* jni, jthread thread) {
    ThreadInfo info = infoOf(jni, thread);
    const VmStructs& vm = context().vmStructs;
    OlderThreads& older = olderThreads();
    // Held over a call into the VM. Only a thread that ends waits for it, in native code, where
    // it holds up no safepoint.
    std::lock_guard<std::mutex> guard(older.mutex);
    const jlong eetop = jni->GetLongField(thread, eetopField);
    if (eetop == 0) return; // ended, or virtual
    JNIEnv* env = vm.envOf(eetop);
    if (older.ended.contains(env) || !vm.sameFunctions(env)) return;
    const pid_t tid = vm.osThreadId(vm.javaThreadOf(env));
    if (tid != 0) insert(info, env, tid);
}

} // namespace

bool ThreadEvents::start(JNIEnv* jni) {
    ExceptionShelter shelter(jni);
    jvmtiEnv* jvmti = context().jvmti;
    LocalRef<jclass> threadClass(jni, jni->FindClass("java/lang/Thread"));
    if (!threadClass) return false;
    eetopField = jni->GetFieldID(threadClass.get(), "eetop", "J");
    jthread self = nullptr;
    if (!eetopField || jvmti->GetCurrentThread(&self) != JVMTI_ERROR_NONE) return false;
    LocalRef<jthread> current(jni, self);
    return context().vmStructs.verify(jni, jni->GetLongField(self, eetopField));
}

void ThreadEvents::addExisting(JNIEnv* jni) {
    jvmtiEnv* jvmti = context().jvmti;
    OlderThreads& older = olderThreads();
    {
        std::lock_guard<std::mutex> guard(older.mutex);
        older.adding = true;
    }
    jint count = 0;
    JvmtiMemory<jthread> all(jvmti);
    if (jvmti->GetAllThreads(&count, all.out()) != JVMTI_ERROR_NONE) count = 0;
    for (jint i = 0; i < count; i++) {
        LocalRef<jthread> thread(jni, all[i]);
        addOlder(jni, thread.get());
    }
    std::lock_guard<std::mutex> guard(older.mutex);
    older.adding = false;
    older.ended.clear();
}

void ThreadEvents::started(JNIEnv* jni, jthread thread) {
    {
        OlderThreads& older = olderThreads();
        std::lock_guard<std::mutex> guard(older.mutex);
        if (older.adding) older.ended.erase(jni);
    }
    ThreadInfo info = infoOf(jni, thread);
    insert(info, jni, gettid());
    objectIds().sweep(jni);
    if (events().isEnabled(JVMPI_EVENT_THREAD_START) && announcements().claim(jni))
        announce(jni, 0);
}

void ThreadEvents::ended(JNIEnv* jni) {
    announcements().ended(jni);
    if (events().isEnabled(JVMPI_EVENT_THREAD_END) && threads().find(jni)) {
        JVMPI_Event event{};
        event.event_type = JVMPI_EVENT_THREAD_END;
        event.env_id = jni;
        events().deliver(event);
    }
    {
        OlderThreads& older = olderThreads();
        std::lock_guard<std::mutex> guard(older.mutex);
        if (older.adding) older.ended.insert(jni);
        threads().remove(jni);
    }
    MonitorThread::forgetJavaThread();
}

jint ThreadEvents::announceAll() {
    for (JNIEnv* env : threads().environments())
        if (announcements().claim(env)) announce(env, 0);
    return JVMPI_SUCCESS;
}

void ThreadEvents::forgetAnnouncements() { announcements().forget(); }

jint ThreadEvents::request(void* threadId) {
    if (!threadId || !isLive()) return JVMPI_FAIL;
    const auto id = static_cast<jobjectID>(threadId);
    for (JNIEnv* env : threads().environments()) {
        if (threads().object(env) != id) continue;
        if (!announcements().claimAgain(env)) return JVMPI_FAIL;
        announce(env, JVMPI_REQUESTED_EVENT);
        return JVMPI_SUCCESS;
    }
    return JVMPI_FAIL;
}

} // namespace bridge
