// Call...Method and CallStatic...Method of the scripted VM, in the three forms of arguments, for
// results of type void, object, boolean, int and long.
#include "tests/vm/ScriptedWorld.h"

#include <cstdarg>

namespace scripted {

namespace {

// The argument types of a signature, one letter each; arrays count as objects.
std::string argumentTypes(const std::string& signature) {
    std::string types;
    for (std::size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        const bool array = signature[i] == '[';
        while (signature[i] == '[') ++i;
        if (signature[i] == 'L') i = signature.find(';', i);
        types += array || signature[i] == ';' ? 'L' : signature[i];
    }
    return types;
}

char resultType(const std::string& signature) {
    const char type = signature[signature.find(')') + 1];
    return type == '[' ? 'L' : type;
}

// Raw arguments by type letter. Small integers and floats travel widened in a va_list.
std::vector<jvalue> readList(const std::string& types, va_list list) {
    std::vector<jvalue> values;
    for (const char type : types) {
        jvalue value{};
        switch (type) {
        case 'L':
            value.l = va_arg(list, jobject);
            break;
        case 'J':
            value.j = va_arg(list, jlong);
            break;
        case 'D':
            value.d = va_arg(list, double);
            break;
        case 'F':
            value.f = static_cast<jfloat>(va_arg(list, double));
            break;
        default:
            value.i = va_arg(list, jint);
            break;
        }
        values.push_back(value);
    }
    return values;
}

std::vector<jvalue> readArray(const std::string& types, const jvalue* array) {
    std::vector<jvalue> values;
    for (std::size_t i = 0; i < types.size(); ++i) {
        jvalue value{};
        switch (types[i]) { // widened as in a va_list
        case 'Z':
            value.i = array[i].z;
            break;
        case 'B':
            value.i = array[i].b;
            break;
        case 'S':
            value.i = array[i].s;
            break;
        case 'C':
            value.i = array[i].c;
            break;
        default:
            value = array[i];
            break;
        }
        values.push_back(value);
    }
    return values;
}

std::string argumentText(const std::string& types, const std::vector<JavaValue>& args) {
    std::string text;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (i > 0) text += ", ";
        text += types[i] == 'L' ? World::describe(args[i].object) : std::to_string(args[i].number);
    }
    return text;
}

bool derives(const ScriptedClass* cls, const ScriptedClass* from) {
    for (; cls != nullptr; cls = cls->superclass)
        if (cls == from) return true;
    return false;
}

// Finds, checks and runs the method; nothing but a zero comes back when it throws.
template <class Read>
JavaValue invoke(JNIEnv* raw, const char* function, jobject target, jmethodID id, char result,
                 bool isStatic, const Read& read, jobject* objectResult) {
    World& before = static_cast<Env*>(raw)->thread->vm().world();
    const auto text = [&] { return std::string(function) + "(" + before.describe(id) + ")"; };
    JniEntry entry(raw, function, text, JniEntry::kFailable, "java/lang/RuntimeException");
    if (entry.failed()) return {};
    const ScriptedMethod* method = entry.world.method(id);
    if (method == nullptr) {
        entry.violation(hex(reinterpret_cast<const void*>(id)) + " is no method");
        return {};
    }
    const std::string full = method->owner->name() + "." + method->spec.name;
    if (method->spec.isStatic != isStatic)
        entry.violation(full + (isStatic ? " is not static" : " is static"));
    if (resultType(method->spec.signature) != result)
        entry.violation(full + " answers another type: " + method->spec.signature);
    ScriptedObject* self = nullptr;
    if (isStatic) {
        entry.need(target, ScriptedObject::kClass);
    } else {
        self = entry.object(target);
        if (self == nullptr) {
            entry.violation(full + " of a null reference");
            return {};
        }
        if (!derives(self->cls, method->owner))
            entry.violation(full + " of an object of class " +
                            (self->cls != nullptr ? self->cls->name() : "null"));
    }
    const std::string types = argumentTypes(method->spec.signature);
    JavaCall call{entry.vm, *entry.env.thread, self, {}};
    const std::vector<jvalue> values = read(types);
    for (std::size_t i = 0; i < types.size(); ++i) {
        JavaValue value;
        if (types[i] == 'L')
            value.object = entry.object(values[i].l);
        else if (types[i] == 'J')
            value.number = values[i].j;
        else
            value.number = values[i].i;
        call.args.push_back(value);
    }
    entry.vm.call(
        kJava, "Java", [&] { return full + "(" + argumentText(types, call.args) + ")"; }, false);
    if (!method->spec.body) return {};
    JavaValue answer;
    {
        OutsideVm outside;
        answer = method->spec.body(call);
    }
    if (entry.env.pending != nullptr) return {};
    if (objectResult != nullptr) *objectResult = entry.local(answer.object);
    return answer;
}

template <class T> struct Result;
template <> struct Result<void> {
    static constexpr char kType = 'V';
    static constexpr const char* kNames[2] = {"CallVoidMethod", "CallStaticVoidMethod"};
};
template <> struct Result<jobject> {
    static constexpr char kType = 'L';
    static constexpr const char* kNames[2] = {"CallObjectMethod", "CallStaticObjectMethod"};
};
template <> struct Result<jboolean> {
    static constexpr char kType = 'Z';
    static constexpr const char* kNames[2] = {"CallBooleanMethod", "CallStaticBooleanMethod"};
};
template <> struct Result<jint> {
    static constexpr char kType = 'I';
    static constexpr const char* kNames[2] = {"CallIntMethod", "CallStaticIntMethod"};
};
template <> struct Result<jlong> {
    static constexpr char kType = 'J';
    static constexpr const char* kNames[2] = {"CallLongMethod", "CallStaticLongMethod"};
};

// Target is jobject for an instance method and jclass for a static one.
template <class T, class Target> struct Caller {
    static constexpr bool kStatic = std::is_same_v<Target, jclass>;

    template <class Read>
    static T call(JNIEnv* env, Target target, jmethodID id, const Read& read) {
        using R = Result<T>;
        jobject object = nullptr;
        const JavaValue value =
            invoke(env, R::kNames[kStatic ? 1 : 0], target, id, R::kType, kStatic, read,
                   std::is_same_v<T, jobject> ? &object : nullptr);
        if constexpr (std::is_same_v<T, jobject>)
            return object;
        else if constexpr (!std::is_same_v<T, void>)
            return static_cast<T>(value.number);
    }
    static T list(JNIEnv* env, Target target, jmethodID id, va_list arguments) {
        va_list copy;
        va_copy(copy, arguments);
        struct End {
            va_list& list;
            ~End() { va_end(list); }
        } end{copy};
        return call(env, target, id,
                    [&](const std::string& types) { return readList(types, copy); });
    }
    static T variadic(JNIEnv* env, Target target, jmethodID id, ...) {
        va_list arguments;
        va_start(arguments, id);
        struct End {
            va_list& list;
            ~End() { va_end(list); }
        } end{arguments};
        return list(env, target, id, arguments);
    }
    static T array(JNIEnv* env, Target target, jmethodID id, const jvalue* values) {
        return call(env, target, id,
                    [&](const std::string& types) { return readArray(types, values); });
    }
};

} // namespace

void fillJniCalls(JNINativeInterface_& table) {
    table.CallVoidMethod = Caller<void, jobject>::variadic;
    table.CallVoidMethodV = Caller<void, jobject>::list;
    table.CallVoidMethodA = Caller<void, jobject>::array;
    table.CallObjectMethod = Caller<jobject, jobject>::variadic;
    table.CallObjectMethodV = Caller<jobject, jobject>::list;
    table.CallObjectMethodA = Caller<jobject, jobject>::array;
    table.CallBooleanMethod = Caller<jboolean, jobject>::variadic;
    table.CallBooleanMethodV = Caller<jboolean, jobject>::list;
    table.CallBooleanMethodA = Caller<jboolean, jobject>::array;
    table.CallIntMethod = Caller<jint, jobject>::variadic;
    table.CallIntMethodV = Caller<jint, jobject>::list;
    table.CallIntMethodA = Caller<jint, jobject>::array;
    table.CallLongMethod = Caller<jlong, jobject>::variadic;
    table.CallLongMethodV = Caller<jlong, jobject>::list;
    table.CallLongMethodA = Caller<jlong, jobject>::array;
    table.CallStaticVoidMethod = Caller<void, jclass>::variadic;
    table.CallStaticVoidMethodV = Caller<void, jclass>::list;
    table.CallStaticVoidMethodA = Caller<void, jclass>::array;
    table.CallStaticObjectMethod = Caller<jobject, jclass>::variadic;
    table.CallStaticObjectMethodV = Caller<jobject, jclass>::list;
    table.CallStaticObjectMethodA = Caller<jobject, jclass>::array;
    table.CallStaticBooleanMethod = Caller<jboolean, jclass>::variadic;
    table.CallStaticBooleanMethodV = Caller<jboolean, jclass>::list;
    table.CallStaticBooleanMethodA = Caller<jboolean, jclass>::array;
    table.CallStaticIntMethod = Caller<jint, jclass>::variadic;
    table.CallStaticIntMethodV = Caller<jint, jclass>::list;
    table.CallStaticIntMethodA = Caller<jint, jclass>::array;
    table.CallStaticLongMethod = Caller<jlong, jclass>::variadic;
    table.CallStaticLongMethodV = Caller<jlong, jclass>::list;
    table.CallStaticLongMethodA = Caller<jlong, jclass>::array;
}

} // namespace scripted
