#include "support/textFindings.h"

#include "support/javaText.h"

#include <algorithm>

namespace obrin {
namespace {

constexpr std::size_t stride = 1024;
constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// The place behind these bytes.
Place behind(Place place, std::string_view bytes) {
    for (const char byte : bytes) {
        if (byte == '\n')
            place = {place.line + 1, 1};
        else if (!continuesCharacter(byte))
            ++place.column;
    }
    return place;
}

} // namespace

TextPlaces::TextPlaces(std::string_view text) : text_(text) {
    marks_.reserve(text.size() / stride + 1);
    marks_.push_back({1, 1});
    for (std::size_t begin = 0; text.size() - begin >= stride; begin += stride)
        marks_.push_back(behind(marks_.back(), text.substr(begin, stride)));
}

Place TextPlaces::of(std::size_t byte) const {
    const std::size_t mark = byte / stride;
    return behind(marks_[mark], text_.substr(mark * stride, byte - mark * stride));
}

void findForeignBytes(std::string_view text, const TextPlaces& places, TextFindings& findings) {
    if (text.starts_with(byteOrderMark))
        findings.push_back({.kind = "byte-order-mark", .place = places.of(0), .text = byteOrderMark});
    const std::size_t nul = text.find('\0');
    if (nul != std::string_view::npos)
        findings.push_back({.kind = "nul-byte",
                            .place = places.of(nul),
                            .number = std::count(text.begin(), text.end(), '\0')});
    const std::size_t foreign = firstForeignByte(text);
    if (foreign != std::string_view::npos)
        findings.push_back(
            {.kind = "not-utf8", .place = places.of(foreign), .text = text.substr(foreign, 1)});
}

} // namespace obrin
