// The state of a scripted VM. Included by the VM's own sources only.
#ifndef PRB_TESTS_VM_SCRIPTEDWORLD_H
#define PRB_TESTS_VM_SCRIPTEDWORLD_H

#include "tests/vm/ScriptedVm.h"

#include <condition_variable>
#include <cstdio>
#include <deque>
#include <unordered_map>
#include <unordered_set>

namespace scripted {

// What a JNI reference points to. The first word is the object's id, as in a VM whose
// references are handles; the low two bits of the reference itself say its kind.
struct Ref {
    enum Kind : std::uintptr_t { kLocal = 0, kWeak = 1, kGlobal = 2 };

    std::uintptr_t word = 0;
    ScriptedObject* object = nullptr;
    ScriptedThread* owner = nullptr; // of a local reference
    Kind kind = kLocal;
    bool live = false;
    bool byTest = false; // not counted against a frame's capacity

    jobject handle() {
        return reinterpret_cast<jobject>(reinterpret_cast<std::uintptr_t>(this) | kind);
    }
};

struct LocalFrame {
    enum Kind { kPushed, kNative, kInEvent, kBase };
    Kind kind = kPushed;
    jint capacity = 16;
    std::vector<Ref*> refs;
};

// An environment. The base is what the agent sees.
struct Env : JNIEnv_ {
    ScriptedThread* thread = nullptr;
    bool restricted = false;
    std::vector<LocalFrame> frames; // used by its thread; guarded by World::mutex
    ScriptedObject* pending = nullptr;
};

struct World {
    explicit World(ScriptedVm& owner);

    ScriptedVm& vm;
    mutable std::mutex mutex; // guards all that follows; never held while foreign code runs

    // tables
    JVMPI_Interface jvmpi{};
    JNINativeInterface_ jni{};
    JNINativeInterface_ restrictedJni{};
    JNIInvokeInterface_ invoke{};
    JavaVM_ javaVm{};
    jint jvmpiRefusal = 0;

    // events
    std::set<jint> enabled;
    std::set<jint> unsupported;

    // threads
    std::deque<std::unique_ptr<Env>> envs;
    std::unordered_map<const JNIEnv*, Env*> envOf;
    std::deque<std::unique_ptr<ScriptedThread>> threads;
    ScriptedThread* main = nullptr;
    ScriptedThread* collector = nullptr;
    Env restricted{};
    std::condition_variable systemThreadEnded;
    int systemThreadsRunning = 0;
    SystemThreads systemMode = SystemThreads::kRun;
    std::vector<SystemThread> systemThreads;
    bool realSuspension = false;
    std::atomic<bool> realCpuClock{false};

    // classes and objects
    std::deque<std::unique_ptr<ScriptedClass>> classes;
    std::map<std::string, ScriptedClass*> classByName;
    std::set<std::string> hiddenClasses;
    std::vector<ScriptedMethod*> methods; // by number
    std::deque<std::unique_ptr<ScriptedObject>> objects;
    std::unordered_map<jobjectID, ScriptedObject*> objectById;
    std::uintptr_t nextId = 0x10000;
    std::map<std::string, std::string> properties;

    // references
    std::deque<std::unique_ptr<Ref>> refs;
    std::unordered_set<const Ref*> knownRefs;
    std::deque<Ref*> deadRefs; // used again when there are many, oldest first
    std::vector<Ref*> globals;
    bool checkCapacity = true;
    std::map<const void*, std::string> borrowed; // characters and elements not yet released
    struct JavaLock {
        ScriptedThread* owner;
        int depth;
    };
    std::map<const ScriptedObject*, JavaLock> javaLocks;
    std::string exceptionLeft;

    // heap
    jlong heapSize = 64 * 1024 * 1024;
    std::vector<ScriptedObject*> heap;
    std::deque<GcPlan> plans;
    int gcDisabled = 0;
    bool gcEnvRestricted = false;
    std::atomic<jlong> restrictedAnswer{0};
    std::map<jint, std::vector<char>> dumps;
    std::function<void()> dumpHook;

    // ---- operations; those named ...Locked need the mutex ----
    void attachLocked(ScriptedThread& thread, const ScriptedThread* reuseEnvOf);
    void playSystemThread(std::size_t index);
    ScriptedObject& addObjectLocked(ScriptedObject::Kind kind, ScriptedClass* cls);
    ScriptedObject& addObject(ScriptedObject::Kind kind, ScriptedClass* cls);
    jobjectID newIdLocked();
    jmethodID addMethodLocked(ScriptedMethod* method);
    ScriptedMethod* method(jmethodID id) const; // or null
    void setCollectorEnv(Env* env);
    ScriptedClass* classLocked(const std::string& name) const;
    Ref* newRefLocked(Ref::Kind kind, ScriptedObject* object, ScriptedThread* owner);
    void killRefLocked(Ref* ref);
    // Null, with the reason in `problem`, for what is no usable reference of this thread.
    Ref* refLocked(jobject handle, const ScriptedThread* user, std::string& problem) const;
    void pushFrame(Env& env, LocalFrame::Kind kind, jint capacity);
    // Drops the frames above and including number `depth`; answers how many references that the
    // agent made were alive in them and how many frames were too many.
    void dropFrames(Env& env, std::size_t depth, std::size_t& liveRefs, std::size_t& extraFrames);
    Env* envLocked(const JNIEnv* env) const;
    std::string describe(const void* id) const; // of a jobjectID, for the log
    std::string describe(jmethodID id) const;
    static std::string describe(const ScriptedObject* object);
};

std::string hex(const void* value);

// What the tables need of the inside of a thread.
struct TableAccess {
    static ScriptedThread* thread(ScriptedVm& vm, const JNIEnv* env); // or null
    static Env* env(ScriptedThread& thread) { return thread.env_; }
    static void suspend(ScriptedVm& vm, ScriptedThread& thread);
    static void resume(ScriptedVm& vm, ScriptedThread& thread);
    static bool hasRun(const ScriptedThread& thread);
    static void setStorage(ScriptedThread& thread, void* value);
    // A local reference that the agent makes on the calling thread.
    static jobject newLocal(ScriptedVm& vm, ScriptedObject* object, const char* function);
    static void detach(ScriptedThread& thread) { thread.env_ = nullptr; }
};

// ---- the tables, each filled by its own source ----
void fillJvmpiTable(JVMPI_Interface& table);
void fillJniTable(JNINativeInterface_& table);  // every slot; calls of methods included
void fillJniCalls(JNINativeInterface_& table);  // Call...Method
void fillJniArrays(JNINativeInterface_& table); // strings and arrays
void fillRestrictedTable(JNINativeInterface_& table);
void fillInvokeTable(JNIInvokeInterface_& table);
void addStandardClasses(ScriptedVm& vm);

// Answers a request for an event, on the calling thread.
jint replayEvent(ScriptedVm& vm, jint type, void* arg);
void runCollection(ScriptedVm& vm, const GcPlan& plan);
// CreateSystemThread; 0 or -1.
jint beginSystemThread(ScriptedVm& vm, const char* name, jint priority, void (*body)(void*));
// Real suspension of a thread that has a pthread of its own.
void stopPthread(ScriptedThread& thread);
void continuePthread(ScriptedThread& thread);

// Makes the calling pthread play a thread for the time of a scope.
class Playing {
public:
    explicit Playing(ScriptedThread& thread);
    ~Playing();
    Playing(const Playing&) = delete;
    Playing& operator=(const Playing&) = delete;

private:
    ScriptedThread* before_;
};

// The entry of every JNI function: finds the thread, checks, logs, asks for a fault.
class JniEntry {
public:
    enum Flags : unsigned {
        kNone = 0,
        kFailable = 1,
        kOkWithException = 2, // may be called with an exception pending
    };
    JniEntry(JNIEnv* raw, const char* name, TextRef text, unsigned flags,
             const char* exceptionWhenFailing = nullptr);

    bool failed() const { return verdict_.fail; }
    Verdict verdict() const { return verdict_; }

    // Resolves a reference; null references answer null without a violation.
    ScriptedObject* object(jobject handle);
    // The same for an object of one kind; null is a violation too.
    ScriptedObject* need(jobject handle, ScriptedObject::Kind kind);
    jobject local(ScriptedObject* object); // a new local reference, null for null
    void throwNew(const std::string& cls, const std::string& message);
    void violation(const std::string& text);

private:
    InsideVm inside_;

public:
    Env& env;
    ScriptedVm& vm;
    World& world;
    const char* name;

private:
    Verdict verdict_;
};

} // namespace scripted

#endif
