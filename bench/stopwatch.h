#pragma once

#include <algorithm>
#include <ctime>
#include <vector>

namespace obrin::bench {

/// Nanoseconds of processor time of one call of `work`, so that a busy machine changes little: the median of
/// nine rounds, each long enough to be measured.
template <class Work>
double nanosecondsPerCall(Work work) {
    const auto processorTime = [] {
        timespec time{};
        ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
    };
    const auto timed = [&](long calls) {
        const double begin = processorTime();
        for (long i = 0; i < calls; ++i)
            work();
        return processorTime() - begin;
    };
    long calls = 1;
    while (timed(calls) < 5e6)
        calls *= 2;
    std::vector<double> rounds;
    for (int round = 0; round < 9; ++round)
        rounds.push_back(timed(calls) / static_cast<double>(calls));
    std::nth_element(rounds.begin(), rounds.begin() + 4, rounds.end());
    return rounds[4];
}

} // namespace obrin::bench
