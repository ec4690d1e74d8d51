#pragma once

#include "prediction/scorekeeper.h"
#include "resources/resourceRecords.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace obrin {

// The score of the run's own announcements, kept for the host as long as it reads: nothing in the run goes by
// it.

/// An episode that ended in this run.
struct EndedEpisode {
    std::int64_t number = 0; ///< 1 for the first of the process
    std::int32_t rid = 0;
    std::string name;     ///< display name
    std::string instance; ///< as the library names it in events
    Episode episode;
};

/// So many of the newest are kept for those who have not seen them.
inline constexpr std::size_t endedEpisodesKept = 64;

/// Takes up the cycle that has just been completed. Agent thread; takes chainLock.
void keepOwnScore(const Clasp& clasp);

/// Forgets the run's resources: the state at the start of a run.
void beginOwnScore();

/// The newest episodes that ended, oldest first. Agent thread.
const std::deque<EndedEpisode>& endedEpisodes();

/// When the episode that is on for a resource began; 0 without one. Agent thread.
std::int64_t openEpisodeOf(std::int32_t rid);

/// The announcements of the last day about a resource, oldest first. With chainLock held.
std::vector<Announcement> announcementsOf(std::int32_t rid);

} // namespace obrin
