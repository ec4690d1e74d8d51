#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace obrin {

/// `bytes` in the text encoding of the Java Native Interface ("modified UTF-8"), valid whatever the machine
/// supplied: well-formed UTF-8 stays what it is (characters beyond 16 bits become a pair of surrogates),
/// every byte that is no part of such a sequence becomes U+FFFD, NUL becomes its two-byte form.
std::string toJavaEncoding(std::string_view bytes);

/// The first byte that is part of no character of well-formed UTF-8; npos when there is none.
std::size_t firstForeignByte(std::string_view bytes);

/// The reverse for texts that come from Java: UTF-8 as file names want it. What is not valid is kept as it
/// is.
std::string fromJavaEncoding(std::string_view text);

} // namespace obrin
