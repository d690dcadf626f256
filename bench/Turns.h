// Rivals that take turns: each figure is the median of many rounds of the thread's processor time,
// so that other programs on the machine slow all of them alike.
#ifndef PRB_BENCH_TURNS_H
#define PRB_BENCH_TURNS_H

#include <algorithm>
#include <cstddef>
#include <ctime>
#include <vector>

class Turns {
public:
    // Nanoseconds of one run of `work`, added to the rival's rounds.
    template <class Work> void time(std::vector<double>& rival, int repetitions, Work&& work) {
        const double begin = now();
        for (int i = 0; i < repetitions; ++i) work(i);
        rival.push_back((now() - begin) / repetitions);
    }
    static double median(std::vector<double> rounds) {
        if (rounds.empty()) return 0;
        const auto middle = rounds.begin() + static_cast<std::ptrdiff_t>(rounds.size() / 2);
        std::nth_element(rounds.begin(), middle, rounds.end());
        return *middle;
    }

private:
    static double now() {
        std::timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
    }
};

#endif
