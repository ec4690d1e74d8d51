#include "support/javaText.h"

#include <cstdint>

namespace obrin {
namespace {

constexpr char32_t replacement = 0xFFFD;

struct Decoded {
    char32_t character = replacement;
    std::size_t length = 1;
};

bool isContinuation(std::string_view text, std::size_t at) {
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U;
}

char32_t bits(std::string_view text, std::size_t at, unsigned mask) {
    return static_cast<unsigned char>(text[at]) & mask;
}

/// The character at the start of `text` (not empty); the replacement with a length of 1 when it is malformed.
Decoded decodeUtf8(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text[0]);
    if (lead < 0x80)
        return {lead, 1};
    if (lead >= 0xC2 && lead <= 0xDF && isContinuation(text, 1))
        return {(bits(text, 0, 0x1F) << 6) | bits(text, 1, 0x3F), 2};
    if ((lead & 0xF0U) == 0xE0U && isContinuation(text, 1) && isContinuation(text, 2)) {
        const char32_t c = (bits(text, 0, 0x0F) << 12) | (bits(text, 1, 0x3F) << 6) | bits(text, 2, 0x3F);
        if (c >= 0x800 && (c < 0xD800 || c > 0xDFFF))
            return {c, 3};
    }
    if (lead >= 0xF0 && lead <= 0xF4 && isContinuation(text, 1) && isContinuation(text, 2) &&
        isContinuation(text, 3)) {
        const char32_t c = (bits(text, 0, 0x07) << 18) | (bits(text, 1, 0x3F) << 12) |
                           (bits(text, 2, 0x3F) << 6) | bits(text, 3, 0x3F);
        if (c >= 0x10000 && c <= 0x10FFFF)
            return {c, 4};
    }
    return {};
}

void append(std::string& out, std::initializer_list<char32_t> bytes) {
    for (char32_t byte : bytes)
        out.push_back(static_cast<char>(static_cast<unsigned char>(byte)));
}

void appendThreeBytes(std::string& out, char32_t unit) {
    append(out, {0xE0 | (unit >> 12), 0x80 | ((unit >> 6) & 0x3F), 0x80 | (unit & 0x3F)});
}

/// The surrogate (0xD800 to 0xDFFF) encoded in three bytes at `at`, or 0.
char32_t surrogateAt(std::string_view text, std::size_t at) {
    if (at + 2 >= text.size() || static_cast<unsigned char>(text[at]) != 0xED ||
        !isContinuation(text, at + 1) || !isContinuation(text, at + 2))
        return 0;
    const char32_t unit = 0xD000 | (bits(text, at + 1, 0x3F) << 6) | bits(text, at + 2, 0x3F);
    return unit >= 0xD800 ? unit : 0;
}

} // namespace

std::string toJavaEncoding(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const auto [character, length] = decodeUtf8(bytes);
        if (character == 0)
            append(out, {0xC0, 0x80});
        else if (character >= 0x10000) {
            appendThreeBytes(out, 0xD800 + ((character - 0x10000) >> 10));
            appendThreeBytes(out, 0xDC00 + ((character - 0x10000) & 0x3FF));
        } else if (character == replacement)
            appendThreeBytes(out, replacement);
        else
            out.append(bytes.substr(0, length));
        bytes.remove_prefix(length);
    }
    return out;
}

std::size_t firstForeignByte(std::string_view bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const auto [character, length] = decodeUtf8(bytes.substr(at));
        if (character == replacement && length == 1)
            return at;
        at += length;
    }
    return std::string_view::npos;
}

std::string fromJavaEncoding(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const char32_t high = surrogateAt(text, at);
        const char32_t low = high >= 0xD800 && high <= 0xDBFF ? surrogateAt(text, at + 3) : 0;
        if (low >= 0xDC00) {
            const char32_t c = 0x10000 + ((high - 0xD800) << 10) + (low - 0xDC00);
            append(out, {0xF0 | (c >> 18), 0x80 | ((c >> 12) & 0x3F), 0x80 | ((c >> 6) & 0x3F),
                         0x80 | (c & 0x3F)});
            at += 6;
        } else {
            out.push_back(text[at++]);
        }
    }
    return out;
}

} // namespace obrin
