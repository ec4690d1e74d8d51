#include "bench/ratios.h"
#include "bench/stopwatch.h"
#include "numeric/medianFilter.h"

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <cstddef>
#include <random>
#include <vector>

namespace obrin::bench {
namespace {

/// As many outputs at the same places as median_filter gives, each window copied and partitioned.
Count medianByPartition(const std::vector<float>& in, Count w, Count s, Count windows,
                        std::vector<float>& window, std::vector<float>& out) {
    for (Count i = 0; i < windows; ++i) {
        const auto first = in.begin() + static_cast<std::ptrdiff_t>(i) * s;
        std::copy(first, first + w, window.begin());
        std::nth_element(window.begin(), window.begin() + w / 2, window.end());
        out[static_cast<std::size_t>(i)] = window[static_cast<std::size_t>(w) / 2];
    }
    return windows;
}

Ratio medianRatio(const char* what, Count n, Count w, Count s, double required) {
    std::mt19937 random(1);
    std::normal_distribution<float> noise;
    std::vector<float> in(static_cast<std::size_t>(n));
    std::generate(in.begin(), in.end(), [&] { return noise(random); });
    std::vector<float> out(in.size() + 2);
    std::vector<float> window(static_cast<std::size_t>(w));
    const Count windows = median_filter(n, in.data(), w, s, out.data());
    const auto filter = [&] {
        benchmark::DoNotOptimize(in.data());
        benchmark::DoNotOptimize(median_filter(n, in.data(), w, s, out.data()));
        benchmark::ClobberMemory();
    };
    const auto partition = [&] {
        benchmark::DoNotOptimize(in.data());
        benchmark::DoNotOptimize(medianByPartition(in, w, s, windows, window, out));
        benchmark::ClobberMemory();
    };
    // In turn, so that what else the machine does falls on both.
    std::array<double, 3> fast;
    std::array<double, 3> slow;
    for (std::size_t turn = 0; turn < fast.size(); ++turn) {
        fast[turn] = nanosecondsPerCall(filter);
        slow[turn] = nanosecondsPerCall(partition);
    }
    std::sort(fast.begin(), fast.end());
    std::sort(slow.begin(), slow.end());
    return {what, fast[1], slow[1], required};
}

} // namespace

/// median_filter against std::nth_element for each window; noise, the same for both.
std::vector<Ratio> medianRatios() {
    return {
        medianRatio("`median_filter` of 10080 samples, window 5 stride 5", 10080, 5, 5, 10),
        medianRatio("`median_filter` of 100000 samples, window 5 stride 5", 100000, 5, 5, 10),
        medianRatio("`median_filter` of 10080 samples, window 501 stride 1", 10080, 501, 1, 20),
        medianRatio("`median_filter` of 10080 samples, window 51 stride 1", 10080, 51, 1, 1),
        medianRatio("`median_filter` of 10080 samples, window 11 stride 1", 10080, 11, 1, 1),
    };
}

} // namespace obrin::bench
