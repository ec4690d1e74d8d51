#include "replay/rivalRules.h"

#include "support/clock.h"

#include <cmath>

namespace obrin {
namespace {

constexpr double limit = 100.0;

/// The sums are made anew after so many samples, so that what rounding adds up to stays small.
constexpr unsigned sumsLast = 512;

/// A moment so many seconds from `time`; one beyond all bounds counts as never.
std::int64_t momentAfter(std::int64_t time, double seconds) {
    constexpr double never = 1e12;
    if (!(seconds < never))
        return 0;
    return time + (seconds > 0 ? std::llround(seconds) : 0);
}

} // namespace

void SlidingLine::count(const Sample& sample, double sign) {
    sumTime_ += sign * sample.time;
    sumUsed_ += sign * sample.used;
    sumTimeTime_ += sign * sample.time * sample.time;
    sumTimeUsed_ += sign * sample.time * sample.used;
}

void SlidingLine::sumAnew() {
    const double shift = samples_.front().time;
    origin_ += static_cast<std::int64_t>(shift);
    sumTime_ = sumUsed_ = sumTimeTime_ = sumTimeUsed_ = 0.0;
    for (Sample& sample : samples_) {
        sample.time -= shift;
        count(sample, 1.0);
    }
    added_ = 0;
}

void SlidingLine::add(std::int64_t time, double used) {
    if (samples_.empty())
        origin_ = time;
    samples_.push_back({static_cast<double>(time - origin_), used});
    count(samples_.back(), 1.0);
    while (samples_.front().time < samples_.back().time - static_cast<double>(seconds_)) {
        count(samples_.front(), -1.0);
        samples_.pop_front();
    }
    if (++added_ == sumsLast)
        sumAnew();
}

std::int64_t SlidingLine::reaches() const {
    const auto n = static_cast<double>(samples_.size());
    const double spread = n * sumTimeTime_ - sumTime_ * sumTime_;
    if (samples_.size() < 2 || !(spread > 0))
        return 0;
    const double slope = (n * sumTimeUsed_ - sumTime_ * sumUsed_) / spread;
    if (!(slope > 0))
        return 0;
    const double now = samples_.back().time;
    const double level = sumUsed_ / n + slope * (now - sumTime_ / n);
    return momentAfter(origin_ + static_cast<std::int64_t>(now), (limit - level) / slope);
}

Verdict RivalRules::lineRule(Rival rival, std::int64_t time, double used, std::int64_t within, double least) {
    const std::int64_t reaches = line_.reaches();
    std::int64_t& since = trueSince_[static_cast<std::size_t>(rival)];
    if (reaches == 0 || reaches > time + within || used < least) {
        since = 0;
        return {};
    }
    if (since == 0)
        since = time;
    return {time - since >= wholeSecondsPerHour, reaches};
}

Verdict RivalRules::twoPoints(std::int64_t time, double used) {
    hour_.push_back({time, used});
    while (hour_.size() > 1 && hour_[1].time <= time - wholeSecondsPerHour)
        hour_.pop_front();
    const Sample& before = hour_.front();
    const double rise = used - before.used;
    if (time - before.time < wholeSecondsPerHour || !(rise > 0))
        return {};
    const double seconds = (limit - used) / rise * static_cast<double>(time - before.time);
    const std::int64_t reaches = momentAfter(time, seconds);
    return {reaches != 0 && reaches <= time + horizon_, reaches};
}

std::array<Verdict, rivals> RivalRules::take(std::int64_t time, double used) {
    line_.add(time, used);
    std::array<Verdict, rivals> verdicts;
    verdicts[static_cast<std::size_t>(Rival::line6h24h)] =
        lineRule(Rival::line6h24h, time, used, 24 * wholeSecondsPerHour, 60.0);
    verdicts[static_cast<std::size_t>(Rival::line6h4h)] =
        lineRule(Rival::line6h4h, time, used, 4 * wholeSecondsPerHour, 80.0);
    verdicts[static_cast<std::size_t>(Rival::twoPoints1h)] = twoPoints(time, used);
    verdicts[static_cast<std::size_t>(Rival::threshold90)] = {used >= 90.0, 0};
    return verdicts;
}

} // namespace obrin
