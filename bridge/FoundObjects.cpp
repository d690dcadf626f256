#include "bridge/FoundObjects.h"

#include <utility>

#include "bridge/Jvmti.h"

namespace bridge {

void FoundObjects::free(JNIEnv* jni, const std::vector<Dump>& dumps) {
    for (const Dump& dump : dumps)
        for (jweak reference : dump.references) jni->DeleteWeakGlobalRef(reference);
}

void FoundObjects::add(JNIEnv* jni, uint32_t first, std::vector<jweak> references, int64_t now) {
    if (references.empty()) return;
    std::vector<Dump> old;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (dumps_.size() == kMost) {
            old.push_back(std::move(dumps_.front()));
            dumps_.pop_front();
        }
        dumps_.push_back({first, now, std::move(references)});
    }
    free(jni, old);
}

jobject FoundObjects::object(JNIEnv* jni, uint32_t id) {
    ExceptionShelter shelter(jni);
    std::lock_guard<std::mutex> guard(mutex_);
    // The newest first: the ids of an old dump may have been given again.
    for (auto dump = dumps_.rbegin(); dump != dumps_.rend(); ++dump) {
        const size_t index = id - dump->first;
        if (id >= dump->first && index < dump->references.size())
            return jni->NewLocalRef(dump->references[index]);
    }
    return nullptr;
}

void FoundObjects::sweep(JNIEnv* jni, int64_t now) {
    std::vector<Dump> old;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        while (!dumps_.empty() && now - dumps_.front().since > kKeptNs) {
            old.push_back(std::move(dumps_.front()));
            dumps_.pop_front();
        }
    }
    free(jni, old);
}

size_t FoundObjects::size() const {
    std::lock_guard<std::mutex> guard(mutex_);
    size_t references = 0;
    for (const Dump& dump : dumps_) references += dump.references.size();
    return references;
}

FoundObjects& foundObjects() {
    static FoundObjects& all = *new FoundObjects;
    return all;
}

} // namespace bridge
