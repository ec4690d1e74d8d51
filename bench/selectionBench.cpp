#include "bench/ratios.h"
#include "bench/stopwatch.h"
#include "numeric/medianFilter.h"
#include "numeric/piecewiseFit.h"
#include "prediction/modelSelection.h"
#include "tests/numeric/exhaustiveFit.h"
#include "tests/support/countedAllocations.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <random>
#include <string>

namespace obrin::bench {
namespace {

/// The median of every window by a sort of a copy: the textbook road.
Count sortPerWindow(Count n, const float* in, Count w, Count s, float* out) {
    std::vector<float> window(static_cast<std::size_t>(w));
    const Count limit = ((n - w) / s + 1) * s;
    Count written = 0;
    for (Count first = 0, next = w;; first += s, next += s) {
        std::copy_n(in + first, w, window.begin());
        std::sort(window.begin(), window.end());
        out[written++] = window[static_cast<std::size_t>(w / 2)];
        if (next >= limit)
            return written;
    }
}

struct Series {
    std::vector<float> x;
    std::vector<float> y;
};

/// A resource that rises, faster from two thirds on, with noise: every model has something to fit.
Series rising(int n) {
    std::mt19937 random(static_cast<unsigned>(n));
    std::normal_distribution<float> noise(0.0F, 0.3F);
    Series series;
    for (int i = 0; i < n; ++i) {
        const float t = static_cast<float>(i);
        const float late = std::max(0.0F, t - static_cast<float>(2 * n) / 3);
        series.x.push_back(10.0F * t);
        series.y.push_back(20.0F + 20.0F * t / static_cast<float>(n) + 60.0F * late / static_cast<float>(n) +
                           noise(random));
    }
    return series;
}

std::vector<float> grid(const Series& series) {
    std::vector<float> times(200);
    for (std::size_t i = 0; i < times.size(); ++i)
        times[i] = series.x.back() + 900.0F * static_cast<float>(i);
    return times;
}

Ratio selection(const char* what, int n, double required) {
    const Series series = rising(n);
    const std::vector<float> times = grid(series);
    std::vector<float> forecast(times.size());
    const PredictionParameters parameters;
    std::string name;
    const auto run = [&](const FittingTools& tools) {
        return nanosecondsPerCall([&] {
            benchmark::DoNotOptimize(select_model_and_predict_with(tools, n, series.x.data(), series.y.data(),
                                                                   200, times.data(), forecast.data(),
                                                                   &parameters, &name));
        });
    };
    const double fast = run({median_filter, best_piecewise_fit});
    const double slow = run({sortPerWindow, test::exhaustivePiecewiseFit});
    return {what, fast, slow, required};
}

} // namespace

std::vector<Ratio> selectionRatios() {
    return {selection("`select_model_and_predict`, n = 300, 200 outputs", 300, 5),
            selection("`select_model_and_predict`, n = 1440, 200 outputs", 1440, 8),
            selection("`select_model_and_predict`, n = 10080, 200 outputs", 10080, 10)};
}

long allocationsInASecondCall() {
    const Series series = rising(1440);
    const std::vector<float> times = grid(series);
    std::vector<float> forecast(times.size());
    const PredictionParameters parameters;
    std::string name;
    const auto call = [&] {
        select_model_and_predict(1440, series.x.data(), series.y.data(), 200, times.data(), forecast.data(),
                                 &parameters, &name);
    };
    call();
    const long before = allocations;
    call();
    return allocations - before;
}

} // namespace obrin::bench
