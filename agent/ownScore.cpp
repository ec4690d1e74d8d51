#include "agent/ownScore.h"

#include "acquisition/circularBuffers.h"
#include "agent/agentState.h"
#include "prediction/exhaustion.h"
#include "support/immortal.h"

#include <cmath>
#include <unordered_map>

namespace obrin {
namespace {

struct Kept {
    Scorekeeper score;
    std::int64_t cycle = 0; ///< in which it was seen last
};

struct Scores {
    std::unordered_map<std::int32_t, Kept> byRid; ///< changed under chainLock, by the agent thread alone
    std::deque<EndedEpisode> ended;
    std::int64_t numbers = 0;
    std::int64_t cycle = 0;
    std::int64_t clockSteps = 0; ///< seconds of all steps that the times here have been moved by
};
Immortal<Scores> scores;

Observation observe(const Link& link) {
    const LinkFindings& findings = link.findings;
    const ToleranceLimits limits = limitsOfMethod(link.AnalyticalMethod);
    const bool isForecast = findings.forecastTime == TimeStamp;
    const bool isAhead = isForecast && findings.hoursToExhaustion > 0;
    Observation seen;
    seen.time = TimeStamp;
    seen.used = usedOf(link.DataArray[0], limits);
    seen.isAtLimit = reachedLimit(static_cast<float>(link.DataArray[0]), limits) != ReachedLimit::none;
    seen.isPending = link.NotifyPending != 0;
    seen.isEvent = isForecast && findings.eventDue;
    seen.announced = isAhead ? TimeStamp + std::llround(findings.hoursToExhaustion * 3600.0) : 0;
    return seen;
}

/// The clock has stepped by so many seconds.
void moveAll(std::int64_t seconds) {
    scores->clockSteps += seconds;
    for (auto& [rid, kept] : scores->byRid)
        kept.score.move(seconds);
}

void keepEnded(const Link& link, const Episode& episode) {
    scores->ended.push_back({++scores->numbers, scores->cycle, link.RID, std::string(link.NameIs.view()),
                             std::string(link.Descriptor1.view()), episode});
}

void dropOldEnded() {
    const std::int64_t newestDropped = scores->cycle - endedCyclesKept;
    while (scores->ended.size() > endedEpisodesKept && scores->ended.front().cycle <= newestDropped)
        scores->ended.pop_front();
}

} // namespace

void keepOwnScore(const Clasp& clasp) {
    MutexLock lock(chainLock);
    ++scores->cycle;
    if (const std::int64_t steps = clasp.clockSteps.total(); steps != scores->clockSteps)
        moveAll(steps - scores->clockSteps);
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink) {
        if (isTemplate(*link) || link->AnalyticalMethod == 0 || samplesHeld(*link) == 0)
            continue;
        Kept& kept = scores->byRid[link->RID];
        kept.cycle = scores->cycle;
        if (const auto ended = kept.score.take(observe(*link)))
            keepEnded(*link, *ended);
    }
    dropOldEnded();
    std::erase_if(scores->byRid, [](const auto& entry) { return entry.second.cycle != scores->cycle; });
}

void beginOwnScore() {
    MutexLock lock(chainLock);
    scores->byRid.clear();
    scores->clockSteps = 0;
}

const std::deque<EndedEpisode>& endedEpisodes() {
    return scores->ended;
}

std::int64_t openEpisodeOf(std::int32_t rid) {
    const auto kept = scores->byRid.find(rid);
    const Episode* open = kept == scores->byRid.end() ? nullptr : kept->second.score.open();
    return open == nullptr ? 0 : open->onset;
}

std::vector<Announcement> announcementsOf(std::int32_t rid) {
    const auto kept = scores->byRid.find(rid);
    if (kept == scores->byRid.end())
        return {};
    const auto& announcements = kept->second.score.announcements();
    return {announcements.begin(), announcements.end()};
}

} // namespace obrin
