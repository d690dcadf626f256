#include "core/PRBCollections.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

PRBCollectableString* text(const char* t) { return new PRBCollectableString(t); }
const std::string& asText(const PRBCollectable* c) {
    return *static_cast<const PRBCollectableString*>(c);
}

Texts textsOf(const PRBSlist& list) {
    Texts found;
    PRBSlistIterator next(list);
    while (PRBCollectable* item = next()) found.push_back(asText(item));
    return found;
}

struct Counted : PRBCollectable {
    explicit Counted(int n) : number(n) { ++alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() override { --alive; }
    bool isEqual(const PRBCollectable* o) const override {
        return static_cast<const Counted*>(o)->number == number;
    }
    int compareTo(const PRBCollectable* o) const override {
        return number - static_cast<const Counted*>(o)->number;
    }
    int number;
    static int alive;
};
int Counted::alive = 0;

} // namespace

TEST(List, isFirstInFirstOut) {
    PRBSlist list;
    EXPECT_EQ(list.get(), nullptr);
    EXPECT_EQ(list.first(), nullptr);
    PRBCollectableString a("a"), b("b"), c("c");
    EXPECT_EQ(list.insert(&a), &a);
    list.insert(&b);
    EXPECT_EQ(list.entries(), 2u);
    EXPECT_EQ(list.get(), &a);
    list.insert(&c);
    EXPECT_EQ(list.get(), &b);
    EXPECT_EQ(list.get(), &c);
    EXPECT_EQ(list.get(), nullptr);
    EXPECT_TRUE(list.isEmpty());
    list.insert(&b); // usable after it was empty
    EXPECT_EQ(list.first(), &b);
    list.clear();
}

TEST(List, iteratorOfAnEmptyListEndsAtOnce) {
    PRBSlist list;
    PRBSlistIterator next(list);
    EXPECT_EQ(next(), nullptr);
    EXPECT_EQ(next(), nullptr);
}

TEST(List, removesTheFirstEqualElement) {
    PRBSlist list;
    for (const char* t : {"a", "b", "a", "c"}) list.insert(text(t));
    PRBCollectableString a("a"), c("c"), x("x");
    EXPECT_TRUE(list.removeAndDestroy(&a));
    EXPECT_EQ(textsOf(list), (Texts{"b", "a", "c"}));
    EXPECT_FALSE(list.removeAndDestroy(&x));
    EXPECT_TRUE(list.removeAndDestroy(&c)); // the last: what follows is still appended
    list.insert(text("d"));
    EXPECT_EQ(textsOf(list), (Texts{"b", "a", "d"}));
    list.clearAndDestroy();
    EXPECT_EQ(list.entries(), 0u);
}

TEST(List, movesAndSwapsItsElements) {
    PRBSlist list;
    list.insert(text("a"));
    PRBSlist moved(std::move(list));
    EXPECT_EQ(list.entries(), 0u);
    list.insert(text("b")); // the source is empty and usable
    moved.insert(text("c"));
    EXPECT_EQ(textsOf(moved), (Texts{"a", "c"}));
    moved.swap(list);
    EXPECT_EQ(textsOf(moved), Texts{"b"});
    moved.insert(text("d"));
    list.insert(text("e"));
    EXPECT_EQ(textsOf(list), (Texts{"a", "c", "e"}));
    EXPECT_EQ(textsOf(moved), (Texts{"b", "d"}));
    list.clearAndDestroy();
    moved.clearAndDestroy();
}

TEST(Stack, isLastInFirstOut) {
    PRBSlistStack stack;
    EXPECT_EQ(stack.pop(), nullptr);
    EXPECT_EQ(stack.top(), nullptr);
    PRBCollectableString a("a"), b("b");
    stack.push(&a);
    stack.push(&b);
    EXPECT_EQ(stack.top(), &b);
    EXPECT_EQ(stack.pop(), &b);
    EXPECT_EQ(stack.pop(), &a);
    EXPECT_EQ(stack.entries(), 0u);
}

TEST(Collections, destroyTheirElementsWhenTold) {
    PRBSlist list;
    PRBOrdered ordered(4);
    PRBSortedCollection sorted;
    PRBSlistStack stack;
    for (PRBCollection* each : std::initializer_list<PRBCollection*>{&list, &ordered, &sorted}) {
        for (int i = 0; i < 10; ++i) each->insert(new Counted(i));
        EXPECT_EQ(each->entries(), 10u);
        EXPECT_EQ(Counted::alive, 10);
        {
            Counted three(3), thirty(30);
            EXPECT_TRUE(each->removeAndDestroy(&three));
            EXPECT_FALSE(each->removeAndDestroy(&three));
            EXPECT_FALSE(each->removeAndDestroy(&thirty));
        }
        EXPECT_EQ(each->entries(), 9u);
        EXPECT_EQ(Counted::alive, 9);
        each->clearAndDestroy();
        EXPECT_EQ(each->entries(), 0u);
        EXPECT_EQ(Counted::alive, 0);
    }
    stack.push(new Counted(1));
    stack.clearAndDestroy();
    EXPECT_EQ(Counted::alive, 0);
}

TEST(Ordered, keepsTheOrderOfInsertion) {
    PRBOrdered ordered(1);
    PRBCollectableString a("a"), b("b");
    ordered.insert(&b);
    ordered.insert(&a);
    EXPECT_EQ(ordered.at(0), &b);
    EXPECT_EQ(ordered.at(1), &a);
    EXPECT_EQ(ordered.at(2), nullptr);
}

TEST(Sorted, keepsTheOrderOfItsElements) {
    PRBSortedCollection sorted;
    for (const char* t : {"c", "a", "b", "a"}) sorted.insert(text(t));
    Texts found;
    for (const PRBCollectable* item : sorted) found.push_back(asText(item));
    EXPECT_EQ(found, (Texts{"a", "a", "b", "c"}));
    sorted.clearAndDestroy();
}

TEST(Tokenizer, skipsEmptyTokens) {
    PRBTokenizer next(",,a,,b,");
    EXPECT_EQ(next(","), "a");
    EXPECT_EQ(next(","), "b");
    EXPECT_EQ(next(","), "");
    EXPECT_EQ(next(","), "");
    PRBTokenizer mixed("a, b;c");
    EXPECT_EQ(mixed(", "), "a");
    EXPECT_EQ(mixed(";"), " b"); // delimiters may change; the one before b was used up
    EXPECT_EQ(mixed(";"), "c");
    EXPECT_EQ(PRBTokenizer("")(","), "");
}
