#pragma once

#include "resources/resourceRecords.h"

#include <cstdint>
#include <string>

namespace obrin {

// What the agent does, each in one line of well-formed UTF-8 for whoever looks at it as a service.

/// After a cycle: how many resources there are, and which of them runs out first, or why that is not known
/// yet. Agent thread.
std::string describeService(const Clasp& clasp);

/// While so many bytes of so many of the archive have been read.
std::string describeReadingArchive(std::int64_t read, std::int64_t all);

} // namespace obrin
