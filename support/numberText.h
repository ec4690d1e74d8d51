#pragma once

#include <cstddef>

namespace obrin {

// The text of numbers, to the byte what printf makes of them where the decimal point is a point: rounded to
// the nearest, halves to even, "-0.00", "inf" and "-nan" as there. Independent of any locale. Each function
// writes at `at`, without a NUL, and gives the end of what it wrote.

/// Of a decimal number, whatever the locale.
inline bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// Room that any number with up to ten decimals fits into.
inline constexpr std::size_t longestNumberText = 352;

/// "%.*f".
char* putFixed(char* at, double value, int decimals);

/// "%f", several times faster for what a float holds.
char* putSixDecimals(char* at, float value);

/// "%e".
char* putScientific(char* at, double value);

} // namespace obrin
