// Room for the keys of one record, without an allocation for as many as any class has.
#ifndef PRB_DATA_PRBKEYLIST_H
#define PRB_DATA_PRBKEYLIST_H

#include <algorithm>
#include <cstddef>
#include <vector>

class PRBKeyList {
public:
    explicit PRBKeyList(int count) : count_(static_cast<std::size_t>(std::max(count, 0))) {
        if (count_ > kFew) many_.resize(count_);
    }
    int* data() { return count_ > kFew ? many_.data() : few_; }
    int* begin() { return data(); }
    int* end() { return data() + count_; }

private:
    static constexpr std::size_t kFew = 64;
    std::size_t count_;
    int few_[kFew];
    std::vector<int> many_;
};

#endif
