// Strings and arrays of the scripted VM's JNI environment.
#include "tests/vm/ScriptedWorld.h"

#include <algorithm>
#include <cstring>

namespace scripted {

namespace {

auto sized(const char* name, jint size) {
    return [name, size] { return std::string(name) + "(" + std::to_string(size) + ")"; };
}

auto plain(const char* name) {
    return [name] { return std::string(name) + "()"; };
}

constexpr const char* kNoMemory = "java/lang/OutOfMemoryError";
constexpr const char* kOutOfBounds = "java/lang/ArrayIndexOutOfBoundsException";

// Copies that the agent must give back, with what they are for the report of those it did not.
template <class T> T* lend(World& world, const T* from, std::size_t count, std::string what) {
    T* copy = new T[count + 1]();
    std::copy(from, from + count, copy);
    std::lock_guard lock(world.mutex);
    world.borrowed[copy] = std::move(what);
    return copy;
}

bool takeBack(JniEntry& entry, const void* copy) {
    bool known = false;
    {
        std::lock_guard lock(entry.world.mutex);
        known = entry.world.borrowed.erase(copy) != 0;
    }
    if (!known) entry.violation("nothing that was got");
    return known;
}

// ---- strings ------------------------------------------------------------------------------------

jstring newStringUtf(JNIEnv* raw, const char* text) {
    const auto call = [&] {
        return std::string("NewStringUTF(") + (text != nullptr ? text : "null") + ")";
    };
    JniEntry entry(raw, "NewStringUTF", call, JniEntry::kFailable, kNoMemory);
    if (entry.failed() || text == nullptr) return nullptr;
    return static_cast<jstring>(entry.local(&entry.vm.newString(text)));
}

const char* getStringUtfChars(JNIEnv* raw, jstring handle, jboolean* isCopy) {
    JniEntry entry(raw, "GetStringUTFChars", plain("GetStringUTFChars"), JniEntry::kFailable,
                   kNoMemory);
    const ScriptedObject* string = entry.need(handle, ScriptedObject::kString);
    if (entry.failed() || string == nullptr) return nullptr;
    if (isCopy != nullptr) *isCopy = JNI_TRUE;
    return lend(entry.world, string->text.c_str(), string->text.size(),
                "characters of \"" + string->text + "\"");
}

void releaseStringUtfChars(JNIEnv* raw, jstring handle, const char* chars) {
    JniEntry entry(raw, "ReleaseStringUTFChars", plain("ReleaseStringUTFChars"),
                   JniEntry::kOkWithException);
    entry.need(handle, ScriptedObject::kString);
    if (takeBack(entry, chars)) delete[] chars;
}

jsize getStringUtfLength(JNIEnv* raw, jstring handle) {
    JniEntry entry(raw, "GetStringUTFLength", plain("GetStringUTFLength"), JniEntry::kNone);
    const ScriptedObject* string = entry.need(handle, ScriptedObject::kString);
    return string != nullptr ? static_cast<jsize>(string->text.size()) : 0;
}

// The number of UTF-16 units: every unit is one modified UTF-8 sequence.
jsize getStringLength(JNIEnv* raw, jstring handle) {
    JniEntry entry(raw, "GetStringLength", plain("GetStringLength"), JniEntry::kNone);
    const ScriptedObject* string = entry.need(handle, ScriptedObject::kString);
    if (string == nullptr) return 0;
    return static_cast<jsize>(std::count_if(string->text.begin(), string->text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xc0) != 0x80;
    }));
}

// ---- arrays of numbers --------------------------------------------------------------------------

template <class T> struct Numbers;
template <> struct Numbers<jbyte> {
    using Array = jbyteArray;
    static constexpr ScriptedObject::Kind kKind = ScriptedObject::kBytes;
    static constexpr const char* kClass = "[B";
    static constexpr jint kType = JVMPI_BYTE;
    static std::vector<jbyte>& of(ScriptedObject& object) { return object.bytes; }
    static constexpr const char* kNew = "NewByteArray";
    static constexpr const char* kGetRegion = "GetByteArrayRegion";
    static constexpr const char* kSetRegion = "SetByteArrayRegion";
    static constexpr const char* kGetElements = "GetByteArrayElements";
    static constexpr const char* kRelease = "ReleaseByteArrayElements";
};
template <> struct Numbers<jlong> {
    using Array = jlongArray;
    static constexpr ScriptedObject::Kind kKind = ScriptedObject::kLongs;
    static constexpr const char* kClass = "[J";
    static constexpr jint kType = JVMPI_LONG;
    static std::vector<jlong>& of(ScriptedObject& object) { return object.longs; }
    static constexpr const char* kNew = "NewLongArray";
    static constexpr const char* kGetRegion = "GetLongArrayRegion";
    static constexpr const char* kSetRegion = "SetLongArrayRegion";
    static constexpr const char* kGetElements = "GetLongArrayElements";
    static constexpr const char* kRelease = "ReleaseLongArrayElements";
};

template <class T> typename Numbers<T>::Array newNumbers(JNIEnv* raw, jsize length) {
    using N = Numbers<T>;
    JniEntry entry(raw, N::kNew, sized(N::kNew, length), JniEntry::kFailable, kNoMemory);
    if (entry.failed()) return nullptr;
    if (length < 0) {
        entry.throwNew("java/lang/NegativeArraySizeException", std::to_string(length));
        return nullptr;
    }
    ScriptedObject& object = entry.world.addObject(N::kKind, entry.vm.findClass(N::kClass));
    N::of(object).resize(static_cast<std::size_t>(length));
    object.arrayType = N::kType;
    return static_cast<typename N::Array>(entry.local(&object));
}

// The array, if the region lies inside it; else an exception is pending.
template <class T>
std::vector<T>* region(JniEntry& entry, jobject handle, jsize start, jsize length) {
    using N = Numbers<T>;
    ScriptedObject* object = entry.need(handle, N::kKind);
    if (entry.failed() || object == nullptr) return nullptr;
    std::vector<T>& values = N::of(*object);
    const auto size = static_cast<jlong>(values.size());
    if (start < 0 || length < 0 || static_cast<jlong>(start) + length > size) {
        entry.throwNew(kOutOfBounds, std::to_string(start) + ", " + std::to_string(length));
        return nullptr;
    }
    return &values;
}

template <class T>
void getRegion(JNIEnv* raw, typename Numbers<T>::Array handle, jsize start, jsize length, T* out) {
    const char* name = Numbers<T>::kGetRegion;
    JniEntry entry(raw, name, sized(name, length), JniEntry::kFailable, kOutOfBounds);
    if (const std::vector<T>* values = region<T>(entry, handle, start, length))
        std::copy_n(values->begin() + start, length, out);
}

template <class T>
void setRegion(JNIEnv* raw, typename Numbers<T>::Array handle, jsize start, jsize length,
               const T* in) {
    const char* name = Numbers<T>::kSetRegion;
    JniEntry entry(raw, name, sized(name, length), JniEntry::kFailable, kOutOfBounds);
    if (std::vector<T>* values = region<T>(entry, handle, start, length))
        std::copy_n(in, length, values->begin() + start);
}

template <class T>
T* getElements(JNIEnv* raw, typename Numbers<T>::Array handle, jboolean* isCopy) {
    const char* name = Numbers<T>::kGetElements;
    JniEntry entry(raw, name, plain(name), JniEntry::kFailable, kNoMemory);
    ScriptedObject* object = entry.need(handle, Numbers<T>::kKind);
    if (entry.failed() || object == nullptr) return nullptr;
    if (isCopy != nullptr) *isCopy = JNI_TRUE;
    const std::vector<T>& values = Numbers<T>::of(*object);
    return lend(entry.world, values.data(), values.size(), "elements of an array");
}

template <class T>
void releaseElements(JNIEnv* raw, typename Numbers<T>::Array handle, T* elements, jint mode) {
    const char* name = Numbers<T>::kRelease;
    JniEntry entry(raw, name, sized(name, mode), JniEntry::kOkWithException);
    ScriptedObject* object = entry.need(handle, Numbers<T>::kKind);
    if (!takeBack(entry, elements)) return;
    if (mode != JNI_ABORT && object != nullptr) {
        std::vector<T>& values = Numbers<T>::of(*object);
        std::copy_n(elements, values.size(), values.begin());
    }
    if (mode == JNI_COMMIT) {
        std::lock_guard lock(entry.world.mutex);
        entry.world.borrowed[elements] = "elements of an array";
    } else {
        delete[] elements;
    }
}

// ---- any array, arrays of objects
// -----------------------------------------------------------------

jsize lengthOf(const ScriptedObject& object) {
    switch (object.kind) {
    case ScriptedObject::kBytes:
        return static_cast<jsize>(object.bytes.size());
    case ScriptedObject::kLongs:
        return static_cast<jsize>(object.longs.size());
    case ScriptedObject::kObjects:
        return static_cast<jsize>(object.elements.size());
    default:
        return -1;
    }
}

jsize getArrayLength(JNIEnv* raw, jarray handle) {
    JniEntry entry(raw, "GetArrayLength", plain("GetArrayLength"), JniEntry::kNone);
    const ScriptedObject* object = entry.object(handle);
    if (object == nullptr || lengthOf(*object) < 0) {
        entry.violation("no array");
        return 0;
    }
    return lengthOf(*object);
}

jobjectArray newObjectArray(JNIEnv* raw, jsize length, jclass classHandle, jobject initial) {
    JniEntry entry(raw, "NewObjectArray", sized("NewObjectArray", length), JniEntry::kFailable,
                   kNoMemory);
    const ScriptedObject* cls = entry.need(classHandle, ScriptedObject::kClass);
    ScriptedObject* filler = entry.object(initial);
    if (entry.failed() || cls == nullptr) return nullptr;
    if (length < 0) {
        entry.throwNew("java/lang/NegativeArraySizeException", std::to_string(length));
        return nullptr;
    }
    const std::string& element = cls->mirrorOf->name();
    const std::string name = element[0] == '[' ? "[" + element : "[L" + element + ";";
    return static_cast<jobjectArray>(entry.local(&entry.vm.newObjectArray(
        std::vector<ScriptedObject*>(static_cast<std::size_t>(length), filler), name)));
}

// The element's place, if it exists; else an exception is pending.
ScriptedObject** element(JniEntry& entry, jobjectArray handle, jsize index) {
    ScriptedObject* array = entry.need(handle, ScriptedObject::kObjects);
    if (entry.failed() || array == nullptr) return nullptr;
    if (index < 0 || index >= lengthOf(*array)) {
        entry.throwNew(kOutOfBounds, std::to_string(index));
        return nullptr;
    }
    return &array->elements[static_cast<std::size_t>(index)];
}

jobject getObjectArrayElement(JNIEnv* raw, jobjectArray handle, jsize index) {
    JniEntry entry(raw, "GetObjectArrayElement", sized("GetObjectArrayElement", index),
                   JniEntry::kFailable, kOutOfBounds);
    ScriptedObject** place = element(entry, handle, index);
    return place != nullptr ? entry.local(*place) : nullptr;
}

void setObjectArrayElement(JNIEnv* raw, jobjectArray handle, jsize index, jobject value) {
    JniEntry entry(raw, "SetObjectArrayElement", sized("SetObjectArrayElement", index),
                   JniEntry::kFailable, kOutOfBounds);
    ScriptedObject* object = entry.object(value);
    if (ScriptedObject** place = element(entry, handle, index)) *place = object;
}

} // namespace

void fillJniArrays(JNINativeInterface_& table) {
    table.NewStringUTF = newStringUtf;
    table.GetStringUTFChars = getStringUtfChars;
    table.ReleaseStringUTFChars = releaseStringUtfChars;
    table.GetStringUTFLength = getStringUtfLength;
    table.GetStringLength = getStringLength;
    table.GetArrayLength = getArrayLength;
    table.NewByteArray = newNumbers<jbyte>;
    table.GetByteArrayRegion = getRegion<jbyte>;
    table.SetByteArrayRegion = setRegion<jbyte>;
    table.GetByteArrayElements = getElements<jbyte>;
    table.ReleaseByteArrayElements = releaseElements<jbyte>;
    table.NewLongArray = newNumbers<jlong>;
    table.GetLongArrayRegion = getRegion<jlong>;
    table.SetLongArrayRegion = setRegion<jlong>;
    table.GetLongArrayElements = getElements<jlong>;
    table.ReleaseLongArrayElements = releaseElements<jlong>;
    table.NewObjectArray = newObjectArray;
    table.GetObjectArrayElement = getObjectArrayElement;
    table.SetObjectArrayElement = setObjectArrayElement;
}

} // namespace scripted
