#include "agent/argumentlessFormat.h"

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

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

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

std::string fraction(const Conversion& c, std::size_t defaultDigits) {
    const std::size_t digits = c.hasPrecision ? c.precision : defaultDigits;
    if (digits == 0)
        return c.alternate ? "." : "";
    return "." + std::string(digits, '0');
}

std::string zeroInteger(const Conversion& c) {
    std::string digits(c.hasPrecision ? c.precision : 1, '0');
    if (digits.empty() && c.letter == 'o' && c.alternate)
        digits = "0";
    return digits;
}

std::string zeroNumber(const Conversion& c) {
    switch (c.letter) {
    case 'f':
    case 'F':
        return "0" + fraction(c, 6);
    case 'e':
    case 'E':
        return "0" + fraction(c, 6) + (c.letter == 'e' ? "e+00" : "E+00");
    case 'g':
    case 'G': {
        const std::size_t digits = c.hasPrecision ? std::max<std::size_t>(c.precision, 1) : 6;
        return c.alternate ? "0." + std::string(digits - 1, '0') : "0";
    }
    case 'a':
        return "0x0" + fraction(c, 0) + "p+0";
    case 'A':
        return "0X0" + fraction(c, 0) + "P+0";
    default:
        return zeroInteger(c);
    }
}

std::string pad(const Conversion& c, const std::string& sign, const std::string& body, bool zeroesAllowed) {
    const std::size_t used = sign.size() + body.size();
    const std::string padding(c.width > used ? c.width - used : 0, ' ');
    if (c.left)
        return sign + body + padding;
    if (c.zeroes && zeroesAllowed) {
        const std::size_t prefix = c.letter == 'a' || c.letter == 'A' ? 2 : 0; // zeros go behind "0x"
        return sign + body.substr(0, prefix) + std::string(padding.size(), '0') + body.substr(prefix);
    }
    return padding + sign + body;
}

std::string render(const Conversion& c) {
    switch (c.letter) {
    case '%':
        return "%";
    case 'n':
    case 'm':
        return "";
    case 's':
    case 'S':
    case 'c':
    case 'C':
        return pad(c, "", "", false);
    case 'p':
        return pad(c, "", "(nil)", false);
    default:
        break;
    }
    const bool integer = std::string_view("diouxX").find(c.letter) != std::string_view::npos;
    const bool isSigned = !integer || c.letter == 'd' || c.letter == 'i';
    const std::string sign = !isSigned ? "" : c.plus ? "+" : c.blank ? " " : "";
    return pad(c, sign, zeroNumber(c), !(integer && c.hasPrecision));
}

} // namespace

std::string renderWithoutArguments(std::string_view format, std::size_t longest) {
    std::string text;
    std::size_t at = 0;
    while (at < format.size() && text.size() < longest) {
        const std::size_t percent = std::min(format.find('%', at), format.size());
        text.append(format.substr(at, percent - at));
        at = percent;
        if (at == format.size())
            break;
        const Conversion conversion = readConversion(format.substr(at));
        text.append(conversion.letter == 0 ? "%" : render(conversion));
        at += conversion.letter == 0 ? 1 : conversion.length;
    }
    text.resize(std::min(text.size(), longest));
    return text;
}

} // namespace obrin
