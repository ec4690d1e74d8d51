#include "agent/hostFeed.h"

#include "acquisition/circularBuffers.h"
#include "acquisition/counterReaders.h"
#include "acquisition/instances.h"
#include "agent/agentState.h"
#include "agent/ownScore.h"
#include "diagnosis/LX_DAQ_Subs.h"
#include "prediction/exhaustion.h"
#include "prediction/modelSelection.h"
#include "prediction/predictor.h"
#include "replay/replayFeed.h"
#include "support/bytes.h"
#include "support/clock.h"
#include "support/immortal.h"
#include "support/textScanner.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <pthread.h>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace obrin {
namespace {

// --- the state of a run

std::int64_t sizeOf(const std::string& path) {
    struct stat state = {};
    return ::stat(path.c_str(), &state) == 0 ? static_cast<std::int64_t>(state.st_size) : -1;
}

void putResumed(Bytes& bytes, const Clasp& clasp) {
    std::int64_t samples = 0;
    std::int32_t resources = 0;
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink) {
        samples += link->resumedSamples;
        resources += link->resumedSamples > 0 ? 1 : 0;
    }
    bytes.longNumber(samples).number(resources);
}

void putConfiguration(Bytes& bytes, const Clasp& clasp, std::int32_t archiveMegabytes) {
    for (const std::string* name : {&clasp.DataHomeDirectory, &clasp.HardDriveArchive, &clasp.ScratchPad,
                                    &clasp.ResourceText, &clasp.IniFile})
        bytes.text(*name);
    bytes.number(clasp.MillisecondsPerSample).number(clasp.MinForecastHours).number(clasp.MaxForecastHours);
    bytes.number(archiveMegabytes).number(samplesForForecast);
}

void putLeftOut(Bytes& bytes, const Clasp& clasp) {
    const std::size_t list = bytes.beginList();
    std::int32_t length = 0;
    const auto put = [&](std::string_view what, std::string_view why, LeftOutKind kind = LeftOutKind::other,
                         std::string_view rule = {}) {
        bytes.text(what).text(why).number(static_cast<std::int32_t>(kind)).text(rule);
        ++length;
    };
    if (clasp.declarationLoss != nullptr)
        put(clasp.ResourceText, clasp.declarationLoss);
    for (const LeftOutDisk& disk : disksLeftOut())
        put(disk.text, disk.reason, disk.kind, disk.rule);
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
        if (!isTemplate(*link) && link->BufferSize == 0)
            put(link->NameIs.view(), "there is no memory for its samples, so it is not forecast");
    bytes.endList(list, length);
}

bool isDisk(const Link& link) {
    return link.ResourceType == 2 && link.Descriptor0 == "LogicalDisk";
}

WatchReason whyWatched(const Link& link) {
    if (!isDisk(link))
        return WatchReason::declared;
    return isNamedDisk(link.Descriptor1.view()) ? WatchReason::named : WatchReason::mounted;
}

void putResource(Bytes& bytes, const Link& link) {
    const ToleranceLimits limits = limitsOfMethod(link.AnalyticalMethod);
    const LinkFindings& findings = link.findings;
    const auto reached = reachedLimit(static_cast<float>(link.DataArray[0]), limits);
    bytes.number(link.RID);
    bytes.text(link.Descriptor0.view()).text(link.Descriptor1.view()).text(link.Descriptor2.view());
    bytes.text(link.NameIs.view()).number(placeOfMountPoint(link));
    bytes.real(link.DataArray[0]).flag(findings.valueRead);
    bytes.real(link.UpperLimitCalc).flag(findings.capacityRead).real(link.UpperLimitAbs);
    bytes.number(link.AnalyticalMethod);
    bytes.real(static_cast<double>(limits.lower)).real(static_cast<double>(limits.upper));
    bytes.number(static_cast<std::int32_t>(reached)).real(link.WindowSize);
    bytes.number(clampToInt32(link.BufferSize)).number(usableSamples(link));
    bytes.longNumber(findings.forecastTime).text(findings.model.view()).real(findings.hoursToExhaustion);
    bytes.flag(link.NotifyPending != 0).real(static_cast<double>(link.NotifyLevel));
    bytes.number(link.HysteresisCount).longNumber(openEpisodeOf(link.RID));
    bytes.number(static_cast<std::int32_t>(whyWatched(link)));
}

void putResources(Bytes& bytes, const Clasp& clasp) {
    const std::size_t list = bytes.beginList();
    std::int32_t length = 0;
    for (const Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink) {
        if (isTemplate(*link))
            continue;
        putResource(bytes, *link);
        ++length;
    }
    bytes.endList(list, length);
}

void putEnded(Bytes& bytes) {
    const auto& ended = endedEpisodes();
    bytes.number(static_cast<std::int32_t>(ended.size()));
    for (const EndedEpisode& one : ended) {
        bytes.longNumber(one.number).number(one.rid).text(one.name).text(one.instance);
        putEpisode(bytes, agentsRule, one.episode);
    }
}

// --- handing over

pthread_mutex_t boardLock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t posted = PTHREAD_COND_INITIALIZER;

/// What was published last. Under boardLock.
struct Board {
    std::int64_t serial = 0;
    Publication newest;
    bool isOver = false;   ///< whether the newest says that the run is over
    Publication beforeEnd; ///< what that came behind; null otherwise
};
Immortal<Board> board;

class BoardGuard {
public:
    BoardGuard() { ::pthread_mutex_lock(&boardLock); }
    BoardGuard(const BoardGuard&) = delete;
    BoardGuard& operator=(const BoardGuard&) = delete;
    ~BoardGuard() { ::pthread_mutex_unlock(&boardLock); }
};

std::atomic<bool> isOpen{false};

/// Agent thread only.
std::int64_t cyclesOfRun = 0;

std::int64_t nextSerial() {
    const BoardGuard guard;
    return board->serial + 1;
}

/// What goes is let go without the lock.
void post(Publication publication, PublicationKind kind) {
    Publication last;
    const bool isOver = kind == PublicationKind::over;
    {
        const BoardGuard guard;
        ++board->serial;
        board->newest.swap(publication);
        board->beforeEnd.swap(isOver && !board->isOver ? publication : last);
        board->isOver = isOver;
    }
    ::pthread_cond_broadcast(&posted);
}

std::size_t expectedSize() {
    const BoardGuard guard;
    return board->newest ? board->newest->size() + 4096 : 4096;
}

// --- the curves of one link

const Link* linkNumbered(std::int32_t rid) {
    const Link* link = pResourceClasp == nullptr ? nullptr : pResourceClasp->pFirstLink;
    while (link != nullptr && (link->RID != rid || isTemplate(*link)))
        link = link->pNextLink;
    return link;
}

/// A copy of what the agent thread may change, taken in a moment.
struct CurveCopy {
    std::vector<SampleRecord> samples;
    std::int64_t forecastTime = 0;
    FixedText<40> model;
    double hours = 0.0;
    double level = 0.0;
    double origin = 0.0;
    std::vector<float> forecast;
    std::vector<Announcement> announcements;
    float inner = 0.0F;
    float outer = 0.0F;
};

/// What a copy has to have room for; nothing when there is no such link.
std::optional<std::size_t> ringSize(std::int32_t rid) {
    MutexLock lock(chainLock);
    const Link* link = linkNumbered(rid);
    return link == nullptr ? std::nullopt : std::optional<std::size_t>(samplesHeld(*link));
}

/// False when the link has gone meanwhile. The room for the curves was taken before, so that the lock is held
/// for hardly longer than the copying lasts; a sample that came in between takes the place of the oldest.
bool copyCurves(std::int32_t rid, CurveCopy* copy) {
    MutexLock lock(chainLock);
    const Link* link = linkNumbered(rid);
    if (link == nullptr)
        return false;
    const LinkFindings& findings = link->findings;
    const auto held = static_cast<std::size_t>(samplesHeld(*link));
    for (std::size_t i = held - std::min(held, copy->samples.capacity()); i < held; ++i) {
        const std::uint32_t slot = slotOfSample(*link, static_cast<std::uint32_t>(i));
        copy->samples.push_back({link->TimeBuffer[slot], link->ValueBuffer[slot]});
    }
    if (findings.forecast) {
        copy->forecast.assign(findings.forecast.get(), findings.forecast.get() + forecastPoints);
        copy->forecastTime = findings.forecastTime;
        copy->model = findings.model;
        copy->hours = findings.hoursToExhaustion;
        copy->level = static_cast<double>(findings.notificationLevel);
        copy->origin = findings.forecastOrigin;
    }
    copy->announcements = announcementsOf(rid);
    const Clasp& clasp = *pResourceClasp;
    copy->inner = static_cast<float>(clasp.MinForecastHours * 3600.0);
    copy->outer = static_cast<float>(clasp.MaxForecastHours * 3600.0);
    return true;
}

} // namespace

void openHostFeed(bool open) noexcept {
    isOpen = open;
}

void publishCycle(const Clasp& clasp, const CycleReport& report) {
    if (!isOpen)
        return;
    cyclesOfRun = report.cycles;
    if (report.cycles > 0)
        keepOwnScore(clasp);
    else
        beginOwnScore();
    Bytes bytes(expectedSize());
    bytes.number(hostFeedVersion).longNumber(nextSerial());
    bytes.number(static_cast<std::int32_t>(PublicationKind::running));
    bytes.longNumber(report.cycles).longNumber(TimeStamp).longNumber(clasp.clockSteps.total());
    bytes.real(report.sampling).real(report.forecast).real(report.writing).real(report.total);
    bytes.longNumber(sizeOf(clasp.HardDriveArchive));
    putResumed(bytes, clasp);
    putConfiguration(bytes, clasp, report.archiveMegabytes);
    bytes.flag(awaitsDiskListing());
    putLeftOut(bytes, clasp);
    putResources(bytes, clasp);
    putEnded(bytes);
    post(std::make_shared<const std::string>(bytes.take()), PublicationKind::running);
}

void publishEnd() noexcept {
    const std::int64_t cycles = std::exchange(cyclesOfRun, 0);
    if (!isOpen)
        return;
    try {
        Bytes bytes(32);
        bytes.number(hostFeedVersion).longNumber(nextSerial());
        bytes.number(static_cast<std::int32_t>(PublicationKind::over)).longNumber(cycles);
        post(std::make_shared<const std::string>(bytes.take()), PublicationKind::over);
    } catch (const std::bad_alloc&) {
        // whoever waits finds out from the end of research_main
    }
}

Publication awaitPublication(std::int64_t after, std::chrono::milliseconds patience) {
    const BoardGuard guard;
    const Clock::Moment deadline = systemClock().now() + patience;
    int result = patience.count() > 0 ? 0 : ETIMEDOUT;
    while (board->serial <= after && result == 0)
        result = systemClock().waitUntil(&posted, &boardLock, deadline);
    if (board->serial <= after)
        return nullptr;
    const bool isLastCycleUnread = after > 0 && board->serial - after > 1 && board->beforeEnd;
    return isLastCycleUnread ? board->beforeEnd : board->newest;
}

std::optional<std::string> curvesOf(std::int32_t rid) {
    const auto size = ringSize(rid);
    if (!size)
        return std::nullopt;
    CurveCopy copy;
    copy.samples.reserve(*size + 1);
    copy.forecast.reserve(forecastPoints);
    if (!copyCurves(rid, &copy))
        return std::nullopt;

    Bytes bytes(16 * (copy.samples.size() + copy.forecast.size()) + 32);
    bytes.number(hostFeedVersion);
    const std::size_t list = bytes.beginList();
    std::int32_t length = 0;
    for (const SampleRecord& sample : copy.samples) {
        const bool isLater = copy.forecastTime != 0 && sample.time > static_cast<double>(copy.forecastTime);
        if (sample.value == noSample || isLater)
            continue;
        bytes.real(sample.time).real(sample.value);
        ++length;
    }
    bytes.endList(list, length);
    std::vector<float> times(copy.forecast.size());
    if (!times.empty())
        forecastGrid(0.0F, copy.inner, copy.outer, times);
    bytes.longNumber(copy.forecastTime).text(copy.model.view()).real(copy.hours).real(copy.level);
    bytes.number(static_cast<std::int32_t>(times.size()));
    for (std::size_t i = 0; i < times.size(); ++i)
        bytes.real(copy.origin + static_cast<double>(times[i])).real(static_cast<double>(copy.forecast[i]));
    bytes.number(static_cast<std::int32_t>(copy.announcements.size()));
    for (const Announcement& announcement : copy.announcements)
        bytes.longNumber(announcement.time).longNumber(announcement.announced);
    return bytes.take();
}

std::int32_t placeOfMountPoint(const Link& link) {
    const std::size_t blank = isDisk(link) ? link.Descriptor1.view().find(" /") : std::string_view::npos;
    return blank == std::string_view::npos ? -1 : static_cast<std::int32_t>(blank + 1);
}

std::int32_t usableSamples(const Link& link) {
    const LinkFindings& findings = link.findings;
    return findings.usableSamples > 0 ? findings.usableSamples : static_cast<std::int32_t>(samplesHeld(link));
}

std::string describeCounters() {
    Bytes bytes(2048);
    bytes.number(hostFeedVersion).number(static_cast<std::int32_t>(counterTable().size()));
    for (const Counter& counter : counterTable()) {
        bytes.text(counter.object).text(counter.counter).text(counter.words).text(counter.unit);
        bytes.real(counter.bytes).flag(counter.wholeLimit).text(counter.whole).text(counter.nothing);
        bytes.flag(counter.absent);
    }
    const auto reports = reportedResources();
    bytes.number(static_cast<std::int32_t>(reports.size()));
    for (const ReportedResource& report : reports)
        bytes.text(report.displayName).text(report.measure).text(report.words);
    return bytes.take();
}

} // namespace obrin
