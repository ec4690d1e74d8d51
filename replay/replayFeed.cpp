#include "replay/replayFeed.h"

#include "support/immortal.h"
#include "support/mutex.h"

#include <map>
#include <optional>
#include <utility>

namespace obrin {
void putEpisode(Bytes& bytes, std::int32_t rule, const Episode& episode) {
    bytes.number(rule).longNumber(episode.onset).longNumber(episode.firstEvent).longNumber(episode.end);
    bytes.number(static_cast<std::int32_t>(episode.outcome));
    bytes.longNumber(episode.announcedAtOnset).longNumber(episode.announcedAtEvent);
    bytes.real(episode.onsetValue).real(episode.highest);
    bytes.number(static_cast<std::int32_t>(episode.errors.size()));
    for (const double error : episode.errors)
        bytes.real(error);
}

namespace {

/// A list that is put together while others are.
class List {
public:
    Bytes& add() {
        ++length_;
        return bytes_;
    }
    std::int32_t length() const { return length_; }

    /// Puts the list behind `target`.
    void moveTo(Bytes& target) { target.number(length_).append(bytes_.take()); }

private:
    Bytes bytes_{256};
    std::int32_t length_ = 0;
};

/// Puts what happens into lists.
class PackingSink : public ReplaySink {
public:
    void happened(std::int64_t time, std::int32_t rid, Happening what, std::int64_t announced) override {
        happenings_.add()
            .longNumber(time)
            .number(rid)
            .number(static_cast<std::int32_t>(what))
            .longNumber(announced);
    }
    void episodeEnded(std::int32_t rid, std::int32_t rule, const Episode& episode) override {
        putEpisode(episodes_.add().number(rid), rule, episode);
    }
    void damaged(const std::string& file, std::int64_t line, std::string_view what) override {
        if (damages_.length() < damagesTold)
            damages_.add().text(file).longNumber(line).text(what);
    }
    void sampled(std::int32_t rid, std::int64_t time, double value, std::int64_t announced) override {
        samples_.add().number(rid).longNumber(time).real(value).longNumber(announced);
    }

    void moveTo(Bytes& bytes) {
        for (List* list : {&happenings_, &episodes_, &damages_, &samples_})
            list->moveTo(bytes);
    }

private:
    List happenings_;
    List episodes_;
    List damages_;
    List samples_;
};

/// One replay, which one thread at a time goes on with.
struct Session {
    explicit Session(ReplayRequest request) : replay(std::move(request)) {}

    Mutex lock;
    Replay replay;
};

struct Sessions {
    Mutex lock;
    std::map<std::int32_t, std::shared_ptr<Session>> open;
    std::int32_t newest = 0;
};
Immortal<Sessions> sessions;

std::shared_ptr<Session> find(std::int32_t number) {
    MutexLock lock(sessions->lock);
    const auto found = sessions->open.find(number);
    return found == sessions->open.end() ? nullptr : found->second;
}

void putProgress(Bytes& bytes, const ReplayProgress& progress) {
    for (const std::int64_t number :
         {progress.bytesRead, progress.bytes, progress.from, progress.to, progress.cycles, progress.forecasts,
          progress.damagedLines, progress.unknownSamples})
        bytes.longNumber(number);
    bytes.flag(progress.isOver);
}

void putTally(Bytes& bytes, const Replay::Tally& tally) {
    bytes.number(tally.link->RID).text(tally.link->NameIs.view()).text(tally.link->Descriptor1.view());
    bytes.longNumber(tally.samples).longNumber(tally.observedSeconds);
    bytes.number(static_cast<std::int32_t>(tally.chosen.size()));
    for (const std::int64_t count : tally.chosen)
        bytes.longNumber(count);
    bytes.number(static_cast<std::int32_t>(tally.reached.size()));
    for (const std::int64_t time : tally.reached)
        bytes.longNumber(time);
    bytes.number(static_cast<std::int32_t>(tally.open.size()));
    for (const auto& [rule, episode] : tally.open)
        putEpisode(bytes, rule, episode);
}

std::optional<ReplayRequest> readRequest(std::string_view bytes) {
    BytesReader in(bytes);
    if (in.number() != replayFeedVersion)
        return std::nullopt;
    ReplayRequest request;
    ReplaySettings& settings = request.settings;
    for (std::int32_t* number : {&settings.millisecondsPerSample, &settings.minForecastHours,
                                 &settings.maxForecastHours, &settings.every})
        *number = in.number();
    request.withRivals = in.flag();
    request.withSamples = in.flag();
    request.declarations = in.text();
    request.scratchPad = in.text();
    for (std::int32_t left = in.number(); left > 0 && in.isWhole(); --left)
        request.archives.emplace_back(in.text());
    for (std::int32_t left = in.number(); left > 0 && in.isWhole(); --left) {
        const std::int64_t time = in.longNumber();
        request.starts.push_back({time, in.flag()});
    }
    return in.isWhole() && in.atEnd() ? std::optional(std::move(request)) : std::nullopt;
}

} // namespace

std::int32_t openReplay(std::string_view request) {
    auto understood = readRequest(request);
    if (!understood)
        return 0;
    auto session = std::make_shared<Session>(std::move(*understood));
    MutexLock lock(sessions->lock);
    sessions->open.emplace(++sessions->newest, std::move(session));
    return sessions->newest;
}

std::string stepReplay(std::int32_t number, std::int64_t forecasts) {
    const std::shared_ptr<Session> session = find(number);
    if (session == nullptr)
        return {};
    MutexLock lock(session->lock);
    PackingSink sink;
    session->replay.run(forecasts, sink);
    Bytes bytes(65536);
    bytes.number(replayFeedVersion);
    putProgress(bytes, session->replay.progress());
    sink.moveTo(bytes);
    return bytes.take();
}

std::string summariseReplay(std::int32_t number) {
    const std::shared_ptr<Session> session = find(number);
    if (session == nullptr)
        return {};
    MutexLock lock(session->lock);
    const auto tallies = session->replay.tallies();
    Bytes bytes(4096);
    bytes.number(replayFeedVersion).number(session->replay.millisecondsPerSample());
    bytes.number(static_cast<std::int32_t>(tallies.size()));
    for (const Replay::Tally& tally : tallies)
        putTally(bytes, tally);
    return bytes.take();
}

void closeReplay(std::int32_t number) {
    std::shared_ptr<Session> closed; // which ends behind the lock, and behind whoever works with it
    MutexLock lock(sessions->lock);
    const auto found = sessions->open.find(number);
    if (found == sessions->open.end())
        return;
    closed = std::move(found->second);
    sessions->open.erase(found);
}

} // namespace obrin
