// The Java VM's profiler interface (JVMPI), version 0x10000001, as the VM declares it.
//
// This header is a binary interface: the order, types and values below are what a VM lays
// out in memory, and no JDK ships a header for it any more. The interface table is 112 bytes
// on 32-bit x86 and 224 on x86-64; tests/unit/jvmpi asserts every offset of both.
//
// Who uses it: the agent (the caller of the table), the bridge and the scripted VM of the
// tests (the two that fill it in).
#ifndef PRB_JVMPI_JVMPI_H
#define PRB_JVMPI_JVMPI_H

#include <jni.h>

// The version to ask JavaVM::GetEnv for.
constexpr jint JVMPI_VERSION_1 = 0x10000001;

// Identity of a heap object, a class object or a thread object. Never dereferenced.
struct _jobjectID;
using jobjectID = _jobjectID*;

// A lock of the VM: re-entrant, usable from every thread and every event.
struct _JVMPI_RawMonitor;
using JVMPI_RawMonitor = _JVMPI_RawMonitor*;

// ---- Events -------------------------------------------------------------------------------

constexpr jint JVMPI_EVENT_METHOD_ENTRY = 1;
constexpr jint JVMPI_EVENT_METHOD_ENTRY2 = 2;
constexpr jint JVMPI_EVENT_METHOD_EXIT = 3;
constexpr jint JVMPI_EVENT_OBJECT_ALLOC = 4;
constexpr jint JVMPI_EVENT_OBJECT_FREE = 5;
constexpr jint JVMPI_EVENT_OBJECT_MOVE = 6;
constexpr jint JVMPI_EVENT_COMPILED_METHOD_LOAD = 7;
constexpr jint JVMPI_EVENT_COMPILED_METHOD_UNLOAD = 8;
constexpr jint JVMPI_EVENT_THREAD_START = 33;
constexpr jint JVMPI_EVENT_THREAD_END = 34;
constexpr jint JVMPI_EVENT_CLASS_LOAD_HOOK = 35;
constexpr jint JVMPI_EVENT_HEAP_DUMP = 37;
constexpr jint JVMPI_EVENT_JNI_GLOBALREF_ALLOC = 38;
constexpr jint JVMPI_EVENT_JNI_GLOBALREF_FREE = 39;
constexpr jint JVMPI_EVENT_JNI_WEAK_GLOBALREF_ALLOC = 40;
constexpr jint JVMPI_EVENT_JNI_WEAK_GLOBALREF_FREE = 41;
constexpr jint JVMPI_EVENT_CLASS_LOAD = 42;
constexpr jint JVMPI_EVENT_CLASS_UNLOAD = 43;
constexpr jint JVMPI_EVENT_DATA_DUMP_REQUEST = 44;
constexpr jint JVMPI_EVENT_DATA_RESET_REQUEST = 45;
constexpr jint JVMPI_EVENT_JVM_INIT_DONE = 46;
constexpr jint JVMPI_EVENT_JVM_SHUT_DOWN = 47;
constexpr jint JVMPI_EVENT_ARENA_NEW = 48;
constexpr jint JVMPI_EVENT_ARENA_DELETE = 49;
constexpr jint JVMPI_EVENT_OBJECT_DUMP = 50;
constexpr jint JVMPI_EVENT_RAW_MONITOR_CONTENDED_ENTER = 51;
constexpr jint JVMPI_EVENT_RAW_MONITOR_CONTENDED_ENTERED = 52;
constexpr jint JVMPI_EVENT_RAW_MONITOR_CONTENDED_EXIT = 53;
constexpr jint JVMPI_EVENT_MONITOR_CONTENDED_ENTER = 54;
constexpr jint JVMPI_EVENT_MONITOR_CONTENDED_ENTERED = 55;
constexpr jint JVMPI_EVENT_MONITOR_CONTENDED_EXIT = 56;
constexpr jint JVMPI_EVENT_MONITOR_WAIT = 57;
constexpr jint JVMPI_EVENT_MONITOR_WAITED = 58;
constexpr jint JVMPI_EVENT_MONITOR_DUMP = 59;
constexpr jint JVMPI_EVENT_GC_START = 60;
constexpr jint JVMPI_EVENT_GC_FINISH = 61;
constexpr jint JVMPI_MAX_EVENT_TYPE_VAL = 61;

// Set in the type of an event that answers a RequestEvent; such an event arrives on the
// requesting thread before RequestEvent returns.
constexpr jint JVMPI_REQUESTED_EVENT = 0x10000000;

// ---- Results, statuses, priorities ----------------------------------------------------------

// Results of EnableEvent, DisableEvent and RequestEvent.
constexpr jint JVMPI_SUCCESS = 0;
constexpr jint JVMPI_NOT_AVAILABLE = 1;
constexpr jint JVMPI_FAIL = -1;

// GetThreadStatus: one of the three states, with the bits or-ed in.
constexpr jint JVMPI_THREAD_RUNNABLE = 1;
constexpr jint JVMPI_THREAD_MONITOR_WAIT = 2; // blocked entering a monitor
constexpr jint JVMPI_THREAD_CONDVAR_WAIT = 3; // waiting
constexpr jint JVMPI_THREAD_SUSPENDED = 0x8000;
constexpr jint JVMPI_THREAD_INTERRUPTED = 0x4000;

constexpr jint JVMPI_MINIMUM_PRIORITY = 1;
constexpr jint JVMPI_NORMAL_PRIORITY = 5;
constexpr jint JVMPI_MAXIMUM_PRIORITY = 10;

// ---- Heap: object types, dump levels and record tags ------------------------------------------

// is_array of an allocation, and the type byte of a level-0 dump record.
constexpr jint JVMPI_NORMAL_OBJECT = 0;
constexpr jint JVMPI_CLASS = 2; // array of objects
constexpr jint JVMPI_BOOLEAN = 4;
constexpr jint JVMPI_CHAR = 5;
constexpr jint JVMPI_FLOAT = 6;
constexpr jint JVMPI_DOUBLE = 7;
constexpr jint JVMPI_BYTE = 8;
constexpr jint JVMPI_SHORT = 9;
constexpr jint JVMPI_INT = 10;
constexpr jint JVMPI_LONG = 11;

constexpr jint JVMPI_DUMP_LEVEL_0 = 0;
constexpr jint JVMPI_DUMP_LEVEL_1 = 1;
constexpr jint JVMPI_DUMP_LEVEL_2 = 2;

constexpr jint JVMPI_GC_ROOT_UNKNOWN = 0xff;
constexpr jint JVMPI_GC_ROOT_JNI_GLOBAL = 0x01;
constexpr jint JVMPI_GC_ROOT_JNI_LOCAL = 0x02;
constexpr jint JVMPI_GC_ROOT_JAVA_FRAME = 0x03;
constexpr jint JVMPI_GC_ROOT_NATIVE_STACK = 0x04;
constexpr jint JVMPI_GC_ROOT_STICKY_CLASS = 0x05;
constexpr jint JVMPI_GC_ROOT_THREAD_BLOCK = 0x06;
constexpr jint JVMPI_GC_ROOT_MONITOR_USED = 0x07;
constexpr jint JVMPI_GC_ROOT_THREAD_OBJ = 0x08;
constexpr jint JVMPI_GC_CLASS_DUMP = 0x20;
constexpr jint JVMPI_GC_INSTANCE_DUMP = 0x21;
constexpr jint JVMPI_GC_OBJ_ARRAY_DUMP = 0x22;
constexpr jint JVMPI_GC_PRIM_ARRAY_DUMP = 0x23;

// ---- Structures -------------------------------------------------------------------------------

struct JVMPI_CallFrame {
    jint lineno;
    jmethodID method_id;
};

// Top frame first; num_frames 0 when no trace can be had.
struct JVMPI_CallTrace {
    JNIEnv* env_id;
    jint num_frames;
    JVMPI_CallFrame* frames;
};

struct JVMPI_Method {
    char* method_name;
    char* method_signature;
    jint start_lineno;
    jint end_lineno;
    jmethodID method_id;
};

struct JVMPI_Field {
    char* field_name;
    char* field_signature;
};

struct JVMPI_Lineno {
    jint offset;
    jint lineno;
};

// The argument of a RequestEvent for a heap dump.
struct JVMPI_HeapDumpArg {
    jint heap_dump_level;
};

// Texts that an event points to are valid during the callback only.
struct JVMPI_Event {
    jint event_type;
    JNIEnv* env_id;
    union {
        struct {
            const char* class_name; // as the VM has it inside, with slashes
            char* source_name;
            jint num_interfaces;
            jint num_methods;
            JVMPI_Method* methods;
            jint num_static_fields;
            JVMPI_Field* statics;
            jint num_instance_fields;
            JVMPI_Field* instances;
            jobjectID class_id;
        } class_load;
        struct {
            jobjectID class_id;
        } class_unload;
        struct {
            unsigned char* class_data;
            jint class_data_len;
            unsigned char* new_class_data;
            jint new_class_data_len;
            void* (*malloc_f)(unsigned int);
        } class_load_hook;
        struct {
            jint arena_id;
            jobjectID class_id; // null for arrays of primitives
            jint is_array;
            jint size; // bytes
            jobjectID obj_id;
        } obj_alloc;
        struct {
            jobjectID obj_id;
        } obj_free;
        struct {
            jint arena_id;
            jobjectID obj_id;
            jint new_arena_id;
            jobjectID new_obj_id;
        } obj_move;
        struct {
            jint arena_id;
            const char* arena_name;
        } new_arena;
        struct {
            jint arena_id;
        } delete_arena;
        struct {
            char* thread_name;
            char* group_name;
            char* parent_name;
            jobjectID thread_id;
            JNIEnv* thread_env_id;
        } thread_start;
        struct {
            int dump_level;
            char* begin;
            char* end;
            jint num_traces;
            JVMPI_CallTrace* traces;
        } heap_dump;
        struct {
            jobjectID obj_id;
            jobject ref_id;
        } jni_globalref_alloc;
        struct {
            jobject ref_id;
        } jni_globalref_free;
        struct {
            jmethodID method_id;
        } method; // METHOD_ENTRY and METHOD_EXIT
        struct {
            jmethodID method_id;
            jobjectID obj_id;
        } method_entry2;
        struct {
            jmethodID method_id;
            void* code_addr;
            jint code_size;
            jint lineno_table_size;
            JVMPI_Lineno* lineno_table;
        } compiled_method_load;
        struct {
            jmethodID method_id;
        } compiled_method_unload;
        struct {
            char* begin;
            char* end;
            jint num_traces;
            JVMPI_CallTrace* traces;
            jint* threads_status;
        } monitor_dump;
        struct {
            const char* name;
            JVMPI_RawMonitor id;
        } raw_monitor;
        struct {
            jobjectID object;
        } monitor; // contended enter, entered and exit
        struct {
            jobjectID object;
            jlong timeout;
        } monitor_wait; // wait and waited
        struct {
            jlong used_objects;
            jlong used_object_space;  // bytes
            jlong total_object_space; // bytes
        } gc_info;                    // GC_FINISH only; undefined in GC_START
        struct {
            jint data_len;
            char* data;
        } object_dump;
    } u;
};

// The table that GetEnv answers. NotifyEvent is the agent's to set; all else is the VM's.
struct JVMPI_Interface {
    jint version;

    void (*NotifyEvent)(JVMPI_Event* event);

    jint (*EnableEvent)(jint event_type, void* arg);
    jint (*DisableEvent)(jint event_type, void* arg);
    jint (*RequestEvent)(jint event_type, void* arg);

    void (*GetCallTrace)(JVMPI_CallTrace* trace, jint depth);

    void (*ProfilerExit)(jint);

    JVMPI_RawMonitor (*RawMonitorCreate)(char* name);
    void (*RawMonitorEnter)(JVMPI_RawMonitor);
    void (*RawMonitorExit)(JVMPI_RawMonitor);
    void (*RawMonitorWait)(JVMPI_RawMonitor, jlong milliseconds); // <= 0: no limit
    void (*RawMonitorNotifyAll)(JVMPI_RawMonitor);
    void (*RawMonitorDestroy)(JVMPI_RawMonitor);

    jlong (*GetCurrentThreadCpuTime)(); // nanoseconds

    void (*SuspendThread)(JNIEnv* env);
    void (*ResumeThread)(JNIEnv* env);
    jint (*GetThreadStatus)(JNIEnv* env);
    jboolean (*ThreadHasRun)(JNIEnv* env);

    jint (*CreateSystemThread)(char* name, jint priority, void (*body)(void*));

    void (*SetThreadLocalStorage)(JNIEnv* env, void* ptr);
    void* (*GetThreadLocalStorage)(JNIEnv* env);

    void (*DisableGC)();
    void (*EnableGC)();
    void (*RunGC)();

    jobjectID (*GetThreadObject)(JNIEnv* env);
    jobjectID (*GetMethodClass)(jmethodID method);

    jobject (*jobjectID2jobject)(jobjectID id);
    jobjectID (*jobject2jobjectID)(jobject ref);
};

#endif
