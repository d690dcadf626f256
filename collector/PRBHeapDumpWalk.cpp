#include "collector/PRBHeapDumpWalk.h"

#include "core/PRBArena.h"
#include "core/PRBLookup.h"
#include "core/PRBRegistryLocks.h"
#include "core/PRBTrace.h"
#include "core/PRBVm.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

constexpr unsigned kHeapTables =
    PRBRegistryLocks::kClass | PRBRegistryLocks::kArena | PRBRegistryLocks::kObject;

// How many records ahead of the one looked at memory is asked for: the cells of the table, and
// the object that they lead to.
constexpr std::size_t kCellsAhead = 32;
constexpr std::size_t kObjectsAhead = 16;

std::uint32_t idAt(const char* record) {
    std::uint32_t id;
    std::memcpy(&id, record + 1, sizeof id);
    return id;
}

} // namespace

PRBHeapDumpWalk::PRBHeapDumpWalk(PRBMonitorHashTable& classes, PRBMonitorHashTable& arenas,
                                 PRBMonitorHashTable& objects, unsigned generation,
                                 std::uint32_t asked)
    : classes_(classes),
      arenas_(arenas),
      objects_(objects),
      generation_(generation),
      asked_(asked) {
    unknown_.reserve(kBatch);
    told_.reserve(kBatch);
}

void PRBHeapDumpWalk::records(const char* at, const char* end) {
    beginFigures();
    while (end - at >= kRecord) {
        const std::ptrdiff_t n = std::min((end - at) / kRecord, kBatch);
        countKnown(at, at + n * kRecord);
        at += n * kRecord;
        if (unknown_.empty()) continue;
        // The ids stay those of the dump until their records are made.
        PRBVm::GcDisabled gcDisabled;
        askForUnknown();
        learnClasses();
        recordTold();
    }
    sweep();
}

void PRBHeapDumpWalk::beginFigures() {
    PRBRegistryLocks locks(kHeapTables);
    PRBTableWalk walk(classes_);
    while (auto* cls = static_cast<PRBJavaClass*>(walk())) cls->dumpBegins();
}

// From here on the live objects are those of the dump.
void PRBHeapDumpWalk::endFigures() {
    PRBTableWalk walk(classes_);
    while (auto* cls = static_cast<PRBJavaClass*>(walk())) cls->dumpEnds();
}

// The tables' own finds: the locks are held, and no object of a dump is asked for twice.
void PRBHeapDumpWalk::countKnown(const char* at, const char* end) {
    unknown_.clear();
    PRBRegistryLocks locks(kHeapTables);
    const auto n = static_cast<std::size_t>((end - at) / kRecord);
    count_ += static_cast<int>(n);
    const auto idOf = [at](std::size_t i) { return idAt(at + i * std::size_t{kRecord}); };
    const auto hashAt = [&idOf](std::size_t i) { return hashOf(idOf(i)); };
    PRBCollectable* ahead[kObjectsAhead];
    for (std::size_t i = 0; i < n + kObjectsAhead; ++i) {
        if (i + kCellsAhead < n) objects_.prefetchCells(hashAt(i + kCellsAhead));
        PRBCollectable*& slot = ahead[i % kObjectsAhead];
        if (i >= kObjectsAhead) countOne(idOf(i - kObjectsAhead), slot);
        if (i < n) {
            slot = objects_.firstOfHash(hashAt(i));
            __builtin_prefetch(slot, 1);
        }
    }
    settle();
}

// `candidate`: the first object of the id's hash; nearly always the one.
void PRBHeapDumpWalk::countOne(std::uint32_t id, PRBCollectable* candidate) {
    if (id == 0) return;
    const PRBJavaObjectAllocated::HasId isIt{toId(id)};
    if (candidate != nullptr && !isIt(candidate)) candidate = objects_.findWith(hashOf(id), isIt);
    if (candidate != nullptr)
        count(static_cast<PRBJavaObjectAllocated&>(*candidate));
    else
        unknown_.push_back(id);
}

void PRBHeapDumpWalk::askForUnknown() {
    told_.clear();
    PRBHeapDumpReplay replay(told_);
    for (std::uint32_t id : unknown_) {
        const jint answer = PRBVm::requestEvent(JVMPI_EVENT_OBJECT_ALLOC, toId(id));
        if (answer != JVMPI_SUCCESS)
            PRBLookup::logRequestFailure("getObject", "JVMPI_EVENT_OBJECT_ALLOC", answer);
    }
}

// Classes that no load event has made known are asked for before the tables are taken.
void PRBHeapDumpWalk::learnClasses() {
    std::vector<jobjectID> missing;
    {
        PRBRegistryLocks locks(kHeapTables);
        for (const PRBHeapDumpReplay::Object& told : told_)
            if (told.cls != nullptr && classOf(told.cls) == nullptr) missing.push_back(told.cls);
        known_.clear();
    }
    std::sort(missing.begin(), missing.end());
    missing.erase(std::unique(missing.begin(), missing.end()), missing.end());
    for (jobjectID cls : missing) PRBLookup::getClassForClassID(cls);
}

void PRBHeapDumpWalk::recordTold() {
    PRBRegistryLocks locks(kHeapTables);
    // Records that the last collection put aside make room for as many.
    objects_.reclaim(2 * told_.size());
    const std::size_t n = told_.size();
    for (std::size_t i = 0; i < n; ++i) {
        if (i + kCellsAhead < n)
            objects_.prefetchCells(PRBJavaObjectAllocated::hashOf(told_[i + kCellsAhead].id));
        if (told_[i].id != nullptr) record(told_[i]);
    }
    settle();
}

void PRBHeapDumpWalk::record(const PRBHeapDumpReplay::Object& told) {
    PRBJavaClass* cls = classOf(told.cls);
    PRBHashSet::Inserted stored{nullptr, false};
    if (objects_.entriesHeld() < mostRecords.load(std::memory_order_relaxed))
        stored = objects_.insertWith(
            PRBJavaObjectAllocated::hashOf(told.id), PRBJavaObjectAllocated::HasId{told.id},
            [&]() -> PRBCollectable* {
                auto* made = new PRBJavaObjectAllocated(arenaOf(told.arena), cls, told.isArray,
                                                        told.size, told.id, told.thread);
                if (made != nullptr) made->setBorn(asked_);
                return made;
            });
    auto* object = static_cast<PRBJavaObjectAllocated*>(stored.element);
    if (object == nullptr) {
        if (cls != nullptr) tally(cls, told.size);
        return;
    }
    if (!stored.isNew) // known meanwhile, or told twice
        object->update(arenaOf(told.arena), cls, told.isArray, told.size, told.thread);
    count(*object);
}

const PRBArena* PRBHeapDumpWalk::arenaOf(jint id) {
    if (!hasLastArena_ || lastArenaId_ != id) {
        lastArena_ = static_cast<const PRBArena*>(
            arenas_.findWith(PRBArena::hashOf(id), PRBArena::HasId{id}));
        lastArenaId_ = id;
        hasLastArena_ = true;
    }
    return lastArena_;
}

// Once per object, however often the dump names it.
void PRBHeapDumpWalk::count(PRBJavaObjectAllocated& object) {
    if (object.getHeapScanCount() == generation_) return;
    object.setHeapScanCount(generation_);
    ++marked_;
    if (object.getClass() != nullptr) tally(object.getClass(), object.getSize());
}

// An object's decision is its class's.
void PRBHeapDumpWalk::tally(PRBJavaClass* cls, int size) {
    Tally* row = tallies_.find(cls);
    if (row == nullptr)
        row = &tallies_.add({cls, cls->shouldBeMonitored() == PRBMonitored::kMonitor, 0, 0});
    if (!row->monitored) return;
    ++row->objects;
    row->bytes += size;
}

void PRBHeapDumpWalk::settle() {
    for (const Tally& row : tallies_.rows())
        if (row.objects != 0) row.key->foundInDump(row.objects, row.bytes);
    tallies_.clear();
    known_.clear();
    hasLastArena_ = false;
}

PRBJavaClass* PRBHeapDumpWalk::classOf(jobjectID id) {
    if (id == nullptr) return nullptr;
    if (const Known* row = known_.find(id)) return row->cls;
    auto* cls = static_cast<PRBJavaClass*>(
        classes_.findWith(PRBJavaClass::hashOf(id), PRBJavaClass::HasId{id}));
    if (cls != nullptr) known_.add({id, cls});
    return cls;
}

// Objects of the table that the dump did not name leave it, but for those that were allocated
// since the dump was asked for: they may be younger than the dump. When as many carry the
// generation as there are, none is looked at.
void PRBHeapDumpWalk::sweep() {
    PRBRegistryLocks locks(kHeapTables);
    if (PRBTrace::isDebugEnabled(PRBComponent::kCollector))
        PRBTrace::log("handleHeapDmp: iObjCount = %i", count_);
    endFigures();
    if (objects_.entriesHeld() == marked_) return;
    PRBTableWalk walk(objects_);
    while (auto* object = static_cast<PRBJavaObjectAllocated*>(walk()))
        if (object->getHeapScanCount() != generation_ && object->isOlderThan(asked_))
            objects_.removeAndDestroy(object);
}
