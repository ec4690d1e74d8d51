#include "numeric/linearRegression.h"

#include "tests/numeric/specialFloats.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <sstream>
#include <vector>

namespace obrin {
namespace {

using test::infinity;
using test::notANumber;

using Floats = std::vector<float>;

struct Line {
    float intercept;
    float slope;
};

Line fit(const Floats& x, const Floats& y) {
    Line line{99.0F, 99.0F};
    linearRegression(static_cast<Count>(x.size()), x.data(), y.data(), &line.intercept, &line.slope);
    return line;
}

/// Decimal digits in which a value agrees with the certified one, at most the 7.2 that a float can hold.
double logRelativeError(double value, double certified) {
    const double relative = std::abs(value - certified) / std::abs(certified);
    return std::min(-std::log10(std::max(relative, 1e-16)), 16.0);
}

TEST(LinearRegression, NorrisReferenceDataAsFarAs32BitInputAllows) {
    std::istringstream lines(test::readFile(LUMETRA_FIXTURES "/numeric/norris.csv"));
    Floats x;
    Floats y;
    for (std::string line; std::getline(lines, line);) {
        float valueX = 0.0F;
        float valueY = 0.0F;
        char comma = 0;
        if (std::istringstream(line) >> valueY >> comma >> valueX) {
            x.push_back(valueX);
            y.push_back(valueY);
        }
    }
    ASSERT_EQ(x.size(), 36U);
    const Line line = fit(x, y);
    const double slopeDigits = logRelativeError(double{line.slope}, 1.00211681802045);
    const double interceptDigits = logRelativeError(double{line.intercept}, -0.262323073774029);
    std::cout << "Norris: slope " << slopeDigits << " digits, intercept " << interceptDigits << " digits\n";
    RecordProperty("slopeDigits", std::to_string(slopeDigits));
    RecordProperty("interceptDigits", std::to_string(interceptDigits));
    // The slope is limited by its own rounding to float (3e-8). Half a float step in the slope, times the
    // mean of x of 431, is 2.6e-5 in an intercept of 0.26: four digits.
    EXPECT_GE(slopeDigits, 7.0);
    EXPECT_GE(interceptDigits, 4.0);
}

TEST(LinearRegression, ExactLineIsFoundExactly) {
    EXPECT_EQ(fit({0.0F, 1.0F, 2.0F, 3.0F}, {1.5F, 3.5F, 5.5F, 7.5F}).slope, 2.0F);
    EXPECT_EQ(fit({0.0F, 1.0F, 2.0F, 3.0F}, {1.5F, 3.5F, 5.5F, 7.5F}).intercept, 1.5F);
}

TEST(LinearRegression, EqualAbscissaeGiveSlopeZeroAndTheMeanAsIntercept) {
    const Line line = fit({7.0F, 7.0F, 7.0F}, {1.0F, 2.0F, 6.0F});
    EXPECT_EQ(line.slope, 0.0F);
    EXPECT_EQ(line.intercept, 3.0F);
}

TEST(LinearRegression, OnePointGivesSlopeZeroAndItsOrdinate) {
    const Line line = fit({7.0F}, {-2.5F});
    EXPECT_EQ(line.slope, 0.0F);
    EXPECT_EQ(line.intercept, -2.5F);
}

TEST(LinearRegression, TwoPointsGiveTheLineThroughThem) {
    const Line line = fit({2.0F, 4.0F}, {10.0F, 4.0F});
    EXPECT_EQ(line.slope, -3.0F);
    EXPECT_EQ(line.intercept, 16.0F);
}

TEST(LinearRegression, ThreePointsAreSplitEvenly) {
    const Line line = fit({0.0F, 1.0F, 2.0F}, {0.0F, 3.0F, 0.0F});
    EXPECT_EQ(line.slope, 0.0F);
    EXPECT_EQ(line.intercept, 1.0F);
}

TEST(LinearRegression, NoPointsGiveSlopeZeroAndNoIntercept) {
    const Line line = fit({}, {});
    EXPECT_EQ(line.slope, 0.0F);
    EXPECT_TRUE(std::isnan(line.intercept));
}

TEST(LinearRegression, ConstantSeriesGivesItsConstant) {
    const Line line = fit({0.0F, 10.0F, 20.0F}, {42.5F, 42.5F, 42.5F});
    EXPECT_EQ(line.slope, 0.0F);
    EXPECT_EQ(line.intercept, 42.5F);
}

TEST(LinearRegression, NotANumberInTheAbscissaeGivesSlopeZero) {
    const Line line = fit({0.0F, notANumber, 2.0F}, {1.0F, 2.0F, 3.0F});
    EXPECT_EQ(line.slope, 0.0F);
    EXPECT_TRUE(std::isnan(line.intercept));
    EXPECT_EQ(fit({0.0F, infinity, 2.0F}, {1.0F, 2.0F, 3.0F}).slope, 0.0F);
}

TEST(LinearRegression, NotANumberOrInfinityInTheOrdinatesGoesThrough) {
    EXPECT_TRUE(std::isnan(fit({0.0F, 1.0F, 2.0F}, {1.0F, notANumber, 3.0F}).slope));
    EXPECT_TRUE(std::isnan(fit({0.0F, 1.0F, 2.0F}, {1.0F, infinity, 3.0F}).slope));
}

TEST(LinearRegression, SlopeIsRoundedToFloatAndTheInterceptComputedFromTheRoundedOne) {
    // slope 1/3: with the unrounded quotient the intercept would be 0.
    const Floats x{0.0F, 3.0e6F, 6.0e6F};
    const Floats y{0.0F, 1.0e6F, 2.0e6F};
    const Line line = fit(x, y);
    EXPECT_EQ(line.slope, static_cast<float>(1.0 / 3.0));
    EXPECT_EQ(line.intercept, static_cast<float>(1.0e6 - double{line.slope} * 3.0e6));
    EXPECT_NE(line.intercept, 0.0F);
}

TEST(LinearRegression, EpochSizeTimesLoseNothingButTheirOwnRounding) {
    // Floats near 1.7e9 lie 128 s apart, so the times are chosen among them.
    std::mt19937 generator(11);
    std::normal_distribution<double> noise(0.0, 0.5);
    for (int series = 0; series < 100; ++series) {
        Floats x;
        Floats y;
        long double sumX = 0.0L;
        long double sumY = 0.0L;
        for (int i = 0; i < 500; ++i) {
            x.push_back(1.7e9F + 128.0F * static_cast<float>(i));
            y.push_back(static_cast<float>(20.0 + 1e-4 * 128.0 * i + noise(generator)));
            sumX += static_cast<long double>(x.back());
            sumY += static_cast<long double>(y.back());
        }
        long double sxy = 0.0L;
        long double sxx = 0.0L;
        for (std::size_t i = 0; i < x.size(); ++i) {
            const long double dx = static_cast<long double>(x[i]) - sumX / 500.0L;
            sxy += dx * (static_cast<long double>(y[i]) - sumY / 500.0L);
            sxx += dx * dx;
        }
        constexpr float halfAFloatStep = 6e-8F; // relative
        const auto slope = static_cast<float>(sxy / sxx);
        ASSERT_NEAR(fit(x, y).slope, slope, slope * halfAFloatStep * 2.0F);
    }
}

TEST(LinearRegression, NegativeCountEndsTheProcess) {
    const test::CapturedLog log;
    float intercept = 0.0F;
    float slope = 0.0F;
    EXPECT_EXIT(linearRegression(-1, nullptr, nullptr, &intercept, &slope), testing::ExitedWithCode(1), "^$");
    EXPECT_EQ(log.text(), "sum : the number of elements in the vector should be non-negative.\n"
                          "The Provided value is -1 \n");
}

} // namespace
} // namespace obrin
