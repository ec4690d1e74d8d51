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
    std::int64_t cycle = 0;  ///< of the process, in which it ended
    std::int32_t rid = 0;
    std::string name;     ///< display name
    std::string instance; ///< as the library names it in events
    Episode episode;
};

/// So many of the newest are kept for those who have not seen them,
inline constexpr std::size_t endedEpisodesKept = 64;
/// and all that ended in so many of the newest cycles, however many these are: where somebody makes room on
/// the disk that a hundred resources share, their episodes end together. A publication that memory was
/// refused for or a reader passed over is made good by the next. A cycle ends at most one episode of each
/// resource, and the next cannot end another, which bounds what is kept.
inline constexpr std::int64_t endedCyclesKept = 8;

/// Takes up the cycle that has just been completed. Agent thread; takes chainLock.
void keepOwnScore(const Clasp& clasp);

/// Forgets the run's resources: the state at the start of a run.
void beginOwnScore();

/// The newest episodes that ended, oldest first: all that the present cycle ended are among them. Agent
/// thread.
const std::deque<EndedEpisode>& endedEpisodes();

/// When the episode that is on for a resource began; 0 without one. Agent thread.
std::int64_t openEpisodeOf(std::int32_t rid);

/// The announcements of the last day about a resource, oldest first. With chainLock held.
std::vector<Announcement> announcementsOf(std::int32_t rid);

} // namespace obrin
