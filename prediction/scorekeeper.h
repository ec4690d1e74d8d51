#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>

namespace obrin {

// How right the announcements about one resource were. An episode begins with its onset, while the limit is
// not yet reached, and ends when the limit is reached or the intent to notify is dropped, whichever is first.
// Times are whole seconds since the epoch, 0 for never. Any thread, one at a time.

enum class Outcome : std::int32_t {
    open = 0,    ///< the episode is on
    reached = 1, ///< the limit was reached
    /// The intent was dropped after the value had fallen, within an hour, by at least half of what it had
    /// risen since the onset and by no less than a point, and the value was still that low: somebody made
    /// room, or the load went.
    freed = 2,
    levelledOff = 3, ///< the intent was dropped otherwise
};

/// So long before the limit was reached the announced moment is compared with it: hours.
inline constexpr std::array<int, 5> errorMarks{24, 12, 6, 3, 1};

struct Episode {
    std::int64_t onset = 0;
    std::int64_t firstEvent = 0; ///< the first event that went out
    std::int64_t end = 0;
    Outcome outcome = Outcome::open;
    std::int64_t announcedAtOnset = 0; ///< the moment of exhaustion as it was announced then
    std::int64_t announcedAtEvent = 0;
    double onsetValue = 0.0; ///< per cent
    double highest = 0.0;    ///< nearest to the limit that the value came, per cent used
    /// Of an episode that reached its limit: announced moment less true moment in hours, at each mark; NaN
    /// where nothing was announced then.
    std::array<double, errorMarks.size()> errors{};
};

/// One cycle of one resource, in the order of time.
struct Observation {
    std::int64_t time = 0;
    double used = 0.0;      ///< per cent on the way to the limit: the value, or 100 less it for a lower limit
    bool isAtLimit = false; ///< the value has reached its limit
    bool isPending = false; ///< an announcement stands: there is an intent to notify
    bool isEvent = false;   ///< and an event went out
    std::int64_t announced = 0; ///< moment of the exhaustion that is ahead; 0: none is
};

/// A moment that was announced, and when.
struct Announcement {
    std::int64_t time = 0;
    std::int64_t announced = 0;
};

class Scorekeeper {
public:
    /// Takes up a cycle. The episode that ended with it, if one did. Memory is bounded: announcements of the
    /// last day, at most one in five minutes, and the highest values of the last hour, one a minute.
    std::optional<Episode> take(const Observation& now);

    /// The episode that is on; null without one.
    const Episode* open() const { return episode_ ? &*episode_ : nullptr; }

    /// Whether the newest observation was the first at the limit, and not the first of all.
    bool hasJustReached() const { return justReached_; }

    /// The announcements of the last day, oldest first.
    const std::deque<Announcement>& announcements() const { return announcements_; }

    /// Moves all times, announced moments too, by so many seconds, with a clock that has stepped.
    void move(std::int64_t seconds);

    /// Forgets everything: the state in which a resource joins a run.
    void restart() { *this = Scorekeeper(); }

private:
    struct Level {
        std::int64_t time;
        double used;
    };

    void note(const Observation& now);
    void noteLevel(const Observation& now);
    void begin(const Observation& now);
    void noteEpisode(const Observation& now);
    std::optional<Episode> end(const Observation& now, Outcome outcome);
    bool isFall(double points) const;
    double errorAt(std::int64_t reached, int hoursBefore) const;

    std::optional<Episode> episode_;
    std::deque<Announcement> announcements_;
    std::deque<Level> levels_; ///< of the last hour, falling: only what may be its highest
    std::int64_t newest_ = 0;
    bool wasAtLimit_ = true; ///< a resource that is found at its limit has not been announced and not missed
    bool wasPending_ = false;
    bool justReached_ = false;
    bool hasFallen_ = false; ///< the value of the open episode, at some time
};

} // namespace obrin
