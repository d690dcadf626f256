// A registry of monitored things: a hash set of collectables with its own lock and a one-entry
// cache of the element last found or inserted.
#ifndef PRB_CORE_PRBMONITORHASHTABLE_H
#define PRB_CORE_PRBMONITORHASHTABLE_H

#include "core/PRBHashSet.h"
#include "core/PRBJavaRawMonitor.h"
#include "core/PRBTrace.h"

#include <memory>

enum _SerializationType : int {
    kSelfGuarding = 0,  // the table takes its own raw monitor
    kCallerGuarding = 1 // any other value: the caller guards it, the table has no monitor
};

// Elements define hash and isEqual on their identifier, so a look-up uses a temporary probe that
// carries only the identifier. The event stream touches the same element many times in a row;
// `find` therefore tests the element last touched before hashing.
//
// Every operation enters the table's monitor first and exits it last (re-entrant: a thread that
// holds the table through lock() or an iterator may call them).
class PRBMonitorHashTable : public PRBHashSet, public PRBMemoryManager {
public:
    // For a table that each thread has: few of its methods are ever seen, and thousands of threads
    // with room for two thousand each would need more memory than all else together.
    static constexpr std::size_t kThreadBuckets = 16;

    // `buckets`: those of the first insertion; they double from there.
    PRBMonitorHashTable(const char* name, JVMPI_Interface* jvmpi,
                        _SerializationType serialization = kSelfGuarding,
                        std::size_t buckets = kInitialBuckets);
    ~PRBMonitorHashTable(); // forgets the elements, destroys the monitor

    PRBCollectable* find(const PRBCollectable* key) const;
    PRBCollectable* insert(PRBCollectable* item); // set semantics, as PRBHashSet
    PRBCollectable* remove(const PRBCollectable* key);
    bool removeAndDestroy(const PRBCollectable* key);
    void clearAndDestroy();
    std::size_t entries() const;

    // For a holder of the table who knows its elements, as PRBHashSet: the monitor is not entered
    // once more. They use and keep the element last touched as find, insert and remove do.
    template <typename Matches>
    PRBCollectable* findHeld(std::uint32_t hash, const Matches& matches) const {
        PRBTraceScope trace(kTraceClass, PRBComponent::kMonitorGlobal, kFind);
        if (lastFound != nullptr && matches(lastFound)) return lastFound;
        PRBCollectable* found = findWith(hash, matches);
        if (found != nullptr) lastFound = found;
        return found;
    }
    template <typename Matches, typename Make>
    Inserted insertHeld(std::uint32_t hash, const Matches& matches, const Make& make) {
        PRBTraceScope trace(kTraceClass, PRBComponent::kMonitorGlobal, kInsert);
        if (detached != nullptr && !inPause) reclaim(kReclaimStep);
        const Inserted inserted = insertWith(hash, matches, make);
        lastFound = inserted.element;
        return inserted;
    }
    template <typename Matches>
    PRBCollectable* removeHeld(std::uint32_t hash, const Matches& matches) {
        PRBTraceScope trace(kTraceClass, PRBComponent::kMonitorGlobal, kRemove);
        PRBCollectable* removed = removeWith(hash, matches);
        if (lastFound == removed) lastFound = nullptr;
        return removed;
    }
    std::size_t entriesHeld() const { return PRBHashSet::entries(); }

    // Holds the monitor until destroyIterator, which must run on the same thread.
    Iterator* getIterator();
    void destroyIterator(Iterator* iterator);

    _SerializationType getSerializationType() const { return serializationType; }
    void lock() const;
    void release() const;

    // Between these two, which the holder calls inside a collection pause, nothing detached is
    // deleted. REQUIRES: the table is locked.
    void beginPause() { inPause = true; }
    void endPause() { inPause = false; }
    // Empties the table in constant time, for use inside a collection pause: look-ups find
    // nothing from this moment, and the elements are uncounted; they are deleted later, in
    // bounded steps, by the threads that insert, or by reclaim(). REQUIRES: every element was
    // allocated through PRBMemoryManager with this size.
    void detachAll(std::size_t elementSize);
    // Deletes up to `limit` detached elements; false when none is left.
    bool reclaim(std::size_t limit);

private:
    static constexpr int kTraceClass = PRBTraceClass::kMember;
    static constexpr const char* kFind = "PRBMonitorHashTable::find";
    static constexpr const char* kInsert = "PRBMonitorHashTable::insert";
    static constexpr const char* kRemove = "PRBMonitorHashTable::remove";
    // Deleted by each insertion while detached elements are left: more than are inserted, so that
    // a collection's elements are gone before the next one's arrive, and few enough to go
    // unnoticed.
    static constexpr std::size_t kReclaimStep = 64;

    const _SerializationType serializationType;
    std::unique_ptr<PRBJavaRawMonitor> monitor; // null unless self-guarding
    mutable PRBCollectable* lastFound = nullptr;
    Array* detached = nullptr;
    bool inPause = false;
};

// Holds a table for a scope.
class PRBTableLock {
public:
    explicit PRBTableLock(const PRBMonitorHashTable& table) : table_(&table) { table_->lock(); }
    ~PRBTableLock() { release(); }
    PRBTableLock(const PRBTableLock&) = delete;
    PRBTableLock& operator=(const PRBTableLock&) = delete;
    void release() {
        if (table_ != nullptr) table_->release();
        table_ = nullptr;
    }

private:
    const PRBMonitorHashTable* table_;
};

// Walks a table for a scope, holding its monitor.
class PRBTableWalk {
public:
    explicit PRBTableWalk(PRBMonitorHashTable& table)
        : table_(table), iterator_(table.getIterator()) {}
    ~PRBTableWalk() { table_.destroyIterator(iterator_); }
    PRBTableWalk(const PRBTableWalk&) = delete;
    PRBTableWalk& operator=(const PRBTableWalk&) = delete;
    PRBCollectable* operator()() { return (*iterator_)(); }

private:
    PRBMonitorHashTable& table_;
    PRBHashSet::Iterator* iterator_;
};

#endif
