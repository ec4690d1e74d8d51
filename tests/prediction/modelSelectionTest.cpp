#include "prediction/modelSelection.h"

#include "numeric/errorMeasures.h"
#include "numeric/linearRegression.h"
#include "numeric/medianFilter.h"
#include "numeric/piecewiseFit.h"
#include "tests/support/often.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <thread>
#include <vector>

namespace obrin {
namespace {

using Floats = std::vector<float>;
constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float untouched = -12345.0F;

struct Samples {
    Floats x;
    Floats y;
    Count size() const { return static_cast<Count>(x.size()); }
};

/// n samples from time 0, one a minute unless said otherwise.
Samples sample(int n, const std::function<double(double)>& value, double period = 60.0) {
    Samples samples;
    for (int i = 0; i < n; ++i) {
        samples.x.push_back(static_cast<float>(period * i));
        samples.y.push_back(static_cast<float>(value(period * i)));
    }
    return samples;
}

struct Forecast {
    std::int32_t result;
    std::string name;
    Floats y;
};

constexpr FittingTools fast{median_filter, best_piecewise_fit};

Forecast forecast(const Samples& samples, const Floats& times, const PredictionParameters& parameters = {},
                  const FittingTools& tools = fast) {
    Forecast forecast{-9, "unset", Floats(times.size(), untouched)};
    forecast.result = select_model_and_predict_with(tools, samples.size(), samples.x.data(), samples.y.data(),
                                                    static_cast<Count>(times.size()), times.data(),
                                                    forecast.y.data(), &parameters, &forecast.name);
    return forecast;
}

// ---------------------------------------------------------------- the choice among shapes with a known
// answer

/// A continuous broken line over a day of samples, with hinges where the search may put them: the candidates
/// of 288 smoothed points are 27, 54 .. 243, and smoothed point j lies at sample 5 j + 2.
double hingeTime(int candidate) {
    return 60.0 * (5.0 * 27.0 * candidate + 2.0);
}

constexpr int day = 1440;

struct Shape {
    const char* model;
    std::function<double(double)> curve;
    double noise;     ///< standard deviation, of the value or, for a logarithmic model, of its logarithm
    double tolerance; ///< of the forecast, absolute or, for a logarithmic model, relative
    bool logarithmic;
};

double broken(double t, double first, double hinge, double second) {
    return t < hinge ? first * t : first * hinge + second * (t - hinge);
}

double twiceBroken(double t, double first, double hinge1, double second, double hinge2, double third) {
    return t < hinge2 ? broken(t, first, hinge1, second)
                      : broken(hinge2, first, hinge1, second) + third * (t - hinge2);
}

std::vector<Shape> shapes() {
    // Slopes are given over a day of 86400 s. Forecasts go half a day beyond the samples, where an error of
    // the slope of one noise deviation over the last segment of a third of a day has grown to a few of them.
    // All shapes rise, so that the median of a window is its middle sample and smoothing leaves them as they
    // are.
    const double perDay = 1.0 / 86400.0;
    const double early = hingeTime(3);
    const double late = hingeTime(7);
    const auto line = [=](double t) { return 20.0 + 30.0 * perDay * t; };
    const auto hinge = [=](double t) { return 20.0 + broken(t, 20.0 * perDay, late, 90.0 * perDay); };
    const auto threeSegments = [=](double t) {
        return 20.0 + twiceBroken(t, 80.0 * perDay, early, 10.0 * perDay, late, 100.0 * perDay);
    };
    const auto logLine = [=](double t) { return std::exp(1.0 + 3.0 * perDay * t); };
    const auto logHinge = [=](double t) {
        return std::exp(1.0 + broken(t, 1.0 * perDay, late, 7.0 * perDay));
    };
    const auto logThree = [=](double t) {
        return std::exp(1.0 + twiceBroken(t, 6.0 * perDay, early, 1.0 * perDay, late, 8.0 * perDay));
    };
    return {{model0, line, 0.5, 2.0, false},          {model1, hinge, 0.2, 2.0, false},
            {model2, threeSegments, 0.2, 2.0, false}, {model3, logLine, 0.01, 0.05, true},
            {model4, logHinge, 0.01, 0.05, true},     {model5, logThree, 0.01, 0.05, true}};
}

Samples noisySample(const Shape& shape, unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, shape.noise);
    return sample(day, [&](double t) {
        const double value = shape.curve(t);
        const double deviation = noise(generator);
        return shape.logarithmic ? value * std::exp(deviation) : value + deviation;
    });
}

TEST(ModelSelection, EachShapeIsToldFromTheOthersAndForecastHalfADayAhead) {
    const Floats times{86400.0F, 100000.0F, 129600.0F};
    for (const Shape& shape : shapes()) {
        for (unsigned seed = 1; seed <= 20; ++seed) {
            const Forecast result = forecast(noisySample(shape, seed), times);
            EXPECT_EQ(result.result, 1);
            EXPECT_EQ(result.name, shape.model) << "seed " << seed;
            for (std::size_t i = 0; i < times.size(); ++i) {
                const double want = shape.curve(double{times[i]});
                const double allowed = shape.logarithmic ? shape.tolerance * want : shape.tolerance;
                EXPECT_NEAR(double{result.y[i]}, want, allowed) << shape.model << " seed " << seed;
            }
        }
    }
}

TEST(ModelSelection, ShapesWithoutNoiseAreForecastToFloatPrecisionWhateverModelRepresentsThem) {
    const Floats times{50000.0F, 86400.0F, 129600.0F};
    for (const Shape& shape : shapes()) {
        const Forecast result = forecast(sample(day, shape.curve), times);
        for (std::size_t i = 0; i < times.size(); ++i) {
            const double want = shape.curve(double{times[i]});
            // Samples and coefficients are floats (6e-8); the exponential multiplies the error of its
            // argument of up to 8.
            constexpr double relative = 2e-5;
            EXPECT_NEAR(double{result.y[i]}, want, relative * std::abs(want))
                << shape.model << " as " << result.name;
        }
    }
}

TEST(ModelSelection, ExactLineOfWholeNumbersIsForecastExactly) {
    const Samples samples = sample(
        day, [](double t) { return 2.0 * t - 64.0; }, 1.0);
    const Forecast result = forecast(samples, {0.0F, 2000.0F});
    EXPECT_EQ(result.name, model0);
    EXPECT_EQ(result.y, (Floats{-64.0F, 3936.0F}));
}

TEST(ModelSelection, EpochSizeTimesAreForecastAsWellAsTheirRoundingAllows) {
    Samples samples;
    for (int i = 0; i < day; ++i) {
        samples.x.push_back(1.7e9F + 128.0F * static_cast<float>(i)); // neighbouring floats
        samples.y.push_back(10.0F + 0.01F * static_cast<float>(i % 2) + 0.125F * static_cast<float>(i));
    }
    const Forecast result = forecast(samples, {1.7e9F, 1.7e9F + 128.0F * 2000.0F});
    EXPECT_EQ(result.result, 1);
    // A float slope of 1e-3 per second times 1.7e9 s is known to 0.05; the intercept of 1.7e6 to 0.06.
    EXPECT_NEAR(result.y[0], 10.0F, 0.2F);
    EXPECT_NEAR(result.y[1], 260.0F, 0.2F);
}

// ---------------------------------------------------------------- too little data

TEST(ModelSelection, ThirtyNineSmoothedPointsGiveZeroTheNoModelTextAndAnUntouchedForecast) {
    for (const int n : {195, 199}) {
        const Forecast result = forecast(sample(n, [](double t) { return t; }), {1.0F, 2.0F});
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.name, "Not enough data: no model selected");
        EXPECT_EQ(result.y, (Floats{untouched, untouched}));
    }
}

TEST(ModelSelection, FortySmoothedPointsGiveAModelAmongTheTwoStraightLinesOnly) {
    for (const Shape& shape : shapes()) {
        const Samples samples = sample(200, [&](double t) { return shape.curve(t * day / 200.0); });
        const Forecast result = forecast(samples, {1.0F});
        EXPECT_EQ(result.result, 1);
        EXPECT_TRUE(result.name == model0 || result.name == model3) << result.name;
        EXPECT_NE(result.y[0], untouched);
    }
}

TEST(ModelSelection, SeriesBelowTheWindowIsNotRead) {
    for (const Count n : {-1, 0, 1, 4}) {
        const PredictionParameters parameters;
        std::string name;
        float out = untouched;
        const float time = 1.0F;
        EXPECT_EQ(select_model_and_predict(n, nullptr, nullptr, 1, &time, &out, &parameters, &name), 0) << n;
        EXPECT_EQ(name, no_model);
        EXPECT_EQ(out, untouched);
    }
}

TEST(ModelSelection, ParametersThatLeaveNothingToWorkWithSelectNoModel) {
    const test::CapturedLog log;
    const Samples samples = sample(day, [](double t) { return t; });
    const std::vector<PredictionParameters> useless{{.hingeCandidates = 0}, {.hingeCandidates = -3},
                                                    {.medianStride = 0},    {.medianStride = -5},
                                                    {.medianWindow = 0},    {.medianWindow = -1}};
    for (const PredictionParameters& parameters : useless) {
        const Forecast result = forecast(samples, {1.0F}, parameters);
        EXPECT_EQ(result.result, 0);
        EXPECT_EQ(result.name, no_model);
        EXPECT_EQ(result.y[0], untouched);
    }
    EXPECT_NE(log.text().find("median_filter: the window stride should be >=1"), std::string::npos);
    EXPECT_NE(log.text().find("median_filter: the window size should be >=1"), std::string::npos);
}

// ---------------------------------------------------------------- values without a logarithm, constants

TEST(ModelSelection, ZeroAndNegativeValuesAreZeroForTheLogModelsWhichAreScoredAgainstTheRawValues) {
    // Exponential growth whose first stretch is below zero: the models on the logarithm see 0 there, where
    // the values are -1, and win all the same, for the newest points decide.
    const auto value = [](double t) { return t < 6000.0 ? -1.0 : std::exp(t / 86400.0 * 8.0); };
    const Forecast result = forecast(sample(day, value), {86400.0F});
    EXPECT_EQ(result.result, 1);
    EXPECT_TRUE(result.name == model3 || result.name == model4 || result.name == model5) << result.name;
    // All negative: e^0 = 1 is far from every value, so a model on the values wins.
    const Samples negatives = sample(
        day, [](double t) { return -10.0 - t; }, 1.0);
    const Forecast negative = forecast(negatives, {2000.0F});
    EXPECT_EQ(negative.name, model0);
    EXPECT_EQ(negative.y[0], -2010.0F);
}

TEST(ModelSelection, ConstantSeriesPicksTheSimpleLineAndForecastsTheConstant) {
    for (const double constant : {42.5, 1.0, 0.0, -3.0, 1e6}) {
        for (const int n : {200, 300, 1440}) {
            const Forecast result = forecast(sample(n, [&](double) { return constant; }), {0.0F, 1e6F});
            EXPECT_EQ(result.name, "simple linear regression") << constant;
            EXPECT_EQ(result.y, Floats(2, static_cast<float>(constant)));
        }
    }
}

TEST(ModelSelection, ValuesThatAreNotFiniteDoNotCrash) {
    const test::CapturedLog log;
    for (const float bad : {notANumber, infinity, -infinity}) {
        for (const int n : {200, 310, 700, day}) {
            if (n == day && bad != infinity && test::often(0, 1) == 0)
                continue; // a day's samples take long
            Samples samples = sample(n, [](double t) { return 5.0 + t / 1000.0; });
            samples.y[100] = bad; // one, which the median drops
            const Forecast one = forecast(samples, {1e5F});
            EXPECT_EQ(one.result, 1);
            for (std::size_t i = 50; i < 90; ++i) {
                samples.y[i] = bad;
            }
            EXPECT_EQ(forecast(samples, {1e5F}).result, 1);
            std::fill(samples.y.begin(), samples.y.end(), bad);
            EXPECT_EQ(forecast(samples, {1e5F}).result, 1);
            samples = sample(n, [](double t) { return t; });
            std::fill(samples.x.begin() + 60, samples.x.end(), bad);
            EXPECT_EQ(forecast(samples, {1e5F}).result, 1);
        }
    }
}

// ---------------------------------------------------------------- the steps, watched through tools of the
// test's own

struct Call {
    Count points;
    std::vector<std::int32_t> positions;
    Count hinges;
    Floats y;
};

std::vector<Call> calls;

double recordingFit(Count M, const float* x, const float* y, Count P, const std::int32_t* positions, Count k,
                    float* endpointsX, float* endpointsY) {
    calls.push_back({M, {positions, positions + P}, k, {y, y + M}});
    return best_piecewise_fit(M, x, y, P, positions, k, endpointsX, endpointsY);
}

std::vector<Call> recordedFits(const Samples& samples, const PredictionParameters& parameters = {}) {
    calls.clear();
    forecast(samples, {1.0F}, parameters, {median_filter, recordingFit});
    return std::move(calls);
}

std::vector<std::int32_t> steps(std::int32_t first, std::int32_t step, std::int32_t count) {
    std::vector<std::int32_t> result;
    for (std::int32_t i = 0; i < count; ++i) {
        result.push_back(first + i * step);
    }
    return result;
}

TEST(ModelSelection, ModelsAreFittedInIndexOrderOverTheCandidatesWithoutTheLastOne) {
    const Samples samples = sample(day, [](double t) { return t / 60.0 - 700.0; });
    const std::vector<Call> fits = recordedFits(samples);
    ASSERT_EQ(fits.size(), 4U);
    const std::array<Count, 4> hinges{1, 2, 1, 2};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(fits[i].points, 288);
        EXPECT_EQ(fits[i].hinges, hinges[i]);
        EXPECT_EQ(fits[i].positions, steps(27, 27, 9));
    }
    for (std::size_t j = 0; j < 288; ++j) {
        const float smoothed = static_cast<float>(5 * j + 2) - 700.0F;
        ASSERT_EQ(fits[0].y[j], smoothed);
        ASSERT_EQ(fits[2].y[j], smoothed > 0.0F ? static_cast<float>(std::log(double{smoothed})) : 0.0F);
    }
}

TEST(ModelSelection, HingeModelsNeedSixtySmoothedPointsAndThreeSegmentsNeedAHundred) {
    const auto fitsAt = [](int smoothed) {
        return recordedFits(sample(5 * smoothed, [](double t) { return t; })).size();
    };
    EXPECT_EQ(fitsAt(59), 0U);
    EXPECT_EQ(fitsAt(60), 2U);
    EXPECT_EQ(fitsAt(99), 2U);
    EXPECT_EQ(fitsAt(100), 4U);
}

TEST(ModelSelection, UsableCountBelowTheCandidatesGivesStepsOfOneAndACountOneLess) {
    const PredictionParameters parameters{.hingeCandidates = 100, .tailExclusion = 25};
    const std::vector<Call> fits = recordedFits(sample(250, [](double t) { return t; }), parameters);
    ASSERT_EQ(fits.size(), 2U); // 50 smoothed points, 45 usable: one hinge only
    EXPECT_EQ(fits[0].positions, steps(1, 1, 44));
}

TEST(ModelSelection, TailExclusionBeyondTheSeriesLeavesTheStraightLines) {
    for (const std::int32_t tail : {5000, std::numeric_limits<std::int32_t>::max()}) {
        EXPECT_TRUE(recordedFits(sample(600, [](double t) { return t; }), {.tailExclusion = tail}).empty());
    }
}

TEST(ModelSelection, NegativeTailExclusionOffersNoPointBehindTheLast) {
    for (const std::int32_t tail : {-1, -1000, std::numeric_limits<std::int32_t>::min()}) {
        for (const std::int32_t candidates : {1, 2, 3, 10, 500}) {
            const PredictionParameters parameters{.hingeCandidates = candidates, .tailExclusion = tail};
            for (const Call& call : recordedFits(sample(600, [](double t) { return t; }), parameters)) {
                for (const std::int32_t position : call.positions) {
                    EXPECT_LT(position, call.points);
                }
            }
        }
    }
}

TEST(ModelSelection, ModelWithMoreHingesThanCandidatesIsFittedWithAsManyAsThereAre) {
    for (const std::int32_t candidates : {1, 2}) {
        testing::internal::CaptureStderr();
        const Forecast result = forecast(sample(day, [](double t) { return std::sin(t / 20000.0) * 50.0; }),
                                         {90000.0F}, {.hingeCandidates = candidates});
        EXPECT_NE(testing::internal::GetCapturedStderr().find("You specified more hinges than allowed"),
                  std::string::npos);
        EXPECT_EQ(result.result, 1);
        EXPECT_LT(std::abs(result.y[0]), 1000.0F);
    }
}

/// Values below zero that step from -200 to -100 at half the day: no line follows them, and their logarithms
/// are all 0.
Samples negativeStep() {
    return sample(day, [](double t) { return t < 43200.0 ? -200.0 : -100.0; });
}

float flatLevel = 0.0F;

/// A flat curve at the level set above for one hinge on the values, and far away for every other model.
double flatFit(Count M, const float* x, const float* y, Count P, const std::int32_t*, Count k,
               float* endpointsX, float* endpointsY) {
    const Count endpoints = std::min(k, P) + 2;
    for (Count e = 0; e < endpoints; ++e) {
        endpointsX[e] = x[(M - 1) * e / (endpoints - 1)];
        endpointsY[e] = k == 1 && y[0] < 0.0F ? flatLevel : 1000.0F;
    }
    return 0.0;
}

TEST(ModelSelection, HingeModelWinsWhenItLowersTheWeightedErrorByMoreThanOnePointFourFour) {
    // The weighted errors by their definition: the line's, and the flat curve's at distance d below the
    // newest values.
    const Samples samples = negativeStep();
    Floats x(300), y(300), line(300), weights(288, 1.0F);
    median_filter(day, samples.x.data(), 5, 5, x.data());
    const Count m = median_filter(day, samples.y.data(), 5, 5, y.data());
    ASSERT_EQ(m, 288);
    for (std::size_t i = 287; i > 0; --i) {
        weights[i - 1] = weights[i] * 0.95F;
    }
    float intercept = 0.0F, slope = 0.0F;
    linearRegression(m, x.data(), y.data(), &intercept, &slope);
    smadd(slope, intercept, m, x.data(), 1, line.data(), 1);
    const double lineError = WMSE(m, y.data(), line.data(), weights.data());
    const auto flatError = [&](float level) {
        const Floats flat(288, level);
        return WMSE(m, y.data(), flat.data(), weights.data());
    };
    const auto chosenAt = [&](double ratio) {
        flatLevel = -100.0F; // up from here the error grows
        while (lineError / flatError(flatLevel) > ratio) {
            flatLevel += 0.01F;
        }
        return forecast(samples, {1e5F}, {}, {median_filter, flatFit}).name;
    };
    EXPECT_EQ(chosenAt(1.46), model1);
    EXPECT_EQ(chosenAt(1.42), model0);
}

TEST(ModelSelection, CurveWithFewerHingesThanItsModelIsEvaluatedOverTheEndpointsThatItHas) {
    flatLevel = -100.0F;
    for (const std::int32_t candidates : {1, 2}) {
        const Forecast result =
            forecast(negativeStep(), {0.0F, 1e5F}, {.hingeCandidates = candidates}, {median_filter, flatFit});
        EXPECT_EQ(result.name, model1);
        EXPECT_EQ(result.y, (Floats{-100.0F, -100.0F}));
    }
}

Count filterResult = 0;

Count boastingFilter(Count, const float*, Count, Count, float* out) {
    for (Count i = 0; i < std::min(filterResult, 43); ++i) {
        out[i] = static_cast<float>(i);
    }
    return filterResult;
}

TEST(ModelSelection, FilterThatCountsMoreThanItsArrayHoldsIsLoggedAndEndsTheProcessWithStatusOne) {
    const test::CapturedLog log;
    const Samples samples = sample(200, [](double t) { return t; });
    const FittingTools tools{boastingFilter, best_piecewise_fit};
    filterResult = 44;
    EXPECT_EXIT(forecast(samples, {1.0F}, {}, tools), testing::ExitedWithCode(1), "^$");
    EXPECT_EQ(log.text(), "Error, your algorithm sucks !44 43\n");
    filterResult = 43;
    EXPECT_EQ(forecast(samples, {1.0F}, {}, tools).result, 1);
}

// ---------------------------------------------------------------- the choice, by the same steps written out
// again

std::string expectedModel(const Samples& samples, const std::string& method) {
    Floats x(samples.x.size() + 3), y(samples.x.size() + 3);
    const Count m = median_filter(samples.size(), samples.x.data(), 5, 5, x.data());
    median_filter(samples.size(), samples.y.data(), 5, 5, y.data());
    const auto points = static_cast<std::size_t>(m);
    Floats logY(points), fitted(points), weights(points, 1.0F);
    slogx(m, y.data(), 1, logY.data(), 1);
    for (std::size_t i = points - 1; i > 0; --i) {
        weights[i - 1] = weights[i] * 0.95F;
    }
    const Count step = (m - 10) / 10;
    const std::vector<std::int32_t> candidates = steps(step, step, 9);
    const std::array<const char*, 6> names{model0, model1, model2, model3, model4, model5};
    std::array<double, 6> errors{};
    std::size_t best = 0;
    std::size_t reference = 0;
    const auto valid = [&](std::size_t k) { return 10 * step >= std::array<Count, 3>{0, 41, 81}[k % 3]; };
    for (std::size_t k = 0; k < 6; ++k) {
        const float* const target = k < 3 ? y.data() : logY.data();
        if (!valid(k)) {
            continue;
        }
        if (k % 3 == 0) {
            float intercept = 0.0F, slope = 0.0F;
            linearRegression(m, x.data(), target, &intercept, &slope);
            smadd(slope, intercept, m, x.data(), 1, fitted.data(), 1);
        } else {
            std::array<float, 4> ex{}, ey{};
            const auto hinges = static_cast<Count>(k % 3);
            best_piecewise_fit(m, x.data(), target, 9, candidates.data(), hinges, ex.data(), ey.data());
            y_eq_piec_lin_x(hinges + 2, ex.data(), ey.data(), m, x.data(), fitted.data());
        }
        if (k >= 3) {
            sexpx(m, fitted.data(), 1, fitted.data(), 1);
        }
        errors[k] = WMSE(m, y.data(), fitted.data(), weights.data());
        if (k % 3 > reference % 3 || (k % 3 == reference % 3 && errors[k] < errors[reference])) {
            reference = k;
        }
    }
    const auto score = [&](std::size_t k) {
        const double dof = 2.0 * static_cast<double>(k % 3 + 1);
        return method == "penalty"
                   ? std::pow(1.2, dof) * errors[k]
                   : (m * errors[k] / errors[reference]) * m / ssum(m, weights.data(), 1) - m + 2.0 * dof;
    };
    for (std::size_t k = 1; k < 6; ++k) {
        if (valid(k) && score(k) < score(best)) {
            best = k;
        }
    }
    return names[best];
}

TEST(ModelSelection, BothMethodsChooseTheModelOfLeastScoreAlsoWhereThreeSegmentsAreInvalid) {
    std::vector<std::string> chosenByMallows;
    for (const Shape& shape : shapes()) {
        for (unsigned seed = 1; seed <= 10; ++seed) {
            const Samples whole = noisySample(shape, seed);
            for (const std::size_t n :
                 {std::size_t{1440}, std::size_t{600}, std::size_t{350}, std::size_t{250}}) {
                const auto end = static_cast<std::ptrdiff_t>(n);
                const Samples samples{{whole.x.begin(), whole.x.begin() + end},
                                      {whole.y.begin(), whole.y.begin() + end}};
                for (const char* const method : {"penalty", "mallows"}) {
                    const Forecast result = forecast(samples, {1.0F}, {.selectionMethod = method});
                    ASSERT_EQ(result.name, expectedModel(samples, method))
                        << shape.model << n << method << seed;
                    if (n == 350 && *method == 'm') {
                        chosenByMallows.push_back(result.name);
                    }
                }
            }
        }
    }
    // With 70 smoothed points the 3-segment models are invalid, and the rule still tells lines from hinges.
    EXPECT_EQ(std::count(chosenByMallows.begin(), chosenByMallows.end(), std::string(model2)), 0);
    EXPECT_EQ(std::count(chosenByMallows.begin(), chosenByMallows.end(), std::string(model5)), 0);
    EXPECT_NE(std::count(chosenByMallows.begin(), chosenByMallows.end(), chosenByMallows.front()),
              static_cast<std::ptrdiff_t>(chosenByMallows.size()));
}

TEST(ModelSelection, UnknownMethodSelectsNothingAndLeavesNameAndForecastAsTheyWere) {
    const Samples samples = sample(day, [](double t) { return t; });
    for (const char* const method :
         {"", "Penalty", "penalty ", "mallow", static_cast<const char*>(nullptr)}) {
        const Forecast result = forecast(samples, {1.0F, 2.0F}, {.selectionMethod = method});
        EXPECT_EQ(result.result, 1);
        EXPECT_EQ(result.name, "unset");
        EXPECT_EQ(result.y, (Floats{untouched, untouched}));
    }
}

TEST(ModelSelection, MethodIsComparedAsText) {
    const std::string method = std::string("pen") + "alty"; // another address than the literal
    const Forecast result =
        forecast(sample(day, [](double t) { return t; }), {1.0F}, {.selectionMethod = method.c_str()});
    EXPECT_EQ(result.name, model0);
}

// ---------------------------------------------------------------- tools, threads, memory

/// Each window sorted anew, and each hinge set solved by itself.
Count sortingFilter(Count n, const float* in, Count w, Count s, float* out) {
    const Count limit = ((n - w) / s + 1) * s;
    Count k = 0;
    for (Count next = w, oldest = 0;; next += s, oldest += s) {
        Floats window(in + oldest, in + oldest + w);
        std::sort(window.begin(), window.end());
        out[k++] = window[static_cast<std::size_t>(w / 2)];
        if (next >= limit) {
            return k;
        }
    }
}

double exhaustiveFit(Count M, const float* x, const float* y, Count P, const std::int32_t* positions, Count k,
                     float* endpointsX, float* endpointsY) {
    double best = std::numeric_limits<double>::infinity();
    for (Count i = 0; i < P; ++i) {
        for (Count j = k == 2 ? i + 1 : 0; j < (k == 2 ? P : 1); ++j) {
            const std::array<std::int32_t, 2> hinges{positions[i], k == 2 ? positions[j] : 0};
            std::array<float, 4> ex{}, ey{};
            const double error = find_piec_lin_fit_ord(M, x, y, k, hinges.data(), ex.data(), ey.data());
            if (error < best) {
                best = error;
                std::copy_n(ex.begin(), k + 2, endpointsX);
                std::copy_n(ey.begin(), k + 2, endpointsY);
            }
        }
    }
    return best;
}

TEST(ModelSelection, TextbookToolsGiveTheSameForecastToTheBit) {
    const Floats times{86400.0F, 100000.0F, 200000.0F};
    for (const Shape& shape : shapes()) {
        for (unsigned seed = 30; seed < 40; ++seed) {
            const Samples samples = noisySample(shape, seed);
            const Forecast quick = forecast(samples, times);
            const Forecast slow = forecast(samples, times, {}, {sortingFilter, exhaustiveFit});
            EXPECT_EQ(quick.name, slow.name);
            EXPECT_EQ(quick.y, slow.y) << shape.model << seed;
        }
    }
}

TEST(ModelSelection, ForecastsOfManyThreadsAreThoseOfOne) {
    const std::vector<Shape> all = shapes();
    std::vector<Forecast> results(all.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < all.size(); ++i) {
        threads.emplace_back([&, i] {
            for (int repeat = 0; repeat < 5; ++repeat) {
                results[i] = forecast(noisySample(all[i], 3), {1e5F});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < all.size(); ++i) {
        const Forecast alone = forecast(noisySample(all[i], 3), {1e5F});
        EXPECT_EQ(results[i].name, alone.name);
        EXPECT_EQ(results[i].y, alone.y);
    }
}

TEST(ModelSelection, LongShortAndLongAgainGiveTheSameForecast) {
    const Samples samples = noisySample(shapes()[2], 4);
    const Forecast first = forecast(samples, {1e5F});
    forecast(noisySample(shapes()[4], 5), {1e5F});
    forecast(sample(250, [](double t) { return -t; }), {1e5F});
    const Forecast again = forecast(samples, {1e5F});
    EXPECT_EQ(first.name, again.name);
    EXPECT_EQ(first.y, again.y);
}

// ---------------------------------------------------------------- the two rules

constexpr std::array<std::int32_t, 3> allValid{1, 1, 1};

TEST(SelectWithMultiplicativePenalty, ScoresOfAHandComputedCase) {
    // p = 1 makes the scores exact: 2^2 * 4 = 16, 2^4 * 1 = 16, 2^6 * 0.25 = 16.
    const std::array<std::int32_t, 3> dof{2, 4, 6};
    const auto choose = [&](double a, double b, double c) {
        const std::array<double, 3> mses{a, b, c};
        return SelectWithMultiplicativePenalty(3, mses.data(), dof.data(), allValid.data(), 1.0);
    };
    EXPECT_EQ(choose(4.0, 1.0, 0.25), 0); // ties keep the lower index
    EXPECT_EQ(choose(4.0, std::nextafter(1.0, 0.0), 0.25), 1);
    EXPECT_EQ(choose(4.0, 1.0, std::nextafter(0.25, 0.0)), 2);
    EXPECT_EQ(choose(std::nextafter(4.0, 5.0), 1.0, 0.25), 1);
    EXPECT_EQ(choose(0.0, 0.0, 0.0), 0);
}

TEST(SelectWithMultiplicativePenalty, TwoMoreDegreesOfFreedomMustLowerTheErrorByAFactorOfOnePointFourFour) {
    const std::array<std::int32_t, 2> dof{2, 4};
    const auto choose = [&](double simple, double complex) {
        const std::array<double, 2> mses{simple, complex};
        return SelectWithMultiplicativePenalty(2, mses.data(), dof.data(), allValid.data(), 0.2);
    };
    EXPECT_EQ(choose(1.4399, 1.0), 0);
    EXPECT_EQ(choose(1.4401, 1.0), 1);
}

TEST(SelectWithMallows, ScoresOfAHandComputedCase) {
    // N = 10, S = 5, sigma2 = 1: 10 * 2 * 10 / 5 - 10 + 2 * 2 = 34 against 10 * 1 * 10 / 5 - 10 + 2 dof = 10
    // + 2 dof.
    const std::array<double, 2> mses{2.0, 1.0};
    const auto choose = [&](std::int32_t dof, double sigma2, double weight) {
        const std::array<std::int32_t, 2> dofs{2, dof};
        return SelectWithMallows(2, 10, mses.data(), dofs.data(), allValid.data(), sigma2, weight);
    };
    EXPECT_EQ(choose(11, 1.0, 5.0), 1);
    EXPECT_EQ(choose(12, 1.0, 5.0), 0); // ties keep the lower index
    EXPECT_EQ(choose(13, 1.0, 5.0), 0);
    // sigma2 = 2 halves the errors' part: 20 - 10 + 4 = 14 against 10 - 10 + 2 dof.
    EXPECT_EQ(choose(6, 2.0, 5.0), 1);
    EXPECT_EQ(choose(7, 2.0, 5.0), 0);
    // and so does a total weight of 10.
    EXPECT_EQ(choose(6, 1.0, 10.0), 1);
    EXPECT_EQ(choose(7, 1.0, 10.0), 0);
}

TEST(SelectWithMallows, ReferenceVarianceOfZeroKeepsTheFirstModel) {
    const std::array<double, 2> mses{0.0, 0.0};
    const std::array<std::int32_t, 2> dof{4, 2};
    EXPECT_EQ(SelectWithMallows(2, 10, mses.data(), dof.data(), allValid.data(), 0.0, 5.0), 0);
}

using Rule =
    std::function<std::int32_t(std::int32_t, const double*, const std::int32_t*, const std::int32_t*)>;

std::vector<std::pair<std::string, Rule>> rules() {
    return {{"SelectWithMallows",
             [](std::int32_t K, const double* mses, const std::int32_t* dof, const std::int32_t* valid) {
                 return SelectWithMallows(K, 10, mses, dof, valid, 1.0, 5.0);
             }},
            {"SelectWithMultiplicativePenalty",
             [](std::int32_t K, const double* mses, const std::int32_t* dof, const std::int32_t* valid) {
                 return SelectWithMultiplicativePenalty(K, mses, dof, valid, 0.2);
             }}};
}

TEST(SelectionRules, NoValidModelIsLoggedAndGivesMinusOne) {
    for (const auto& [name, rule] : rules()) {
        const test::CapturedLog log;
        const std::array<double, 2> mses{1.0, 1.0};
        const std::array<std::int32_t, 2> dof{2, 2};
        const std::array<std::int32_t, 2> valid{0, 0};
        EXPECT_EQ(rule(2, mses.data(), dof.data(), valid.data()), -1);
        EXPECT_EQ(rule(0, nullptr, nullptr, nullptr), -1);
        const std::string line = name + ": No valid model was found !\n";
        EXPECT_EQ(log.text(), line + line);
    }
}

TEST(SelectionRules, InvalidModelsTakeNoPartHoweverSmallTheirError) {
    for (const auto& [name, rule] : rules()) {
        const std::array<double, 4> mses{0.0, 5.0, 0.0, 4.0};
        const std::array<std::int32_t, 4> dof{2, 2, 2, 2};
        const std::array<std::int32_t, 4> valid{0, 1, 0, 1};
        EXPECT_EQ(rule(4, mses.data(), dof.data(), valid.data()), 3) << name;
    }
}

TEST(SelectionRules, FirstMarkCountsWhenItIsNotZeroAndLaterOnesWhenTheyAreOne) {
    for (const auto& [name, rule] : rules()) {
        const std::array<double, 3> mses{5.0, 0.0, 4.0};
        const std::array<std::int32_t, 3> dof{2, 2, 2};
        const std::array<std::int32_t, 3> marks{2, 2, 1};
        EXPECT_EQ(rule(3, mses.data(), dof.data(), marks.data()), 2) << name;
        EXPECT_EQ(rule(2, mses.data(), dof.data(), marks.data()), 0) << name;
    }
}

TEST(SelectionRules, ErrorThatIsNotANumberIsKeptWhenItComesFirstAndNeverChosenLater) {
    for (const auto& [name, rule] : rules()) {
        const std::array<std::int32_t, 2> dof{2, 2};
        const std::array<double, 2> first{std::nan(""), 1.0};
        const std::array<double, 2> second{1.0, std::nan("")};
        EXPECT_EQ(rule(2, first.data(), dof.data(), allValid.data()), 0) << name;
        EXPECT_EQ(rule(2, second.data(), dof.data(), allValid.data()), 0) << name;
    }
}

} // namespace
} // namespace obrin
