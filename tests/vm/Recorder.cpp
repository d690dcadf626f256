#include "tests/vm/Recorder.h"

#include "tests/vm/ScriptedThreads.h"

#include <algorithm>

namespace scripted {

std::vector<Call> Recorder::calls(unsigned kinds) const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    std::vector<Call> result;
    for (const Call& call : calls_)
        if ((call.kind & kinds) != 0) result.push_back(call);
    return result;
}

std::vector<std::string> Recorder::texts(unsigned kinds) const {
    InsideVm inside;
    std::vector<std::string> result;
    for (const Call& call : calls(kinds)) result.push_back(call.text);
    return result;
}

std::vector<std::string> Recorder::textsOf(const std::vector<std::string>& names) const {
    InsideVm inside;
    std::vector<std::string> result;
    for (const Call& call : calls())
        if (std::find(names.begin(), names.end(), call.name) != names.end())
            result.push_back(call.text);
    return result;
}

std::size_t Recorder::count(const std::string& nameOrText) const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    return static_cast<std::size_t>(
        std::count_if(calls_.begin(), calls_.end(), [&](const Call& call) {
            return call.name == nameOrText || call.text == nameOrText;
        }));
}

std::vector<std::string> Recorder::callsHolding(const std::string& monitor) const {
    InsideVm inside;
    std::vector<std::string> result;
    for (const Call& call : calls(kJvmpi | kJni))
        if (std::find(call.held.begin(), call.held.end(), monitor) != call.held.end())
            result.push_back(call.text);
    return result;
}

void Recorder::clear() {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    calls_.clear();
}

void Recorder::violation(const std::string& text) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    violations_.push_back(text);
}

std::vector<std::string> Recorder::violations() const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    return violations_;
}

std::vector<std::string> Recorder::takeViolations() {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    std::vector<std::string> result;
    result.swap(violations_);
    return result;
}

void Recorder::failNext(const std::string& name, std::optional<std::intptr_t> result,
                        unsigned skip) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    scripted_[name].push_back({skip, result});
}

void Recorder::failNth(std::size_t n) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    failAt_ = n;
    failable_ = 0;
    fired_ = false;
}

void Recorder::failEvery(std::size_t n) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    failEvery_ = n;
    failable_ = 0;
    fired_ = false;
}

std::size_t Recorder::failableCalls() const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    return failable_;
}

bool Recorder::faultFired() const {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    return fired_;
}

void Recorder::clearFaults() {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    scripted_.clear();
    failAt_ = 0;
    failEvery_ = 0;
    failable_ = 0;
    fired_ = false;
}

void Recorder::duringNext(const std::string& name, std::function<void()> action) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    actions_[name] = std::move(action);
    hasActions_.store(true, std::memory_order_release);
}

std::function<void()> Recorder::takeAction(const char* name) {
    if (!hasActions_.load(std::memory_order_acquire)) return nullptr;
    std::lock_guard lock(mutex_);
    auto found = actions_.find(name);
    if (found == actions_.end()) return nullptr;
    std::function<void()> action = std::move(found->second);
    actions_.erase(found);
    hasActions_.store(!actions_.empty(), std::memory_order_release);
    return action;
}

Verdict Recorder::record(Call call, bool failable) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    Verdict verdict;
    if (failable) verdict = judgeLocked(call.name);
    call.failed = verdict.fail;
    calls_.push_back(std::move(call));
    return verdict;
}

Verdict Recorder::judge(const char* name) {
    InsideVm inside;
    std::lock_guard lock(mutex_);
    if (failAt_ == 0 && failEvery_ == 0 && scripted_.empty()) {
        ++failable_;
        return {};
    }
    return judgeLocked(name);
}

Verdict Recorder::judgeLocked(const std::string& name) {
    ++failable_;
    Verdict verdict;
    if (failAt_ != 0 && failable_ == failAt_) verdict.fail = true;
    if (failEvery_ != 0 && failable_ % failEvery_ == 0) verdict.fail = true;
    auto found = scripted_.find(name);
    if (found != scripted_.end()) {
        // Scripted failures of one name are served one after the other.
        Scripted& next = found->second.front();
        if (next.skip > 0) {
            --next.skip;
        } else {
            verdict.fail = true;
            verdict.result = next.result;
            found->second.erase(found->second.begin());
            if (found->second.empty()) scripted_.erase(found);
        }
    }
    fired_ = fired_ || verdict.fail;
    return verdict;
}

} // namespace scripted
