// What the archive's two decimals do to a forecast that is made from samples read back.

#include "prediction/exhaustion.h"
#include "prediction/modelSelection.h"

#include <cmath>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <string>
#include <vector>

namespace obrin::test {
namespace {

constexpr int samples = 600;
constexpr double period = 60.0; // seconds
constexpr double newest = 599 * period;
constexpr float horizon = 48 * 3600.0F;
constexpr int gridPoints = 4000;

struct Series {
    std::string name;
    std::vector<float> times;
    std::vector<double> values;
};

/// Ways in which a resource is used up between ten hours and two days after its oldest sample.
std::vector<Series> seededSeries() {
    std::vector<Series> all;
    for (unsigned seed = 1; seed <= 12; ++seed) {
        std::mt19937 generator(seed);
        const auto between = [&](double low, double high) {
            return std::uniform_real_distribution<double>(low, high)(generator);
        };
        const double first = between(5, 50);
        const double last = between(first + 8, 80);
        const double bend = between(0.3, 0.6) * newest;
        std::normal_distribution<double> noise(0.0, between(0.02, 0.6));
        const double climb = (last - first) / newest;
        const auto line = [&](double t) { return first + climb * t; };
        const auto hinge = [&](double t) {
            return t < bend ? first : first + (last - first) * (t - bend) / (newest - bend);
        };
        const auto growth = [&](double t) { return first * std::exp(std::log(last / first) * t / newest); };
        const auto add = [&](const char* name, const auto& shape) {
            Series series{name + std::to_string(seed), {}, {}};
            for (int i = 0; i < samples; ++i) {
                series.times.push_back(static_cast<float>(i * period));
                series.values.push_back(shape(i * period) + noise(generator));
            }
            all.push_back(std::move(series));
        };
        add("line ", line);
        add("hinge ", hinge);
        add("growth ", growth);
    }
    return all;
}

struct Outcome {
    std::string model;
    std::optional<double> end; ///< seconds from the newest sample to 100 per cent
};

Outcome forecast(const std::vector<float>& times, const std::vector<float>& values) {
    std::vector<float> grid(gridPoints);
    std::vector<float> curve(gridPoints);
    for (int i = 0; i < gridPoints; ++i)
        grid[static_cast<std::size_t>(i)] = horizon * static_cast<float>(i) / gridPoints;
    Outcome outcome;
    const PredictionParameters parameters;
    EXPECT_EQ(select_model_and_predict(samples, times.data(), values.data(), gridPoints, grid.data(),
                                       curve.data(), &parameters, &outcome.model),
              1);
    for (std::size_t i = 1; i < curve.size() && !outcome.end; ++i)
        if (curve[i] >= 100.0F && static_cast<double>(grid[i]) > newest) {
            const auto part = static_cast<double>((100.0F - curve[i - 1]) / (curve[i] - curve[i - 1]));
            outcome.end =
                static_cast<double>(grid[i - 1]) + part * static_cast<double>(grid[i] - grid[i - 1]) - newest;
        }
    return outcome;
}

TEST(RoundedSamples, ForecastTheSameModelAndTheSameMomentWithinOnePerCent) {
    int ends = 0;
    for (const Series& series : seededSeries()) {
        SCOPED_TRACE(series.name);
        std::vector<float> exact;
        std::vector<float> rounded;
        for (const double value : series.values) {
            exact.push_back(static_cast<float>(value));
            rounded.push_back(static_cast<float>(std::round(value * 100) / 100));
        }
        const Outcome before = forecast(series.times, exact);
        const Outcome after = forecast(series.times, rounded);
        EXPECT_EQ(after.model, before.model);
        ASSERT_EQ(after.end.has_value(), before.end.has_value());
        if (before.end) {
            EXPECT_NEAR(*after.end, *before.end, 0.01 * *before.end);
            ++ends;
        }
    }
    EXPECT_GE(ends, 30);
}

} // namespace
} // namespace obrin::test
