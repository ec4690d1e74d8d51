// Numbers into text and text into numbers, as the C library does both where the decimal point is a point.

#include "support/numberText.h"

#include "fuzz/target.h"
#include "support/textScanner.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace obrin::fuzz::numberText {
namespace {

void checkWriting(Input bytes) {
    char own[longestNumberText];
    char expected[longestNumberText];
    const double number = bytes.take<double>();
    for (const int decimals : {0, 2, 6, 10}) {
        std::snprintf(expected, sizeof expected, "%.*f", decimals, number);
        require(std::string_view(own, putFixed(own, number, decimals)) == expected, "as printf writes it");
    }
    std::snprintf(expected, sizeof expected, "%e", number);
    require(std::string_view(own, putScientific(own, number)) == expected, "as printf writes it");
    for (const float value : {static_cast<float>(number), bytes.take<float>()}) {
        std::snprintf(expected, sizeof expected, "%f", static_cast<double>(value));
        require(std::string_view(own, putSixDecimals(own, value)) == expected, "as printf writes it");
    }
}

void checkReading(std::string_view input) {
    const std::string text(input.substr(0, std::min<std::size_t>(input.find('\0'), 500)));
    char* after = nullptr;
    const double expected = std::strtod(text.c_str(), &after);
    TextScanner scanner(text);
    const auto real = scanner.real();
    require(real.has_value() == (after != text.c_str()), "a number is one where the library sees one");
    if (real) {
        require(std::bit_cast<std::uint64_t>(*real) == std::bit_cast<std::uint64_t>(expected) ||
                    (std::isnan(*real) && std::isnan(expected)),
                "it is the library's number");
        require(scanner.position() == static_cast<std::size_t>(after - text.c_str()),
                "it ends where the library ends");
    }
    const long long whole = std::strtoll(text.c_str(), &after, 10);
    scanner.moveTo(0);
    const auto integer = scanner.integer();
    require(integer.has_value() == (after != text.c_str()), "an integer is one where the library sees one");
    require(!integer ||
                (*integer == whole && scanner.position() == static_cast<std::size_t>(after - text.c_str())),
            "it is the library's integer");
}

void check(std::string_view input) {
    checkWriting(Input(input));
    checkReading(input);
    const double number = Input(input).take<double>();
    const std::int32_t truncated = truncateToInt32(number);
    require(std::isnan(number) ? truncated == 0
                               : std::fabs(number) >= 2147483648.0 || truncated == std::trunc(number),
            "a number is truncated toward zero");
}

const Target target("numberText", check);

} // namespace
} // namespace obrin::fuzz::numberText
