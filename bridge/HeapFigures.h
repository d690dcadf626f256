// How much of the Java heap is in use and how much there is, read from the collector's own
// structures: inside a collection nothing can be asked of Java. The figures are those of
// Runtime.totalMemory() and freeMemory().
//
// Where the figures lie is told by the VM (VmStructs) and differs from collector to collector;
// one row per collector in HeapFigures.cpp. What is found is believed only after verify() has
// compared it with Runtime.
#ifndef PRB_BRIDGE_HEAPFIGURES_H
#define PRB_BRIDGE_HEAPFIGURES_H

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include <jni.h>

#include "bridge/VmFlags.h"
#include "bridge/VmStructs.h"

namespace bridge {

// Bytes; -1 is unknown, and then both are.
struct HeapSpace {
    jlong used = -1;
    jlong total = -1;
    bool known() const { return total >= 0; }
    jlong free() const { return known() ? total - used : -1; }
};

class HeapFigures {
public:
    // What Runtime says.
    using AskRuntime = HeapSpace (*)(void* context);

    // Finds the collector and its structures. False if the VM does not name them.
    // REQUIRES: the heap exists (VMInit); called once, before other threads use this.
    bool find(const VmStructs& vm, const VmFlags& flags);
    // Compares with Runtime. False if they disagree again and again: read() then answers
    // "unknown". REQUIRES: find() was true; no collection can wait for the caller.
    bool verify(AskRuntime ask, void* context);

    // Any thread, collections included. Enters nothing, locks nothing.
    HeapSpace read() const;

    // Which space an address lies in, 0 eden, 1 survivors, 2 old, of a collector that has fixed
    // spaces (Serial, Parallel); -1 for any other and before verify(). As read().
    int spaceOf(const void* address) const;
    // Bytes of a region, of a collector that has regions (G1); 0 for any other.
    jlong regionBytes() const { return slack_; }

    // "Serial", "Parallel", "G1", "Shenandoah", "Z"; empty while unknown. Tells also which
    // collector cannot be read, after find() was false.
    const std::string& collector() const { return collector_; }

private:
    struct Bounds {
        std::size_t bottom = 0;
        std::size_t top = 0;
        std::size_t end = 0;
    };
    HeapSpace readUnchecked() const;
    bool sameTotal(jlong read, jlong known) const;

    // A space lies behind a pointer, because collectors let spaces change places.
    std::vector<const char*> spaces_;
    Bounds bounds_;
    // Words (size_t) whose sums are the figures.
    std::vector<const char*> used_;
    std::vector<const char*> total_;
    jlong slack_ = 0; // bytes of a region, where the figures are counted by regions
    std::string collector_;
    std::atomic<bool> verified_{false};
};

// The process's heap.
HeapFigures& heapFigures();

// Finds and verifies the process's figures. What cannot be had is noted as a limit of this run.
// REQUIRES: VMInit has come; the caller is in native code.
void startHeapFigures(JNIEnv* jni);

} // namespace bridge

#endif
