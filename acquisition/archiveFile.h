#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace obrin {

/// Appends one whole line to the archive, or nothing: what was written of a line that did not fit is taken
/// back, and a torn tail that an earlier death left is cut back to the last whole line first. False with a
/// log line that names the file and the reason, also when it cannot be read whether there is such a tail.
/// Agent thread.
bool appendArchiveLine(const std::string& path, std::string_view line);

/// Cuts the archive to the newest whole lines within `megabytes` x 2^20 bytes, once it is more than a tenth
/// over that. The name opens to the old or the new archive at every moment. Always 1; what fails is reported
/// through error_exit or the log, and the old archive stays. Agent thread.
int trim(const std::string& path, int megabytes);

/// Size of a file in bytes; -1, with a fatal event, when it cannot be had.
std::int64_t getfilesize(const std::string& path);

/// Creates each directory along the path that is followed by a "/". Failures are ignored. Always 1.
int smart_mkdir(const std::string& path);

} // namespace obrin
