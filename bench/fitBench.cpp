#include "bench/ratios.h"
#include "bench/stopwatch.h"
#include "numeric/piecewiseFit.h"
#include "tests/numeric/exhaustiveFit.h"

#include <benchmark/benchmark.h>
#include <random>

namespace obrin::bench {
namespace {

/// A hinge with noise, and candidates spread evenly over its samples.
struct Series {
    std::vector<float> x, y;
    std::vector<std::int32_t> positions;
};

Series makeSeries(std::int32_t samples, std::int32_t candidates) {
    Series series;
    std::mt19937 random(20240117);
    std::normal_distribution<double> noise(0.0, 2.0);
    for (std::int32_t i = 0; i < samples; ++i) {
        const double rise = i > samples / 2 ? 30.0 * (i - samples / 2) / samples : 0.0;
        series.x.push_back(static_cast<float>(300.0 * i));
        series.y.push_back(static_cast<float>(40.0 + rise + noise(random)));
    }
    for (std::int32_t p = 1; p <= candidates; ++p)
        series.positions.push_back(p * (samples - 2) / (candidates + 1) + 1);
    return series;
}

double fitFast(const Series& series, std::int32_t k) {
    float endpointsX[8], endpointsY[8];
    return best_piecewise_fit(static_cast<std::int32_t>(series.x.size()), series.x.data(), series.y.data(),
                              static_cast<std::int32_t>(series.positions.size()), series.positions.data(), k,
                              endpointsX, endpointsY);
}

Ratio measure(const char* what, std::int32_t samples, std::int32_t candidates, std::int32_t k,
              double required) {
    const Series series = makeSeries(samples, candidates);
    const double fast = nanosecondsPerCall([&] { benchmark::DoNotOptimize(fitFast(series, k)); });
    const double slow = nanosecondsPerCall([&] {
        benchmark::DoNotOptimize(
            test::fitExhaustively(series.x, series.y, series.positions, static_cast<std::size_t>(k)).error);
    });
    return {what, fast, slow, required};
}

} // namespace

std::vector<Ratio> fitRatios();

std::vector<Ratio> fitRatios() {
    return {measure("`best_piecewise_fit`, (M, P, k) = (60, 9, 2)", 60, 9, 2, 15),
            measure("`best_piecewise_fit`, (M, P, k) = (286, 9, 2)", 286, 9, 2, 20),
            measure("`best_piecewise_fit`, (M, P, k) = (2016, 9, 2)", 2016, 9, 2, 25),
            measure("`best_piecewise_fit`, (M, P, k) = (286, 100, 2)", 286, 100, 2, 150)};
}

} // namespace obrin::bench
