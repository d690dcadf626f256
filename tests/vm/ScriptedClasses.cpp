// Classes, objects and the heap of the scripted VM.
#include "tests/vm/ScriptedWorld.h"

#include <algorithm>
#include <stdexcept>

namespace scripted {

// ---- ScriptedClass, JavaCall -------------------------------------------------------------------

jobjectID ScriptedClass::id() const { return mirror->id; }

ScriptedMethod* ScriptedClass::find(const std::string& name, const std::string& signature,
                                    bool isStatic) const {
    for (const ScriptedClass* cls = this; cls != nullptr; cls = cls->superclass)
        for (const auto& method : cls->methods)
            if (method->spec.name == name && method->spec.signature == signature &&
                method->spec.isStatic == isStatic)
                return method.get();
    return nullptr;
}

ScriptedMethod& ScriptedClass::method(const std::string& name) const {
    for (const auto& method : methods)
        if (method->spec.name == name) return *method;
    throw std::logic_error("class " + spec.name + " has no method " + name);
}

void JavaCall::throwNew(const std::string& className, const std::string& message) {
    vm.throwOn(thread, className, message);
}

// ---- classes ------------------------------------------------------------------------------------

ScriptedClass& ScriptedVm::addClass(ClassSpec spec) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    world_->classes.push_back(std::make_unique<ScriptedClass>());
    ScriptedClass& cls = *world_->classes.back();
    cls.spec = std::move(spec);
    cls.superclass =
        cls.spec.superclass == cls.spec.name ? nullptr : world_->classLocked(cls.spec.superclass);
    cls.mirror =
        &world_->addObjectLocked(ScriptedObject::kClass, world_->classLocked("java/lang/Class"));
    cls.mirror->mirrorOf = &cls;
    for (const MethodSpec& method : cls.spec.methods) {
        cls.methods.push_back(std::make_unique<ScriptedMethod>());
        ScriptedMethod& added = *cls.methods.back();
        added.owner = &cls;
        added.spec = method;
        added.id = world_->addMethodLocked(&added);
    }
    world_->classByName[cls.spec.name] = &cls;
    world_->hiddenClasses.erase(cls.spec.name);
    return cls;
}

ScriptedClass* ScriptedVm::findClass(const std::string& name) const {
    std::lock_guard lock(world_->mutex);
    return world_->classLocked(name);
}

void ScriptedVm::hideClass(const std::string& name) {
    std::lock_guard lock(world_->mutex);
    world_->hiddenClasses.insert(name);
}

void ScriptedVm::loadClass(const ScriptedClass& cls) {
    if (enabled(JVMPI_EVENT_CLASS_LOAD)) send.classLoad(currentThread(), cls);
}

void ScriptedVm::unloadClass(ScriptedClass& cls) {
    if (enabled(JVMPI_EVENT_CLASS_UNLOAD)) send.classUnload(currentThread(), cls.id());
    std::lock_guard lock(world_->mutex);
    cls.unloaded = true;
}

// ---- objects ------------------------------------------------------------------------------------

ScriptedObject& ScriptedVm::newObject(ScriptedClass& cls) {
    InsideVm inside;
    return world_->addObject(ScriptedObject::kPlain, &cls);
}

ScriptedObject& ScriptedVm::newObject(const std::string& className) {
    InsideVm inside;
    ScriptedClass* cls = findClass(className);
    return newObject(cls != nullptr ? *cls : addClass({.name = className}));
}

ScriptedObject& ScriptedVm::newString(const std::string& modifiedUtf8) {
    InsideVm inside;
    ScriptedObject& object =
        world_->addObject(ScriptedObject::kString, findClass("java/lang/String"));
    object.text = modifiedUtf8;
    return object;
}

ScriptedObject& ScriptedVm::newBytes(const std::vector<jbyte>& bytes) {
    InsideVm inside;
    ScriptedObject& object = world_->addObject(ScriptedObject::kBytes, findClass("[B"));
    object.bytes = bytes;
    object.arrayType = JVMPI_BYTE;
    return object;
}

ScriptedObject& ScriptedVm::newObjectArray(const std::vector<ScriptedObject*>& elements,
                                           const std::string& arrayClass) {
    InsideVm inside;
    ScriptedClass* cls = findClass(arrayClass);
    ScriptedObject& object = world_->addObject(
        ScriptedObject::kObjects, cls != nullptr ? cls : &addClass({.name = arrayClass}));
    object.elements = elements;
    object.arrayType = JVMPI_CLASS;
    return object;
}

std::map<std::string, std::string>& ScriptedVm::systemProperties() { return world_->properties; }

// ---- heap ---------------------------------------------------------------------------------------

ScriptedObject& ScriptedVm::allocate(ScriptedThread& on, ScriptedClass& cls, jint size,
                                     jint arena) {
    InsideVm inside;
    ScriptedObject& object = newObject(cls);
    object.size = size;
    object.arena = arena;
    {
        std::lock_guard lock(world_->mutex);
        object.onHeap = true;
        world_->heap.push_back(&object);
    }
    if (enabled(JVMPI_EVENT_OBJECT_ALLOC)) send.objectAlloc(on, object);
    return object;
}

ScriptedObject& ScriptedVm::allocateArray(ScriptedThread& on, jint type, jint length, jint size,
                                          ScriptedClass* elementClass, jint arena) {
    InsideVm inside;
    ScriptedObject& object = world_->addObject(
        type == JVMPI_CLASS ? ScriptedObject::kObjects : ScriptedObject::kPlain, elementClass);
    object.arrayType = type;
    object.length = length;
    if (type == JVMPI_CLASS) object.elements.resize(static_cast<std::size_t>(length));
    object.size = size;
    object.arena = arena;
    {
        std::lock_guard lock(world_->mutex);
        object.onHeap = true;
        world_->heap.push_back(&object);
    }
    if (enabled(JVMPI_EVENT_OBJECT_ALLOC)) send.objectAlloc(on, object);
    return object;
}

ScriptedObject* ScriptedVm::findObject(jobjectID id) const {
    std::lock_guard lock(world_->mutex);
    auto found = world_->objectById.find(id);
    return found != world_->objectById.end() ? found->second : nullptr;
}

jobjectID ScriptedVm::unknownId() {
    std::lock_guard lock(world_->mutex);
    return world_->newIdLocked();
}

void ScriptedVm::setHeapSize(jlong bytes) { world_->heapSize = bytes; }

void ScriptedVm::planCollection(GcPlan plan) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    world_->plans.push_back(std::move(plan));
}

void ScriptedVm::collect(const GcPlan& plan) {
    InsideVm inside;
    runCollection(*this, plan);
}

int ScriptedVm::gcDisableDepth() const {
    std::lock_guard lock(world_->mutex);
    return world_->gcDisabled;
}

void ScriptedVm::useRestrictedEnv(jlong answer) {
    world_->restrictedAnswer.store(answer);
    world_->setCollectorEnv(&world_->restricted);
}

void ScriptedVm::useNullGcEnv() { world_->setCollectorEnv(nullptr); }

void World::setCollectorEnv(Env* env) { collector->env_ = env; }

void runCollection(ScriptedVm& vm, const GcPlan& plan) {
    World& world = vm.world();
    ScriptedThread& on = vm.vmThread();
    on.run([&] {
        InsideVm inside;
        if (vm.enabled(JVMPI_EVENT_GC_START)) vm.send.gcStart();
        on.advanceCpuTime(plan.cpu);
        for (ScriptedObject* object : plan.frees) {
            const jobjectID id = object->id;
            {
                std::lock_guard lock(world.mutex);
                object->freed = true;
                world.objectById.erase(id);
                world.heap.erase(std::remove(world.heap.begin(), world.heap.end(), object),
                                 world.heap.end());
            }
            if (vm.enabled(JVMPI_EVENT_OBJECT_FREE)) vm.send.objectFree(on, id);
        }
        for (ScriptedObject* object : plan.moves) {
            const jobjectID oldId = object->id;
            const jint oldArena = object->arena;
            {
                std::lock_guard lock(world.mutex);
                world.objectById.erase(oldId);
                object->id = world.newIdLocked();
                world.objectById[object->id] = object;
                if (plan.moveTo != 0) object->arena = plan.moveTo;
                for (const auto& ref : world.refs)
                    if (ref->live && ref->object == object)
                        ref->word = reinterpret_cast<std::uintptr_t>(object->id);
            }
            if (vm.enabled(JVMPI_EVENT_OBJECT_MOVE))
                vm.send.objectMove(on, oldArena, oldId, object->arena, object->id);
        }
        for (const jint arena : plan.arenasDeleted)
            if (vm.enabled(JVMPI_EVENT_ARENA_DELETE)) vm.send.arenaDelete(on, arena);
        if (plan.during) plan.during();
        jlong objects = 0;
        jlong space = 0;
        jlong total = 0;
        {
            std::lock_guard lock(world.mutex);
            objects = static_cast<jlong>(world.heap.size());
            for (const ScriptedObject* object : world.heap) space += object->size;
            total = world.heapSize;
        }
        if (plan.usedObjects >= 0) objects = plan.usedObjects;
        if (plan.usedSpace >= 0) space = plan.usedSpace;
        if (plan.totalSpace >= 0) total = plan.totalSpace;
        if (vm.enabled(JVMPI_EVENT_GC_FINISH)) vm.send.gcFinish(objects, space, total);
    });
}

// ---- dumps --------------------------------------------------------------------------------------

void ScriptedVm::setDump(jint level, std::vector<char> bytes) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    world_->dumps[level] = std::move(bytes);
}

void ScriptedVm::setDumpHook(std::function<void()> hook) {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    world_->dumpHook = std::move(hook);
}

namespace {

std::vector<jobjectID> idsOf(const std::vector<ScriptedObject*>& objects) {
    std::vector<jobjectID> ids;
    for (const ScriptedObject* object : objects)
        ids.push_back(object != nullptr ? object->id : nullptr);
    return ids;
}

bool isReference(const FieldSpec& field) {
    return !field.signature.empty() && (field.signature[0] == 'L' || field.signature[0] == '[');
}

} // namespace

std::vector<char> ScriptedVm::buildDump(jint level) const {
    InsideVm inside;
    std::lock_guard lock(world_->mutex);
    DumpBuilder dump;
    if (level == JVMPI_DUMP_LEVEL_0) {
        for (const ScriptedObject* object : world_->heap)
            dump.object(object->arrayType, object->id);
        return dump.bytes();
    }
    for (const auto& cls : world_->classes) {
        if (cls->unloaded) continue;
        std::vector<jobjectID> interfaces;
        for (const std::string& name : cls->spec.interfaces) {
            const ScriptedClass* interface = world_->classLocked(name);
            interfaces.push_back(interface != nullptr ? interface->id() : nullptr);
        }
        std::vector<jobjectID> statics;
        for (const FieldSpec& field : cls->spec.statics)
            if (isReference(field))
                statics.push_back(field.value != nullptr ? field.value->id : nullptr);
        dump.classDump(cls->id(), cls->superclass != nullptr ? cls->superclass->id() : nullptr,
                       interfaces, cls->spec.constants, statics);
    }
    for (const ScriptedObject* object : world_->heap) {
        const jobjectID cls = object->cls != nullptr ? object->cls->id() : nullptr;
        if (object->arrayType == JVMPI_NORMAL_OBJECT)
            dump.instance(object->id, cls, idsOf(object->references));
        else if (object->arrayType == JVMPI_CLASS)
            dump.objectArray(object->id, cls, idsOf(object->elements));
        else
            dump.primitiveArray(object->id, object->arrayType, object->length);
    }
    return dump.bytes();
}

} // namespace scripted
