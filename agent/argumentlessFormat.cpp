#include "agent/argumentlessFormat.h"

#include "support/numberText.h"

#include <algorithm>

namespace obrin {
namespace {

constexpr std::size_t widestField = 4096;

struct Conversion {
    bool left = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    bool zeroes = false;
    std::size_t width = 0;
    bool hasPrecision = false;
    std::size_t precision = 0;
    char letter = 0;
    std::size_t length = 0; ///< bytes from "%" to the letter, both included
};

/// Moves behind "<number>$", which says which argument is meant: all are alike here.
void skipPosition(std::string_view text, std::size_t& at) {
    const std::size_t digits = text.find_first_not_of("0123456789", at);
    if (digits != std::string_view::npos && digits > at && text[digits] == '$')
        at = digits + 1;
}

/// Digits, or a "*" whose argument would be 0. Saturates.
std::size_t readCount(std::string_view text, std::size_t& at) {
    if (at < text.size() && text[at] == '*') {
        skipPosition(text, ++at);
        return 0;
    }
    std::size_t count = 0;
    for (; at < text.size() && isDigit(text[at]); ++at)
        count = std::min(count * 10 + static_cast<std::size_t>(text[at] - '0'), widestField);
    return count;
}

/// The conversion at the start of `text` (which begins with "%"); letter 0 when there is none.
Conversion readConversion(std::string_view text) {
    Conversion found;
    std::size_t at = 1;
    skipPosition(text, at);
    for (; at < text.size(); ++at) {
        const char flag = text[at];
        if (flag == '-')
            found.left = true;
        else if (flag == '+')
            found.plus = true;
        else if (flag == ' ')
            found.blank = true;
        else if (flag == '#')
            found.alternate = true;
        else if (flag == '0')
            found.zeroes = true;
        else if (flag != '\'' && flag != 'I')
            break;
    }
    found.width = readCount(text, at);
    if (at < text.size() && text[at] == '.') {
        found.hasPrecision = true;
        found.precision = readCount(text, ++at);
    }
    while (at < text.size() && std::string_view("hlLqjzt").find(text[at]) != std::string_view::npos)
        ++at;
    if (at < text.size() &&
        std::string_view("diouxXeEfFgGaAcCsSpnm%").find(text[at]) != std::string_view::npos) {
        found.letter = text[at];
        found.length = at + 1;
    }
    return found;
}

/// Text that is put together in room of a fixed size.
class BoundedText {
public:
    explicit BoundedText(std::span<char> room) : room_(room) {}

    void append(std::string_view text) {
        length_ += text.copy(room_.data() + length_, room_.size() - length_);
    }
    void append(std::size_t count, char byte) {
        count = std::min(count, room_.size() - length_);
        std::fill_n(room_.data() + length_, count, byte);
        length_ += count;
    }
    bool full() const { return length_ == room_.size(); }
    std::size_t length() const { return length_; }

private:
    std::span<char> room_;
    std::size_t length_ = 0;
};

/// What a conversion prints between its sign and its padding: some zeroes with a text on each side.
struct Body {
    std::string_view head;
    std::size_t zeroes = 0;
    std::string_view tail;

    std::size_t size() const { return head.size() + zeroes + tail.size(); }
};

Body fraction(const Conversion& c, std::size_t defaultDigits, std::string_view whole,
              std::string_view wholeAndPoint, std::string_view exponent) {
    const std::size_t digits = c.hasPrecision ? c.precision : defaultDigits;
    return {digits == 0 && !c.alternate ? whole : wholeAndPoint, digits, exponent};
}

Body zeroInteger(const Conversion& c) {
    const bool lone = c.hasPrecision && c.precision == 0 && c.letter == 'o' && c.alternate;
    return {"", c.hasPrecision && !lone ? c.precision : 1, ""};
}

Body zeroNumber(const Conversion& c) {
    switch (c.letter) {
    case 'f':
    case 'F':
        return fraction(c, 6, "0", "0.", "");
    case 'e':
    case 'E':
        return fraction(c, 6, "0", "0.", c.letter == 'e' ? "e+00" : "E+00");
    case 'g':
    case 'G': {
        const std::size_t digits = c.hasPrecision ? std::max<std::size_t>(c.precision, 1) : 6;
        return c.alternate ? Body{"0.", digits - 1, ""} : Body{"0", 0, ""};
    }
    case 'a':
        return fraction(c, 0, "0x0", "0x0.", "p+0");
    case 'A':
        return fraction(c, 0, "0X0", "0X0.", "P+0");
    default:
        return zeroInteger(c);
    }
}

void pad(BoundedText& text, const Conversion& c, std::string_view sign, Body body, bool zeroesAllowed) {
    const std::size_t used = sign.size() + body.size();
    const std::size_t padding = c.width > used ? c.width - used : 0;
    const bool withZeroes = !c.left && c.zeroes && zeroesAllowed;
    if (!c.left && !withZeroes)
        text.append(padding, ' ');
    text.append(sign);
    if (withZeroes) {
        const std::size_t prefix = c.letter == 'a' || c.letter == 'A' ? 2 : 0; // zeros go behind "0x"
        text.append(body.head.substr(0, prefix));
        text.append(padding, '0');
        body.head.remove_prefix(prefix);
    }
    text.append(body.head);
    text.append(body.zeroes, '0');
    text.append(body.tail);
    if (c.left)
        text.append(padding, ' ');
}

void render(BoundedText& text, const Conversion& c) {
    switch (c.letter) {
    case '%':
        return text.append("%");
    case 'n':
    case 'm':
        return;
    case 's':
    case 'S':
    case 'c':
    case 'C':
        return pad(text, c, "", {}, false);
    case 'p':
        return pad(text, c, "", {"(nil)", 0, ""}, false);
    default:
        break;
    }
    const bool integer = std::string_view("diouxX").find(c.letter) != std::string_view::npos;
    const bool isSigned = !integer || c.letter == 'd' || c.letter == 'i';
    const std::string_view sign = !isSigned ? "" : c.plus ? "+" : c.blank ? " " : "";
    pad(text, c, sign, zeroNumber(c), !(integer && c.hasPrecision));
}

} // namespace

std::size_t renderWithoutArguments(std::string_view format, std::span<char> room) noexcept {
    BoundedText text(room);
    while (!format.empty() && !text.full()) {
        const std::size_t percent = std::min(format.find('%'), format.size());
        text.append(format.substr(0, percent));
        format.remove_prefix(percent);
        if (format.empty())
            break;
        const Conversion conversion = readConversion(format);
        if (conversion.letter == 0)
            text.append("%");
        else
            render(text, conversion);
        format.remove_prefix(conversion.letter == 0 ? 1 : conversion.length);
    }
    return text.length();
}

} // namespace obrin
