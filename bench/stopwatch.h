#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace obrin::bench {

/// Nanoseconds of one call of `work`: the median of nine rounds, each long enough to be measured.
template <class Work>
double nanosecondsPerCall(Work work) {
    using Clock = std::chrono::steady_clock;
    const auto timed = [&work](long calls) {
        const auto begin = Clock::now();
        for (long i = 0; i < calls; ++i)
            work();
        return std::chrono::duration<double, std::nano>(Clock::now() - begin).count();
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
