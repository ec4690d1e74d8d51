#include "numeric/piecewiseFit.h"

#include "tests/numeric/exhaustiveFit.h"
#include "tests/numeric/specialFloats.h"
#include "tests/support/temporaryDirectory.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>

namespace obrin {
namespace {

using test::count;
using test::infinity;
using test::notANumber;

/// Half a unit in the last place of a float, relative: what rounding the samples to float does to them.
constexpr double floatRounding = 6e-8;

using Hinges = std::vector<std::int32_t>;

struct Fit {
    double error = 0.0;
    std::vector<float> x, y;
};

Fit fitBest(const std::vector<float>& x, const std::vector<float>& y, const Hinges& positions, Count k) {
    const std::size_t endpoints = static_cast<std::size_t>(std::min(k, count(positions.size()))) + 2;
    Fit fit{0.0, std::vector<float>(endpoints, -77.0F), std::vector<float>(endpoints, -77.0F)};
    if (k == 0)
        testing::internal::CaptureStderr(); // two empty arrays are reported
    fit.error = best_piecewise_fit(count(x.size()), x.data(), y.data(), count(positions.size()),
                                   positions.data(), k, fit.x.data(), fit.y.data());
    if (k == 0)
        testing::internal::GetCapturedStderr();
    return fit;
}

Fit fitGiven(const std::vector<float>& x, const std::vector<float>& y, const Hinges& hinges) {
    Fit fit{0.0, std::vector<float>(hinges.size() + 2, -77.0F),
            std::vector<float>(hinges.size() + 2, -77.0F)};
    fit.error = find_piec_lin_fit_ord(count(x.size()), x.data(), y.data(), count(hinges.size()),
                                      hinges.data(), fit.x.data(), fit.y.data());
    return fit;
}

/// 0, step, 2 step, ...
std::vector<float> times(std::size_t samples, double step = 1.0, double start = 0.0) {
    std::vector<float> x;
    for (std::size_t i = 0; i < samples; ++i)
        x.push_back(static_cast<float>(start + step * static_cast<double>(i)));
    return x;
}

/// The polyline through (x[nodes], values) at x, in double and rounded once.
std::vector<float> polyline(const std::vector<float>& x, const Hinges& nodes,
                            const std::vector<double>& values) {
    std::vector<float> y;
    std::size_t segment = 1;
    for (std::size_t i = 0; i < x.size(); ++i) {
        while (segment + 1 < nodes.size() && count(i) > nodes[segment])
            ++segment;
        const double left = static_cast<double>(x[static_cast<std::size_t>(nodes[segment - 1])]);
        const double right = static_cast<double>(x[static_cast<std::size_t>(nodes[segment])]);
        const double t = (static_cast<double>(x[i]) - left) / (right - left);
        y.push_back(static_cast<float>(values[segment - 1] * (1.0 - t) + values[segment] * t));
    }
    return y;
}

void expectSame(const std::vector<float>& actual, const std::vector<float>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i)
        EXPECT_TRUE(actual[i] == expected[i] || (std::isnan(actual[i]) && std::isnan(expected[i])))
            << i << ": " << actual[i] << " instead of " << expected[i];
}

double largest(const std::vector<float>& y) {
    double most = 0.0;
    for (const float value : y)
        most = std::max(most, std::fabs(static_cast<double>(value)));
    return most;
}

// ---- known answers
// --------------------------------------------------------------------------------------------------

TEST(BestPiecewiseFit, PointsOnABrokenLineGiveItsHingeItsEndpointsAndNoError) {
    const std::vector<float> x = times(21);
    const std::vector<float> y = polyline(x, {0, 8, 20}, {3.0, 19.0, 7.0});
    const Fit fit = fitBest(x, y, {4, 8, 12, 16}, 1);
    expectSame(fit.x, {0.0F, 8.0F, 20.0F});
    EXPECT_NEAR(fit.y[0], 3.0, 1e-5);
    EXPECT_NEAR(fit.y[1], 19.0, 1e-5);
    EXPECT_NEAR(fit.y[2], 7.0, 1e-5);
    EXPECT_NEAR(fit.error, 0.0, 1e-20);
}

TEST(BestPiecewiseFit, OfTwoHingeSetsWithEqualErrorTheFirstEnumeratedIsReturned) {
    const std::vector<float> x = times(21);
    std::vector<float> y;
    for (int i = 0; i <= 20; ++i)
        y.push_back(static_cast<float>(i <= 10 ? std::abs(i - 6) : std::abs(14 - i)));
    const Fit first = fitGiven(x, y, {7}), second = fitGiven(x, y, {13});
    ASSERT_NEAR(first.error, second.error, 1e-12);
    expectSame(fitBest(x, y, {7, 13}, 1).x, {0.0F, 7.0F, 20.0F});
    expectSame(fitBest(x, std::vector<float>(21, 5.0F), {3, 9, 15}, 2).x, {0.0F, 3.0F, 9.0F, 20.0F});
}

struct Known {
    const char* what;
    Hinges hinges;              ///< in hundredths of the samples
    std::vector<double> values; ///< at the endpoints
};

/// Over windows of 200 to 20,000 samples of ten minutes, from 0 and from an epoch-size time (where floats lie
/// 128 s apart).
void expectKnownAnswers(bool logarithm) {
    const Known all[] = {{"line", {}, {10.0, 90.0}},
                         {"hinge", {40}, {20.0, 25.0, 80.0}},
                         {"two hinges", {30, 70}, {60.0, 15.0, 30.0, 95.0}}};
    for (const std::size_t samples : {std::size_t{200}, std::size_t{2000}, std::size_t{20000}})
        for (const double start : {0.0, 1.7e9})
            for (const Known& known : all) {
                SCOPED_TRACE(std::string(known.what) + " over " + std::to_string(samples) + " from " +
                             std::to_string(start));
                const std::vector<float> x = times(samples, 600.0, start);
                Hinges positions, hinges, nodes{0};
                for (std::int32_t p = 10; p <= 90; p += 10)
                    positions.push_back(p * count(samples) / 100);
                for (const std::int32_t hinge : known.hinges)
                    hinges.push_back(hinge * count(samples) / 100);
                nodes.insert(nodes.end(), hinges.begin(), hinges.end());
                nodes.push_back(count(samples) - 1);
                std::vector<double> values = known.values;
                for (double& value : values)
                    value = logarithm ? std::log(value) : value;
                std::vector<float> y = polyline(x, nodes, values);
                if (logarithm) {
                    // To the raw scale and back, as a model of the logarithm sees a resource.
                    sexpx(count(samples), y.data(), 1, y.data(), 1);
                    slogx(count(samples), y.data(), 1, y.data(), 1);
                }
                const Fit fit = fitBest(x, y, positions, count(hinges.size()));
                std::vector<float> expectedX;
                for (const std::int32_t node : nodes)
                    expectedX.push_back(x[static_cast<std::size_t>(node)]);
                expectSame(fit.x, expectedX);
                // Two roundings more on the way through the raw scale, where log(y) is a few units.
                const double tolerance = (logarithm ? 3.0 : 1.0) * floatRounding * std::max(1.0, largest(y));
                for (std::size_t e = 0; e < fit.y.size(); ++e)
                    EXPECT_NEAR(static_cast<double>(fit.y[e]), values[e], 2.0 * tolerance);
                EXPECT_LE(fit.error, static_cast<double>(samples) * tolerance * tolerance);
            }
}

TEST(BestPiecewiseFit, FindsLineHingeAndTwoHingesInShortAndLongWindowsAndAtEpochTimes) {
    expectKnownAnswers(false);
}

TEST(BestPiecewiseFit, FindsThemInLogarithmsToo) {
    expectKnownAnswers(true);
}

TEST(BestPiecewiseFit, FindsTheHingeAtTheFirstAndAtTheLastAllowedPlace) {
    const std::vector<float> x = times(100, 300.0);
    for (const std::int32_t hinge : {1, 98}) {
        const std::vector<float> y = polyline(x, {0, hinge, 99}, {50.0, hinge == 1 ? 90.0 : 52.0, 10.0});
        expectSame(fitBest(x, y, {1, 30, 60, 98}, 1).x, {x[0], x[static_cast<std::size_t>(hinge)], x[99]});
    }
}

TEST(BestPiecewiseFit, FindsTheHingeOfZeroAndNegativeValues) {
    const std::vector<float> x = times(60);
    expectSame(fitBest(x, polyline(x, {0, 20, 59}, {0.0, 0.0, -39.0}), {10, 20, 30}, 1).x,
               {0.0F, 20.0F, 59.0F});
    const Fit flat = fitBest(x, std::vector<float>(60, 0.0F), {10, 20, 30}, 1);
    expectSame(flat.y, {0.0F, 0.0F, 0.0F});
    EXPECT_EQ(flat.error, 0.0);
}

TEST(BestPiecewiseFit, ChoosesRightlyAtAnOffsetThatDrownsUncentredSums) {
    const std::vector<float> x = times(200, 300.0);
    std::vector<float> y = polyline(x, {0, 120, 199}, {0.0, 2.0, 40.0});
    for (float& value : y)
        value += 1e6F;
    expectSame(fitBest(x, y, {40, 80, 119, 120, 121, 160}, 1).x, {x[0], x[120], x[199]});
}

TEST(BestPiecewiseFit, WithoutHingesIsTheLeastSquaresLineAsTheTextbookHasIt) {
    const std::vector<float> x{0.0F, 1.0F, 2.0F, 3.0F}, y{1.0F, 3.0F, 2.0F, 5.0F};
    const Fit fit = fitBest(x, y, {}, 0); // y = 1.1 + 1.1 x
    EXPECT_NEAR(fit.y[0], 1.1, 1e-6);
    EXPECT_NEAR(fit.y[1], 4.4, 1e-6);
    EXPECT_NEAR(fit.error, 2.7, 1e-12);
    expectSame(fit.x, {0.0F, 3.0F});
}

TEST(BestPiecewiseFit, ReturnsExactlyWhatTheFitForTheChosenHingesReturns) {
    std::mt19937 random(5);
    std::normal_distribution<float> noise;
    const std::vector<float> x = times(286, 300.0);
    std::vector<float> y;
    for (std::size_t i = 0; i < x.size(); ++i)
        y.push_back(40.0F + noise(random));
    const Hinges positions{25, 50, 75, 100, 125, 150, 175, 200, 225};
    for (Count k = 0; k <= 4; ++k) {
        const Fit fit = fitBest(x, y, positions, k);
        Hinges chosen;
        for (std::size_t e = 1; e + 1 < fit.x.size(); ++e)
            chosen.push_back(static_cast<std::int32_t>(fit.x[e] / 300.0F));
        const Fit given = fitGiven(x, y, chosen);
        EXPECT_EQ(fit.error, given.error);
        expectSame(fit.y, given.y);
        EXPECT_EQ(chosen, test::fitExhaustively(x, y, positions, static_cast<std::size_t>(k)).hinges);
    }
}

// ---- counts
// ---------------------------------------------------------------------------------------------------------

TEST(BestPiecewiseFit, ThreeHingesOutOfTwoPositionsPrintThreeLinesAndUseBoth) {
    const std::vector<float> x = times(30);
    const std::vector<float> y = polyline(x, {0, 10, 20, 29}, {0.0, 20.0, 5.0, 14.0});
    testing::internal::CaptureStderr();
    const Fit fit = fitBest(x, y, {10, 20}, 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "You specified more hinges than allowed hinge positions.\n"
              "Taking standard corrective actions.\n"
              "Reducing the number of desired hinges to maximum allowed");
    expectSame(fit.x, {0.0F, 10.0F, 20.0F, 29.0F});
    EXPECT_NEAR(fit.error, 0.0, 1e-10);
}

TEST(BestPiecewiseFit, OneHingeOutOfNoPositionIsTheStraightLine) {
    testing::internal::CaptureStderr();
    const Fit fit = fitBest({0.0F, 1.0F, 2.0F, 3.0F}, {1.0F, 3.0F, 2.0F, 5.0F}, {}, 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "You specified more hinges than allowed hinge positions.\n"
              "Taking standard corrective actions.\n"
              "Reducing the number of desired hinges to maximum allowed"
              "trying to allocate curr_hinge_pos with size 0 \n"
              "trying to allocate hinge_pos with size 0 \n");
    EXPECT_NEAR(fit.y[1], 4.4, 1e-6);
}

TEST(BestPiecewiseFit, AsManySamplesAsUnknownsInterpolateWithoutError) {
    const std::vector<float> x{0.0F, 1.0F, 3.0F, 4.0F}, y{2.0F, -7.0F, 11.0F, 5.0F};
    const Fit fit = fitBest(x, y, {1, 2}, 2);
    EXPECT_EQ(fit.error, 0.0);
    expectSame(fit.x, x);
    for (std::size_t i = 0; i < y.size(); ++i)
        EXPECT_NEAR(fit.y[i], y[i], 1e-5);
}

TEST(FindPiecLinFitOrd, OnePointIsRefusedAndLoggedAndTwoAndThreePointsAreMet) {
    test::CapturedLog log;
    const Fit one = fitGiven({4.0F}, {9.0F}, {});
    EXPECT_EQ(log.text(), "dgels failed miserably!");
    expectSame(one.x, {4.0F, 4.0F});
    expectSame(one.y, {9.0F, 0.0F});
    EXPECT_EQ(one.error, 0.0);
    const Fit two = fitGiven({4.0F, 6.0F}, {9.0F, -1.0F}, {});
    EXPECT_NEAR(two.y[0], 9.0, 1e-6);
    EXPECT_NEAR(two.y[1], -1.0, 1e-6);
    EXPECT_EQ(two.error, 0.0);
    const Fit three = fitGiven({4.0F, 6.0F, 7.0F}, {9.0F, -1.0F, 3.0F}, {1});
    EXPECT_NEAR(three.y[1], -1.0, 1e-5);
    EXPECT_EQ(three.error, 0.0);
}

TEST(FindPiecLinFitOrd, FewerSamplesThanUnknownsGiveTheValuesThemselvesAndNeverWriteBeyond) {
    test::CapturedLog log;
    const std::vector<float> x{0.0F, 1.0F}, y{5.0F, 6.0F};
    const Fit fit = fitGiven(x, y, {1, 1});
    expectSame(fit.x, {0.0F, 1.0F, 1.0F, 1.0F});
    expectSame(fit.y, {5.0F, 6.0F, 0.0F, 0.0F});
    EXPECT_EQ(fit.error, 0.0);
}

TEST(BestPiecewiseFit, FewerSamplesThanUnknownsAreLoggedForEachSet) {
    test::CapturedLog log;
    fitGiven({4.0F}, {9.0F}, {});
    const std::string once = log.text();
    const Fit fit = fitBest({0.0F, 1.0F}, {5.0F, 6.0F}, {0, 1, 1}, 1);
    EXPECT_EQ(log.text(), once + once + once + once);
    expectSame(fit.x, {0.0F, 0.0F, 1.0F}); // all are equal, at no error: the first one stays
}

TEST(BestPiecewiseFit, NoSamplesLeaveTheEndpointsAlone) {
    const Fit fit = fitBest({}, {}, {1}, 1);
    expectSame(fit.x, {-77.0F, -77.0F, -77.0F});
    EXPECT_EQ(fit.error, 0.0);
}

TEST(PiecewiseFitDeathTest, NegativeCountsEndTheProcess) {
    test::CapturedLog log;
    const float x[] = {0.0F, 1.0F, 2.0F};
    float ex[4], ey[4];
    const std::int32_t positions[] = {1};
    EXPECT_EXIT(best_piecewise_fit(-1, x, x, 1, positions, 1, ex, ey), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(best_piecewise_fit(3, x, x, 1, positions, -1, ex, ey), testing::ExitedWithCode(1), "");
    EXPECT_EXIT(find_piec_lin_fit_ord(3, x, x, -2, positions, ex, ey), testing::ExitedWithCode(1), "");
    EXPECT_NE(log.text().find(
                  "best_piecewise_fit : the number of elements in the vector should be non-negative.\n"),
              std::string::npos)
        << log.text();
}

// ---- input that is not a proper series
// ------------------------------------------------------------------------------

/// Result and endpoints are those of the textbook search, not-a-number for not-a-number.
void expectAsTextbook(const std::vector<float>& x, const std::vector<float>& y, const Hinges& positions,
                      Count k) {
    const test::ExhaustiveFit expected = test::fitExhaustively(x, y, positions, static_cast<std::size_t>(k));
    const Fit fit = fitBest(x, y, positions, k);
    expectSame({static_cast<float>(fit.error)}, {static_cast<float>(expected.error)});
    expectSame(fit.x, expected.x);
    expectSame(fit.y, expected.y);
}

TEST(BestPiecewiseFit, ANotANumberOfTheFirstSetIsKeptAsBest) {
    const std::vector<float> x = times(40);
    for (const float bad : {notANumber, infinity, -infinity}) {
        std::vector<float> y = polyline(x, {0, 20, 39}, {1.0, 5.0, 2.0});
        y[25] = bad;
        const Fit fit = fitBest(x, y, {10, 20, 30}, 1);
        EXPECT_TRUE(std::isnan(fit.error)) << bad;
        expectSame(fit.x, {0.0F, 10.0F, 39.0F});
        expectAsTextbook(x, y, {10, 20, 30}, 2);
    }
}

TEST(BestPiecewiseFit, TimesThatAreNotFiniteGoThroughTheTextbookSearch) {
    for (const float bad : {notANumber, infinity})
        for (const std::size_t place : {std::size_t{0}, std::size_t{7}, std::size_t{20}, std::size_t{39}}) {
            std::vector<float> x = times(40);
            const std::vector<float> y = polyline(x, {0, 20, 39}, {1.0, 5.0, 2.0});
            x[place] = bad;
            expectAsTextbook(x, y, {10, 20, 30}, 1);
        }
}

TEST(BestPiecewiseFit, AllTimesEqualGiveNotANumber) {
    const Fit line = fitGiven(std::vector<float>(10, 3.0F), times(10), {});
    EXPECT_TRUE(std::isnan(line.error));
    EXPECT_TRUE(std::isnan(line.y[0]));
    expectAsTextbook(std::vector<float>(10, 3.0F), times(10), {3, 5, 7}, 1);
}

TEST(BestPiecewiseFit, ASetWithEqualTimesIsKeptOnlyWhenItIsTheFirst) {
    std::vector<float> x = times(30);
    const std::vector<float> y = polyline(x, {0, 15, 29}, {1.0, 9.0, 0.0});
    x[1] = x[2] = x[0];
    EXPECT_TRUE(std::isnan(fitBest(x, y, {2, 15}, 1).error));
    x = times(30);
    x[28] = x[29];
    const Fit fit = fitBest(x, y, {15, 28}, 1);
    EXPECT_NEAR(fit.error, 0.0, 1.0);
    expectSame(fit.x, {0.0F, 15.0F, 29.0F});
}

TEST(BestPiecewiseFit, HingesAtTheFirstAndLastSampleGoThroughTheTextbookSearch) {
    const std::vector<float> x = times(30);
    const std::vector<float> y = polyline(x, {0, 15, 29}, {1.0, 9.0, 0.0});
    expectAsTextbook(x, y, {0, 15}, 1);
    expectAsTextbook(x, y, {15, 29}, 1);
}

TEST(BestPiecewiseFit, TimesThatStepBackGoThroughTheTextbookSearch) {
    std::vector<float> x = times(40);
    x[12] = 3.0F;
    std::vector<float> y;
    for (std::size_t i = 0; i < x.size(); ++i)
        y.push_back(static_cast<float>((i * 37) % 11));
    expectAsTextbook(x, y, {10, 20, 30}, 1);
    expectAsTextbook(x, y, {10, 20, 30}, 2);
}

TEST(BestPiecewiseFit, AHugeSearchOverNotANumbersEndsAtOnce) {
    const std::vector<float> x = times(300);
    std::vector<float> y(300, 1.0F);
    y[100] = notANumber;
    Hinges positions;
    for (std::int32_t p = 1; p < 299; ++p)
        positions.push_back(p);
    const Fit fit = fitBest(x, y, positions, 10); // about 1e18 sets, none of which could replace the first
    EXPECT_TRUE(std::isnan(fit.error));
    EXPECT_EQ(fit.x[10], 10.0F);
}

TEST(FindPiecLinFitOrd, IsTheTextbookFitForAnyHinges) {
    std::mt19937 random(11);
    std::normal_distribution<float> noise;
    for (std::size_t samples = 5; samples < 120; samples += 7) {
        const std::vector<float> x = times(samples, 300.0);
        std::vector<float> y;
        for (std::size_t i = 0; i < samples; ++i)
            y.push_back(noise(random));
        const Count last = count(samples) - 2;
        for (const Hinges& hinges :
             {Hinges{}, Hinges{1}, Hinges{last}, Hinges{1, last}, Hinges{1, 2, last}}) {
            const test::ExhaustiveFit expected = test::fitForHinges(x, y, hinges);
            const Fit fit = fitGiven(x, y, hinges);
            EXPECT_NEAR(fit.error, expected.error, 1e-12 * (1.0 + expected.error));
            for (std::size_t e = 0; e < fit.y.size(); ++e)
                EXPECT_NEAR(fit.y[e], expected.y[e], 1e-6);
            expectSame(fit.x, expected.x);
        }
    }
}

// ---- evaluation
// -----------------------------------------------------------------------------------------------------

TEST(YEqPiecLinX, OneEndpointIsRefusedOnStandardError) {
    const float e[] = {1.0F};
    float y[] = {-77.0F};
    testing::internal::CaptureStderr();
    EXPECT_EQ(y_eq_piec_lin_x(1, e, e, 1, e, y), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "y_eq_piec_lin_x: Need at least 2 endpoints, specified 1\n");
    EXPECT_EQ(y[0], -77.0F);
}

TEST(YEqPiecLinX, NegativeLengthIsRefusedOnStandardErrorAndNoLengthWritesNothing) {
    const float e[] = {1.0F, 2.0F};
    float y[] = {-77.0F};
    testing::internal::CaptureStderr();
    EXPECT_EQ(y_eq_piec_lin_x(2, e, e, -3, e, y), 0);
    EXPECT_EQ(y_eq_piec_lin_x(2, e, e, 0, e, y), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "y_eq_piec_lin_x: the length of the array to fit is -3 < 0\n");
    EXPECT_EQ(y[0], -77.0F);
}

TEST(YEqPiecLinX, TooFewEndpointsAreToldBeforeANegativeLength) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(y_eq_piec_lin_x(-4, nullptr, nullptr, -3, nullptr, nullptr), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "y_eq_piec_lin_x: Need at least 2 endpoints, specified -4\n");
}

TEST(YEqPiecLinX, BeyondTheEndsTheFirstAndTheLastSegmentGoOn) {
    const float ex[] = {0.0F, 10.0F, 20.0F}, ey[] = {5.0F, 25.0F, 20.0F};
    const float x[] = {-100.0F, -1.0F, 0.0F, 5.0F, 10.0F, 15.0F, 20.0F, 21.0F, 1000.0F};
    std::vector<float> y(9);
    EXPECT_EQ(y_eq_piec_lin_x(3, ex, ey, 9, x, y.data()), 1);
    expectSame(y, {-195.0F, 3.0F, 5.0F, 15.0F, 25.0F, 22.5F, 20.0F, 19.5F, -470.0F});
}

TEST(YEqPiecLinX, AnEndpointsAbscissaBelongsToTheSegmentOnItsRight) {
    // A segment is computed from its right end: over this one, the left value loses its last digits.
    const float ex[] = {0.0F, 3.0F}, ey[] = {0.1F, 1e9F};
    const float x = 0.0F;
    float y = -77.0F;
    EXPECT_EQ(y_eq_piec_lin_x(2, ex, ey, 1, &x, &y), 1);
    const double left = static_cast<double>(ey[0]), right = static_cast<double>(ey[1]);
    ASSERT_NE(static_cast<float>(-3.0 * ((right - left) / 3.0) + right), ey[0]);
    EXPECT_EQ(y, static_cast<float>(-3.0 * ((right - left) / 3.0) + right));
}

TEST(YEqPiecLinX, TheSweepToTheLeftEndsWithTheAbscissae) {
    const float ex[] = {0.0F, 10.0F}, ey[] = {5.0F, 25.0F};
    const std::vector<float> x{-3.0F, -2.0F, -1.0F};
    std::vector<float> y(4, -77.0F);
    EXPECT_EQ(y_eq_piec_lin_x(2, ex, ey, 3, x.data(), y.data()), 1);
    expectSame(y, {-1.0F, 1.0F, 3.0F, -77.0F});
}

TEST(YEqPiecLinX, ComputesInDoubleAndRoundsOnce) {
    std::mt19937 random(3);
    std::uniform_real_distribution<float> level(-1e3F, 1e3F);
    for (int trial = 0; trial < 200; ++trial) {
        const float ex[] = {0.0F, 700.1F}, ey[] = {level(random), level(random)};
        const std::vector<float> x = times(50, 13.7);
        std::vector<float> y(50);
        y_eq_piec_lin_x(2, ex, ey, 50, x.data(), y.data());
        const double g =
            (static_cast<double>(ey[1]) - static_cast<double>(ey[0])) / static_cast<double>(ex[1]);
        for (std::size_t i = 0; i < x.size(); ++i)
            ASSERT_EQ(y[i], static_cast<float>((static_cast<double>(x[i]) - static_cast<double>(ex[1])) * g +
                                               static_cast<double>(ey[1])));
    }
}

TEST(YEqPiecLinX, EndpointsWithOneAbscissaGiveWhatDivisionByZeroGives) {
    const float ex[] = {0.0F, 5.0F, 5.0F}, ey[] = {0.0F, 5.0F, 9.0F};
    const float x[] = {2.0F, 5.0F, 6.0F};
    std::vector<float> y(3);
    EXPECT_EQ(y_eq_piec_lin_x(3, ex, ey, 3, x, y.data()), 1);
    expectSame(y, {2.0F, notANumber, infinity});
}

TEST(YEqPiecLinX, ANotANumberEndsTheSweepAndTheLastSegmentServesTheRest) {
    const float ex[] = {0.0F, 10.0F, 20.0F}, ey[] = {0.0F, 10.0F, 0.0F};
    const float x[] = {1.0F, notANumber, 2.0F};
    std::vector<float> y(3);
    EXPECT_EQ(y_eq_piec_lin_x(3, ex, ey, 3, x, y.data()), 1);
    expectSame(y, {1.0F, notANumber, 18.0F});
}

} // namespace
} // namespace obrin
