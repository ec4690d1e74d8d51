#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace obrin {

/// The text that printf would make of `format` if every argument behind it were zero or empty: "%%" becomes
/// "%", a number conversion the number 0 in its given form, "%s" and "%c" nothing but their padding, "%p"
/// "(nil)", "%m" nothing, "%n" nothing and stores nothing; "%2$s" is "%s". A "%" that begins no conversion
/// stays as it is. Written into `text`, what does not fit is cut; the number of bytes written. Foreign text
/// may come in: it never reaches the C library as a format. Takes no memory. Any thread.
std::size_t renderWithoutArguments(std::string_view format, std::span<char> text) noexcept;

} // namespace obrin
