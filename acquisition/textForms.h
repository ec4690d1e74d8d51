#pragma once

#include <string>
#include <string_view>

namespace obrin {

/// `text` with each of the nine characters / : blank * ? " > < | replaced by "_": fit for a part of a file
/// name, and the key by which disks are matched. Any thread.
std::string cleanfilename(std::string_view text);

/// A duration in seconds as "%ld day(s) %ld hr(s) %ld min(s) and %ld sec(s)". Once a negative duration has
/// been formatted, this and every later text of the process begins with "- " (kept: event texts are compared
/// over months). Any thread.
std::string Getdays(double seconds);

} // namespace obrin
