#include "collector/PRBHeapDumpHandler.h"
#include "collector/PRBHeapDumpReplay.h"
#include "core/PRBArena.h"
#include "core/PRBEventHandlers.h"
#include "core/PRBGarbageCollectionStats.h"
#include "core/PRBHeapDumpRegistration.h"
#include "core/PRBLookup.h"
#include "core/PRBObjectRecords.h"
#include "core/PRBRegistryLocks.h"
#include "core/PRBTrace.h"
#include "runtime/PRBJavaClass.h"
#include "runtime/PRBJavaObjectAllocated.h"
#include "runtime/PRBJavaThread.h"
#include "runtime/PRBThreadSnapshot.h"

#include <atomic>

namespace {

using Locks = PRBRegistryLocks;
constexpr int kFrequent = PRBTraceClass::kFrequent;
constexpr int kMain = PRBTraceClass::kMain;
constexpr const char* kName = PRBComponent::kMonitorGlobal;
constexpr unsigned kObjectLocks = Locks::kClass | Locks::kArena | Locks::kObject;

std::atomic<bool> boundLogged{false};

// With the registry held.
PRBJavaClass* peekClass(jobjectID id) {
    if (id == nullptr) return nullptr;
    return static_cast<PRBJavaClass*>(
        PRBContext::getClassTable()->findHeld(PRBJavaClass::hashOf(id), PRBJavaClass::HasId{id}));
}

const PRBArena* peekArena(jint id) {
    return static_cast<const PRBArena*>(
        PRBContext::getArenaTable()->findHeld(PRBArena::hashOf(id), PRBArena::HasId{id}));
}

PRBJavaObjectAllocated* takeObject(jobjectID id) {
    return static_cast<PRBJavaObjectAllocated*>(PRBContext::getObjectTable()->removeHeld(
        PRBJavaObjectAllocated::hashOf(id), PRBJavaObjectAllocated::HasId{id}));
}

bool haveTables() { return PRBContext::getObjectTable() != nullptr; }

void logBound(std::size_t most) {
    if (!boundLogged.exchange(true))
        PRBTrace::log("Allocation records have reached %i, further allocations are counted "
                      "without a record",
                      static_cast<int>(most));
}

// True when the allocation is news: the object was not known.
bool recordAllocation(const JVMPI_Event* event, PRBJavaClass* cls) {
    const auto& alloc = event->u.obj_alloc;
    PRBMonitorHashTable& objects = *PRBContext::getObjectTable();
    const PRBArena* arena = peekArena(alloc.arena_id);
    const std::uint32_t hash = PRBJavaObjectAllocated::hashOf(alloc.obj_id);
    const PRBJavaObjectAllocated::HasId isIt{alloc.obj_id};
    const std::size_t most = PRBObjectRecords::most.load(std::memory_order_relaxed);
    PRBCollectable* known = nullptr;
    if (objects.entriesHeld() >= most) {
        known = objects.findHeld(hash, isIt);
        if (known == nullptr) logBound(most);
    } else {
        const auto inserted = objects.insertHeld(hash, isIt, [&]() -> PRBCollectable* {
            auto* made = new PRBJavaObjectAllocated(arena, cls, alloc.is_array, alloc.size,
                                                    alloc.obj_id, event->env_id);
            if (made != nullptr) made->setBorn(PRBObjectRecords::now());
            return made;
        });
        if (!inserted.isNew) known = inserted.element;
    }
    if (known == nullptr) return true;
    static_cast<PRBJavaObjectAllocated*>(known)->update(arena, cls, alloc.is_array, alloc.size,
                                                        event->env_id);
    return false;
}

} // namespace

void PRBEventHandlers::HandleObjectAlloc(JVMPI_Event* event) {
    PRBTraceScope trace(kFrequent, kName, "PRBMonitorGlobal::HandleObjectAlloc");
    const auto& alloc = event->u.obj_alloc;
    if (alloc.obj_id == nullptr || !haveTables()) return;
    if (PRBHeapDumpReplay* replay = PRBHeapDumpReplay::ofCaller()) return replay->take(*event);
    bool news = false;
    for (bool asked = false;; asked = true) {
        Locks locks(kObjectLocks);
        PRBJavaClass* cls = peekClass(alloc.class_id);
        if (cls == nullptr && alloc.class_id != nullptr && !asked) {
            locks.release();
            PRBLookup::getClassForClassID(alloc.class_id); // calls the VM
            continue;
        }
        news = recordAllocation(event, cls);
        if (news && cls != nullptr) cls->objectCreated(alloc.size);
        break;
    }
    // The thread's own tables come before the registries in the order of locks.
    if (!news) return;
    if (PRBJavaThread* thread = PRBLookup::getThreadClass(event->env_id))
        thread->heapAllocation(alloc.size);
}

void PRBEventHandlers::HandleObjectFree(JVMPI_Event* event) {
    PRBTraceScope trace(kFrequent, kName, "PRBMonitorGlobal::HandleObjectFree");
    if (!haveTables()) return;
    PRBGarbageCollectionStats::instance().objectFreed();
    // The record's class stays as long as it does, and its figures are under the object registry.
    Locks locks(Locks::kObject);
    PRBJavaObjectAllocated* object = takeObject(event->u.obj_free.obj_id);
    if (object == nullptr) return;
    if (object->getClass() != nullptr) object->getClass()->objectFreed(object->getSize());
    if (JNIEnv* env = object->getAllocatingThread()) {
        PRBThreadSnapshot::Reader threads;
        if (PRBJavaThread* thread = threads.findLive(env)) thread->heapFree(object->getSize());
    }
    delete object;
}

void PRBEventHandlers::HandleObjectMove(JVMPI_Event* event) {
    PRBTraceScope trace(kFrequent, kName, "PRBMonitorGlobal::HandleObjectMove");
    if (!haveTables()) return;
    const auto& move = event->u.obj_move;
    PRBGarbageCollectionStats::instance().objectMoved();
    if (move.obj_id == nullptr || move.new_obj_id == nullptr) return;
    Locks locks(kObjectLocks);
    PRBMonitorHashTable& objects = *PRBContext::getObjectTable();
    if (PRBJavaObjectAllocated* object = takeObject(move.obj_id)) {
        delete takeObject(move.new_obj_id);
        object->setNewId(move.new_obj_id);
        object->setNewArena(peekArena(move.new_arena_id));
        if (object->getClass() != nullptr) object->getClass()->objectMoved();
        if (objects.insert(object) != object) delete object;
    }
    // Classes are objects too.
    PRBMonitorHashTable& classes = *PRBContext::getClassTable();
    PRBJavaClass classFrom(move.obj_id);
    if (auto* cls = static_cast<PRBJavaClass*>(classes.remove(&classFrom))) {
        cls->setNewId(move.new_obj_id);
        classes.insert(cls);
    }
}

void PRBEventHandlers::HandleHeapDump(JVMPI_Event* event) {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::HandleHeapDump");
    PRBHeapDumpRegistration* registration =
        PRBHeapDumpRegistration::installed.load(std::memory_order_acquire);
    if (registration == nullptr) return;
    if (PRBHeapDumpHandler* handler = registration->forCaller()) handler->handleHeapDump(event);
}

void PRBEventHandlers::HandleArenaNew(JVMPI_Event* event) {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::HandleArenaNew");
    PRBMonitorHashTable* arenas = PRBContext::getArenaTable();
    if (arenas == nullptr) return;
    auto* arena = new PRBArena(event->u.new_arena.arena_id, event->u.new_arena.arena_name);
    if (arena != nullptr && arenas->insert(arena) != arena) delete arena;
}

void PRBEventHandlers::HandleArenaDelete(JVMPI_Event* event) {
    PRBTraceScope trace(kMain, kName, "PRBMonitorGlobal::HandleArenaDelete");
    if (!haveTables()) return;
    Locks locks(Locks::kArena | Locks::kObject);
    PRBArena probe(event->u.delete_arena.arena_id, nullptr);
    PRBCollectable* arena = PRBContext::getArenaTable()->remove(&probe);
    if (arena == nullptr) return;
    PRBTableWalk walk(*PRBContext::getObjectTable());
    while (PRBCollectable* item = walk()) {
        auto* object = static_cast<PRBJavaObjectAllocated*>(item);
        if (object->getArena() == arena) object->setNewArena(nullptr);
    }
    delete arena;
}
