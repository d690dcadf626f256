// A made-up JVM for the sampler's tests: threads with the fields that the bridge reads, described
// by a made-up table, and a stack walker that reports where each thread says it is.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "bridge/ThreadTable.h"
#include "bridge/VmStructs.h"

namespace bridge {

struct FakeOsThread {
    int padding = 0;
    int state = 2;
    int threadId = 0;
};

struct FakeJavaThread {
    void* padding = nullptr;
    FakeOsThread* osThread = nullptr;
    int threadState = VmStructs::kInNative;
    const void* functions = &functionTable; // the start of the JNIEnv
    // For the fake walker:
    std::atomic<std::uintptr_t> place{1}; // the method that it runs
    std::atomic<int> walkResult{1};       // frames, or an error code
    std::atomic<int> walks{0};
    FakeOsThread os;

    static inline int functionTable = 0;

    FakeJavaThread() { osThread = &os; }
    JNIEnv* env() { return reinterpret_cast<JNIEnv*>(&functions); }
    static FakeJavaThread& of(JNIEnv* env) {
        return *reinterpret_cast<FakeJavaThread*>(reinterpret_cast<char*>(env) -
                                                  offsetof(FakeJavaThread, functions));
    }
    void setState(int state) { __atomic_store_n(&threadState, state, __ATOMIC_RELAXED); }
    void setOsState(int state) { __atomic_store_n(&os.state, state, __ATOMIC_RELAXED); }
};

inline jmethodID methodAt(std::uintptr_t place) { return reinterpret_cast<jmethodID>(place); }

inline void fakeWalk(JVMPI_CallTrace* trace, jint depth, void*) {
    FakeJavaThread& thread = FakeJavaThread::of(trace->env_id);
    thread.walks++;
    trace->num_frames = std::min(thread.walkResult.load(), depth);
    for (jint i = 0; i < trace->num_frames; i++) {
        trace->frames[i] = {i, methodAt(thread.place + static_cast<std::uintptr_t>(i) * 1000)};
    }
}

// The exported symbols of a made-up libjvm. Entries are laid out in an order of our own.
class FakeSymbols {
public:
    struct Entry {
        std::uint64_t offset;
        void* address;
        const char* field;
        std::int32_t isStatic;
        const char* type;
        const char* text;
    };

    FakeSymbols() {
        set("gHotSpotVMStructEntryTypeNameOffset", offsetof(Entry, type));
        set("gHotSpotVMStructEntryFieldNameOffset", offsetof(Entry, field));
        set("gHotSpotVMStructEntryTypeStringOffset", offsetof(Entry, text));
        set("gHotSpotVMStructEntryIsStaticOffset", offsetof(Entry, isStatic));
        set("gHotSpotVMStructEntryOffsetOffset", offsetof(Entry, offset));
        set("gHotSpotVMStructEntryAddressOffset", offsetof(Entry, address));
        set("gHotSpotVMStructEntryArrayStride", sizeof(Entry));
        add("Universe", "_heap", 0, &heap);
        add("Thread", "_osthread", offsetof(FakeJavaThread, osThread));
        add("OSThread", "_state", offsetof(FakeOsThread, state));
        add("OSThread", "_thread_id", offsetof(FakeOsThread, threadId));
        add("JavaThread", "_thread_state", offsetof(FakeJavaThread, threadState));
    }
    FakeSymbols(const FakeSymbols&) = delete;

    void add(const char* type, const char* field, std::uint64_t offset, void* address = nullptr) {
        entries.push_back({offset, address, field, address ? 1 : 0, type, "int"});
    }
    void remove(const std::string& type, const std::string& field) {
        std::erase_if(entries, [&](const Entry& entry) {
            return entry.type == type && entry.field == field;
        });
    }
    const std::vector<Entry>& all() const { return entries; }
    void set(const std::string& name, std::uint64_t value) { words[name] = value; }

    VmStructs::SymbolLookup lookup() {
        entries.push_back({});
        start = entries.data();
        return [this](const char* name) -> void* {
            if (missing == name) return nullptr;
            if (std::string("gHotSpotVMStructs") == name) return &start;
            if (std::string("AsyncGetCallTrace") == name) {
                return reinterpret_cast<void*>(&fakeWalk);
            }
            const auto word = words.find(name);
            return word == words.end() ? nullptr : &word->second;
        };
    }

    std::vector<Entry> entries;
    Entry* start = nullptr;
    std::map<std::string, std::uint64_t> words;
    std::string missing;
    int heap = 0;
};

// A resolved and verified VmStructs, and a table.
struct FakeVm {
    FakeSymbols symbols;
    VmStructs structs;
    ThreadTable threads;

    FakeVm() {
        FakeJavaThread self;
        self.os.threadId = gettid();
        ready =
            structs.resolve(symbols.lookup()) &&
            structs.verify(self.env(), static_cast<jlong>(reinterpret_cast<std::uintptr_t>(&self)));
    }
    bool ready;
};

} // namespace bridge
