#include "tests/live/bridge_probe/agent/Model.h"

#include <cstdlib>

#include "tests/live/bridge_probe/Probe.h"
#include "tests/live/bridge_probe/agent/Phases.h"

namespace probe {

std::mutex mutex;
std::map<jobjectID, Class>& classesById = *new std::map<jobjectID, Class>;
std::map<JNIEnv*, Thread>& threadsByEnv = *new std::map<JNIEnv*, Thread>;
std::set<std::string>& everStarted = *new std::set<std::string>;
std::vector<jmethodID>& methodsOfUnloaded = *new std::vector<jmethodID>;
int startsOfWorkers = 0;
int endsOfWorkers = 0;
int unloadsOfKnown = 0;
int initDone = 0;
int shutDowns = 0;
int doubleStarts = 0;
thread_local int requestsSeen = 0; // events with the requested bit on this thread
thread_local Thread requestedThread;
thread_local Class requestedClass;

namespace {

constexpr char kWorker[] = "w\xc3\xb6rker ";

Class classOf(const JVMPI_Event& event) {
    const auto& load = event.u.class_load;
    Class result;
    result.name = load.class_name;
    result.source = load.source_name;
    result.interfaces = load.num_interfaces;
    for (jint i = 0; i < load.num_methods; i++) {
        const std::string name =
            std::string(load.methods[i].method_name) + load.methods[i].method_signature;
        result.methods.insert(name);
        result.ids[name] = load.methods[i].method_id;
    }
    for (jint i = 0; i < load.num_static_fields; i++)
        result.statics.insert(std::string(load.statics[i].field_name) + " " +
                              load.statics[i].field_signature);
    for (jint i = 0; i < load.num_instance_fields; i++)
        result.instances.insert(std::string(load.instances[i].field_name) + " " +
                                load.instances[i].field_signature);
    return result;
}

void onThreadStart(const JVMPI_Event& event, bool requested) {
    const auto& start = event.u.thread_start;
    check(event.env_id != nullptr, "THREAD_START without env_id");
    Thread thread{start.thread_name, start.group_name, start.parent_name, start.thread_id};
    if (requested) {
        requestsSeen++;
        requestedThread = thread;
        check(event.env_id == self(), "requested THREAD_START names another thread's env_id");
        return;
    }
    check(event.env_id == start.thread_env_id, "THREAD_START: env_id and thread_env_id differ");
    check(jvmpi->GetThreadLocalStorage(start.thread_env_id) == nullptr,
          "storage of the new thread %s is not null", start.thread_name);
    jvmpi->SetThreadLocalStorage(start.thread_env_id, start.thread_id);
    std::lock_guard<std::mutex> guard(mutex);
    if (!threadsByEnv.emplace(start.thread_env_id, thread).second) doubleStarts++;
    everStarted.insert(thread.name);
    if (thread.name.starts_with(kWorker)) {
        startsOfWorkers++;
        check(thread.group == "inner group", "worker's group is %s", start.group_name);
        check(thread.parent == "outer group", "worker's parent is %s", start.parent_name);
    }
}

void onThreadEnd(const JVMPI_Event& event) {
    check(event.env_id == self(), "THREAD_END on another thread");
    std::lock_guard<std::mutex> guard(mutex);
    const auto known = threadsByEnv.find(event.env_id);
    check(known != threadsByEnv.end(), "THREAD_END of a thread that never started");
    if (known == threadsByEnv.end()) return;
    check(jvmpi->GetThreadLocalStorage(event.env_id) == known->second.object,
          "storage of %s is lost at its end", known->second.name.c_str());
    // It can no longer be asked for.
    check(jvmpi->RequestEvent(JVMPI_EVENT_THREAD_START, known->second.object) == JVMPI_FAIL,
          "an ending thread is announced on request");
    if (known->second.name.starts_with(kWorker)) endsOfWorkers++;
    threadsByEnv.erase(known);
}

void onClassLoad(const JVMPI_Event& event, bool requested) {
    Class loaded = classOf(event);
    if (requested) {
        requestsSeen++;
        requestedClass = loaded;
        return;
    }
    std::lock_guard<std::mutex> guard(mutex);
    check(!classesById.contains(event.u.class_load.class_id), "class %s has a used id",
          loaded.name.c_str());
    classesById[event.u.class_load.class_id] = loaded;
}

void onClassUnload(const JVMPI_Event& event) {
    std::lock_guard<std::mutex> guard(mutex);
    const auto known = classesById.find(event.u.class_unload.class_id);
    if (known == classesById.end()) return;
    if (known->second.name == "Known") {
        unloadsOfKnown++;
        for (const auto& [name, id] : known->second.ids) methodsOfUnloaded.push_back(id);
    }
    classesById.erase(known);
}

} // namespace

void notify(JVMPI_Event* event) {
    const bool requested = event->event_type & JVMPI_REQUESTED_EVENT;
    switch (event->event_type & ~JVMPI_REQUESTED_EVENT) {
    case JVMPI_EVENT_THREAD_START:
        return onThreadStart(*event, requested);
    case JVMPI_EVENT_THREAD_END:
        return onThreadEnd(*event);
    case JVMPI_EVENT_CLASS_LOAD:
        return onClassLoad(*event, requested);
    case JVMPI_EVENT_CLASS_UNLOAD:
        return onClassUnload(*event);
    case JVMPI_EVENT_JVM_INIT_DONE:
        initDone++;
        return;
    case JVMPI_EVENT_JVM_SHUT_DOWN:
        jvmpi->DisableEvent(JVMPI_EVENT_THREAD_START, nullptr);
        jvmpi->DisableEvent(JVMPI_EVENT_THREAD_END, nullptr);
        jvmpi->DisableEvent(JVMPI_EVENT_CLASS_LOAD, nullptr);
        jvmpi->DisableEvent(JVMPI_EVENT_CLASS_UNLOAD, nullptr);
        shutDowns++;
        atexit(afterDeath);
        return;
    default:
        check(false, "event %d was never asked for", event->event_type);
    }
}

} // namespace probe
