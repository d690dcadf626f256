// Extra values that travel with a record beside the keys of its class.
#ifndef PRB_DATA_PRBKEYVALUESET_H
#define PRB_DATA_PRBKEYVALUESET_H

#include "core/PRBCollectable.h"
#include "core/PRBHashSet.h"

#include <concepts>
#include <memory>
#include <string>
#include <vector>

// Owns its pairs and answers them in the order in which they were defined. A key that is
// defined twice keeps its first value. Not locked.
class PRBKeyValueSet {
public:
    // A key; alone it serves as a search probe. Equal to any pair of the same key, whatever the
    // kind of its value.
    class PRBKeyValuePair : public PRBCollectable {
    public:
        static constexpr int kStringPair = 0;
        static constexpr int kNumericPair = 1;
        static constexpr int kBarePair = 2;

        explicit PRBKeyValuePair(int key = 0) : key_(key) {}
        int key() const { return key_; }

        std::uint16_t isA() const override { return 0x7FA3; }
        std::uint32_t hash() const override { return static_cast<std::uint32_t>(key_); }
        bool isEqual(const PRBCollectable* other) const override;
        PRBCollectable* newSpecies() const override;
        PRBCollectable* copy() const override { return clone(); }

        virtual int getKeyType() const { return kBarePair; }
        virtual long long getIntValue() const { return -1; }
        virtual const char* getStringValue() const { return nullptr; }
        virtual PRBKeyValuePair* clone() const; // owned by the caller

    private:
        int key_;
    };

    class KeyValuePairString : public PRBKeyValuePair {
    public:
        explicit KeyValuePairString(int key = 0, const char* text = nullptr)
            : PRBKeyValuePair(key), text_(text == nullptr ? "" : text) {}
        PRBCollectable* newSpecies() const override;
        int getKeyType() const override { return kStringPair; }
        const char* getStringValue() const override { return text_.c_str(); }
        PRBKeyValuePair* clone() const override;

    private:
        std::string text_;
    };

    class KeyValuePairNumeric : public PRBKeyValuePair {
    public:
        explicit KeyValuePairNumeric(int key = 0, long long value = 0)
            : PRBKeyValuePair(key), value_(value) {}
        PRBCollectable* newSpecies() const override;
        int getKeyType() const override { return kNumericPair; }
        long long getIntValue() const override { return value_; }
        PRBKeyValuePair* clone() const override;

    private:
        long long value_;
    };

    // Answers each pair once, then null. The set must outlive it and not change meanwhile.
    class Iterator {
    public:
        explicit Iterator(const PRBKeyValueSet& set) : set_(&set) {}
        const PRBKeyValuePair* operator()() {
            return next_ < set_->pairs_.size() ? set_->pairs_[next_++].get() : nullptr;
        }

    private:
        const PRBKeyValueSet* set_;
        std::size_t next_ = 0;
    };

    PRBKeyValueSet();
    PRBKeyValueSet(const PRBKeyValueSet& other);
    PRBKeyValueSet& operator=(const PRBKeyValueSet& other);

    void defineKeyValuePair(int key, const char* text);
    void defineKeyValuePair(int key, long long value);
    // The other integer types; without this a literal 0 would be ambiguous.
    template <std::integral T> void defineKeyValuePair(int key, T value) {
        defineKeyValuePair(key, static_cast<long long>(value));
    }
    void defineKeyValuePair(int key, const std::string& text) {
        defineKeyValuePair(key, text.c_str());
    }

    const PRBKeyValuePair* find(int key) const; // null when the key is not there
    std::unique_ptr<Iterator> createIterator() const;
    std::size_t entries() const { return pairs_.size(); }

    static void* operator new(std::size_t n) noexcept { return PRBMemoryManager::operator new(n); }
    static void operator delete(void* p, std::size_t n) noexcept {
        PRBMemoryManager::operator delete(p, n);
    }

private:
    void add(std::unique_ptr<PRBKeyValuePair> pair);

    std::vector<std::unique_ptr<PRBKeyValuePair>> pairs_; // in the order of definition
    PRBHashSet index_;
};

#endif
