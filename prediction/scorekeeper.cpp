#include "prediction/scorekeeper.h"

#include "support/clock.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace obrin {
namespace {

constexpr std::int64_t announcementSpacing = 300;
constexpr std::int64_t announcementsLast = 25 * wholeSecondsPerHour; ///< an hour beyond the farthest mark
constexpr std::int64_t levelSpacing = 60;
constexpr double leastFall = 1.0;

/// A clock that was put back by more than this makes what was noted worthless.
constexpr std::int64_t backwardsAllowed = 2 * announcementSpacing;

} // namespace

std::optional<Episode> Scorekeeper::take(const Observation& now) {
    note(now);
    const bool wasAtLimit = std::exchange(wasAtLimit_, now.isAtLimit);
    const bool wasPending = std::exchange(wasPending_, now.isPending);
    justReached_ = now.isAtLimit && !wasAtLimit;
    if (episode_) {
        noteEpisode(now);
        if (now.isAtLimit)
            return end(now, Outcome::reached);
        if (!now.isPending)
            return end(now, hasFallen_ && isFall(episode_->highest - now.used) ? Outcome::freed
                                                                               : Outcome::levelledOff);
    } else if (now.isPending && !wasPending && !now.isAtLimit) {
        begin(now);
    }
    return std::nullopt;
}

void Scorekeeper::move(std::int64_t seconds) {
    newest_ += seconds;
    for (Announcement& announcement : announcements_) {
        announcement.time += seconds;
        announcement.announced += seconds;
    }
    for (Level& level : levels_)
        level.time += seconds;
    if (!episode_)
        return;
    for (std::int64_t* time :
         {&episode_->onset, &episode_->firstEvent, &episode_->announcedAtOnset, &episode_->announcedAtEvent})
        *time += *time == 0 ? 0 : seconds;
}

/// Keeps what was announced and how high the value was, as far back as somebody asks.
void Scorekeeper::note(const Observation& now) {
    if (now.time < newest_ - backwardsAllowed) {
        announcements_.clear();
        levels_.clear();
    }
    newest_ = now.time;
    while (!announcements_.empty() && announcements_.front().time < now.time - announcementsLast)
        announcements_.pop_front();
    if (now.announced != 0 &&
        (announcements_.empty() || now.time >= announcements_.back().time + announcementSpacing))
        announcements_.push_back({now.time, now.announced});
    noteLevel(now);
}

void Scorekeeper::noteLevel(const Observation& now) {
    while (!levels_.empty() && levels_.front().time < now.time - wholeSecondsPerHour)
        levels_.pop_front();
    while (!levels_.empty() && levels_.back().used <= now.used)
        levels_.pop_back();
    if (levels_.empty() || now.time >= levels_.back().time + levelSpacing)
        levels_.push_back({now.time, now.used});
}

void Scorekeeper::begin(const Observation& now) {
    episode_.emplace();
    episode_->errors.fill(std::numeric_limits<double>::quiet_NaN());
    episode_->onset = now.time;
    episode_->announcedAtOnset = now.announced;
    episode_->onsetValue = now.used;
    episode_->highest = now.used;
    levels_.assign(1, {now.time, now.used}); // a fall from what was before the onset is none of the episode's
    hasFallen_ = false;
    noteEpisode(now);
}

void Scorekeeper::noteEpisode(const Observation& now) {
    episode_->highest = std::max(episode_->highest, now.used);
    const double highestOfHour = levels_.empty() ? now.used : levels_.front().used;
    hasFallen_ = hasFallen_ || isFall(highestOfHour - now.used);
    if (now.isEvent && episode_->firstEvent == 0) {
        episode_->firstEvent = now.time;
        episode_->announcedAtEvent = now.announced;
    }
}

/// Whether so many points are a fall that matters, after what the open episode has risen.
bool Scorekeeper::isFall(double points) const {
    return points >= leastFall && points >= (episode_->highest - episode_->onsetValue) / 2;
}

std::optional<Episode> Scorekeeper::end(const Observation& now, Outcome outcome) {
    Episode ended = *episode_;
    episode_.reset();
    ended.end = now.time;
    ended.outcome = outcome;
    for (std::size_t i = 0; i < errorMarks.size(); ++i)
        ended.errors[i] = outcome == Outcome::reached ? errorAt(now.time, errorMarks[i])
                                                      : std::numeric_limits<double>::quiet_NaN();
    return ended;
}

/// The announcement that stood so long before, a little older at the most: one that was made earlier had been
/// taken back by then.
double Scorekeeper::errorAt(std::int64_t reached, int hoursBefore) const {
    const std::int64_t mark = reached - hoursBefore * wholeSecondsPerHour;
    const auto later =
        std::ranges::find_if(announcements_, [&](const Announcement& a) { return a.time > mark; });
    if (later == announcements_.begin() || std::prev(later)->time < mark - 2 * announcementSpacing)
        return std::numeric_limits<double>::quiet_NaN();
    return static_cast<double>(std::prev(later)->announced - reached) / secondsPerHour;
}

} // namespace obrin
