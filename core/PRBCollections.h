// The containers of collectables beside the hash set: singly linked list, ordered and sorted
// collection. None owns its elements unless a "destroy" operation is called, and none locks.
#ifndef PRB_CORE_PRBCOLLECTIONS_H
#define PRB_CORE_PRBCOLLECTIONS_H

#include "core/PRBCollectable.h"

#include <cstddef>
#include <forward_list>
#include <set>
#include <vector>

// What every collection offers; data-return operations take one by reference.
class PRBCollection {
public:
    virtual ~PRBCollection() = default;
    virtual PRBCollectable* insert(PRBCollectable* item) = 0;
    virtual std::size_t entries() const = 0;
    virtual void clearAndDestroy() = 0; // deletes every element, then empties
    // Deletes the first element that is equal to the key; false when there is none.
    virtual bool removeAndDestroy(const PRBCollectable* key) = 0;
};

// First in, first out. Moving a list moves its elements and leaves the source empty.
class PRBSlist : public PRBCollection {
public:
    PRBSlist() = default;
    PRBSlist(PRBSlist&& other) noexcept { swap(other); }
    PRBSlist& operator=(PRBSlist&& other) noexcept {
        swap(other);
        return *this;
    }
    void swap(PRBSlist& other) noexcept;

    PRBCollectable* insert(PRBCollectable* item) override; // at the end
    PRBCollectable* get();                                 // removes the first; null when empty
    PRBCollectable* first() const;                         // null when empty
    std::size_t entries() const override { return count_; }
    bool isEmpty() const { return count_ == 0; }
    void clear(); // forgets the elements
    void clearAndDestroy() override;
    bool removeAndDestroy(const PRBCollectable* key) override;

private:
    friend class PRBSlistIterator;
    std::forward_list<PRBCollectable*> items_;
    std::forward_list<PRBCollectable*>::iterator last_ = items_.before_begin();
    std::size_t count_ = 0;
};

// Advances over a list that must not change meanwhile; null at the end.
class PRBSlistIterator {
public:
    explicit PRBSlistIterator(const PRBSlist& list)
        : next_(list.items_.begin()), end_(list.items_.end()) {}
    PRBCollectable* operator()() { return next_ == end_ ? nullptr : *next_++; }

private:
    std::forward_list<PRBCollectable*>::const_iterator next_, end_;
};

// Last in, first out; the thread model's stack of instrumented entries.
class PRBSlistStack {
public:
    void push(PRBCollectable* item) { items_.push_back(item); }
    PRBCollectable* pop(); // null when empty
    PRBCollectable* top() const { return items_.empty() ? nullptr : items_.back(); }
    std::size_t entries() const { return items_.size(); }
    void clearAndDestroy();

private:
    std::vector<PRBCollectable*> items_;
};

// Insertion-ordered and indexable.
class PRBOrdered : public PRBCollection {
public:
    explicit PRBOrdered(std::size_t capacity = 64) { items_.reserve(capacity); }
    PRBCollectable* insert(PRBCollectable* item) override;
    std::size_t entries() const override { return items_.size(); }
    PRBCollectable* at(std::size_t i) const { return i < items_.size() ? items_[i] : nullptr; }
    void clearAndDestroy() override;
    bool removeAndDestroy(const PRBCollectable* key) override;

private:
    std::vector<PRBCollectable*> items_;
};

// Kept in the order of compareTo; elements that compare as zero keep their order of insertion.
class PRBSortedCollection : public PRBCollection {
    struct Less {
        bool operator()(const PRBCollectable* a, const PRBCollectable* b) const {
            return a->compareTo(b) < 0;
        }
    };

public:
    using const_iterator = std::multiset<PRBCollectable*, Less>::const_iterator;
    PRBCollectable* insert(PRBCollectable* item) override;
    std::size_t entries() const override { return items_.size(); }
    const_iterator begin() const { return items_.begin(); }
    const_iterator end() const { return items_.end(); }
    void clearAndDestroy() override;
    bool removeAndDestroy(const PRBCollectable* key) override;

private:
    std::multiset<PRBCollectable*, Less> items_;
};

// Splits a text: each call answers the next token that is not empty, and an empty one when the
// text is exhausted.
class PRBTokenizer {
public:
    explicit PRBTokenizer(std::string text) : text_(std::move(text)) {}
    std::string operator()(const char* delimiters);

private:
    std::string text_;
    std::size_t next_ = 0;
};

#endif
