#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>

namespace obrin {

// The rules that monitoring servers offer to be alarmed by, over the same samples: what the agent's
// announcements are compared with. `used` is per cent on the way to the limit, which is 100. Any thread, an
// object for each resource.

/// What a rule says at a sample.
struct Verdict {
    bool isAlarm = false;
    std::int64_t announced = 0; ///< moment of the exhaustion it is about; 0: the rule tells none
};

/// The rules, in the order of RivalRules::take().
enum class Rival : std::size_t {
    line6h24h,   ///< least-squares line over 6 h reaches the limit within 24 h, 60 % used, held for an hour
    line6h4h,    ///< the same within 4 h, 80 % used, held for an hour
    twoPoints1h, ///< the line through now and an hour ago reaches the limit within the farthest forecast
    threshold90, ///< 90 % used
};
inline constexpr std::size_t rivals = 4;

/// The least-squares line over the newest stretch of a series.
class SlidingLine {
public:
    explicit SlidingLine(std::int64_t seconds) : seconds_(seconds) {}

    void add(std::int64_t time, double used);

    /// When the line reaches 100; 0 when it does not rise.
    std::int64_t reaches() const;

private:
    struct Sample {
        double time; ///< seconds since origin_
        double used;
    };

    void sumAnew();
    void count(const Sample& sample, double sign);

    std::int64_t seconds_;
    std::int64_t origin_ = 0;
    std::deque<Sample> samples_;
    unsigned added_ = 0; ///< since the sums were made anew
    double sumTime_ = 0.0;
    double sumUsed_ = 0.0;
    double sumTimeTime_ = 0.0;
    double sumTimeUsed_ = 0.0;
};

class RivalRules {
public:
    /// `horizon`: the farthest forecast in seconds.
    explicit RivalRules(std::int64_t horizon) : horizon_(horizon) {}

    std::array<Verdict, rivals> take(std::int64_t time, double used);

private:
    struct Sample {
        std::int64_t time;
        double used;
    };

    Verdict lineRule(Rival rival, std::int64_t time, double used, std::int64_t within, double least);
    Verdict twoPoints(std::int64_t time, double used);

    std::int64_t horizon_;
    SlidingLine line_{std::int64_t{6} * 3600};
    std::deque<Sample> hour_;                      ///< the samples of the last hour and the one before
    std::array<std::int64_t, rivals> trueSince_{}; ///< 0: the condition does not hold
};

} // namespace obrin
