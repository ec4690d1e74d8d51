#pragma once

#include "resources/resourceRecords.h"

#include <cstddef>
#include <string_view>
#include <vector>

namespace obrin {

/// Room for the culprit text of one cycle, with its terminating NUL.
inline constexpr std::size_t culpritTextSize = 5348;

/// The text that gathers the culprits of one cycle.
struct CulpritText {
    char* text; ///< culpritTextSize bytes, NUL-terminated, owned by the caller; null gathers nothing
};

/// Which resources have a report, by display name, and what it counts of each process.
struct ReportedResource {
    std::string_view displayName;
    std::string_view measure; ///< for programs
    std::string_view words;   ///< for people, behind a number
};
std::vector<ReportedResource> reportedResources();

/// As long as one exists, the reports share the census that the first of them takes; without one each takes
/// its own. Agent thread, one at a time.
class SharedCensus {
public:
    SharedCensus();
    SharedCensus(const SharedCensus&) = delete;
    SharedCensus& operator=(const SharedCensus&) = delete;
    ~SharedCensus();
};

/// Names the ten processes that consume most of the resource, when it is one of the three that have culprits
/// ("PercentFileDescriptorsUsed", "PercentSwapSpaceUsed", "PercentProcessesUsed", by display name): takes a
/// census or has its share in one, logs the report, replaces the resource's culprit file in the data home
/// directory and appends " name(pid)measure" for each process to the culprit text; an entry that no longer
/// fit whole is left out with those behind it. Control characters of a process name are shown as "?"; other
/// bytes, of whatever encoding, stay.
///
/// 1 when done and when there was nothing to do; -1 on failure, which is logged. When the culprit file cannot
/// be opened there is no census; when it turns out that it cannot be written whole, the old report stays and
/// the culprit text is extended all the same. Needs the run's control record (pResourceClasp). Agent thread;
/// never throws, and never moves the process's working directory.
int diagnose(Link* pLink, CulpritText* culpritText);

/// Always 0: this is no Windows.
int isw2k();

} // namespace obrin
