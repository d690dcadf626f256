// A text that is set a few times at most and read by any thread at any time without a lock:
// names of classes and methods, which a replayed class load may fill in while others read them.
#ifndef PRB_RUNTIME_PRBSHAREDTEXT_H
#define PRB_RUNTIME_PRBSHAREDTEXT_H

#include <atomic>
#include <cstddef>

// A replaced text stays allocated until the object goes, so a pointer that c_str() answered is
// valid as long as the object is.
class PRBSharedText {
public:
    PRBSharedText() = default;
    explicit PRBSharedText(const char* text) { set(text); }
    ~PRBSharedText();
    PRBSharedText(const PRBSharedText& other) { set(other.c_str()); }
    PRBSharedText& operator=(const PRBSharedText& other) {
        if (this != &other) set(other.c_str());
        return *this;
    }

    // Null counts as empty. Setting the same text again costs nothing.
    void set(const char* text);
    const char* c_str() const; // never null
    bool empty() const { return *c_str() == '\0'; }

private:
    struct Node {
        Node* previous;
        std::size_t size; // of the allocation, bytes
        char* text() { return reinterpret_cast<char*>(this + 1); }
    };
    std::atomic<Node*> current_{nullptr};
};

#endif
