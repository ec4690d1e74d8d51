#pragma once

#include "prediction/exhaustion.h"
#include "prediction/predictor.h"
#include "prediction/scorekeeper.h"
#include "replay/archiveLines.h"
#include "replay/replayedResources.h"
#include "replay/rivalRules.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace obrin {

// Archives replayed through the rings, the forecast and the notification state that a run has, by the
// archive's own clock: nothing here reads another one, logs, sends an event, writes a file or knows of a run.
// Any thread, one at a time.

inline constexpr std::size_t models = 6;

enum class Happening : std::int32_t {
    onset = 0,        ///< of the intent to notify
    event = 1,        ///< the first that goes out after an onset
    cleared = 2,      ///< the intent was dropped
    limitReached = 3, ///< the value reached its limit
};

/// The agent's announcements are judged as rule 0, the rivals as 1 and more.
inline constexpr std::int32_t agentsRule = 0;

/// Who is told what a replay comes to, in the order of time.
class ReplaySink {
public:
    virtual ~ReplaySink() = default;

    /// `announced`: moment of the exhaustion ahead; 0: none is.
    virtual void happened(std::int64_t time, std::int32_t rid, Happening what, std::int64_t announced) = 0;
    virtual void episodeEnded(std::int32_t rid, std::int32_t rule, const Episode& episode) = 0;
    /// A line that was passed over, or an archive that could not be read (to its end; line 0).
    virtual void damaged(const std::string& file, std::int64_t line, std::string_view what) = 0;
    /// Every sample, when it was asked for.
    virtual void sampled(std::int32_t rid, std::int64_t time, double value, std::int64_t announced) = 0;
};

/// A moment at which a run began.
struct RunStart {
    std::int64_t time = 0;
    bool isResumed = true; ///< its rings were filled from the archive; else they were empty
};

struct ReplayRequest {
    std::vector<std::string> archives; ///< paths, oldest first
    std::string declarations;          ///< the text of the declaration file
    std::string scratchPad;            ///< the text of the scratch pad
    ReplaySettings settings;
    std::vector<RunStart> starts; ///< oldest first; what is not told is one run that goes on
    bool withRivals = false;
    bool withSamples = false;
};

/// What a replay has come to so far.
struct ReplayProgress {
    std::int64_t bytesRead = 0;
    std::int64_t bytes = 0;  ///< of all archives when the replay began
    std::int64_t from = 0;   ///< time of the first cycle; 0 without any
    std::int64_t to = 0;     ///< time of the newest
    std::int64_t cycles = 0; ///< that were taken
    std::int64_t forecasts = 0;
    std::int64_t damagedLines = 0;
    std::int64_t unknownSamples = 0; ///< of numbers that stand for no declared resource
    bool isOver = false;
};

class Replay {
public:
    explicit Replay(ReplayRequest request);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    /// Goes on until about so many forecasts have been made, or all has been read. std::bad_alloc when a
    /// thread that has not yet forecast these rings cannot have the memory for it.
    void run(std::int64_t forecasts, ReplaySink& sink);

    const ReplayProgress& progress() const { return progress_; }
    std::int32_t millisecondsPerSample() const { return resources_.millisecondsPerSample(); }

    /// What is known of one resource. The link is the replay's.
    struct Tally {
        const Link* link = nullptr;
        std::int64_t samples = 0;
        std::int64_t observedSeconds = 0; ///< in which it was sampled, gaps left out
        std::array<std::int64_t, models> chosen{};
        std::vector<std::int64_t> reached;                  ///< when it reached its limit
        std::vector<std::pair<std::int32_t, Episode>> open; ///< those that are on, with their rules
    };

    /// The resources that were sampled, by number.
    std::vector<Tally> tallies() const;

private:
    struct Resource;

    void take(const ArchivedCycle& cycle, ReplaySink& sink);
    void takeSample(std::int64_t time, const ArchivedSample& sample, ReplaySink& sink);
    void forecast(Resource& resource, std::int64_t time, double value, ReplaySink& sink);
    void judgeRivals(Resource& resource, const Observation& seen, ReplaySink& sink);
    void startRun(const RunStart& start);
    Resource* find(std::int32_t rid);
    bool openNext(ReplaySink& sink);

    ReplayRequest request_;
    ReplayedResources resources_;
    std::unordered_map<std::int32_t, std::unique_ptr<Resource>> sampled_;
    std::uint32_t longestRing_ = 0; ///< of the sampled ones
    std::unique_ptr<ArchiveLines> archive_;
    std::size_t nextArchive_ = 0;
    std::size_t nextStart_ = 0;
    std::int64_t bytesOfArchivesBefore_ = 0;
    std::int64_t lines_ = 0; ///< cycles that were read
    ReplayProgress progress_;
    bool startsEmpty_ = false; ///< the rings of the run in hand began empty
    Series series_;
    Outlook outlook_;
    ArchivedCycle cycle_;
};

} // namespace obrin
