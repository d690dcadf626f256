#include "bridge/Announcements.h"

namespace bridge {

void Announcements::started(JNIEnv* env) {
    std::lock_guard<std::mutex> guard(mutex_);
    threads_.try_emplace(env);
}

bool Announcements::claim(JNIEnv* env) {
    std::lock_guard<std::mutex> guard(mutex_);
    const auto known = threads_.find(env);
    if (known == threads_.end() || known->second.claimed) return false;
    known->second.claimed = true;
    known->second.busy++;
    return true;
}

bool Announcements::claimAgain(JNIEnv* env) {
    std::lock_guard<std::mutex> guard(mutex_);
    const auto known = threads_.find(env);
    if (known == threads_.end()) return false;
    known->second.claimed = true;
    known->second.busy++;
    return true;
}

void Announcements::announced(JNIEnv* env) {
    std::lock_guard<std::mutex> guard(mutex_);
    const auto known = threads_.find(env);
    if (known != threads_.end()) {
        known->second.busy--;
    } else {
        const auto leaving = leaving_.find(env);
        if (leaving != leaving_.end() && --leaving->second == 0) leaving_.erase(leaving);
    }
    idle_.notify_all();
}

void Announcements::ended(JNIEnv* env) {
    std::unique_lock<std::mutex> guard(mutex_);
    const auto known = threads_.find(env);
    if (known == threads_.end()) return;
    const uint32_t busy = known->second.busy;
    threads_.erase(known);
    if (busy == 0) return;
    leaving_[env] = busy;
    idle_.wait(guard, [&] { return !leaving_.contains(env); });
}

void Announcements::forget() {
    std::lock_guard<std::mutex> guard(mutex_);
    for (auto& [env, state] : threads_) state.claimed = false;
}

} // namespace bridge
