#include "tests/vm/ScriptedWorld.h"

#include <algorithm>

namespace scripted {

namespace {

// Dead references keep their memory until so many are dead, so that using one late is seen.
constexpr std::size_t kQuarantine = 4096;

constexpr std::uintptr_t kFirstMethodId = 0x40000000;
constexpr std::uintptr_t kMethodIdStep = 16;

constexpr jint kFreeFrames = 1 << 20; // capacity of a thread's own, outermost frame

} // namespace

std::string hex(const void* value) {
    char text[2 + 16 + 1];
    std::snprintf(text, sizeof text, "0x%llX",
                  static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(value)));
    return text;
}

World::World(ScriptedVm& owner) : vm(owner) {
    fillJvmpiTable(jvmpi);
    fillJniTable(jni);
    fillRestrictedTable(restrictedJni);
    fillInvokeTable(invoke);
    javaVm.functions = &invoke;
    properties["java.vm.version"] = "scripted-1.0";
}

// ---- objects ----------------------------------------------------------------------------------

jobjectID World::newIdLocked() {
    nextId += 8;
    return reinterpret_cast<jobjectID>(nextId);
}

ScriptedObject& World::addObjectLocked(ScriptedObject::Kind kind, ScriptedClass* cls) {
    objects.push_back(std::make_unique<ScriptedObject>());
    ScriptedObject& object = *objects.back();
    object.kind = kind;
    object.cls = cls;
    object.id = newIdLocked();
    objectById[object.id] = &object;
    return object;
}

ScriptedObject& World::addObject(ScriptedObject::Kind kind, ScriptedClass* cls) {
    std::lock_guard lock(mutex);
    return addObjectLocked(kind, cls);
}

ScriptedMethod* World::method(jmethodID id) const {
    const auto value = reinterpret_cast<std::uintptr_t>(id);
    if (value < kFirstMethodId || (value - kFirstMethodId) % kMethodIdStep != 0) return nullptr;
    const std::size_t number = (value - kFirstMethodId) / kMethodIdStep;
    std::lock_guard lock(mutex);
    return number < methods.size() ? methods[number] : nullptr;
}

jmethodID World::addMethodLocked(ScriptedMethod* added) {
    methods.push_back(added);
    return reinterpret_cast<jmethodID>(kFirstMethodId + (methods.size() - 1) * kMethodIdStep);
}

ScriptedClass* World::classLocked(const std::string& name) const {
    auto found = classByName.find(name);
    return found != classByName.end() ? found->second : nullptr;
}

std::string World::describe(const ScriptedObject* object) {
    if (object == nullptr) return "null";
    switch (object->kind) {
    case ScriptedObject::kClass:
        return "class " + object->mirrorOf->name();
    case ScriptedObject::kString:
        return "\"" + object->text + "\"";
    default:
        if (object->thread != nullptr) return "thread " + object->thread->name();
        return (object->cls != nullptr ? object->cls->name() : "array") + " " + hex(object->id);
    }
}

std::string World::describe(const void* id) const {
    if (id == nullptr) return "null";
    std::lock_guard lock(mutex);
    auto found = objectById.find(static_cast<jobjectID>(const_cast<void*>(id)));
    return found != objectById.end() ? describe(found->second) : hex(id);
}

std::string World::describe(jmethodID id) const {
    const ScriptedMethod* found = method(id);
    return found != nullptr ? found->owner->name() + "." + found->spec.name
                            : hex(reinterpret_cast<const void*>(id));
}

// ---- references -------------------------------------------------------------------------------

Ref* World::newRefLocked(Ref::Kind kind, ScriptedObject* object, ScriptedThread* owner) {
    Ref* ref = nullptr;
    if (deadRefs.size() > kQuarantine) {
        ref = deadRefs.front();
        deadRefs.pop_front();
        *ref = Ref{};
    } else {
        refs.push_back(std::make_unique<Ref>());
        ref = refs.back().get();
        knownRefs.insert(ref);
    }
    ref->word = reinterpret_cast<std::uintptr_t>(object->id);
    ref->object = object;
    ref->owner = owner;
    ref->kind = kind;
    ref->live = true;
    if (kind == Ref::kGlobal) globals.push_back(ref);
    return ref;
}

void World::killRefLocked(Ref* ref) {
    ref->live = false;
    ref->word = 0;
    if (ref->kind == Ref::kGlobal)
        globals.erase(std::remove(globals.begin(), globals.end(), ref), globals.end());
    deadRefs.push_back(ref);
}

Ref* World::refLocked(jobject handle, const ScriptedThread* user, std::string& problem) const {
    const auto bits = reinterpret_cast<std::uintptr_t>(handle);
    auto* ref = reinterpret_cast<Ref*>(bits & ~static_cast<std::uintptr_t>(3));
    if (knownRefs.count(ref) == 0) {
        problem = hex(handle) + " is no reference";
    } else if (!ref->live) {
        problem = "the reference was deleted or its frame left";
    } else if ((bits & 3) != ref->kind) {
        problem = hex(handle) + " has the mark of another kind of reference";
    } else if (ref->kind == Ref::kLocal && user != nullptr && ref->owner != user) {
        problem = "a local reference of thread " + ref->owner->name();
    } else {
        return ref;
    }
    return nullptr;
}

void World::pushFrame(Env& env, LocalFrame::Kind kind, jint capacity) {
    std::lock_guard lock(mutex);
    LocalFrame frame;
    frame.kind = kind;
    frame.capacity = kind == LocalFrame::kBase ? kFreeFrames : capacity;
    env.frames.push_back(std::move(frame));
}

void World::dropFrames(Env& env, std::size_t depth, std::size_t& liveRefs,
                       std::size_t& extraFrames) {
    std::lock_guard lock(mutex);
    liveRefs = 0;
    extraFrames = env.frames.size() > depth + 1 ? env.frames.size() - depth - 1 : 0;
    while (env.frames.size() > depth) {
        for (Ref* ref : env.frames.back().refs) {
            if (!ref->byTest) ++liveRefs;
            killRefLocked(ref);
        }
        env.frames.pop_back();
    }
}

Env* World::envLocked(const JNIEnv* env) const {
    auto found = envOf.find(env);
    return found != envOf.end() ? found->second : nullptr;
}

} // namespace scripted
