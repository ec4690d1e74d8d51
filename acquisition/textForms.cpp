#include "acquisition/textForms.h"

#include "agent/debugLog.h"

#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>

namespace obrin {

namespace {

std::atomic<bool> negtime{false};

constexpr double secondsPerDay = 86400.0;

bool isControl(unsigned char byte) {
    return byte < 0x20 || byte == 0x7F;
}

bool isOctal(char byte) {
    return byte >= '0' && byte <= '7';
}

/// `value` truncated toward zero, or the nearest end of the range of long; 0 for NaN.
long truncateToLong(double value) {
    constexpr double beyond = 9223372036854775808.0;
    if (std::isnan(value))
        return 0;
    if (value >= beyond)
        return std::numeric_limits<long>::max();
    return value <= -beyond ? std::numeric_limits<long>::min() : static_cast<long>(value);
}

} // namespace

std::string cleanfilename(std::string_view text) {
    std::string clean(text);
    for (char& byte : clean)
        if (std::string_view("/: *?\"><|").find(byte) != std::string_view::npos)
            byte = '_';
    return clean;
}

std::string decodeOctal(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] <= '3' && isOctal(text[i + 1]) &&
            isOctal(text[i + 2]) && isOctal(text[i + 3])) {
            decoded +=
                static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
            i += 3;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

std::string asListed(std::string_view text, bool asciiOnly) {
    std::string listed(text);
    for (char& byte : listed) {
        const auto value = static_cast<unsigned char>(byte);
        if (isControl(value) || (asciiOnly && value >= 0x80))
            byte = '?';
    }
    return listed;
}

std::string Getdays(double seconds) {
    if (seconds < 0.0) {
        negtime = true;
        seconds = std::fabs(seconds);
    }
    const long days = truncateToLong(seconds / secondsPerDay);
    long rest = truncateToLong(seconds - static_cast<double>(days) * secondsPerDay);
    if (rest < 0 || rest > 86400)
        rest = 0; // days beyond what a double resolves to the second
    const long hours = rest / 3600;
    rest %= 3600;
    const bool negative = negtime;
    if (negative)
        DEBUGMSG("- ");
    char text[128];
    std::snprintf(text, sizeof text, "%s%ld day(s) %ld hr(s) %ld min(s) and %ld sec(s)", negative ? "- " : "",
                  days, hours, rest / 60, rest % 60);
    return text;
}

} // namespace obrin
