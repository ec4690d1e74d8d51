#pragma once

#include <string>
#include <string_view>

namespace obrin {

/// `text` with each of the nine characters / : blank * ? " > < | replaced by "_": fit for a part of a file
/// name, and the key by which disks are matched. Any thread.
std::string cleanfilename(std::string_view text);

/// A field of the kernel's tables of mounts as it is: there, blank, tab, line feed, backslash and "#" are a
/// backslash and three octal digits. Any thread.
std::string decodeOctal(std::string_view text);

/// A name as df prints it: "?" for control characters, and where it prints ASCII only, for all other bytes as
/// well. Any thread.
std::string asListed(std::string_view text, bool asciiOnly);

/// A duration in seconds as "%ld day(s) %ld hr(s) %ld min(s) and %ld sec(s)". Once a negative duration has
/// been formatted, this and every later text of the process begins with "- " (kept: event texts are compared
/// over months). Any thread.
std::string Getdays(double seconds);

} // namespace obrin
