// One object of the heap, known from its allocation event until the next collection.
#ifndef PRB_RUNTIME_PRBJAVAOBJECTALLOCATED_H
#define PRB_RUNTIME_PRBJAVAOBJECTALLOCATED_H

#include "jvmpi/jvmpi.h"
#include "runtime/PRBJavaObject.h"

#include <cstddef>

class PRBArena;
class PRBJavaClass;

// Kept in "_ObjectTable" by object id; every access is under that registry, and so are making
// one with new and deleting it: their memory comes from a pool that the registry's lock guards.
class PRBJavaObjectAllocated : public PRBJavaObject {
public:
    PRBJavaObjectAllocated() = default;
    explicit PRBJavaObjectAllocated(jobjectID id) : objectId(id) {} // a look-up key
    PRBJavaObjectAllocated(const PRBArena* arena, PRBJavaClass* cls, int isArray, int size,
                           jobjectID id, JNIEnv* thread);

    // Counted by PRBMemoryManager like every object of the agent; null without memory.
    static void* operator new(std::size_t size) noexcept;
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    static void operator delete(void* p, std::size_t size) noexcept;

    // For look-ups in "_ObjectTable" by a holder of it, without a key.
    static std::uint32_t hashOf(jobjectID id) { return foldPointer(id); }
    struct HasId {
        jobjectID id;
        bool operator()(const PRBCollectable* record) const {
            return static_cast<const PRBJavaObjectAllocated*>(record)->objectId == id;
        }
    };

    std::uint16_t isA() const override { return 32742; }
    std::uint32_t hash() const override { return hashOf(objectId); }
    bool isEqual(const PRBCollectable* other) const override;
    // The class's decision, 2 without a class; nothing is stored here.
    int shouldBeMonitored() override;

    const PRBArena* getArena() const { return arena; }
    int getArenaId() const; // 0 without an arena
    void setNewArena(const PRBArena* a) { arena = a; }
    PRBJavaClass* getClass() const { return cls; }
    int getIsArray() const { return isArray; }
    int getSize() const { return size; } // bytes
    jobjectID getObjectId() const { return objectId; }
    // REQUIRES: the record is out of its registry, whose hash the id is.
    void setNewId(jobjectID id) { objectId = id; }
    // May belong to a thread that has ended: a number to look up, not to call.
    JNIEnv* getAllocatingThread() const { return thread; }
    unsigned getHeapScanCount() const { return heapScanCount; }
    void setHeapScanCount(unsigned n) { heapScanCount = n; }
    // PRBObjectRecords::now() at its allocation; numbers wrap.
    bool isOlderThan(std::uint32_t dump) const {
        return static_cast<std::int32_t>(born - dump) < 0;
    }
    void setBorn(std::uint32_t dump) { born = dump; }
    // A second allocation event for an id that is known already.
    void update(const PRBArena* a, PRBJavaClass* c, int array, int bytes, JNIEnv* env);

private:
    const PRBArena* arena = nullptr;
    PRBJavaClass* cls = nullptr;
    int isArray = 0;
    int size = 0;
    jobjectID objectId = nullptr;
    JNIEnv* thread = nullptr;
    unsigned heapScanCount = 0;
    std::uint32_t born = 0; // beside the count: fills the record to 64 bytes on 64 bit
};

#endif
