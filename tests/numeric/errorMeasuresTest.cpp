#include "numeric/errorMeasures.h"

#include "tests/support/temporaryDirectory.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <vector>

namespace obrin {
namespace {

using Floats = std::vector<float>;

TEST(ErrorMeasures, MeanSquaredErrorOfAHandComputedPair) {
    const Floats a{1.0F, 2.0F, 3.0F};
    const Floats b{1.0F, 4.0F, 0.0F};
    EXPECT_EQ(MSE(3, a.data(), b.data()), 13.0 / 3.0);
    EXPECT_EQ(MSE(3, a.data(), a.data()), 0.0);
}

TEST(ErrorMeasures, WeightsOfZeroGiveZero) {
    const Floats a{1.0F, 2.0F};
    const Floats b{3.0F, 7.0F};
    const Floats w{0.0F, 0.0F};
    EXPECT_EQ(WMSE(2, a.data(), b.data(), w.data()), 0.0);
}

TEST(ErrorMeasures, WeightsOneAndZeroOverDifferencesTwoAndFiveGiveTwo) {
    const Floats a{2.0F, 5.0F};
    const Floats b{0.0F, 0.0F};
    const Floats w{1.0F, 0.0F};
    EXPECT_EQ(WMSE(2, a.data(), b.data(), w.data()), 2.0);
}

TEST(ErrorMeasures, EachDifferenceAndProductIsRoundedToFloatBeforeTheMean) {
    std::mt19937 generator(7);
    std::normal_distribution<float> normal(50.0F, 10.0F);
    for (Count n = 1; n < 40; ++n) {
        Floats a, b, w;
        double squares = 0.0;
        double weighted = 0.0;
        double unrounded = 0.0;
        for (Count i = 0; i < n; ++i) {
            a.push_back(normal(generator));
            b.push_back(normal(generator));
            w.push_back(normal(generator));
            const float difference = static_cast<float>(double{a.back()} - double{b.back()});
            const float square = static_cast<float>(double{difference} * double{difference});
            squares += double{square};
            weighted += double{static_cast<float>(double{square} * double{w.back()})};
            unrounded += double{square} * double{w.back()};
        }
        ASSERT_EQ(MSE(n, a.data(), b.data()), squares / n);
        ASSERT_EQ(WMSE(n, a.data(), b.data(), w.data()), weighted / n);
        if (n == 39) {
            EXPECT_NE(weighted, unrounded); // so that the test can tell the two apart
        }
    }
}

TEST(ErrorMeasures, SquareBeyondTheRangeOfAFloatIsInfinite) {
    const float a = 1e30F;
    const float b = -1e30F;
    EXPECT_EQ(MSE(1, &a, &b), std::numeric_limits<double>::infinity());
}

TEST(ErrorMeasures, NothingHasNoMeanAndTheEmptyScratchArrayIsReported) {
    testing::internal::CaptureStderr();
    EXPECT_TRUE(std::isnan(MSE(0, nullptr, nullptr)));
    EXPECT_TRUE(std::isnan(WMSE(0, nullptr, nullptr, nullptr)));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "trying to allocate diff with size 0 \n"
                                                      "trying to allocate diff with size 0 \n");
}

TEST(ErrorMeasures, NegativeCountIsReportedByTheScratchArrayThenLoggedAndEndsTheProcess) {
    const test::CapturedLog log;
    const float a = 1.0F;
    EXPECT_EXIT(MSE(-2, &a, &a), testing::ExitedWithCode(1), "^trying to allocate diff with size -2 \n$");
    EXPECT_EQ(log.text(), "sves : the number of elements in the vector should be non-negative.\n"
                          "The Provided value is -2 \n");
}

} // namespace
} // namespace obrin
