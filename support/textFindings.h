#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace obrin {

/// Where something stands in a text: line and column, from 1 on, the column in characters of UTF-8.
struct Place {
    std::int32_t line = 0; ///< 0: nowhere
    std::int32_t column = 0;

    bool operator==(const Place&) const = default;
};

/// Turns the bytes of a text, which must outlive it, into places.
class TextPlaces {
public:
    explicit TextPlaces(std::string_view text);

    /// The place of a byte, or of the end of the text.
    Place of(std::size_t byte) const;

private:
    std::string_view text_;
    std::vector<Place> marks_; ///< of every so many bytes
};

/// Something about a text that its reader, or a person, should know. What belongs to a finding is the matter
/// of its kind; the rest stays empty.
struct TextFinding {
    std::string_view kind; ///< a name that stays the same, in small letters with hyphens
    Place place{};
    std::string_view text{};    ///< what was found
    std::string_view keyword{}; ///< the keyword that it is about
    std::string_view read{};    ///< the part of it that was read all the same
    std::int32_t item = 0;      ///< the configuration's item that it is about, from 1 on
    std::int64_t number = 0;
};

using TextFindings = std::vector<TextFinding>;

/// What no text should hold:
///   byte-order-mark  text: the mark
///   nul-byte         at the first one; number: how many
///   not-utf8         at the first byte that is part of no character; text: the byte
void findForeignBytes(std::string_view text, const TextPlaces& places, TextFindings& findings);

} // namespace obrin
