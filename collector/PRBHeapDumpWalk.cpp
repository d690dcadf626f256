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

// How many records ahead of the one looked at memory is asked for.
constexpr std::ptrdiff_t kCellAhead = 16;
constexpr std::ptrdiff_t kElementAhead = 8;

std::uint32_t idAt(const char* record) {
    std::uint32_t id;
    std::memcpy(&id, record + 1, sizeof id);
    return id;
}

} // namespace

PRBHeapDumpWalk::PRBHeapDumpWalk(PRBMonitorHashTable& classes, PRBMonitorHashTable& arenas,
                                 PRBMonitorHashTable& objects, unsigned generation)
    : classes_(classes), arenas_(arenas), objects_(objects), generation_(generation) {
    unknown_.reserve(kBatch);
    told_.reserve(kBatch);
}

void PRBHeapDumpWalk::records(const char* at, const char* end) {
    forgetLiveFigures();
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

void PRBHeapDumpWalk::forgetLiveFigures() {
    PRBRegistryLocks locks(kHeapTables);
    PRBTableWalk walk(classes_);
    while (auto* cls = static_cast<PRBJavaClass*>(walk())) cls->resetLive();
}

// The tables' own finds: the locks are held, and no object of a dump is asked for twice.
void PRBHeapDumpWalk::countKnown(const char* at, const char* end) {
    unknown_.clear();
    PRBRegistryLocks locks(kHeapTables);
    for (; at != end; at += kRecord) {
        if (end - at > kCellAhead * kRecord)
            objects_.prefetchCell(hashOf(toId(idAt(at + kCellAhead * kRecord))));
        if (end - at > kElementAhead * kRecord)
            objects_.prefetchElement(hashOf(toId(idAt(at + kElementAhead * kRecord))));
        ++count_;
        const std::uint32_t id = idAt(at);
        if (id == 0) continue;
        probe_.setNewId(toId(id));
        auto* object = static_cast<PRBJavaObjectAllocated*>(objects_.PRBHashSet::find(&probe_));
        if (object != nullptr)
            count(*object);
        else
            unknown_.push_back(id);
    }
    settle();
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
        if (i + kCellAhead < n) objects_.prefetchCell(hashOf(told_[i + kCellAhead].id));
        if (told_[i].id != nullptr) record(told_[i]);
    }
    settle();
}

void PRBHeapDumpWalk::record(const PRBHeapDumpReplay::Object& told) {
    PRBJavaClass* cls = classOf(told.cls);
    PRBJavaObjectAllocated* made = nullptr;
    PRBJavaObjectAllocated* stored = nullptr;
    if (objects_.PRBHashSet::entries() < mostRecords.load(std::memory_order_relaxed))
        made = new PRBJavaObjectAllocated(arenaOf(told.arena), cls, told.isArray, told.size,
                                          told.id, told.thread);
    if (made != nullptr)
        stored = static_cast<PRBJavaObjectAllocated*>(objects_.PRBHashSet::insert(made));
    if (stored == nullptr) {
        delete made;
        if (cls != nullptr) tally(cls, told.size);
        return;
    }
    if (stored != made) { // known meanwhile, or told twice
        stored->update(made->getArena(), cls, told.isArray, told.size, told.thread);
        delete made;
    }
    count(*stored);
}

const PRBArena* PRBHeapDumpWalk::arenaOf(jint id) {
    if (!hasLastArena_ || lastArenaId_ != id) {
        PRBArena probe(id, nullptr);
        lastArena_ = static_cast<const PRBArena*>(arenas_.PRBHashSet::find(&probe));
        lastArenaId_ = id;
        hasLastArena_ = true;
    }
    return lastArena_;
}

std::uint32_t PRBHeapDumpWalk::hashOf(jobjectID id) {
    ahead_.setNewId(id);
    return ahead_.hash();
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
        if (row.objects != 0) row.key->objectsFound(row.objects, row.bytes);
    tallies_.clear();
    known_.clear();
    hasLastArena_ = false;
}

PRBJavaClass* PRBHeapDumpWalk::classOf(jobjectID id) {
    if (id == nullptr) return nullptr;
    if (const Known* row = known_.find(id)) return row->cls;
    PRBJavaClass probe(id);
    auto* cls = static_cast<PRBJavaClass*>(classes_.PRBHashSet::find(&probe));
    if (cls != nullptr) known_.add({id, cls});
    return cls;
}

// Objects of the table that the dump did not name leave it. When as many carry the generation as
// there are, none is looked at.
void PRBHeapDumpWalk::sweep() {
    PRBRegistryLocks locks(kHeapTables);
    if (PRBTrace::isDebugEnabled(PRBComponent::kCollector))
        PRBTrace::log("handleHeapDmp: iObjCount = %i", count_);
    if (objects_.PRBHashSet::entries() == marked_) return;
    PRBTableWalk walk(objects_);
    while (auto* object = static_cast<PRBJavaObjectAllocated*>(walk()))
        if (object->getHeapScanCount() != generation_) objects_.removeAndDestroy(object);
}
