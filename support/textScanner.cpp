#include "support/textScanner.h"

#include "support/numericLocale.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

namespace obrin {

bool isWhiteSpace(char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

std::string_view leadingWord(std::string_view text) {
    return {text.begin(), std::find_if(text.begin(), text.end(), isWhiteSpace)};
}

std::string_view stripped(std::string_view text) {
    while (!text.empty() && isWhiteSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isWhiteSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::int32_t clampToInt32(std::int64_t value) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, std::numeric_limits<std::int32_t>::min(),
                                                              std::numeric_limits<std::int32_t>::max()));
}

std::int32_t truncateToInt32(double value) {
    if (std::isnan(value))
        return 0;
    return static_cast<std::int32_t>(std::clamp(value, -2147483648.0, 2147483647.0));
}

void TextScanner::skipWhiteSpace() {
    while (position_ < text_.size() && isWhiteSpace(text_[position_]))
        ++position_;
}

std::optional<std::string_view> TextScanner::word() {
    skipWhiteSpace();
    const std::size_t begin = position_;
    while (position_ < text_.size() && !isWhiteSpace(text_[position_]))
        ++position_;
    if (position_ == begin)
        return std::nullopt;
    return text_.substr(begin, position_ - begin);
}

std::optional<std::int64_t> TextScanner::integer() {
    skipWhiteSpace();
    const char* begin = text_.data() + position_;
    const char* end = text_.data() + text_.size();
    const bool plus = begin != end && *begin == '+';
    const bool negative = begin != end && *begin == '-';
    if (plus && begin + 1 != end && begin[1] == '-')
        return std::nullopt;
    std::int64_t value = 0;
    auto [after, error] = std::from_chars(begin + (plus ? 1 : 0), end, value);
    if (error == std::errc::invalid_argument)
        return std::nullopt;
    if (error == std::errc::result_out_of_range)
        value =
            negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    position_ = static_cast<std::size_t>(after - text_.data());
    return value;
}

std::optional<std::int32_t> TextScanner::integer32() {
    auto wide = integer();
    if (!wide)
        return std::nullopt;
    return clampToInt32(*wide);
}

namespace {

/// The number that a text begins with, and where it ends: a plain decimal one, which needs neither a copy nor
/// a locale and is rounded as the C library rounds it. Nothing for all that is spelled otherwise.
std::optional<std::pair<double, std::size_t>> plainDecimal(std::string_view text) {
    const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
    if (digits.empty() || digits.front() < '0' || digits.front() > '9')
        return std::nullopt;
    double value = 0.0;
    const char* end = text.data() + text.size();
    const auto [after, error] = std::from_chars(text.data(), end, value);
    const bool isHexadecimal = after != end && (*after == 'x' || *after == 'X');
    if (error != std::errc() || isHexadecimal)
        return std::nullopt;
    return std::pair(value, static_cast<std::size_t>(after - text.data()));
}

} // namespace

std::optional<double> TextScanner::real() {
    skipWhiteSpace();
    // No number that means anything is longer than this.
    constexpr std::size_t longest = 512;
    const std::string_view text = text_.substr(position_, longest);
    if (const auto plain = plainDecimal(text)) {
        position_ += plain->second;
        return plain->first;
    }
    const std::string copy(text); // strtod needs a terminated one
    char* after = nullptr;
    const double value = ::strtod_l(copy.c_str(), &after, plainNumbers());
    if (after == copy.c_str())
        return std::nullopt;
    position_ += static_cast<std::size_t>(after - copy.c_str());
    return value;
}

std::optional<unsigned char> TextScanner::character() {
    if (atEnd())
        return std::nullopt;
    return static_cast<unsigned char>(text_[position_++]);
}

bool TextScanner::skipPast(char wanted) {
    const std::size_t found = text_.find(wanted, position_);
    position_ = found == std::string_view::npos ? text_.size() : found + 1;
    return found != std::string_view::npos;
}

bool TextScanner::skipPastWord(std::string_view wanted) {
    while (auto next = word())
        if (*next == wanted)
            return true;
    return false;
}

} // namespace obrin
