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

PRBJavaClass* peekClass(jobjectID id) {
    if (id == nullptr) return nullptr;
    PRBJavaClass probe(id);
    return static_cast<PRBJavaClass*>(PRBContext::getClassTable()->find(&probe));
}

const PRBArena* peekArena(jint id) {
    PRBArena probe(id, nullptr);
    return static_cast<const PRBArena*>(PRBContext::getArenaTable()->find(&probe));
}

bool haveTables() { return PRBContext::getObjectTable() != nullptr; }

// True when the allocation is news: the object was not known.
bool recordAllocation(const JVMPI_Event* event, PRBJavaClass* cls) {
    const auto& alloc = event->u.obj_alloc;
    PRBMonitorHashTable& objects = *PRBContext::getObjectTable();
    const PRBArena* arena = peekArena(alloc.arena_id);
    PRBJavaObjectAllocated probe(alloc.obj_id);
    if (auto* known = static_cast<PRBJavaObjectAllocated*>(objects.find(&probe))) {
        known->update(arena, cls, alloc.is_array, alloc.size, event->env_id);
        return false;
    }
    const std::size_t most = PRBObjectRecords::most.load(std::memory_order_relaxed);
    if (objects.entries() >= most) {
        if (!boundLogged.exchange(true))
            PRBTrace::log("Allocation records have reached %i, further allocations are counted "
                          "without a record",
                          static_cast<int>(most));
        return true;
    }
    auto* object = new PRBJavaObjectAllocated(arena, cls, alloc.is_array, alloc.size, alloc.obj_id,
                                              event->env_id);
    if (object != nullptr && objects.insert(object) != object) delete object;
    return true;
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
    Locks locks(kObjectLocks);
    PRBJavaObjectAllocated probe(event->u.obj_free.obj_id);
    auto* object =
        static_cast<PRBJavaObjectAllocated*>(PRBContext::getObjectTable()->remove(&probe));
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
    PRBJavaObjectAllocated from(move.obj_id);
    if (auto* object = static_cast<PRBJavaObjectAllocated*>(objects.remove(&from))) {
        PRBJavaObjectAllocated to(move.new_obj_id);
        objects.removeAndDestroy(&to);
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
