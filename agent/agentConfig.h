#pragma once

#include "resources/resourceRecords.h"

#include <string>
#include <string_view>

namespace obrin {

/// Reads the eleven items of a configuration text, which have their meaning by position alone, into `clasp`
/// and `maxfilesizeinMB` (megabytes), and the last two, which may be missing, into enablepooltaggingflag and
/// grace_period. Creates the data home directory as soon as its name is known. A word where a number belongs
/// leaves that item, and every later number, as it was. False when the text ends before item 9: that is
/// logged and, but for item 4, reported as a fatal event; later items are then not read. `path`: the file's
/// name for the log. Agent thread.
bool readConfiguration(std::string_view text, const std::string& path, Clasp* clasp, int* maxfilesizeinMB);

} // namespace obrin
