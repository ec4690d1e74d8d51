#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace obrin {

/// A file or directory that somebody else than root and the agent's user could turn against the agent.
struct ForeignPlace {
    std::string_view kind;  ///< "place-open-to-others": all or its group may write it; "place-of-another"
    std::string path;       ///< from the root on, without links
    std::int64_t owner = 0; ///< its user's number
};

/// Those among the directories and given files of a home and all directories above them: what the agent reads
/// and writes there could be put in their place. A directory above may be open to all, as /tmp is, when only
/// the owner of a file can take that away (the sticky bit), and to its group. What is not there is no danger.
///
/// `bin` is the working directory of a run in that home, `configuration` its configuration file, which is
/// read to learn of the others; `user` the agent's user. Any thread; opens that one file.
std::vector<ForeignPlace> foreignPlaces(const std::string& bin, const std::string& configuration, uid_t user);

/// Tells the log of those of the run whose configuration file this is. Agent thread.
void logForeignPlaces(const std::string& configuration);

} // namespace obrin
