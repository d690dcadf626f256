// A loaded class as the VM reported it: names, fields, and what was allocated of it.
#ifndef PRB_RUNTIME_PRBJAVACLASS_H
#define PRB_RUNTIME_PRBJAVACLASS_H

#include "jvmpi/jvmpi.h"
#include "runtime/PRBJavaObject.h"
#include "runtime/PRBSharedText.h"

#include <atomic>

class PRBJavaMethod;

// Built by the class-load handler, kept in "_ClassTable" by class id. Who keeps a pointer to it
// beyond the registry's lock and a PRBReclaimer::Reader lends it first: such a record is never
// deleted, an unloaded class is marked dead; one that only records of objects kept is deleted
// once they are gone (see PRBUnloadedRecords). Statistics are updated by any thread without a
// lock.
class PRBJavaClass : public PRBJavaObject {
public:
    // The type of a field, from the first character of its signature.
    class Field {
    public:
        enum Type : int {
            kBoolean = 0,
            kChar = 1,
            kByte = 2,
            kShort = 3,
            kInt = 4,
            kLong = 5,
            kFloat = 6,
            kDouble = 7,
            kObject = 8,
            kArray = 9
        };
        // Null, empty and unknown signatures leave the type as it is.
        void setType(const char* signature);
        int getType() const { return type; }
        // Bytes that the field takes in a heap dump: a reference is a 4-byte id there. 0 for an
        // unknown type.
        int getLength() const;

    private:
        int type = -1;
    };

    PRBJavaClass() = default;
    explicit PRBJavaClass(JVMPI_Event* event); // a class-load event
    explicit PRBJavaClass(jobjectID id) : classId(id) {}
    ~PRBJavaClass() override;
    PRBJavaClass(const PRBJavaClass&) = delete;
    PRBJavaClass& operator=(const PRBJavaClass&) = delete;

    // For look-ups in "_ClassTable" by a holder of it, without a key.
    static std::uint32_t hashOf(jobjectID id) { return foldPointer(id); }
    struct HasId {
        jobjectID id;
        bool operator()(const PRBCollectable* record) const {
            return static_cast<const PRBJavaClass*>(record)->getClassId() == id;
        }
    };

    std::uint16_t isA() const override { return 32744; }
    std::uint32_t hash() const override { return hashOf(getClassId()); }
    bool isEqual(const PRBCollectable* other) const override;
    int shouldBeMonitored() override; // a dead class answers 1

    const char* getClassName() const { return className.c_str(); }
    const char* getSourceName() const { return sourceName.c_str(); }
    // Stored only while the text is empty: a replayed load does not rename a class.
    void learnNames(const char* name, const char* source);
    // The interfaces and fields, taken only while the class has none of either: a class may be
    // told before the VM knows its members. REQUIRES: the class registry held.
    void learnShape(const JVMPI_Event* event);
    jobjectID getClassId() const { return classId.load(std::memory_order_relaxed); }
    // REQUIRES: the record is out of its registry, whose hash the id is.
    void setNewId(jobjectID id) { classId.store(id, std::memory_order_relaxed); }
    jobjectID getSuperClass() const { return superClass.load(std::memory_order_relaxed); }
    void setSuperClass(jobjectID id) { superClass.store(id, std::memory_order_relaxed); }
    int getNumInterfaces() const { return numInterfaces.load(std::memory_order_acquire); }
    int getNumStaticFields() const { return numStaticFields.load(std::memory_order_acquire); }
    int getNumInstanceFields() const { return numInstanceFields.load(std::memory_order_acquire); }
    // REQUIRES: 0 <= i < the number of fields.
    const Field* getStaticField(int i) const { return &staticFields[i]; }
    const Field* getInstanceField(int i) const { return &instanceFields[i]; }
    const Field* getStaticFields() const { return staticFields; }     // null when none
    const Field* getInstanceFields() const { return instanceFields; } // null when none

    // The figures of its objects are changed and reset under the object registry, which every
    // allocation, free, move and walk of the heap holds; anybody may read them.
    void objectCreated(int size); // bytes
    void objectFreed(int size);
    void objectMoved() { add(moves, 1); }
    void resetStats();
    // A walk of a heap dump counts the class's objects apart, so that events which arrive
    // meanwhile change nothing in what the dump tells; at its end they are the live ones.
    void dumpBegins() { dumpObjects = dumpBytes = 0; }
    void foundInDump(long long n, long long bytes) {
        dumpObjects += n;
        dumpBytes += bytes;
    }
    void dumpEnds();
    long long getNumObjects() const { return liveObjects.load(std::memory_order_relaxed); }
    long long getNumBytes() const { return liveBytes.load(std::memory_order_relaxed); }
    long long getNumAllocations() const { return allocations.load(std::memory_order_relaxed); }
    long long getNumFree() const { return frees.load(std::memory_order_relaxed); }
    long long getNumMove() const { return moves.load(std::memory_order_relaxed); }

    // At unload, under the class registry: never monitored from now on.
    void markDead();
    bool isDead() const { return dead.load(std::memory_order_acquire); }

    // For who keeps the pointer. REQUIRES: the registry held, or a reader since it was found.
    void lend() const {
        if (!lent.load(std::memory_order_relaxed)) lent.store(true, std::memory_order_release);
    }
    bool wasLent() const { return lent.load(std::memory_order_acquire); }

    // For a record in "_ObjectTable", which goes with the next collection's finish at the latest.
    // REQUIRES: the class and the object registry held.
    void lendToObject() const {
        if (!lentToObject.load(std::memory_order_relaxed))
            lentToObject.store(true, std::memory_order_release);
    }
    bool wasLentToObject() const { return lentToObject.load(std::memory_order_acquire); }

    // The class's methods, for its unload. REQUIRES: the method registry held.
    void addMethod(PRBJavaMethod* method);
    PRBJavaMethod* firstMethod() const { return methods; }

private:
    // No other thread writes meanwhile.
    static void add(std::atomic<long long>& figure, long long n) {
        figure.store(figure.load(std::memory_order_relaxed) + n, std::memory_order_relaxed);
    }

    PRBSharedText className;
    PRBSharedText sourceName;
    std::atomic<jobjectID> classId{nullptr};
    std::atomic<jobjectID> superClass{nullptr};
    std::atomic<int> numInterfaces{0};
    Field* staticFields = nullptr;
    Field* instanceFields = nullptr;
    // Set after the fields are.
    std::atomic<int> numStaticFields{0};
    std::atomic<int> numInstanceFields{0};
    std::atomic<long long> liveObjects{0};
    std::atomic<long long> liveBytes{0};
    std::atomic<long long> allocations{0};
    std::atomic<long long> frees{0};
    std::atomic<long long> moves{0};
    long long dumpObjects = 0, dumpBytes = 0; // of the walk in progress
    std::atomic<bool> dead{false};
    mutable std::atomic<bool> lent{false};
    mutable std::atomic<bool> lentToObject{false};
    PRBJavaMethod* methods = nullptr;
};

#endif
