// AgentConnection: hex dumps for the Java side's log.
#include "collector/PRBNativeGuard.h"
#include "collector/PRBNatives.h"
#include "core/PRBMemoryManager.h"
#include "data/SnapHex.h"

#include <algorithm>
#include <memory>
#include <string>

namespace {

struct ReleaseBlock {
    std::size_t size;
    void operator()(unsigned char* bytes) const { PRBMemoryManager::release(bytes, size); }
};

// The lines of a dump, each ended by a line feed; one empty line for no data.
std::string dump(JNIEnv* env, jbyteArray data, const char* title) {
    const jsize length = data == nullptr ? 0 : env->GetArrayLength(data);
    const auto size = static_cast<std::size_t>(length);
    std::string text;
    if (length > 0) {
        std::unique_ptr<unsigned char, ReleaseBlock> block(
            static_cast<unsigned char*>(PRBMemoryManager::allocate(size)), ReleaseBlock{size});
        if (block == nullptr) return text;
        env->GetByteArrayRegion(data, 0, length, reinterpret_cast<jbyte*>(block.get()));
        if (!PRBJni::clearException(env)) SnapHex(block.get(), length, title, &text);
    }
    if (text.empty() || text.back() != '\n') text += '\n';
    return text;
}

// Every element starts as the title, and stays it where the dump has no line.
jobjectArray toArray(JNIEnv* env, const std::string& text, jstring title) {
    const auto lines = static_cast<jsize>(std::count(text.begin(), text.end(), '\n'));
    PRBJni::LocalRef<jclass> type(env, PRBJni::findClass(env, "java/lang/String"));
    if (type.get() == nullptr) return nullptr;
    jobjectArray array = env->NewObjectArray(lines, type.get(), title);
    if (array == nullptr || env->ExceptionCheck()) return nullptr;
    std::size_t from = 0;
    for (jsize i = 0; i < lines; ++i) {
        const std::size_t to = text.find('\n', from);
        const std::string line = text.substr(from, to - from);
        from = to + 1;
        if (line.empty()) continue;
        PRBJni::LocalRef<jstring> element(env, PRBJni::newString(env, line.c_str()));
        if (element.get() == nullptr) continue;
        env->SetObjectArrayElement(array, i, element.get());
        PRBJni::clearException(env);
    }
    return array;
}

} // namespace

PRB_NATIVE(jobjectArray, AgentConnection, createHexDumpString)
(JNIEnv* env, jclass, jbyteArray data, jstring title) {
    return PRBNativeGuard::run(
        PRB_NATIVE_NAME(AgentConnection, createHexDumpString), jobjectArray{}, [&] {
            if (env == nullptr) return jobjectArray{};
            const std::string text = PRBJni::toString(env, title);
            PRBJni::LocalRef<jstring> empty(env, title == nullptr ? PRBJni::newString(env, "")
                                                                  : nullptr);
            return toArray(env, dump(env, data, text.c_str()),
                           title == nullptr ? empty.get() : title);
        });
}
