#include "replay/replay.h"

#include "acquisition/circularBuffers.h"
#include "resources/windowSizing.h"
#include "support/clock.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <new>

namespace obrin {
namespace {

/// A pause of more periods than this is a gap, in which nothing was observed.
constexpr std::int64_t longestPause = 3;

std::size_t modelNumber(std::string_view name) {
    static constexpr std::array<std::string_view, models> names{model0, model1, model2,
                                                                model3, model4, model5};
    return static_cast<std::size_t>(std::distance(names.begin(), std::ranges::find(names, name)));
}

/// The state in which a link joins a run: idle, with those samples that a run reads back, or none.
void beginAnew(Link& link, std::int64_t now, bool isEmpty) {
    link.NotifyPending = 0;
    link.NotifyLevel = 0.0F;
    link.HysteresisCount = 0;
    if (isEmpty)
        link.SampleCount = link.NextSlot = 0;
    keepWithinWindow(link, static_cast<double>(now));
}

} // namespace

struct Replay::Resource {
    Link* link;
    ToleranceLimits limits;
    RivalRules rivals;
    Scorekeeper score{};
    std::array<Scorekeeper, obrin::rivals> rivalScores{};
    Tally tally{};
    std::int64_t newest = 0;      ///< time of its newest sample
    std::int64_t newestCycle = 0; ///< its number
    bool hasEvent = false;        ///< one went out since the onset
};

Replay::Replay(ReplayRequest request)
    : request_(std::move(request)),
      resources_(request_.declarations, request_.scratchPad, request_.settings) {
    for (const std::string& path : request_.archives)
        progress_.bytes += ArchiveLines(path, 0).size();
}

Replay::~Replay() = default;

/// Opens the next archive that can be read. False after the last.
bool Replay::openNext(ReplaySink& sink) {
    if (archive_ != nullptr) {
        if (!archive_->problem().empty())
            sink.damaged(request_.archives[nextArchive_ - 1], 0, archive_->problem());
        bytesOfArchivesBefore_ += archive_->bytesRead();
        archive_.reset();
    }
    for (; archive_ == nullptr && nextArchive_ < request_.archives.size(); ++nextArchive_) {
        const std::string& path = request_.archives[nextArchive_];
        archive_ = std::make_unique<ArchiveLines>(path, resources_.highestRid());
        if (archive_->problem().empty())
            continue;
        sink.damaged(path, 0, archive_->problem());
        archive_.reset();
    }
    return archive_ != nullptr;
}

void Replay::run(std::int64_t forecasts, ReplaySink& sink) {
    // A ring brings the memory of its forecasts to the thread that sizes it; this may be another one.
    if (!reserveForecastMemory(longestRing_))
        throw std::bad_alloc();
    const std::int64_t enough = progress_.forecasts + forecasts;
    constexpr std::int64_t linesWithoutForecast = 100'000; // so that a caller is answered in any case
    for (std::int64_t lines = 0; progress_.forecasts < enough && lines < linesWithoutForecast; ++lines) {
        const auto next = archive_ == nullptr ? ArchiveLines::Next::end : archive_->next(&cycle_);
        if (archive_ != nullptr)
            progress_.bytesRead = bytesOfArchivesBefore_ + archive_->bytesRead();
        if (next == ArchiveLines::Next::damage) {
            ++progress_.damagedLines;
            sink.damaged(request_.archives[nextArchive_ - 1], archive_->line(), archive_->damage());
        } else if (next == ArchiveLines::Next::cycle) {
            take(cycle_, sink);
        } else if (!openNext(sink)) {
            progress_.isOver = true;
            return;
        }
    }
}

void Replay::take(const ArchivedCycle& cycle, ReplaySink& sink) {
    if (lines_++ % std::max(request_.settings.every, 1) != 0)
        return;
    ++progress_.cycles;
    progress_.from = progress_.from == 0 ? cycle.time : progress_.from;
    progress_.to = cycle.time;
    for (; nextStart_ < request_.starts.size() && request_.starts[nextStart_].time <= cycle.time;
         ++nextStart_)
        startRun(request_.starts[nextStart_]);
    for (const ArchivedSample& sample : cycle.samples)
        takeSample(cycle.time, sample, sink);
}

void Replay::startRun(const RunStart& start) {
    startsEmpty_ = !start.isResumed;
    for (const auto& [rid, resource] : sampled_) {
        beginAnew(*resource->link, start.time, startsEmpty_);
        resource->score.restart();
    }
}

Replay::Resource* Replay::find(std::int32_t rid) {
    if (const auto known = sampled_.find(rid); known != sampled_.end())
        return known->second.get();
    Link* link = resources_.find(rid);
    if (link == nullptr || !allocateRing(*link, resources_.millisecondsPerSample()))
        return nullptr;
    longestRing_ = std::max(longestRing_, link->BufferSize);
    const auto horizon = std::int64_t{request_.settings.maxForecastHours} * 3600;
    auto resource = std::make_unique<Resource>(
        Resource{link, limitsOfMethod(link->AnalyticalMethod), RivalRules(horizon)});
    resource->tally.link = link;
    return sampled_.emplace(rid, std::move(resource)).first->second.get();
}

void Replay::takeSample(std::int64_t time, const ArchivedSample& sample, ReplaySink& sink) {
    Resource* resource = find(sample.rid);
    if (resource == nullptr) {
        ++progress_.unknownSamples;
        return;
    }
    Link& link = *resource->link;
    if (link.ResourceType == 2 && resource->newestCycle != 0 &&
        resource->newestCycle + 1 < progress_.cycles) {
        beginAnew(link, time, startsEmpty_); // it had gone, and its link with it
        resource->score.restart();
    }
    const std::int64_t pause = time - resource->newest;
    const std::int64_t period = std::max(resources_.millisecondsPerSample() / 1000, 1);
    if (resource->newest != 0 && pause > 0)
        resource->tally.observedSeconds += pause <= longestPause * period ? pause : period;
    resource->newest = time;
    resource->newestCycle = progress_.cycles;
    ++resource->tally.samples;
    pushSample(link, static_cast<double>(time), sample.value);
    if (link.AnalyticalMethod != 0)
        forecast(*resource, time, sample.value, sink);
}

void Replay::forecast(Resource& resource, std::int64_t time, double value, ReplaySink& sink) {
    Link& link = *resource.link;
    makeSeries(link, &series_);
    if (series_.times.empty())
        return;
    const ReplaySettings& settings = request_.settings;
    const double inner = settings.minForecastHours * secondsPerHour;
    const double outer = settings.maxForecastHours * secondsPerHour;
    outlook_.valid = false;
    outlook_.crossing = {};
    outlook_.notification = Notification::none;
    lookAhead(link, series_.times, series_.values, resource.limits, static_cast<float>(inner),
              static_cast<float>(outer), PredictionParameters{}, &outlook_);
    if (outlook_.valid) {
        ++progress_.forecasts;
        if (const std::size_t model = modelNumber(outlook_.model); model < models)
            ++resource.tally.chosen[model];
    }

    const bool fires = outlook_.notification == Notification::fires;
    const std::int64_t announced =
        outlook_.crossing.ahead ? time + std::llround(outlook_.crossing.hours * secondsPerHour) : 0;
    if (outlook_.notification == Notification::onset) {
        resource.hasEvent = false;
        sink.happened(time, link.RID, Happening::onset, announced);
    }
    if (fires && !std::exchange(resource.hasEvent, true))
        sink.happened(time, link.RID, Happening::event, announced);
    if (outlook_.notification == Notification::cleared)
        sink.happened(time, link.RID, Happening::cleared, 0);

    const Observation seen{time,
                           usedOf(value, resource.limits),
                           reachedLimit(static_cast<float>(value), resource.limits) != ReachedLimit::none,
                           link.NotifyPending != 0,
                           fires,
                           announced};
    if (const auto ended = resource.score.take(seen))
        sink.episodeEnded(link.RID, agentsRule, *ended);
    if (resource.score.hasJustReached()) {
        resource.tally.reached.push_back(time);
        sink.happened(time, link.RID, Happening::limitReached, 0);
    }
    if (request_.withRivals)
        judgeRivals(resource, seen, sink);
    if (request_.withSamples)
        sink.sampled(link.RID, time, value, announced);
}

void Replay::judgeRivals(Resource& resource, const Observation& seen, ReplaySink& sink) {
    const auto verdicts = resource.rivals.take(seen.time, seen.used);
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
        Observation judged = seen;
        judged.isPending = verdicts[i].isAlarm;
        judged.isEvent = verdicts[i].isAlarm;
        judged.announced = verdicts[i].isAlarm ? verdicts[i].announced : 0;
        if (const auto ended = resource.rivalScores[i].take(judged))
            sink.episodeEnded(resource.link->RID, static_cast<std::int32_t>(i) + 1, *ended);
    }
}

std::vector<Replay::Tally> Replay::tallies() const {
    std::vector<Tally> all;
    for (const auto& [rid, resource] : sampled_) {
        Tally& tally = all.emplace_back(resource->tally);
        if (const Episode* open = resource->score.open(); open != nullptr)
            tally.open.emplace_back(agentsRule, *open);
        for (std::size_t i = 0; i < resource->rivalScores.size(); ++i)
            if (const Episode* open = resource->rivalScores[i].open(); open != nullptr)
                tally.open.emplace_back(static_cast<std::int32_t>(i) + 1, *open);
    }
    std::ranges::sort(all, {}, [](const Tally& tally) { return tally.link->RID; });
    return all;
}

} // namespace obrin
