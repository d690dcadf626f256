#include "bridge/ReferenceWalk.h"

#include <algorithm>
#include <utility>

#include "bridge/IdTable.h"
#include "bridge/Jvmti.h"
#include "bridge/ObjectIds.h"
#include "bridge/TransientIds.h"

namespace bridge {
namespace {

// Tags that are no ids.
constexpr jlong kReferrer = jlong{1} << 32; // found by the first walk
constexpr jlong kList = jlong{2} << 32;     // the array of the chosen objects
constexpr jlong kChosen = jlong{4} << 32;   // and the index: one that has no id
static_assert(kReferrer > jlong{IdTable::kEnd});

// Objects may get an id between the count and the list.
constexpr jint kMoreIds = 32;

bool isForLife(jlong tag) { return tag > 0 && tag < jlong{IdTable::kEndObject}; }

jint indexIn(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info) {
    switch (kind) {
    case JVMTI_HEAP_REFERENCE_FIELD:
    case JVMTI_HEAP_REFERENCE_STATIC_FIELD:
        return info->field.index;
    case JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT:
        return info->array.index;
    case JVMTI_HEAP_REFERENCE_CONSTANT_POOL:
        return info->constant_pool.index;
    default:
        return 0;
    }
}

jvmtiError followAll(jvmtiEnv* jvmti, jint filter, jobject from, jvmtiHeapReferenceCallback visit,
                     void* user) {
    jvmtiHeapCallbacks callbacks{};
    callbacks.heap_reference_callback = visit;
    return jvmti->FollowReferences(filter, nullptr, from, &callbacks, user);
}

} // namespace

struct ReferenceWalk::Callbacks {
    // Called for references to tagged objects alone; all of the heap is walked.
    static jint JNICALL mark(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo*, jlong,
                             jlong, jlong, jlong* tag, jlong* referrerTag, jint, void*) {
        if ((kind == JVMTI_HEAP_REFERENCE_FIELD || kind == JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT) &&
            *referrerTag == 0 && isForLife(*tag))
            *referrerTag = kReferrer;
        return JVMTI_VISIT_OBJECTS;
    }

    static jint JNICALL follow(jvmtiHeapReferenceKind kind, const jvmtiHeapReferenceInfo* info,
                               jlong classTag, jlong, jlong, jlong* tag, jlong* referrerTag,
                               jint length, void* user) {
        auto& walk = *static_cast<ReferenceWalk*>(user);
        if (!referrerTag || kind == JVMTI_HEAP_REFERENCE_CLASS) return 0;
        if (*referrerTag == kList) {
            if (kind != JVMTI_HEAP_REFERENCE_ARRAY_ELEMENT) return 0;
            walk.choose(info->array.index, idOfTag(classTag), length, tag);
            return JVMTI_VISIT_OBJECTS;
        }
        walk.add(kind, indexIn(kind, info), *referrerTag, *tag);
        return 0;
    }

    static jint JNICALL unmark(jvmtiHeapReferenceKind, const jvmtiHeapReferenceInfo*, jlong, jlong,
                               jlong, jlong* tag, jlong* referrerTag, jint, void*) {
        if (referrerTag && *referrerTag == kList && *tag >= kReferrer && *tag != kList) *tag = 0;
        return 0;
    }
};

ReferenceWalk::~ReferenceWalk() {
    if (chosen_) jni_->DeleteLocalRef(chosen_);
    for (jweak reference : found_)
        if (reference) jni_->DeleteWeakGlobalRef(reference);
}

bool ReferenceWalk::run() {
    const bool whole = markReferrers() && gather() && follow();
    unmark();
    std::stable_sort(references_.begin(), references_.end(),
                     [](const Reference& a, const Reference& b) { return a.from < b.from; });
    return whole && complete_;
}

bool ReferenceWalk::markReferrers() {
    return followAll(jvmti_, JVMTI_HEAP_FILTER_UNTAGGED, nullptr, Callbacks::mark, this) ==
           JVMTI_ERROR_NONE;
}

// Into an array: those with an id, then the marked ones.
bool ReferenceWalk::gather() {
    jint marked = 0;
    JvmtiMemory<jobject> referrers(jvmti_);
    if (jvmti_->GetObjectsWithTags(1, &kReferrer, &marked, referrers.out(), nullptr) !=
        JVMTI_ERROR_NONE)
        return false;
    roomForLocals(jni_, marked);
    const LocalRef<jclass> type(jni_, jni_->FindClass("java/lang/Object"));
    const auto known = static_cast<jint>(objectIds().size()) + kMoreIds;
    chosen_ = type ? jni_->NewObjectArray(known + marked, type.get(), nullptr) : nullptr;
    if (!chosen_) {
        jni_->ExceptionClear();
        for (jint i = 0; i < marked; i++) jvmti_->SetTag(referrers[i], 0);
    } else {
        objectIds().forEachLive(jni_, [&](jobject object) {
            if (withId_ < known) jni_->SetObjectArrayElement(chosen_, withId_++, object);
        });
        found_.reserve(static_cast<size_t>(marked));
    }
    for (jint i = 0; i < marked; i++) {
        if (chosen_) {
            jni_->SetObjectArrayElement(chosen_, withId_ + i, referrers[i]);
            found_.push_back(jni_->NewWeakGlobalRef(referrers[i]));
            complete_ = complete_ && found_.back();
        }
        jni_->DeleteLocalRef(referrers[i]);
    }
    if (!chosen_ || !complete_) return false;
    objects_.resize(static_cast<size_t>(withId_) + static_cast<size_t>(marked));
    if (marked == 0) return true;
    firstFound_ = transientIds().take(static_cast<uint32_t>(marked));
    return firstFound_ != 0;
}

bool ReferenceWalk::follow() {
    return jvmti_->SetTag(chosen_, kList) == JVMTI_ERROR_NONE &&
           followAll(jvmti_, 0, chosen_, Callbacks::follow, this) == JVMTI_ERROR_NONE;
}

void ReferenceWalk::unmark() {
    if (!chosen_) return;
    jvmti_->SetTag(chosen_, kList);
    followAll(jvmti_, 0, chosen_, Callbacks::unmark, this);
    jvmti_->SetTag(chosen_, 0);
}

void ReferenceWalk::choose(jint index, uint32_t classId, jint length, jlong* tag) noexcept try {
    Object& object = objects_[static_cast<size_t>(index)];
    uint32_t id = idOfTag(*tag);
    if (id == 0) {
        if (index < withId_) return;
        *tag = kChosen + index;
        id = firstFound_ + static_cast<uint32_t>(index - withId_);
    } else if (byId_.find(id)) {
        return; // it got its id since it was marked
    } else {
        byId_.put(id, static_cast<uint32_t>(index));
    }
    object = {id, classId, length};
} catch (...) {
    complete_ = false;
}

void ReferenceWalk::add(jvmtiHeapReferenceKind kind, jint index, jlong from, jlong to) noexcept
    try {
    const uint32_t target = idOf(to);
    const uint32_t referrer = indexOf(from);
    if (target != 0 && referrer < objects_.size())
        references_.push_back({referrer, kind, index, target});
} catch (...) {
    complete_ = false;
}

uint32_t ReferenceWalk::idOf(jlong tag) const {
    return tag >= kChosen ? objects_[static_cast<size_t>(tag - kChosen)].id : idOfTag(tag);
}

uint32_t ReferenceWalk::indexOf(jlong tag) const {
    if (tag >= kChosen) return static_cast<uint32_t>(tag - kChosen);
    const uint32_t* index = byId_.find(idOfTag(tag));
    return index ? *index : ~0U;
}

std::vector<jweak> ReferenceWalk::takeFound() { return std::exchange(found_, {}); }

} // namespace bridge
