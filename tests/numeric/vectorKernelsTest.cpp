#include "numeric/vectorKernels.h"

#include "tests/numeric/specialFloats.h"
#include "tests/support/temporaryDirectory.h"

#include <cmath>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <thread>
#include <vector>

namespace obrin {
namespace {

using test::infinity;
using test::notANumber;

using Floats = std::vector<float>;

Floats randomFloats(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::normal_distribution<float> normal(0.0F, 100.0F);
    Floats values(count);
    for (float& value : values) {
        value = normal(generator);
    }
    return values;
}

/// Element k of a strided vector, by the definition.
std::size_t at(Count n, Count stride, Count k) {
    const Count first = stride >= 1 ? 0 : -stride * (n - 1);
    return static_cast<std::size_t>(first + k * stride);
}

struct Strides {
    Count n, incx, incy, incz;
};

std::vector<Strides> allStrides() {
    std::vector<Strides> result;
    for (Count n = 0; n <= 9; ++n) {
        for (const Count incx : {-3, -1, 0, 1, 2}) {
            for (const Count incy : {-2, -1, 1, 3}) {
                for (const Count incz : {-1, 1, 2}) {
                    result.push_back({n, incx, incy, incz});
                }
            }
        }
    }
    return result;
}

TEST(VectorKernels, StridesOfEverySignAddressTheElementsOfTheDefinition) {
    const float a = 1.7F;
    const float b = -0.3F;
    for (const auto& [n, incx, incy, incz] : allStrides()) {
        const Floats x = randomFloats(32, 1);
        const Floats y = randomFloats(32, 2);
        Floats copy = y, sum = y, affine = y, difference = y, product = y, exponential = y, logarithm = y;
        scopy(n, x.data(), incx, copy.data(), incy);
        saxpy(n, a, x.data(), incx, sum.data(), incy);
        smadd(a, b, n, x.data(), incx, affine.data(), incy);
        sexpx(n, x.data(), incx, exponential.data(), incy);
        slogx(n, x.data(), incx, logarithm.data(), incy);
        sves(n, x.data(), incx, y.data(), incy, difference.data(), incz);
        svem(n, x.data(), incx, y.data(), incy, product.data(), incz);
        Floats wantCopy = y, wantSum = y, wantAffine = y, wantDifference = y, wantProduct = y, wantExp = y,
               wantLog = y;
        double total = 0.0;
        for (Count k = 0; k < n; ++k) {
            const double xk = x[at(n, incx, k)];
            const std::size_t j = at(n, incy, k);
            const std::size_t m = at(n, incz, k);
            total += xk;
            wantCopy[j] = static_cast<float>(xk);
            wantSum[j] = static_cast<float>(double{a} * xk + double{y[j]});
            wantAffine[j] = static_cast<float>(double{a} * xk + double{b});
            wantExp[j] = static_cast<float>(std::exp(xk));
            wantLog[j] = xk > 0.0 ? static_cast<float>(std::log(xk)) : 0.0F;
            wantDifference[m] = static_cast<float>(xk - double{y[j]});
            wantProduct[m] = static_cast<float>(xk * double{y[j]});
        }
        ASSERT_EQ(copy, wantCopy) << n << ' ' << incx << ' ' << incy;
        ASSERT_EQ(sum, wantSum);
        ASSERT_EQ(affine, wantAffine);
        ASSERT_EQ(exponential, wantExp);
        ASSERT_EQ(logarithm, wantLog);
        ASSERT_EQ(difference, wantDifference);
        ASSERT_EQ(product, wantProduct);
        ASSERT_EQ(ssum(n, x.data(), incx), total);
        if (n > 0) {
            ASSERT_EQ(smean(n, x.data(), incx), total / n);
        }
    }
}

TEST(VectorKernels, CountOfZeroReadsAndWritesNothingWhateverTheStride) {
    for (const Count stride : {-2, 0, 1, 2}) {
        scopy(0, nullptr, stride, nullptr, stride);
        saxpy(0, 1.0F, nullptr, stride, nullptr, stride);
        smadd(1.0F, 1.0F, 0, nullptr, stride, nullptr, stride);
        sves(0, nullptr, stride, nullptr, stride, nullptr, stride);
        svem(0, nullptr, stride, nullptr, stride, nullptr, stride);
        slogx(0, nullptr, stride, nullptr, stride);
        sexpx(0, nullptr, stride, nullptr, stride);
        EXPECT_EQ(ssum(0, nullptr, stride), 0.0);
    }
    sCopySelEls(0, nullptr, nullptr, nullptr);
    iCopySelEls(0, nullptr, nullptr, nullptr);
}

TEST(VectorKernels, MeanOfNothingIsNotANumberAndSumOfNothingIsZero) {
    EXPECT_TRUE(std::isnan(smean(0, nullptr, 1)));
    EXPECT_EQ(ssum(0, nullptr, 1), 0.0);
}

TEST(VectorKernels, NegativeCountLogsTwoLinesWithTheKernelsNameAndEndsTheProcessWithStatusOne) {
    const float x = 1.0F;
    float y = 2.0F;
    const std::vector<std::pair<std::string, std::function<void()>>> calls{
        {"scopy", [&] { scopy(-1, &x, 1, &y, 1); }},
        {"saxpy", [&] { saxpy(-1, 1.0F, &x, 1, &y, 1); }},
        {"smadd", [&] { smadd(1.0F, 1.0F, -1, &x, 1, &y, 1); }},
        {"sves", [&] { sves(-1, &x, 1, &x, 1, &y, 1); }},
        {"svem", [&] { svem(-1, &x, 1, &x, 1, &y, 1); }},
        {"mean", [&] { smean(-1, &x, 1); }},
        {"sum", [&] { ssum(-1, &x, 1); }},
    };
    for (const auto& [name, call] : calls) {
        const test::CapturedLog log;
        EXPECT_EXIT(call(), testing::ExitedWithCode(1), "^$") << name;
        EXPECT_EQ(log.text(), name + " : the number of elements in the vector should be non-negative.\n"
                                     "The Provided value is -1 \n");
    }
}

TEST(VectorKernels, CheckPassesZeroAndPositiveCountsInSilence) {
    const test::CapturedLog log;
    Check_N(0, "scopy");
    Check_N(std::numeric_limits<Count>::max(), "scopy");
    EXPECT_EQ(log.text(), "");
}

TEST(VectorKernels, KernelsWithoutACheckTakeANegativeCountForZero) {
    const float x = 1.0F;
    float y = 2.0F;
    slogx(-1, &x, 1, &y, 1);
    sexpx(-1, &x, 2, &y, -2);
    sCopySelEls(-1, &x, nullptr, &y);
    EXPECT_EQ(y, 2.0F);
}

TEST(VectorKernels, AffineMapAndScaledSumAreRoundedOnce) {
    // x^2 = 1 + 2^-11 + 2^-24: rounded to float before the addition, the last term would be lost.
    const float x = 1.0F + 0x1p-12F;
    float y = 0.0F;
    smadd(x, -1.0F, 1, &x, 1, &y, 1);
    EXPECT_EQ(y, 0x1p-11F + 0x1p-24F);
    y = -1.0F;
    saxpy(1, x, &x, 1, &y, 1);
    EXPECT_EQ(y, 0x1p-11F + 0x1p-24F);
}

TEST(VectorKernels, DifferencesAndProductsAreThoseOfDoubleArithmeticRoundedOnce) {
    std::mt19937 generator(3);
    std::uniform_int_distribution<std::uint32_t> bits;
    const auto anyFloat = [&] {
        for (;;) {
            const std::uint32_t pattern = bits(generator);
            float value;
            std::memcpy(&value, &pattern, sizeof value);
            if (std::isfinite(value)) {
                return value;
            }
        }
    };
    for (int i = 0; i < 200000; ++i) {
        const float x = anyFloat();
        const float y = anyFloat();
        float difference = 0.0F;
        float product = 0.0F;
        sves(1, &x, 1, &y, 1, &difference, 1);
        svem(1, &x, 1, &y, 1, &product, 1);
        const double wantDifference = double{x} - double{y};
        const double wantProduct = double{x} * double{y};
        if (std::abs(wantDifference) < double{std::numeric_limits<float>::max()}) {
            ASSERT_EQ(difference, static_cast<float>(wantDifference)) << x << ' ' << y;
        }
        if (std::abs(wantProduct) < double{std::numeric_limits<float>::max()}) {
            ASSERT_EQ(product, static_cast<float>(wantProduct)) << x << ' ' << y;
        }
    }
}

TEST(VectorKernels, SumsRunStrictlyInIndexOrder) {
    const Floats swallowed{1.0F, 1e20F, -1e20F, 1.0F}; // the first 1 is lost, the last is kept
    EXPECT_EQ(ssum(4, swallowed.data(), 1), 1.0);
    EXPECT_EQ(smean(4, swallowed.data(), 1), 0.25);
    for (Count n = 0; n < 70; ++n) {
        const Floats x = randomFloats(static_cast<std::size_t>(n), static_cast<unsigned>(n));
        double sum = 0.0;
        for (const float value : x) {
            sum += double{value};
        }
        ASSERT_EQ(ssum(n, x.data(), 1), sum);
    }
}

TEST(VectorKernels, StrideOfZeroRepeatsTheFirstElement) {
    const float x = 0.1F;
    EXPECT_EQ(ssum(3, &x, 0), double{x} + double{x} + double{x});
    Floats y(3);
    scopy(3, &x, 0, y.data(), 1);
    EXPECT_EQ(y, Floats(3, x));
}

TEST(VectorKernels, EveryElementwiseKernelWorksInPlace) {
    for (const Count n : {1, 4, 7, 32}) {
        const Floats x = randomFloats(static_cast<std::size_t>(n), 5);
        Floats squared = x, doubled = x, mapped = x, zero = x, exponential = x, logarithm = x;
        svem(n, squared.data(), 1, squared.data(), 1, squared.data(), 1);
        saxpy(n, 1.0F, doubled.data(), 1, doubled.data(), 1);
        smadd(2.0F, 1.0F, n, mapped.data(), 1, mapped.data(), 1);
        sves(n, zero.data(), 1, zero.data(), 1, zero.data(), 1);
        sexpx(n, exponential.data(), 1, exponential.data(), 1);
        slogx(n, logarithm.data(), 1, logarithm.data(), 1);
        for (std::size_t k = 0; k < x.size(); ++k) {
            const double xk = x[k];
            ASSERT_EQ(squared[k], static_cast<float>(xk * xk));
            ASSERT_EQ(doubled[k], static_cast<float>(xk + xk));
            ASSERT_EQ(mapped[k], static_cast<float>(2.0 * xk + 1.0));
            ASSERT_EQ(zero[k], 0.0F);
            ASSERT_EQ(exponential[k], static_cast<float>(std::exp(xk)));
            ASSERT_EQ(logarithm[k], xk > 0.0 ? static_cast<float>(std::log(xk)) : 0.0F);
        }
    }
}

TEST(VectorKernels, LogarithmOfOneZeroMinusThreeAndEIsZeroZeroZeroAndOne) {
    const Floats x{1.0F, 0.0F, -3.0F, static_cast<float>(std::exp(1.0))};
    Floats y(4, 9.0F);
    slogx(4, x.data(), 1, y.data(), 1);
    EXPECT_EQ(Floats(y.begin(), y.begin() + 3), (Floats{0.0F, 0.0F, 0.0F}));
    EXPECT_FLOAT_EQ(y[3], 1.0F); // the float next to e lies 8e-8 below it
}

TEST(VectorKernels, LogarithmOfWhatIsNotAboveZeroIsPositiveZero) {
    const Floats x{-0.0F, notANumber, -notANumber, -infinity, -std::numeric_limits<float>::denorm_min()};
    Floats y(x.size(), 9.0F);
    slogx(static_cast<Count>(x.size()), x.data(), 1, y.data(), 1);
    for (const float value : y) {
        EXPECT_EQ(value, 0.0F);
        EXPECT_FALSE(std::signbit(value));
    }
}

TEST(VectorKernels, LogarithmReachesFromTheSmallestFloatToInfinity) {
    const Floats x{std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::max(), infinity};
    Floats y(3);
    slogx(3, x.data(), 1, y.data(), 1);
    EXPECT_EQ(y, (Floats{static_cast<float>(-149.0 * std::log(2.0)),
                         static_cast<float>(std::log(3.4028234663852886e38)), infinity}));
}

TEST(VectorKernels, LogarithmsOfManyThreadsAgree) {
    std::vector<Floats> results(8, Floats(100));
    const Floats x = randomFloats(100, 6);
    std::vector<std::thread> threads;
    for (Floats& result : results) {
        threads.emplace_back([&] { slogx(100, x.data(), 1, result.data(), 1); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const Floats& result : results) {
        EXPECT_EQ(result, results[0]);
    }
}

TEST(VectorKernels, ExponentialOverflowsToInfinityAndUnderflowsToZero) {
    const Floats x{0.0F, 88.0F, 89.0F, infinity, -200.0F, -infinity, notANumber};
    Floats y(x.size());
    sexpx(static_cast<Count>(x.size()), x.data(), 1, y.data(), 1);
    EXPECT_EQ(y[0], 1.0F);
    EXPECT_EQ(y[1], static_cast<float>(std::exp(88.0)));
    EXPECT_EQ(y[2], infinity);
    EXPECT_EQ(y[3], infinity);
    EXPECT_EQ(y[4], 0.0F);
    EXPECT_EQ(y[5], 0.0F);
    EXPECT_TRUE(std::isnan(y[6]));
}

TEST(VectorKernels, SelectedElementsAreCopiedInTheOrderOfTheIndices) {
    const Floats x{10.0F, 11.0F, 12.0F, 13.0F};
    const std::vector<std::int32_t> numbers{20, 21, 22, 23};
    const std::vector<std::int32_t> indices{3, 0, 3};
    Floats y(3);
    std::vector<std::int32_t> z(3);
    sCopySelEls(3, x.data(), indices.data(), y.data());
    iCopySelEls(3, numbers.data(), indices.data(), z.data());
    EXPECT_EQ(y, (Floats{13.0F, 10.0F, 13.0F}));
    EXPECT_EQ(z, (std::vector<std::int32_t>{23, 20, 23}));
}

} // namespace
} // namespace obrin
