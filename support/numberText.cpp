#include "support/numberText.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace obrin {

char* putFixed(char* at, double value, int decimals) {
    return std::to_chars(at, at + longestNumberText, value, std::chars_format::fixed, decimals).ptr;
}

char* putSixDecimals(char* at, float value) {
    constexpr double millionths = 1e6;
    // The product of a float's 24 bits and a million's 14 is exact in a double, and an integer holds it.
    constexpr double most = 9e9;
    const double magnitude = std::fabs(static_cast<double>(value));
    if (!(magnitude < most))
        return putFixed(at, static_cast<double>(value), 6);
    const auto all = static_cast<std::uint64_t>(std::llrint(magnitude * millionths));
    if (std::signbit(value))
        *at++ = '-';
    at = std::to_chars(at, at + longestNumberText, all / 1'000'000).ptr;
    *at++ = '.';
    std::uint64_t rest = all % 1'000'000;
    for (char* digit = at + 5; digit >= at; --digit, rest /= 10)
        *digit = static_cast<char>('0' + rest % 10);
    return at + 6;
}

char* putScientific(char* at, double value) {
    return std::to_chars(at, at + longestNumberText, value, std::chars_format::scientific, 6).ptr;
}

} // namespace obrin
