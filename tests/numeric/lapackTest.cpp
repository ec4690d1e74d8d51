#include "numeric/lapack.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>

extern "C" void dgels_();

namespace obrin {
namespace {

TEST(Lapack, IsTheLibraryThatTheRunNames) {
    const char* expected = std::getenv("LUMETRA_EXPECTED_LAPACK");
    if (expected == nullptr)
        GTEST_SKIP() << "LUMETRA_EXPECTED_LAPACK names no folder";
    Dl_info found{};
    ASSERT_NE(::dladdr(reinterpret_cast<const void*>(&dgels_), &found), 0);
    EXPECT_EQ(std::filesystem::canonical(found.dli_fname).parent_path(),
              std::filesystem::canonical(expected));
}

TEST(Lapack, SafeMinimumIsTheLeastNormalDoubleAndItsReciprocalIsFinite) {
    EXPECT_EQ(safeMinimum(), std::numeric_limits<double>::min());
    EXPECT_LT(1.0 / safeMinimum(), std::numeric_limits<double>::infinity());
}

TEST(Lapack, LeastSquaresLineThroughFourPointsAndItsResidual) {
    // y = 0, 1, 1, 2 at x = 0 .. 3: the line is 0.1 + 0.6 x, with a residual sum of squares of 0.2.
    std::array<double, 8> a{1.0, 1.0, 1.0, 1.0, 0.0, 1.0, 2.0, 3.0};
    std::array<double, 4> b{0.0, 1.0, 1.0, 2.0};
    std::array<double, 130> work{};
    EXPECT_EQ(solveLeastSquares(4, 2, a.data(), 4, b.data(), 4, work.data(), static_cast<int>(work.size())),
              0);
    constexpr double tolerance = 1e-14; // a few roundings of numbers around 1
    EXPECT_NEAR(b[0], 0.1, tolerance);
    EXPECT_NEAR(b[1], 0.6, tolerance);
    EXPECT_NEAR(b[2] * b[2] + b[3] * b[3], 0.2, tolerance);
}

TEST(Lapack, LeadingDimensionMayExceedTheRows) {
    std::array<double, 10> a{2.0, 0.0, -1.0, -1.0, -1.0, 0.0, 4.0, -1.0, -1.0, -1.0};
    std::array<double, 5> b{6.0, 8.0, 77.0, 77.0, 77.0};
    std::array<double, 66> work{};
    EXPECT_EQ(solveLeastSquares(2, 2, a.data(), 5, b.data(), 5, work.data(), static_cast<int>(work.size())),
              0);
    EXPECT_DOUBLE_EQ(b[0], 3.0);
    EXPECT_DOUBLE_EQ(b[1], 2.0);
    EXPECT_TRUE(std::all_of(b.begin() + 2, b.end(), [](double rest) { return rest == 77.0; }));
}

TEST(Lapack, ColumnOfZerosIsReportedByAPositiveResult) {
    std::array<double, 6> a{1.0, 1.0, 1.0, 0.0, 0.0, 0.0};
    std::array<double, 3> b{1.0, 2.0, 3.0};
    std::array<double, 98> work{};
    EXPECT_EQ(solveLeastSquares(3, 2, a.data(), 3, b.data(), 3, work.data(), static_cast<int>(work.size())),
              2);
}

} // namespace
} // namespace obrin
