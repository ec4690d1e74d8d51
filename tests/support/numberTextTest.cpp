#include "support/numberText.h"

#include "tests/support/often.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

namespace obrin {
namespace {

std::string fixed(double value, int decimals) {
    char text[longestNumberText];
    return {text, putFixed(text, value, decimals)};
}

std::string sixDecimals(float value) {
    char text[longestNumberText];
    return {text, putSixDecimals(text, value)};
}

std::string scientific(double value) {
    char text[longestNumberText];
    return {text, putScientific(text, value)};
}

std::string printedFixed(double value, int decimals) {
    char text[512];
    const int length = std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return {text, static_cast<std::size_t>(length)};
}

std::string printedScientific(double value) {
    char text[64];
    return {text, static_cast<std::size_t>(std::snprintf(text, sizeof text, "%e", value))};
}

void expectAsPrinted(double value) {
    EXPECT_EQ(fixed(value, 2), printedFixed(value, 2));
    EXPECT_EQ(fixed(value, 6), printedFixed(value, 6));
    EXPECT_EQ(fixed(value, 10), printedFixed(value, 10));
    EXPECT_EQ(scientific(value), printedScientific(value));
    if (const auto narrow = static_cast<float>(value);
        static_cast<double>(narrow) == value || std::isnan(value)) {
        EXPECT_EQ(sixDecimals(narrow), printedFixed(value, 6));
    }
}

TEST(NumberText, SpecialValuesHalvesAndLimitsAreAsPrinted) {
    using Double = std::numeric_limits<double>;
    using Float = std::numeric_limits<float>;
    for (double value : {0.0,
                         1.0,
                         0.5,
                         0.005,
                         0.125,
                         0.375,
                         2.5,
                         99.995,
                         99.994999,
                         0.0000005,
                         0.00000049,
                         100.0,
                         8999999999.0,
                         9e9,
                         9000001024.0,
                         1.0 / 128,
                         3.0 / 128,
                         1.0 / 2097152,
                         3.0 / 2097152,
                         static_cast<double>(Float::max()),
                         static_cast<double>(Float::min()),
                         static_cast<double>(Float::denorm_min()),
                         Double::max(),
                         Double::min(),
                         Double::denorm_min(),
                         Double::infinity(),
                         Double::quiet_NaN()})
        for (double sign : {1.0, -1.0})
            expectAsPrinted(std::copysign(value, sign));
}

TEST(NumberText, AnyNumbersAreAsPrinted) {
    std::mt19937_64 random(11);
    const int rounds = test::often(40'000, 2'500'000); // of five numbers each
    for (int i = 0; i < rounds && !testing::Test::HasFailure(); ++i) {
        const auto bits = random();
        const auto any = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
        ASSERT_EQ(sixDecimals(any), printedFixed(static_cast<double>(any), 6));
        // Times and percentages, as the files have them.
        const auto usual = static_cast<float>(bits % 100'000'000) / 1024.0F;
        ASSERT_EQ(sixDecimals(usual), printedFixed(static_cast<double>(usual), 6));
        const double percent = static_cast<double>(bits >> 11) * 0x1p-53 * 100.0;
        ASSERT_EQ(fixed(percent, 2), printedFixed(percent, 2));
        const auto wide = std::bit_cast<double>(bits);
        ASSERT_EQ(fixed(wide, 2), printedFixed(wide, 2));
        ASSERT_EQ(scientific(wide), printedScientific(wide));
    }
}

} // namespace
} // namespace obrin
