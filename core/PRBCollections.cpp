#include "core/PRBCollections.h"

#include <algorithm>
#include <iterator>
#include <utility>

void PRBSlist::swap(PRBSlist& other) noexcept {
    items_.swap(other.items_);
    std::swap(last_, other.last_);
    std::swap(count_, other.count_);
    // The position before the first element belongs to the list object, not to its elements.
    if (count_ == 0) last_ = items_.before_begin();
    if (other.count_ == 0) other.last_ = other.items_.before_begin();
}

PRBCollectable* PRBSlist::insert(PRBCollectable* item) {
    last_ = items_.insert_after(last_, item);
    ++count_;
    return item;
}

PRBCollectable* PRBSlist::get() {
    if (count_ == 0) return nullptr;
    PRBCollectable* item = items_.front();
    items_.pop_front();
    if (--count_ == 0) last_ = items_.before_begin();
    return item;
}

PRBCollectable* PRBSlist::first() const { return count_ == 0 ? nullptr : items_.front(); }

void PRBSlist::clear() {
    items_.clear();
    last_ = items_.before_begin();
    count_ = 0;
}

void PRBSlist::clearAndDestroy() {
    while (PRBCollectable* item = get()) delete item;
}

bool PRBSlist::removeAndDestroy(const PRBCollectable* key) {
    for (auto before = items_.before_begin();; ++before) {
        auto at = std::next(before);
        if (at == items_.end()) return false;
        if (!key->isEqual(*at)) continue;
        PRBCollectable* item = *at;
        if (last_ == at) last_ = before;
        items_.erase_after(before);
        --count_;
        delete item;
        return true;
    }
}

PRBCollectable* PRBSlistStack::pop() {
    PRBCollectable* item = top();
    if (item != nullptr) items_.pop_back();
    return item;
}

void PRBSlistStack::clearAndDestroy() {
    while (PRBCollectable* item = pop()) delete item;
}

PRBCollectable* PRBOrdered::insert(PRBCollectable* item) {
    items_.push_back(item);
    return item;
}

void PRBOrdered::clearAndDestroy() {
    for (PRBCollectable* item : std::exchange(items_, {})) delete item;
}

bool PRBOrdered::removeAndDestroy(const PRBCollectable* key) {
    auto at = std::find_if(items_.begin(), items_.end(),
                           [key](const PRBCollectable* item) { return key->isEqual(item); });
    if (at == items_.end()) return false;
    PRBCollectable* item = *at;
    items_.erase(at);
    delete item;
    return true;
}

PRBCollectable* PRBSortedCollection::insert(PRBCollectable* item) {
    items_.insert(item);
    return item;
}

void PRBSortedCollection::clearAndDestroy() {
    std::multiset<PRBCollectable*, Less> gone;
    gone.swap(items_);
    for (PRBCollectable* item : gone) delete item;
}

bool PRBSortedCollection::removeAndDestroy(const PRBCollectable* key) {
    auto at = std::find_if(items_.begin(), items_.end(),
                           [key](const PRBCollectable* item) { return key->isEqual(item); });
    if (at == items_.end()) return false;
    PRBCollectable* item = *at;
    items_.erase(at);
    delete item;
    return true;
}

std::string PRBTokenizer::operator()(const char* delimiters) {
    std::size_t begin = text_.find_first_not_of(delimiters, next_);
    if (begin == std::string::npos) {
        next_ = text_.size();
        return std::string();
    }
    std::size_t end = std::min(text_.find_first_of(delimiters, begin), text_.size());
    next_ = std::min(end + 1, text_.size()); // the delimiter that ended the token is used up
    return text_.substr(begin, end - begin);
}
