// The JNI environment of the scripted VM: classes, methods, references, frames, exceptions.
// Strings and arrays, and the calls of methods, are in files of their own.
#include "tests/vm/JniSlots.h"
#include "tests/vm/ScriptedWorld.h"

#include <cstdlib>
#include <utility>

namespace scripted {

// ---- JniEntry -----------------------------------------------------------------------------------

JniEntry::JniEntry(JNIEnv* raw, const char* function, TextRef text, unsigned flags,
                   const char* exceptionWhenFailing)
    : env(*static_cast<Env*>(raw)), vm(env.thread->vm()), world(vm.world()), name(function) {
    verdict_ = vm.call(kJni, function, text, (flags & kFailable) != 0);
    const ScriptedThread& self = vm.currentThread();
    if (&self != env.thread)
        violation("the environment of " + env.thread->name() + " on thread " + self.name());
    if (!env.thread->alive()) violation("the environment of an ended thread");
    if ((flags & kOkWithException) == 0 && env.pending != nullptr)
        violation("called with " + env.pending->cls->name() + " pending");
    if (verdict_.fail && exceptionWhenFailing != nullptr)
        throwNew(exceptionWhenFailing, "injected fault");
}

void JniEntry::violation(const std::string& text) {
    vm.recorder().violation(std::string(name) + ": " + text);
}

void JniEntry::throwNew(const std::string& cls, const std::string& message) {
    vm.throwOn(*env.thread, cls, message);
}

ScriptedObject* JniEntry::object(jobject handle) {
    if (handle == nullptr) return nullptr;
    std::string problem;
    {
        std::lock_guard lock(world.mutex);
        if (Ref* ref = world.refLocked(handle, env.thread, problem))
            return ref->kind == Ref::kWeak && ref->object->freed ? nullptr : ref->object;
    }
    violation(problem);
    return nullptr;
}

ScriptedObject* JniEntry::need(jobject handle, ScriptedObject::Kind kind) {
    ScriptedObject* found = object(handle);
    if (handle == nullptr) {
        violation("a null reference");
    } else if (found != nullptr && found->kind != kind) {
        violation("a reference of the wrong type, to " + World::describe(found));
        return nullptr;
    }
    return found;
}

jobject JniEntry::local(ScriptedObject* object) {
    return object != nullptr ? TableAccess::newLocal(vm, object, name) : nullptr;
}

namespace {

// The text of a call without arguments.
auto plain(const char* name) {
    return [name] { return std::string(name) + "()"; };
}

auto with(const char* name, const char* argument) {
    return [name, argument] {
        return std::string(name) + "(" + (argument != nullptr ? argument : "null") + ")";
    };
}

jint getVersion(JNIEnv* raw) {
    JniEntry entry(raw, "GetVersion", plain("GetVersion"), JniEntry::kNone);
    return JNI_VERSION_10;
}

// ---- classes and methods ----------------------------------------------------------------------

jclass findClass(JNIEnv* raw, const char* name) {
    JniEntry entry(raw, "FindClass", with("FindClass", name), JniEntry::kFailable,
                   "java/lang/NoClassDefFoundError");
    if (entry.failed()) return nullptr;
    ScriptedClass* cls = nullptr;
    {
        std::lock_guard lock(entry.world.mutex);
        if (name != nullptr && entry.world.hiddenClasses.count(name) == 0)
            cls = entry.world.classLocked(name);
    }
    if (cls == nullptr || cls->unloaded) {
        entry.throwNew("java/lang/NoClassDefFoundError", name != nullptr ? name : "null");
        return nullptr;
    }
    return static_cast<jclass>(entry.local(cls->mirror));
}

jclass getObjectClass(JNIEnv* raw, jobject handle) {
    JniEntry entry(raw, "GetObjectClass", plain("GetObjectClass"), JniEntry::kNone);
    ScriptedObject* object = entry.object(handle);
    if (object == nullptr) {
        entry.violation("a null reference");
        return nullptr;
    }
    return static_cast<jclass>(entry.local(object->cls != nullptr ? object->cls->mirror : nullptr));
}

jclass getSuperclass(JNIEnv* raw, jclass handle) {
    JniEntry entry(raw, "GetSuperclass", plain("GetSuperclass"), JniEntry::kNone);
    ScriptedObject* cls = entry.need(handle, ScriptedObject::kClass);
    if (cls == nullptr || cls->mirrorOf->superclass == nullptr) return nullptr;
    return static_cast<jclass>(entry.local(cls->mirrorOf->superclass->mirror));
}

bool derives(const ScriptedClass* cls, const ScriptedClass* from) {
    for (; cls != nullptr; cls = cls->superclass)
        if (cls == from) return true;
    return false;
}

jboolean isInstanceOf(JNIEnv* raw, jobject handle, jclass classHandle) {
    JniEntry entry(raw, "IsInstanceOf", plain("IsInstanceOf"), JniEntry::kNone);
    const ScriptedObject* object = entry.object(handle);
    const ScriptedObject* cls = entry.need(classHandle, ScriptedObject::kClass);
    if (object == nullptr || cls == nullptr) return JNI_TRUE; // null is of every class
    return derives(object->cls, cls->mirrorOf) ? JNI_TRUE : JNI_FALSE;
}

jmethodID lookUp(JNIEnv* raw, const char* function, jclass handle, const char* name,
                 const char* signature, bool isStatic) {
    const auto text = [&] {
        return std::string(function) + "(" + (name != nullptr ? name : "null") + ", " +
               (signature != nullptr ? signature : "null") + ")";
    };
    JniEntry entry(raw, function, text, JniEntry::kFailable, "java/lang/NoSuchMethodError");
    const ScriptedObject* cls = entry.need(handle, ScriptedObject::kClass);
    if (entry.failed() || cls == nullptr) return nullptr;
    const ScriptedMethod* found = cls->mirrorOf->find(name, signature, isStatic);
    if (found == nullptr) {
        entry.throwNew("java/lang/NoSuchMethodError", name);
        return nullptr;
    }
    return found->id;
}

jmethodID getMethodId(JNIEnv* raw, jclass cls, const char* name, const char* signature) {
    return lookUp(raw, "GetMethodID", cls, name, signature, false);
}

jmethodID getStaticMethodId(JNIEnv* raw, jclass cls, const char* name, const char* signature) {
    return lookUp(raw, "GetStaticMethodID", cls, name, signature, true);
}

jint registerNatives(JNIEnv* raw, jclass handle, const JNINativeMethod* methods, jint count) {
    const auto text = [&] {
        std::string names = "RegisterNatives(";
        for (jint i = 0; i < count; ++i) names += std::string(i > 0 ? ", " : "") + methods[i].name;
        return names + ")";
    };
    JniEntry entry(raw, "RegisterNatives", text, JniEntry::kFailable,
                   "java/lang/NoSuchMethodError");
    entry.need(handle, ScriptedObject::kClass);
    return entry.failed() ? JNI_ERR : JNI_OK;
}

// ---- references and frames --------------------------------------------------------------------

jobject newGlobal(JNIEnv* raw, const char* function, jobject handle, Ref::Kind kind) {
    JniEntry entry(raw, function, plain(function), JniEntry::kFailable);
    ScriptedObject* object = entry.object(handle);
    if (entry.failed() || object == nullptr) return nullptr;
    std::lock_guard lock(entry.world.mutex);
    return entry.world.newRefLocked(kind, object, nullptr)->handle();
}

void deleteGlobal(JNIEnv* raw, const char* function, jobject handle, Ref::Kind kind) {
    JniEntry entry(raw, function, plain(function), JniEntry::kOkWithException);
    if (handle == nullptr) return;
    std::string problem;
    {
        std::lock_guard lock(entry.world.mutex);
        Ref* ref = entry.world.refLocked(handle, nullptr, problem);
        if (ref != nullptr && ref->kind != kind)
            problem = "another kind of reference";
        else if (ref != nullptr)
            entry.world.killRefLocked(ref);
    }
    if (!problem.empty()) entry.violation(problem);
}

jobject newGlobalRef(JNIEnv* raw, jobject handle) {
    return newGlobal(raw, "NewGlobalRef", handle, Ref::kGlobal);
}
jobject newWeakGlobalRef(JNIEnv* raw, jobject handle) {
    return newGlobal(raw, "NewWeakGlobalRef", handle, Ref::kWeak);
}
void deleteGlobalRef(JNIEnv* raw, jobject handle) {
    deleteGlobal(raw, "DeleteGlobalRef", handle, Ref::kGlobal);
}
void deleteWeakGlobalRef(JNIEnv* raw, jobject handle) {
    deleteGlobal(raw, "DeleteWeakGlobalRef", handle, Ref::kWeak);
}

jobject newLocalRef(JNIEnv* raw, jobject handle) {
    JniEntry entry(raw, "NewLocalRef", plain("NewLocalRef"), JniEntry::kFailable);
    ScriptedObject* object = entry.object(handle);
    return entry.failed() ? nullptr : entry.local(object);
}

void deleteLocalRef(JNIEnv* raw, jobject handle) {
    JniEntry entry(raw, "DeleteLocalRef", plain("DeleteLocalRef"), JniEntry::kOkWithException);
    if (handle == nullptr) return;
    std::string problem;
    {
        std::lock_guard lock(entry.world.mutex);
        Ref* ref = entry.world.refLocked(handle, entry.env.thread, problem);
        if (ref != nullptr && ref->kind != Ref::kLocal) {
            problem = "another kind of reference";
        } else if (ref != nullptr) {
            for (LocalFrame& frame : entry.env.frames) std::erase(frame.refs, ref);
            entry.world.killRefLocked(ref);
        }
    }
    if (!problem.empty()) entry.violation(problem);
}

jint pushLocalFrame(JNIEnv* raw, jint capacity) {
    const auto text = [&] { return "PushLocalFrame(" + std::to_string(capacity) + ")"; };
    JniEntry entry(raw, "PushLocalFrame", text, JniEntry::kFailable | JniEntry::kOkWithException,
                   "java/lang/OutOfMemoryError");
    if (entry.failed() || capacity < 0) return JNI_ERR;
    entry.world.pushFrame(entry.env, LocalFrame::kPushed, capacity);
    return JNI_OK;
}

jobject popLocalFrame(JNIEnv* raw, jobject result) {
    const char* name = "PopLocalFrame";
    JniEntry entry(raw, name, plain(name), JniEntry::kOkWithException);
    ScriptedObject* kept = entry.object(result);
    bool pushed = false;
    {
        std::lock_guard lock(entry.world.mutex);
        pushed = entry.env.frames.back().kind == LocalFrame::kPushed;
    }
    if (!pushed) {
        entry.violation("no frame was pushed");
        return nullptr;
    }
    std::size_t live = 0;
    std::size_t extra = 0;
    entry.world.dropFrames(entry.env, entry.env.frames.size() - 1, live, extra);
    return entry.local(kept);
}

jint ensureLocalCapacity(JNIEnv* raw, jint capacity) {
    const auto text = [&] { return "EnsureLocalCapacity(" + std::to_string(capacity) + ")"; };
    JniEntry entry(raw, "EnsureLocalCapacity", text, JniEntry::kFailable,
                   "java/lang/OutOfMemoryError");
    if (entry.failed()) return JNI_ERR;
    std::lock_guard lock(entry.world.mutex);
    LocalFrame& frame = entry.env.frames.back();
    const jint wanted = capacity + static_cast<jint>(frame.refs.size());
    if (frame.capacity < wanted) frame.capacity = wanted;
    return JNI_OK;
}

jboolean isSameObject(JNIEnv* raw, jobject a, jobject b) {
    JniEntry entry(raw, "IsSameObject", plain("IsSameObject"), JniEntry::kNone);
    return entry.object(a) == entry.object(b) ? JNI_TRUE : JNI_FALSE;
}

jobjectRefType getObjectRefType(JNIEnv* raw, jobject handle) {
    JniEntry entry(raw, "GetObjectRefType", plain("GetObjectRefType"), JniEntry::kNone);
    std::string ignored;
    std::lock_guard lock(entry.world.mutex);
    const Ref* ref = entry.world.refLocked(handle, nullptr, ignored);
    if (ref == nullptr) return JNIInvalidRefType;
    if (ref->kind == Ref::kLocal) return JNILocalRefType;
    return ref->kind == Ref::kGlobal ? JNIGlobalRefType : JNIWeakGlobalRefType;
}

// ---- exceptions ---------------------------------------------------------------------------------

jboolean exceptionCheck(JNIEnv* raw) {
    JniEntry entry(raw, "ExceptionCheck", plain("ExceptionCheck"), JniEntry::kOkWithException);
    return entry.env.pending != nullptr ? JNI_TRUE : JNI_FALSE;
}

jthrowable exceptionOccurred(JNIEnv* raw) {
    JniEntry entry(raw, "ExceptionOccurred", plain("ExceptionOccurred"),
                   JniEntry::kOkWithException);
    return static_cast<jthrowable>(entry.local(entry.env.pending));
}

void exceptionDescribe(JNIEnv* raw) {
    JniEntry entry(raw, "ExceptionDescribe", plain("ExceptionDescribe"),
                   JniEntry::kOkWithException);
}

void exceptionClear(JNIEnv* raw) {
    JniEntry entry(raw, "ExceptionClear", plain("ExceptionClear"), JniEntry::kOkWithException);
    entry.env.pending = nullptr;
}

jint throwObject(JNIEnv* raw, jthrowable handle) {
    JniEntry entry(raw, "Throw", plain("Throw"), JniEntry::kFailable);
    ScriptedObject* exception = entry.object(handle);
    if (exception == nullptr) entry.violation("a null reference");
    if (entry.failed() || exception == nullptr) return JNI_ERR;
    entry.env.pending = exception;
    return JNI_OK;
}

jint throwNew(JNIEnv* raw, jclass handle, const char* message) {
    JniEntry entry(raw, "ThrowNew", with("ThrowNew", message), JniEntry::kFailable);
    const ScriptedObject* cls = entry.need(handle, ScriptedObject::kClass);
    if (entry.failed() || cls == nullptr) return JNI_ERR;
    entry.throwNew(cls->mirrorOf->name(), message != nullptr ? message : "");
    return JNI_OK;
}

[[noreturn]] void fatalError(JNIEnv*, const char* message) {
    std::fprintf(stderr, "scripted VM: FatalError: %s\n", message);
    std::abort();
}

// ---- the rest -----------------------------------------------------------------------------------

jint monitorEnter(JNIEnv* raw, jobject handle) {
    JniEntry entry(raw, "MonitorEnter", plain("MonitorEnter"), JniEntry::kFailable);
    const ScriptedObject* object = entry.object(handle);
    if (entry.failed() || object == nullptr) return JNI_ERR;
    std::string problem;
    {
        std::lock_guard lock(entry.world.mutex);
        World::JavaLock& lockState = entry.world.javaLocks[object];
        if (lockState.depth > 0 && lockState.owner != entry.env.thread)
            problem = "the object is locked by " + lockState.owner->name();
        lockState.owner = entry.env.thread;
        ++lockState.depth;
    }
    if (!problem.empty()) entry.violation(problem);
    return JNI_OK;
}

jint monitorExit(JNIEnv* raw, jobject handle) {
    JniEntry entry(raw, "MonitorExit", plain("MonitorExit"), JniEntry::kOkWithException);
    const ScriptedObject* object = entry.object(handle);
    bool owned = false;
    {
        std::lock_guard lock(entry.world.mutex);
        auto found = entry.world.javaLocks.find(object);
        owned = found != entry.world.javaLocks.end() && found->second.depth > 0 &&
                found->second.owner == entry.env.thread;
        if (owned) --found->second.depth;
    }
    if (!owned) entry.violation("the object is not locked by this thread");
    return owned ? JNI_OK : JNI_ERR;
}

jint getJavaVm(JNIEnv* raw, JavaVM** out) {
    JniEntry entry(raw, "GetJavaVM", plain("GetJavaVM"), JniEntry::kFailable);
    if (entry.failed()) return JNI_ERR;
    *out = entry.vm.javaVM();
    return JNI_OK;
}

template <std::size_t Slot> [[noreturn]] void unsupported() {
    std::fprintf(stderr, "scripted VM: the JNI function %s is not scripted\n",
                 jniSlotName(Slot).c_str());
    std::abort();
}

template <std::size_t... Slots> void fillUnsupported(void** table, std::index_sequence<Slots...>) {
    ((table[Slots] = reinterpret_cast<void*>(&unsupported<Slots>)), ...);
}

// The environment of the collecting thread: nothing but static calls that answer a long.
template <std::size_t Slot> jlong restrictedSlot(JNIEnv* raw) {
    InsideVm inside;
    ScriptedVm& vm = static_cast<Env*>(raw)->thread->vm();
    vm.recorder().violation(jniSlotName(Slot) + " during a collection");
    return 0;
}

template <std::size_t... Slots> void fillRestricted(void** table, std::index_sequence<Slots...>) {
    ((table[Slots] = reinterpret_cast<void*>(&restrictedSlot<Slots>)), ...);
}

jlong restrictedLong(JNIEnv* raw) {
    InsideVm inside;
    ScriptedVm& vm = static_cast<Env*>(raw)->thread->vm();
    vm.call(
        kJni, "CallStaticLongMethod",
        [] { return std::string("CallStaticLongMethod(restricted)"); }, false);
    return vm.world().restrictedAnswer.load();
}

jlong restrictedLongVariadic(JNIEnv* raw, jclass, jmethodID, ...) { return restrictedLong(raw); }
jlong restrictedLongList(JNIEnv* raw, jclass, jmethodID, va_list) { return restrictedLong(raw); }
jlong restrictedLongArray(JNIEnv* raw, jclass, jmethodID, const jvalue*) {
    return restrictedLong(raw);
}

} // namespace

void fillJniTable(JNINativeInterface_& table) {
    fillUnsupported(reinterpret_cast<void**>(&table), std::make_index_sequence<kJniSlots>());
    table.GetVersion = getVersion;
    table.FindClass = findClass;
    table.GetObjectClass = getObjectClass;
    table.GetSuperclass = getSuperclass;
    table.IsInstanceOf = isInstanceOf;
    table.GetMethodID = getMethodId;
    table.GetStaticMethodID = getStaticMethodId;
    table.RegisterNatives = registerNatives;
    table.NewGlobalRef = newGlobalRef;
    table.DeleteGlobalRef = deleteGlobalRef;
    table.NewWeakGlobalRef = newWeakGlobalRef;
    table.DeleteWeakGlobalRef = deleteWeakGlobalRef;
    table.NewLocalRef = newLocalRef;
    table.DeleteLocalRef = deleteLocalRef;
    table.PushLocalFrame = pushLocalFrame;
    table.PopLocalFrame = popLocalFrame;
    table.EnsureLocalCapacity = ensureLocalCapacity;
    table.IsSameObject = isSameObject;
    table.GetObjectRefType = getObjectRefType;
    table.ExceptionCheck = exceptionCheck;
    table.ExceptionOccurred = exceptionOccurred;
    table.ExceptionDescribe = exceptionDescribe;
    table.ExceptionClear = exceptionClear;
    table.Throw = throwObject;
    table.ThrowNew = throwNew;
    table.FatalError = fatalError;
    table.MonitorEnter = monitorEnter;
    table.MonitorExit = monitorExit;
    table.GetJavaVM = getJavaVm;
    fillJniCalls(table);
    fillJniArrays(table);
}

void fillRestrictedTable(JNINativeInterface_& table) {
    fillRestricted(reinterpret_cast<void**>(&table), std::make_index_sequence<kJniSlots>());
    table.CallStaticLongMethod = restrictedLongVariadic;
    table.CallStaticLongMethodV = restrictedLongList;
    table.CallStaticLongMethodA = restrictedLongArray;
}

} // namespace scripted
