// Delivery of events to NotifyEvent: single ones, and those that answer a request.
#include "tests/vm/ScriptedWorld.h"

#include <algorithm>
#include <cstring>

namespace scripted {

namespace {

// Texts of one event. They are overwritten and released as soon as the callback is over, so that
// an agent that keeps a pointer to one is found out.
class EventTexts {
public:
    ~EventTexts() {
        for (const auto& text : texts_) std::memset(text.first.get(), '#', text.second);
    }
    char* copy(const std::string& text) {
        texts_.emplace_back(std::make_unique<char[]>(text.size() + 1), text.size());
        std::memcpy(texts_.back().first.get(), text.c_str(), text.size() + 1);
        return texts_.back().first.get();
    }

private:
    std::vector<std::pair<std::unique_ptr<char[]>, std::size_t>> texts_;
};

JVMPI_Event eventOf(jint type, JNIEnv* env, bool requested = false) {
    JVMPI_Event event;
    std::memset(&event, 0, sizeof event);
    event.event_type = requested ? type | JVMPI_REQUESTED_EVENT : type;
    event.env_id = env;
    return event;
}

std::vector<JVMPI_Field> fieldsOf(const std::vector<FieldSpec>& specs, EventTexts& texts) {
    std::vector<JVMPI_Field> fields;
    for (const FieldSpec& spec : specs)
        fields.push_back({texts.copy(spec.name), texts.copy(spec.signature)});
    return fields;
}

} // namespace

bool ScriptedVm::notify(ScriptedThread& on, JVMPI_Event& event) {
    InsideVm inside;
    bool delivered = false;
    on.run([&] {
        InsideVm again;
        void (*const callback)(JVMPI_Event*) = world_->jvmpi.NotifyEvent;
        if (callback == nullptr) return;
        const jint type = event.event_type & ~JVMPI_REQUESTED_EVENT;
        const std::string text =
            ((event.event_type & JVMPI_REQUESTED_EVENT) != 0 ? "RequestedEvent(" : "Event(") +
            std::to_string(type) + ")";
        if (recorder_.recording()) {
            Call entry;
            entry.kind = kEvent;
            entry.name = "Event";
            entry.text = text;
            entry.thread = on.name();
            for (const ScriptedMonitor* held : on.held_) entry.held.push_back(held->name());
            recorder_.record(std::move(entry), false);
        }
        Env* env = on.env_;
        ScriptedObject* before = nullptr;
        std::size_t depth = 0;
        if (env != nullptr) {
            depth = env->frames.size();
            world_->pushFrame(*env, LocalFrame::kInEvent, 16);
            std::swap(before, env->pending); // an event must not see what its thread threw
        }
        {
            OutsideVm outside;
            callback(&event);
        }
        delivered = true;
        if (env == nullptr) return;
        std::size_t live = 0;
        std::size_t extra = 0;
        world_->dropFrames(*env, depth, live, extra);
        if (live + extra != 0)
            recorder_.violation(text + " on " + on.name() + " left " + std::to_string(live) +
                                " local references and " + std::to_string(extra) + " frames");
        if (env->pending == nullptr) env->pending = before;
    });
    return delivered;
}

bool EventSender::deliver(ScriptedThread& on, JVMPI_Event& event) { return vm_.notify(on, event); }

bool EventSender::methodEntry(ScriptedThread& on, jmethodID method) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_METHOD_ENTRY, on.env());
    event.u.method.method_id = method;
    return deliver(on, event);
}

bool EventSender::methodEntry2(ScriptedThread& on, jmethodID method, const ScriptedObject* object) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_METHOD_ENTRY2, on.env());
    event.u.method_entry2.method_id = method;
    event.u.method_entry2.obj_id = object != nullptr ? object->id : nullptr;
    return deliver(on, event);
}

bool EventSender::methodExit(ScriptedThread& on, jmethodID method) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_METHOD_EXIT, on.env());
    event.u.method.method_id = method;
    return deliver(on, event);
}

bool EventSender::objectAlloc(ScriptedThread& on, const ScriptedObject& object, bool requested) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_OBJECT_ALLOC, on.env(), requested);
    event.u.obj_alloc.arena_id = object.arena;
    event.u.obj_alloc.class_id = object.cls != nullptr ? object.cls->id() : nullptr;
    event.u.obj_alloc.is_array = object.arrayType;
    event.u.obj_alloc.size = object.size;
    event.u.obj_alloc.obj_id = object.id;
    return deliver(on, event);
}

bool EventSender::objectAlloc(ScriptedThread& on, jint arena, jobjectID cls, jint isArray,
                              jint size, jobjectID object) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_OBJECT_ALLOC, on.env());
    event.u.obj_alloc.arena_id = arena;
    event.u.obj_alloc.class_id = cls;
    event.u.obj_alloc.is_array = isArray;
    event.u.obj_alloc.size = size;
    event.u.obj_alloc.obj_id = object;
    return deliver(on, event);
}

bool EventSender::objectFree(ScriptedThread& on, jobjectID object) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_OBJECT_FREE, on.env());
    event.u.obj_free.obj_id = object;
    return deliver(on, event);
}

bool EventSender::objectMove(ScriptedThread& on, jint arena, jobjectID object, jint newArena,
                             jobjectID newObject) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_OBJECT_MOVE, on.env());
    event.u.obj_move.arena_id = arena;
    event.u.obj_move.obj_id = object;
    event.u.obj_move.new_arena_id = newArena;
    event.u.obj_move.new_obj_id = newObject;
    return deliver(on, event);
}

bool EventSender::threadStart(ScriptedThread& started, bool requested, ScriptedThread* on) {
    InsideVm inside;
    ScriptedThread& where = on != nullptr ? *on : started;
    EventTexts texts;
    JVMPI_Event event = eventOf(JVMPI_EVENT_THREAD_START, where.env(), requested);
    const ThreadSpec& spec = started.spec();
    if (!spec.nullNames) {
        event.u.thread_start.thread_name = texts.copy(spec.name);
        event.u.thread_start.group_name = texts.copy(spec.group);
        event.u.thread_start.parent_name = texts.copy(spec.parent);
    }
    event.u.thread_start.thread_id = started.id();
    event.u.thread_start.thread_env_id = started.env();
    return deliver(where, event);
}

bool EventSender::threadEnd(ScriptedThread& ended) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_THREAD_END, ended.env());
    return deliver(ended, event);
}

bool EventSender::classLoad(ScriptedThread& on, const ScriptedClass& cls, bool requested) {
    InsideVm inside;
    EventTexts texts;
    std::vector<JVMPI_Method> methods;
    for (const auto& method : cls.methods)
        methods.push_back({texts.copy(method->spec.name), texts.copy(method->spec.signature),
                           method->spec.startLine, method->spec.endLine, method->id});
    std::vector<JVMPI_Field> statics = fieldsOf(cls.spec.statics, texts);
    std::vector<JVMPI_Field> instances = fieldsOf(cls.spec.instances, texts);
    JVMPI_Event event = eventOf(JVMPI_EVENT_CLASS_LOAD, on.env(), requested);
    auto& load = event.u.class_load;
    load.class_name = texts.copy(cls.spec.name);
    load.source_name = cls.spec.nullSource ? nullptr : texts.copy(cls.spec.source);
    load.num_interfaces = static_cast<jint>(cls.spec.interfaces.size());
    load.num_methods = static_cast<jint>(methods.size());
    load.methods = methods.data();
    load.num_static_fields = static_cast<jint>(statics.size());
    load.statics = statics.data();
    load.num_instance_fields = static_cast<jint>(instances.size());
    load.instances = instances.data();
    load.class_id = cls.id();
    return deliver(on, event);
}

bool EventSender::classUnload(ScriptedThread& on, jobjectID cls) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_CLASS_UNLOAD, on.env());
    event.u.class_unload.class_id = cls;
    return deliver(on, event);
}

bool EventSender::arenaNew(ScriptedThread& on, jint arena, const char* name) {
    InsideVm inside;
    EventTexts texts;
    JVMPI_Event event = eventOf(JVMPI_EVENT_ARENA_NEW, on.env());
    event.u.new_arena.arena_id = arena;
    event.u.new_arena.arena_name = name != nullptr ? texts.copy(name) : nullptr;
    return deliver(on, event);
}

bool EventSender::arenaDelete(ScriptedThread& on, jint arena) {
    JVMPI_Event event = eventOf(JVMPI_EVENT_ARENA_DELETE, on.env());
    event.u.delete_arena.arena_id = arena;
    return deliver(on, event);
}

bool EventSender::monitorEvent(ScriptedThread& on, jint type, jobjectID object, jlong timeout) {
    JVMPI_Event event = eventOf(type, on.env());
    event.u.monitor_wait.object = object; // the first field of both monitor members
    event.u.monitor_wait.timeout = timeout;
    return deliver(on, event);
}

bool EventSender::monitorContendedEnter(ScriptedThread& on, jobjectID object) {
    return monitorEvent(on, JVMPI_EVENT_MONITOR_CONTENDED_ENTER, object, 0);
}

bool EventSender::monitorContendedEntered(ScriptedThread& on, jobjectID object) {
    return monitorEvent(on, JVMPI_EVENT_MONITOR_CONTENDED_ENTERED, object, 0);
}

bool EventSender::monitorContendedExit(ScriptedThread& on, jobjectID object) {
    return monitorEvent(on, JVMPI_EVENT_MONITOR_CONTENDED_EXIT, object, 0);
}

bool EventSender::monitorWait(ScriptedThread& on, jobjectID object, jlong timeout) {
    return monitorEvent(on, JVMPI_EVENT_MONITOR_WAIT, object, timeout);
}

bool EventSender::monitorWaited(ScriptedThread& on, jobjectID object, jlong timeout) {
    return monitorEvent(on, JVMPI_EVENT_MONITOR_WAITED, object, timeout);
}

bool EventSender::gcStart() {
    ScriptedThread& on = vm_.vmThread();
    on.setCollecting(true);
    JVMPI_Event event = eventOf(JVMPI_EVENT_GC_START, on.env());
    return deliver(on, event);
}

bool EventSender::gcFinish(jlong usedObjects, jlong usedSpace, jlong totalSpace) {
    ScriptedThread& on = vm_.vmThread();
    JVMPI_Event event = eventOf(JVMPI_EVENT_GC_FINISH, on.env());
    event.u.gc_info.used_objects = usedObjects;
    event.u.gc_info.used_object_space = usedSpace;
    event.u.gc_info.total_object_space = totalSpace;
    const bool delivered = deliver(on, event);
    on.setCollecting(false);
    return delivered;
}

bool EventSender::heapDump(ScriptedThread& on, jint level, const std::vector<char>& bytes,
                           bool requested) {
    InsideVm inside;
    const auto block = std::make_unique<char[]>(bytes.size());
    if (!bytes.empty()) std::memcpy(block.get(), bytes.data(), bytes.size());
    JVMPI_Event event = eventOf(JVMPI_EVENT_HEAP_DUMP, on.env(), requested);
    event.u.heap_dump.dump_level = level;
    event.u.heap_dump.begin = block.get();
    event.u.heap_dump.end = block.get() + bytes.size();
    return deliver(on, event);
}

bool EventSender::jvmInitDone(ScriptedThread& on) { return bare(on, JVMPI_EVENT_JVM_INIT_DONE); }

bool EventSender::jvmShutDown(ScriptedThread& on) { return bare(on, JVMPI_EVENT_JVM_SHUT_DOWN); }

bool EventSender::bare(ScriptedThread& on, jint type, bool nullEnv) {
    JVMPI_Event event = eventOf(type, nullEnv ? nullptr : on.env());
    return deliver(on, event);
}

// ---- requests -----------------------------------------------------------------------------------

jint replayEvent(ScriptedVm& vm, jint type, void* arg) {
    World& world = vm.world();
    ScriptedThread& on = vm.currentThread();
    ScriptedObject* object = vm.findObject(static_cast<jobjectID>(arg));
    switch (type) {
    case JVMPI_EVENT_CLASS_LOAD:
        if (object == nullptr || object->kind != ScriptedObject::kClass ||
            object->mirrorOf->unloaded)
            return JVMPI_FAIL;
        vm.send.classLoad(on, *object->mirrorOf, true);
        return JVMPI_SUCCESS;
    case JVMPI_EVENT_OBJECT_ALLOC:
        if (object == nullptr) return JVMPI_FAIL;
        vm.send.objectAlloc(on, *object, true);
        return JVMPI_SUCCESS;
    case JVMPI_EVENT_THREAD_START:
        if (object == nullptr || object->thread == nullptr || !object->thread->alive())
            return JVMPI_FAIL;
        vm.send.threadStart(*object->thread, true, &on);
        return JVMPI_SUCCESS;
    case JVMPI_EVENT_HEAP_DUMP: {
        const jint level = arg != nullptr
                               ? static_cast<const JVMPI_HeapDumpArg*>(arg)->heap_dump_level
                               : JVMPI_DUMP_LEVEL_2;
        if (level != JVMPI_DUMP_LEVEL_0 && level != JVMPI_DUMP_LEVEL_1) return JVMPI_NOT_AVAILABLE;
        std::function<void()> hook;
        std::optional<std::vector<char>> scripted;
        {
            std::lock_guard lock(world.mutex);
            hook = world.dumpHook;
            auto found = world.dumps.find(level);
            if (found != world.dumps.end()) scripted = found->second;
        }
        if (hook) hook();
        vm.send.heapDump(on, level, scripted ? *scripted : vm.buildDump(level), true);
        return JVMPI_SUCCESS;
    }
    default:
        return JVMPI_NOT_AVAILABLE;
    }
}

} // namespace scripted
