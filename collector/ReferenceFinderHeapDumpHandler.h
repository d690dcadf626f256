// Which objects of a heap hold a reference to any of some targets: a walk over the records of a
// heap dump of level 1.
#ifndef PRB_COLLECTOR_REFERENCEFINDERHEAPDUMPHANDLER_H
#define PRB_COLLECTOR_REFERENCEFINDERHEAPDUMPHANDLER_H

#include "collector/PRBIdSet.h"
#include "collector/PRBWorkloadCollector.h"
#include "core/PRBCollections.h"

#include <cstdint>

// Lives on the requesting thread's stack for one request; fields are borrowed. Every step is
// checked against the end of the dump: a record that reaches past it ends the walk, and what was
// found so far stays. Holds no lock during the walk; a class dump looks its class up, which may
// ask the VM for the class.
class PRBWorkloadCollector::ReferenceFinderHeapDumpHandler : public PRBHeapDumpHandler {
public:
    // One object that refers to a target.
    class FoundReferenceObject : public PRBCollectable {
    public:
        explicit FoundReferenceObject(jobjectID id) : id_(id) {}
        std::uint16_t isA() const override { return 32677; }
        jobjectID getId() const { return id_; }

    private:
        jobjectID id_;
    };

    ReferenceFinderHeapDumpHandler(JNIEnv* env, PRBWorkloadCollector* collector,
                                   PRBCollection* results, jobjectID* targets, int count);

    void handleHeapDump(JVMPI_Event* event) override;
    bool testObjectID(jobjectID id) const { return targets_.contains(idBits(id)); }
    void addNew(jobjectID id); // at the end of the results

    static std::uint16_t convertToLittleEndian(std::uint16_t value) {
        return __builtin_bswap16(value);
    }
    static std::uint32_t convertToLittleEndian(std::uint32_t value) {
        return __builtin_bswap32(value);
    }

private:
    class Cursor; // the position in a dump
    // Ids are 4 bytes in a dump on every platform.
    static std::uint32_t idBits(jobjectID id) {
        return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(id));
    }

    // Each answers whether the walk goes on.
    bool walkRecord(unsigned tag, Cursor& at);
    bool walkClass(Cursor& at);
    bool walkReferences(Cursor& at, std::uint64_t bytes);
    bool walkPrimitiveArray(Cursor& at);

    [[maybe_unused]] JNIEnv* env_; // of the requesting thread, and who asked: for a debugger
    [[maybe_unused]] PRBWorkloadCollector* collector_;
    PRBCollection* results_;
    PRBIdSet targets_;

    // Where the last class dumps began, for a debugger that looks at a walk gone wrong.
    static constexpr unsigned kClassTrail = 100;
    const char* classTrail_[kClassTrail] = {};
    unsigned nextInTrail_ = 0;
};

#endif
