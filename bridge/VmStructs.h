// What the bridge knows of HotSpot's insides: field offsets and addresses that the VM itself
// exports in its table `gHotSpotVMStructs`, the symbol AsyncGetCallTrace, and the distance between
// a thread's JavaThread and its JNIEnv. Nothing is assumed: what the VM does not name is missing,
// and the bridge then declines to start.
//
// Filled once by resolve() (Agent_OnLoad) and verify() (VMInit or attach); constant afterwards and
// readable by every thread, signal handlers included.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

#include <jni.h>

#include "jvmpi/jvmpi.h"

namespace bridge {

// HotSpot's description of its own fields: an array of entries whose layout the VM exports too.
// The last entry has a null type name. All offsets and the stride are bytes within an entry.
struct VmFieldTable {
    const char* entries = nullptr;
    std::uint64_t typeName = 0;
    std::uint64_t fieldName = 0;
    std::uint64_t isStatic = 0;
    std::uint64_t offset = 0;
    std::uint64_t address = 0;
    std::uint64_t stride = 0;
};

// AsyncGetCallTrace: fills a trace of the calling thread as the signal found it (`context` is a
// ucontext_t). JVMPI_CallTrace has its layout; a frame's lineno then is a bytecode index.
using AsyncGetCallTraceFn = void (*)(JVMPI_CallTrace* trace, jint depth, void* context);

// Where the VM keeps the bounds of its code cache, in which compiled methods, stubs and the
// interpreter lie. Null pointers if the VM does not say.
struct CodeRange {
    const std::uintptr_t* low = nullptr;
    const std::uintptr_t* high = nullptr;
    bool known() const { return low && high; }
    bool contains(std::uintptr_t address) const { return address >= *low && address < *high; }
};

class VmStructs {
public:
    // HotSpot's JavaThread::_thread_state.
    enum ThreadState : int {
        kInNative = 4,
        kInVm = 6,
        kInJava = 8,
        kBlocked = 10,
    };
    // Where a symbol of libjvm is, or null.
    using SymbolLookup = std::function<void*(const char* name)>;

    // Reads the tables of the libjvm.so that is already loaded. False if anything needed is
    // missing: problem() says what. REQUIRES: called once, before any other thread uses this.
    bool resolve();
    // The same with the symbols of `lookup`, which tests make up.
    bool resolve(const SymbolLookup& lookup);

    // Computes the distance between JavaThread and JNIEnv from the calling thread's own pair and
    // checks it and the offsets against what is known: the thread id the VM stores is gettid(),
    // its OS state is "running", its VM state is "in native". `eetop` is the field of that name of
    // the calling thread's java.lang.Thread. False if anything disagrees: problem() says what.
    // REQUIRES: resolve() was true; called by a thread in native code (an agent callback).
    bool verify(JNIEnv* self, jlong eetop);

    // One line on what is missing or wrong; empty when all is well.
    const std::string& problem() const { return problem_; }
    // True after a successful verify().
    bool ready() const { return ready_.load(std::memory_order_acquire); }

    // Any further field that the VM names: its offset, or its address if it is a static one.
    std::optional<std::size_t> fieldOffset(const char* type, const char* field) const;
    void* staticAddress(const char* type, const char* field) const;

    // JavaThread and JNIEnv of a thread, one from the other. REQUIRES: ready().
    void* javaThreadOf(JNIEnv* env) const {
        return reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(env) - envDelta_);
    }
    JNIEnv* envOf(jlong eetop) const {
        return reinterpret_cast<JNIEnv*>(static_cast<std::uintptr_t>(eetop) + envDelta_);
    }
    // True if `env` (got by envOf) calls through the same function table as the environment that
    // verify() was given; every environment of one VM does.
    bool sameFunctions(JNIEnv* env) const;

    // Reads of a live JavaThread. REQUIRES: it cannot end meanwhile: the caller is that thread,
    // holds the thread-list lock, or runs inside a safepoint at which the thread was alive.
    int threadState(const void* javaThread) const { return read(javaThread, threadState_); }
    // OSThread::_thread_id, the kernel's thread id; 0 while the thread has none.
    pid_t osThreadId(const void* javaThread) const;
    // OSThread::_state; -1 while the thread has none.
    int osThreadState(const void* javaThread) const;

    AsyncGetCallTraceFn asyncGetCallTrace() const { return asyncGetCallTrace_; }
    CodeRange codeRange() const { return code_; }

private:
    struct Field {
        const char* type;
        const char* field;
        bool isStatic;
        std::uint64_t offset;
        void* address;
    };
    bool readTable(const SymbolLookup& lookup);
    bool need(const char* type, const char* field, std::size_t& offset);
    bool fail(std::string text);
    std::optional<Field> find(const char* type, const char* field) const;
    Field entryAt(const char* entry) const;
    const char* osThread(const void* javaThread) const;
    // The VM writes these words while we read them; a word is read whole on x86.
    static int read(const void* base, std::size_t offset) {
        return __atomic_load_n(
            reinterpret_cast<const int*>(static_cast<const char*>(base) + offset),
            __ATOMIC_RELAXED);
    }

    VmFieldTable table_;
    AsyncGetCallTraceFn asyncGetCallTrace_ = nullptr;
    CodeRange code_;
    std::size_t osThread_ = 0;    // Thread::_osthread
    std::size_t threadId_ = 0;    // OSThread::_thread_id
    std::size_t osState_ = 0;     // OSThread::_state
    std::size_t threadState_ = 0; // JavaThread::_thread_state
    std::uintptr_t envDelta_ = 0; // bytes from a JavaThread to its JNIEnv
    const void* functions_ = nullptr;
    std::atomic<bool> ready_{false};
    std::string problem_;
};

} // namespace bridge
