#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace obrin {

/// Reads a text the way the agent's files are written: words between white space, numbers, single characters.
/// The text must outlive the scanner and every word taken from it. White space is blank, \t, \n, \v, \f, \r
/// in every locale.
class TextScanner {
public:
    explicit TextScanner(std::string_view text) : text_(text) {}

    /// The next word; nothing at the end of the text.
    std::optional<std::string_view> word();

    /// The next integer (sign and decimal digits), saturated at the limits of 64 bits. Nothing when something
    /// else stands there: only the white space before it is then consumed.
    std::optional<std::int64_t> integer();

    /// As integer(), limited to 32 bits.
    std::optional<std::int32_t> integer32();

    /// The next floating-point number, decimal point always; infinities and NaN as the C library spells them.
    /// Nothing when something else stands there: only the white space before it is then consumed.
    std::optional<double> real();

    /// The next single byte; nothing at the end.
    std::optional<unsigned char> character();

    /// Moves behind the next `wanted`; false at the end of the text when there is none.
    bool skipPast(char wanted);

    /// Moves behind the next word equal to `wanted`; false at the end of the text when there is none.
    bool skipPastWord(std::string_view wanted);

    void skipWhiteSpace();
    bool atEnd() const { return position_ >= text_.size(); }
    std::size_t position() const { return position_; }
    void moveTo(std::size_t position) { position_ = position; }
    std::string_view rest() const { return text_.substr(position_); }

private:
    std::string_view text_;
    std::size_t position_ = 0;
};

/// White space as TextScanner sees it.
bool isWhiteSpace(char byte);

/// What stands in front of the first white space.
std::string_view leadingWord(std::string_view text);

/// The text without the white space at its ends.
std::string_view stripped(std::string_view text);

/// `value`, or the nearest end of the 32-bit range.
std::int32_t clampToInt32(std::int64_t value);

/// `value` truncated toward zero, or the nearest end of the 32-bit range; 0 for NaN.
std::int32_t truncateToInt32(double value);

} // namespace obrin
