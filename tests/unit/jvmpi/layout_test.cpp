// The profiler interface is a binary contract; these offsets are worked out by hand from the
// C ABI of each word size, not copied from the compiler.
#include "jvmpi/jvmpi.h"

#include <cstddef>
#include <gtest/gtest.h>

namespace {

constexpr std::size_t kWord = sizeof(void*);
constexpr bool k32 = kWord == 4;

// A member of an interface table is one word, the version included (padded on 64 bit).
#define EXPECT_MEMBER(index, member)                                                               \
    static_assert(offsetof(JVMPI_Interface, member) == (index)*kWord, #member)

EXPECT_MEMBER(0, version);
EXPECT_MEMBER(1, NotifyEvent);
EXPECT_MEMBER(2, EnableEvent);
EXPECT_MEMBER(3, DisableEvent);
EXPECT_MEMBER(4, RequestEvent);
EXPECT_MEMBER(5, GetCallTrace);
EXPECT_MEMBER(6, ProfilerExit);
EXPECT_MEMBER(7, RawMonitorCreate);
EXPECT_MEMBER(8, RawMonitorEnter);
EXPECT_MEMBER(9, RawMonitorExit);
EXPECT_MEMBER(10, RawMonitorWait);
EXPECT_MEMBER(11, RawMonitorNotifyAll);
EXPECT_MEMBER(12, RawMonitorDestroy);
EXPECT_MEMBER(13, GetCurrentThreadCpuTime);
EXPECT_MEMBER(14, SuspendThread);
EXPECT_MEMBER(15, ResumeThread);
EXPECT_MEMBER(16, GetThreadStatus);
EXPECT_MEMBER(17, ThreadHasRun);
EXPECT_MEMBER(18, CreateSystemThread);
EXPECT_MEMBER(19, SetThreadLocalStorage);
EXPECT_MEMBER(20, GetThreadLocalStorage);
EXPECT_MEMBER(21, DisableGC);
EXPECT_MEMBER(22, EnableGC);
EXPECT_MEMBER(23, RunGC);
EXPECT_MEMBER(24, GetThreadObject);
EXPECT_MEMBER(25, GetMethodClass);
EXPECT_MEMBER(26, jobjectID2jobject);
EXPECT_MEMBER(27, jobject2jobjectID);
static_assert(sizeof(JVMPI_Interface) == (k32 ? 112 : 224));

static_assert(sizeof(JVMPI_CallFrame) == (k32 ? 8 : 16));
static_assert(offsetof(JVMPI_CallFrame, method_id) == kWord);
static_assert(sizeof(JVMPI_CallTrace) == (k32 ? 12 : 24));
static_assert(offsetof(JVMPI_CallTrace, num_frames) == kWord);
static_assert(offsetof(JVMPI_CallTrace, frames) == 2 * kWord);
static_assert(sizeof(JVMPI_Method) == (k32 ? 20 : 32));
static_assert(offsetof(JVMPI_Method, start_lineno) == 2 * kWord);
static_assert(offsetof(JVMPI_Method, end_lineno) == 2 * kWord + 4);
static_assert(offsetof(JVMPI_Method, method_id) == 2 * kWord + 8);
static_assert(sizeof(JVMPI_Field) == 2 * kWord);
static_assert(sizeof(JVMPI_Lineno) == 8);
static_assert(sizeof(JVMPI_HeapDumpArg) == 4);

// The union starts behind the type (padded on 64 bit) and the environment. On 32-bit x86 a
// jlong in a structure is aligned to 4 bytes, so it starts at 8 there.
constexpr std::size_t kUnion = 2 * kWord;
#define EXPECT_FIELD(at32, at64, member)                                                           \
    static_assert(offsetof(JVMPI_Event, u.member) - kUnion == (k32 ? (at32) : (at64)), #member)

static_assert(offsetof(JVMPI_Event, event_type) == 0);
static_assert(offsetof(JVMPI_Event, env_id) == kWord);
static_assert(offsetof(JVMPI_Event, u) == kUnion);
EXPECT_FIELD(0, 0, class_load.class_name);
EXPECT_FIELD(4, 8, class_load.source_name);
EXPECT_FIELD(8, 16, class_load.num_interfaces);
EXPECT_FIELD(12, 20, class_load.num_methods);
EXPECT_FIELD(16, 24, class_load.methods);
EXPECT_FIELD(20, 32, class_load.num_static_fields);
EXPECT_FIELD(24, 40, class_load.statics);
EXPECT_FIELD(28, 48, class_load.num_instance_fields);
EXPECT_FIELD(32, 56, class_load.instances);
EXPECT_FIELD(36, 64, class_load.class_id);
EXPECT_FIELD(0, 0, class_unload.class_id);
EXPECT_FIELD(4, 8, class_load_hook.class_data_len);
EXPECT_FIELD(8, 16, class_load_hook.new_class_data);
EXPECT_FIELD(16, 32, class_load_hook.malloc_f);
EXPECT_FIELD(0, 0, obj_alloc.arena_id);
EXPECT_FIELD(4, 8, obj_alloc.class_id);
EXPECT_FIELD(8, 16, obj_alloc.is_array);
EXPECT_FIELD(12, 20, obj_alloc.size);
EXPECT_FIELD(16, 24, obj_alloc.obj_id);
EXPECT_FIELD(0, 0, obj_free.obj_id);
EXPECT_FIELD(4, 8, obj_move.obj_id);
EXPECT_FIELD(8, 16, obj_move.new_arena_id);
EXPECT_FIELD(12, 24, obj_move.new_obj_id);
EXPECT_FIELD(4, 8, new_arena.arena_name);
EXPECT_FIELD(0, 0, delete_arena.arena_id);
EXPECT_FIELD(0, 0, thread_start.thread_name);
EXPECT_FIELD(4, 8, thread_start.group_name);
EXPECT_FIELD(8, 16, thread_start.parent_name);
EXPECT_FIELD(12, 24, thread_start.thread_id);
EXPECT_FIELD(16, 32, thread_start.thread_env_id);
EXPECT_FIELD(0, 0, heap_dump.dump_level);
EXPECT_FIELD(4, 8, heap_dump.begin);
EXPECT_FIELD(8, 16, heap_dump.end);
EXPECT_FIELD(12, 24, heap_dump.num_traces);
EXPECT_FIELD(16, 32, heap_dump.traces);
EXPECT_FIELD(4, 8, jni_globalref_alloc.ref_id);
EXPECT_FIELD(0, 0, method.method_id);
EXPECT_FIELD(4, 8, method_entry2.obj_id);
EXPECT_FIELD(4, 8, compiled_method_load.code_addr);
EXPECT_FIELD(8, 16, compiled_method_load.code_size);
EXPECT_FIELD(12, 20, compiled_method_load.lineno_table_size);
EXPECT_FIELD(16, 24, compiled_method_load.lineno_table);
EXPECT_FIELD(16, 32, monitor_dump.threads_status);
EXPECT_FIELD(4, 8, raw_monitor.id);
EXPECT_FIELD(0, 0, monitor.object);
EXPECT_FIELD(0, 0, monitor_wait.object);
EXPECT_FIELD(4, 8, monitor_wait.timeout);
EXPECT_FIELD(0, 0, gc_info.used_objects);
EXPECT_FIELD(8, 8, gc_info.used_object_space);
EXPECT_FIELD(16, 16, gc_info.total_object_space);
EXPECT_FIELD(4, 8, object_dump.data);
static_assert(sizeof(JVMPI_Event) == (k32 ? 48 : 88));

TEST(JvmpiLayout, EventTypesAreThoseOfTheInterface) {
    EXPECT_EQ(JVMPI_EVENT_THREAD_START, 33);
    EXPECT_EQ(JVMPI_EVENT_HEAP_DUMP, 37);
    EXPECT_EQ(JVMPI_EVENT_CLASS_LOAD, 42);
    EXPECT_EQ(JVMPI_EVENT_JVM_SHUT_DOWN, 47);
    EXPECT_EQ(JVMPI_EVENT_MONITOR_CONTENDED_EXIT, 56);
    EXPECT_EQ(JVMPI_EVENT_GC_FINISH, JVMPI_MAX_EVENT_TYPE_VAL);
    EXPECT_EQ(JVMPI_REQUESTED_EVENT, 0x10000000);
    EXPECT_EQ(JVMPI_VERSION_1, 0x10000001);
}

} // namespace
