#include "replay/replay.h"

#include "acquisition/circularBuffers.h"
#include "agent/agentState.h"
#include "prediction/exhaustion.h"
#include "prediction/predictor.h"
#include "replay/replayFeed.h"
#include "resources/scratchPadRecord.h"
#include "tests/support/countedAllocations.h"
#include "tests/support/often.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <thread>
#include <tuple>
#include <vector>

namespace obrin {
namespace {

constexpr std::int64_t start = 1'700'000'000;

/// When, which resource, what.
using Told = std::tuple<std::int64_t, std::int32_t, Happening>;

class RecordingReplay : public ReplaySink {
public:
    void happened(std::int64_t time, std::int32_t rid, Happening what, std::int64_t announced) override {
        told.emplace_back(time, rid, what);
        moments.push_back(announced);
    }
    void episodeEnded(std::int32_t rid, std::int32_t rule, const Episode& episode) override {
        episodes[{rid, rule}].push_back(episode);
    }
    void damaged(const std::string& file, std::int64_t line, std::string_view what) override {
        damages.push_back(file.substr(file.rfind('/') + 1) + ":" + std::to_string(line) + ": " +
                          std::string(what));
    }
    void sampled(std::int32_t, std::int64_t, double, std::int64_t) override { ++samples; }

    std::vector<Told> told;
    std::vector<std::int64_t> moments;
    std::map<std::pair<std::int32_t, std::int32_t>, std::vector<Episode>> episodes;
    std::vector<std::string> damages;
    int samples = 0;
};

constexpr const char* declarations = R"(BeginResourceDeclaration
BeginResourceInput
    FindObject (PercentSwapSpaceUsed)
    FindInstance (_Total)
    FindCounter (PercentSwapSpaceUsed)
    WindowSize -1.
    NameIs (Swap)
    AnalyticalMethod 1
    UpperLimitAbs 0
    UpperLimitCalc 0
    LowerLimitAbs 0
    LowerLimitCalc 0
    CulpritMarker (none)
EndResourceInput
BeginResourceInput
    FindObject (LogicalDisk)
    FindInstance (*)
    FindCounter (PercentFreeSpaceUsed)
    WindowSize -1.
    NameIs (Space)
    AnalyticalMethod 1
    UpperLimitAbs 0
    UpperLimitCalc 0
    LowerLimitAbs 0
    LowerLimitCalc 0
    CulpritMarker (none)
EndResourceInput
EndResourceDeclaration
)";

class ReplayTest : public testing::Test {
protected:
    ReplayTest() {
        request.declarations = declarations;
        request.scratchPad = record(1, 1, "PercentSwapSpaceUsed", "_Total", "PercentSwapSpaceUsed", "-2") +
                             record(2, 2, "LogicalDisk", "*", "PercentFreeSpaceUsed", "-1") +
                             record(2, 3, "LogicalDisk", "/dev/a /a", "PercentFreeSpaceUsed", "-2") +
                             record(2, 4, "LogicalDisk", "/dev/b /b (c)", "PercentFreeSpaceUsed", "-2") +
                             record(1, 5, "Gone", "_Total", "Gone", "-2");
        request.settings = {60'000, 0, 48, 1}; // a window of 4.8 h: 288 samples
        request.archives = {directory.path("archive")};
    }

    static std::string record(std::int32_t type, std::int32_t rid, const char* object, const char* instance,
                              const char* counter, const char* identifier) {
        Link link;
        link.ResourceType = type;
        link.RID = rid;
        link.Descriptor0.assign(object);
        link.Descriptor1.assign(instance);
        link.Descriptor2.assign(counter);
        link.Descriptor3.assign(identifier);
        return scratchPadRecordText(link);
    }

    void sample(std::int64_t time, std::int32_t rid, double value) { cycles[time][rid] = value; }

    void fill(std::int32_t rid, int from, int to, const std::function<double(int)>& value) {
        for (int i = from; i < to; ++i)
            sample(start + i * 60, rid, value(i));
    }

    std::string archive() const {
        std::string text;
        char triple[400];
        for (const auto& [time, samples] : cycles) {
            text += std::to_string(time) + " ";
            for (const auto& [rid, value] : samples) {
                std::snprintf(triple, sizeof triple, "%d 0 %.2f ", rid, value);
                text += triple;
            }
            text += "\n";
        }
        return text;
    }

    /// The request as the host lays it out.
    std::string requestBytes() const {
        Bytes bytes(4096);
        bytes.number(replayFeedVersion).number(request.settings.millisecondsPerSample);
        bytes.number(request.settings.minForecastHours).number(request.settings.maxForecastHours);
        bytes.number(request.settings.every).flag(request.withRivals).flag(request.withSamples);
        bytes.text(request.declarations).text(request.scratchPad);
        bytes.number(static_cast<std::int32_t>(request.archives.size()));
        for (const std::string& path : request.archives)
            bytes.text(path);
        bytes.number(static_cast<std::int32_t>(request.starts.size()));
        for (const RunStart& one : request.starts)
            bytes.longNumber(one.time).flag(one.isResumed);
        return bytes.take();
    }

    RecordingReplay replay() {
        if (!cycles.empty())
            test::writeFile(request.archives.front(), archive());
        replayed = std::make_unique<Replay>(request);
        RecordingReplay sink;
        while (!replayed->progress().isOver)
            replayed->run(1000, sink);
        progress = replayed->progress();
        tallies = replayed->tallies();
        return sink;
    }

    test::TemporaryDirectory directory;
    test::CapturedLog log;
    ReplayRequest request;
    std::map<std::int64_t, std::map<std::int32_t, double>> cycles;
    std::unique_ptr<Replay> replayed; ///< the newest, whose links the tallies name
    ReplayProgress progress;
    std::vector<Replay::Tally> tallies;
};

double leak(int i) {
    return i < 500 ? 20.0 : std::min(100.0, 20.0 + 0.1 * (i - 500));
}

TEST_F(ReplayTest, ALeakIsAnnouncedAndReachesItsLimit) {
    fill(3, 0, 1500, leak);
    const RecordingReplay told = replay();
    ASSERT_EQ(told.episodes.count({3, agentsRule}), 1U);
    const Episode& episode = told.episodes.at({3, agentsRule}).front();
    EXPECT_EQ(episode.outcome, Outcome::reached);
    EXPECT_EQ(episode.end, start + 1300 * 60);
    EXPECT_LT(episode.onset, start + 800 * 60);
    EXPECT_NE(episode.firstEvent, 0);
    ASSERT_EQ(tallies.size(), 1U);
    EXPECT_EQ(tallies[0].reached, std::vector<std::int64_t>{start + 1300 * 60});
    EXPECT_EQ(tallies[0].samples, 1500);
    EXPECT_EQ(tallies[0].observedSeconds, 1499 * 60);
    EXPECT_EQ(tallies[0].link->NameIs.view(), "Space");
    EXPECT_EQ(tallies[0].link->Descriptor1.view(), "/dev/a /a");
    EXPECT_EQ(std::get<2>(told.told.front()), Happening::onset);
    EXPECT_EQ(progress.cycles, 1500);
    EXPECT_EQ(progress.forecasts, 1500 - 199);
    EXPECT_EQ(progress.bytesRead, progress.bytes);
}

TEST_F(ReplayTest, NothingIsLoggedAndNoFileIsMade) {
    fill(3, 0, 1500, leak);
    replay();
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(test::readFile(directory.path("Space_dev_a_aBM.ini")), "");
}

/// What the run of the agent tells, over the same samples: its own chain, predictor and sink.
class Live {
public:
    Live(const std::string& home, const std::vector<std::pair<std::int32_t, const char*>>& resources) {
        setInitialEventStates();
        clasp.DataHomeDirectory = home;
        clasp.MillisecondsPerSample = 60'000;
        clasp.MaxForecastHours = 48;
        for (const auto& [rid, name] : resources) {
            auto link = std::make_unique<Link>();
            link->ResourceType = 2;
            link->RID = rid;
            link->NameIs.assign(name);
            link->Descriptor3.assign("-2");
            link->AnalyticalMethod = 1;
            link->WindowSize = 4.8;
            link->pClasp = &clasp;
            (clasp.pLastLink == nullptr ? clasp.pFirstLink : clasp.pLastLink->pNextLink) = link.get();
            clasp.pLastLink = link.get();
            links.push_back(std::move(link));
        }
        allocatecircularbuffers(&clasp);
    }

    void cycle(std::int64_t time, const std::map<std::int32_t, double>& samples) {
        TimeStamp = time;
        for (const auto& link : links)
            pushSample(*link, static_cast<double>(time), std::round(samples.at(link->RID) * 100) / 100);
        std::vector<std::int32_t> before;
        for (const auto& link : links)
            before.push_back(link->NotifyPending);
        sink.events.clear();
        predictor(&clasp);
        for (std::size_t i = 0; i < links.size(); ++i)
            note(time, *links[i], before[i] != 0);
    }

    std::vector<Told> told;

private:
    void note(std::int64_t time, const Link& link, bool wasPending) {
        if (!wasPending && link.NotifyPending != 0) {
            told.emplace_back(time, link.RID, Happening::onset);
            hadEvent[link.RID] = false;
        }
        for (const auto& event : sink.events)
            if (event.name == link.NameIs.view() && !std::exchange(hadEvent[link.RID], true))
                told.emplace_back(time, link.RID, Happening::event);
        if (wasPending && link.NotifyPending == 0)
            told.emplace_back(time, link.RID, Happening::cleared);
    }

    Clasp clasp;
    test::RecordingSink sink;
    std::vector<std::unique_ptr<Link>> links;
    std::map<std::int32_t, bool> hadEvent;
};

TEST_F(ReplayTest, TellsTheSameInTheSameCyclesAsTheRunThatRecordedIt) {
    const int count = test::often(1000, 1400);
    fill(1, 0, count, [](int i) { return 40.0 + 20.0 * std::sin(i / 129.0) + 0.3 * std::sin(i * 1.7); });
    fill(3, 0, count, leak);
    fill(4, 0, count,
         [](int i) { return i % 450 < 300 ? 30 + 0.15 * (i % 450) : 90.0 - 0.2 * (i % 450 - 300); });
    Live live(directory.path(""), {{1, "Swap"}, {3, "Space"}, {4, "More"}});
    for (const auto& [time, samples] : cycles)
        live.cycle(time, samples);
    std::vector<Told> told = replay().told;
    std::erase_if(told, [](const Told& one) { return std::get<2>(one) == Happening::limitReached; });
    EXPECT_GT(told.size(), 10U);
    EXPECT_EQ(told, live.told);
}

TEST_F(ReplayTest, NumbersWithoutARecordOrADeclarationArePassedOverAndCounted) {
    fill(3, 0, 300, leak);
    sample(start, 2, 50); // the template
    sample(start, 5, 50); // declared no more
    replay();
    EXPECT_EQ(progress.unknownSamples, 2);
    EXPECT_EQ(tallies.size(), 1U);
}

TEST_F(ReplayTest, DamageIsToldWithItsPlaceAndReplayedAround) {
    fill(3, 0, 1500, leak);
    std::string text = archive();
    const std::size_t middle = text.find('\n', text.size() / 2) + 1;
    test::writeFile(request.archives.front(),
                    text.substr(0, middle) + "rubbish\n" + text.substr(middle) + "torn");
    cycles.clear();
    const RecordingReplay told = replay();
    ASSERT_EQ(told.damages.size(), 2U);
    EXPECT_EQ(told.damages[1], "archive:1502: the line is torn: the file ends within it");
    EXPECT_EQ(progress.damagedLines, 2);
    EXPECT_EQ(progress.cycles, 1500);
}

TEST_F(ReplayTest, ArchivesFollowEachOtherAndOneThatIsMissingIsTold) {
    fill(3, 0, 700, leak);
    test::writeFile(directory.path("first"), archive());
    cycles.clear();
    fill(3, 700, 1500, leak);
    test::writeFile(directory.path("second"), archive());
    cycles.clear();
    request.archives = {directory.path("first"), directory.path("none"), directory.path("second")};
    const RecordingReplay told = replay();
    EXPECT_EQ(told.damages, std::vector<std::string>{"none:0: No such file or directory"});
    EXPECT_EQ(tallies.at(0).reached.size(), 1U);
}

TEST_F(ReplayTest, ADiskThatWasGoneComesBackWithTheSamplesOfItsWindow) {
    fill(1, 0, 900, [](int) { return 10.0; });
    fill(3, 0, 300, leak);
    fill(3, 400, 900, leak);
    replay();
    // 188 of the first 300 are younger than 4.8 h at the return, so a forecast comes with the twelfth sample.
    const auto forecasts = [&](std::size_t i) {
        std::int64_t sum = 0;
        for (const std::int64_t chosen : tallies.at(i).chosen)
            sum += chosen;
        return sum;
    };
    EXPECT_EQ(forecasts(1), 101 + 500 - 12);

    request.starts = {{start, false}}; // a run that reads nothing back
    replay();
    EXPECT_EQ(forecasts(1), 101 + 500 - 199);
}

TEST_F(ReplayTest, AGapIsNotObserved) {
    fill(3, 0, 100, leak);
    fill(3, 1000, 1100, leak);
    replay();
    EXPECT_EQ(tallies.at(0).observedSeconds, (99 + 1 + 99) * 60);
}

TEST_F(ReplayTest, TheFirstRecordWithANumberOwnsIt) {
    request.scratchPad += record(2, 3, "LogicalDisk", "/dev/z /z", "PercentFreeSpaceUsed", "-2") +
                          record(2, 5, "LogicalDisk", "/dev/y /y", "PercentFreeSpaceUsed", "-2");
    fill(3, 0, 300, leak);
    fill(5, 0, 300, leak); // the first record with it is of a resource that is declared no more
    replay();
    ASSERT_EQ(tallies.size(), 1U);
    EXPECT_EQ(tallies[0].link->Descriptor1.view(), "/dev/a /a");
}

TEST_F(ReplayTest, AStartMakesTheNotificationIdleAndKeepsOrDropsTheSamples) {
    fill(3, 0, 1000, leak);
    request.starts = {{start + 900 * 60, true}};
    const std::vector<Told> resumed = replay().told;
    EXPECT_TRUE(std::ranges::count(resumed, Told{start + 900 * 60, 3, Happening::onset}) == 1)
        << "the onset comes again with the first cycle";
    request.starts = {{start + 900 * 60, false}};
    const std::vector<Told> fresh = replay().told;
    EXPECT_TRUE(
        std::ranges::none_of(fresh, [](const Told& one) { return std::get<0>(one) >= start + 900 * 60; }));
}

TEST_F(ReplayTest, ThinningTakesEachSoManythCycleAndFitsTheRing) {
    fill(3, 0, 3000, leak);
    request.settings.every = 5;
    replay();
    EXPECT_EQ(progress.cycles, 600);
    EXPECT_EQ(tallies.at(0).link->BufferSize, 57U); // 4.8 h at five minutes
}

TEST_F(ReplayTest, RivalsAreJudgedWhenTheyAreAskedFor) {
    fill(3, 0, 1500, leak);
    EXPECT_EQ(replay().episodes.size(), 1U);
    request.withRivals = true;
    const RecordingReplay told = replay();
    EXPECT_EQ(told.episodes.at({3, 1}).front().outcome, Outcome::reached);
    EXPECT_EQ(told.episodes.at({3, 4}).front().onset, start + 1200 * 60); // 90 %
}

TEST_F(ReplayTest, SamplesAreHandedOverWhenTheyAreAskedFor) {
    fill(3, 0, 300, leak);
    EXPECT_EQ(replay().samples, 0);
    request.withSamples = true;
    EXPECT_EQ(replay().samples, 300);
}

TEST_F(ReplayTest, AClockThatIsPutBackIsReplayedAsItWas) {
    fill(3, 0, 600, leak);
    std::string text = archive();
    cycles.clear();
    fill(3, 300, 900, leak);
    text += archive();
    cycles.clear();
    test::writeFile(request.archives.front(), text);
    replay();
    EXPECT_EQ(progress.cycles, 1200);
    EXPECT_EQ(progress.damagedLines, 0);
}

/// The lines of an archive in the order of its cycles, each at another time.
std::string moved(const std::string& archive, const std::function<std::int64_t(std::int64_t)>& time) {
    std::string text;
    for (std::size_t at = 0; at < archive.size(); at = archive.find('\n', at) + 1)
        text += std::to_string(time(std::stoll(archive.substr(at)))) +
                archive.substr(archive.find(' ', at), archive.find('\n', at) + 1 - archive.find(' ', at));
    return text;
}

TEST_F(ReplayTest, TimesAtTheEdgeOfTheirRangeOverflowNothing) {
    fill(3, 0, 300, [](int i) { return 20.0 + 0.2 * i; }); // an exhaustion lies ahead
    const std::string archived = archive();
    cycles.clear();
    for (const std::int64_t last : {std::numeric_limits<std::int64_t>::max(), std::int64_t{253402300799}}) {
        test::writeFile(request.archives.front(),
                        moved(archived, [&](std::int64_t time) { return last - start - 299 * 60 + time; }));
        replay();
        EXPECT_EQ(progress.damagedLines, last == 253402300799 ? 0 : 300);
        EXPECT_EQ(progress.forecasts, last == 253402300799 ? 101 : 0);
    }
}

TEST_F(ReplayTest, YearsBehind2038AreReplayedLikeAnyOther) {
    fill(3, 0, 1500, leak);
    const std::string archived = archive();
    std::vector<Told> expected = replay().told;
    cycles.clear();
    constexpr std::int64_t later = 2'147'483'647 - start - 900 * 60; // the change is in the middle
    test::writeFile(request.archives.front(),
                    moved(archived, [](std::int64_t time) { return time + later; }));
    for (auto& [time, rid, what] : expected)
        time += later;
    EXPECT_GT(expected.size(), 2U);
    EXPECT_EQ(replay().told, expected);
}

TEST_F(ReplayTest, WithoutForecastHoursOrRingsNothingBreaks) {
    fill(3, 0, 300, leak);
    request.settings = {0, 0, 0, 0};
    replay();
    EXPECT_EQ(progress.unknownSamples, 300) << "there is no ring to be had";
    request.settings = {-1, 0, 48, 1};
    replay();
    EXPECT_EQ(tallies.at(0).link->BufferSize, 300U)
        << "the period that a run chooses puts 300 samples into a window";
}

TEST_F(ReplayTest, ARequestThatIsCutOrHasMoreIsNotUnderstood) {
    request.starts = {{start, true}};
    const std::string whole = requestBytes();
    for (std::size_t size = 0; size < whole.size();
         size += (size < 40 || size > whole.size() - 80) ? std::size_t{1} : std::size_t{97})
        EXPECT_EQ(openReplay(whole.substr(0, size)), 0) << size;
    EXPECT_EQ(openReplay(whole + "x"), 0);
    std::string other = whole;
    other[0] = 99;
    EXPECT_EQ(openReplay(other), 0);
    std::string negative = whole;
    negative.replace(22, 4, "\xff\xff\xff\xff", 4); // the length of the declarations
    EXPECT_EQ(openReplay(negative), 0);
    const std::int32_t number = openReplay(whole);
    EXPECT_GT(number, 0);
    closeReplay(number);
}

TEST_F(ReplayTest, TheDoorGoesOnStepByStepAndForgetsWhatIsClosed) {
    fill(3, 0, 1500, leak);
    test::writeFile(request.archives.front(), archive());
    const std::int32_t number = openReplay(requestBytes());
    const std::int32_t other = openReplay(requestBytes());
    EXPECT_NE(number, other);
    const std::string step = stepReplay(number, 100);
    ASSERT_FALSE(step.empty());
    EXPECT_EQ(step.substr(0, 4), std::string("\1\0\0\0", 4));
    EXPECT_FALSE(summariseReplay(number).empty());
    closeReplay(number);
    closeReplay(number);
    EXPECT_TRUE(stepReplay(number, 100).empty());
    EXPECT_TRUE(summariseReplay(number).empty());
    EXPECT_FALSE(stepReplay(other, 100).empty());
    closeReplay(other);
}

TEST_F(ReplayTest, MemoryThatIsRefusedToAFurtherThreadCostsItsStepAndNeverTheProcess) {
#if LUMETRA_COUNTS_ALLOCATIONS
    fill(3, 0, 1500, leak);
    test::writeFile(request.archives.front(), archive());
    Replay replay(request);
    RecordingReplay sink;
    replay.run(300, sink);
    long refusals = 0;
    for (bool isRefused = true; isRefused; refusals += isRefused ? 1 : 0)
        std::thread([&] {
            allocations = 0;
            firstRefused = lastRefused = refusals + 1;
            try {
                replay.run(1, sink);
            } catch (const std::bad_alloc&) {
            }
            lastRefused = -1;
            isRefused = allocations > refusals;
        }).join();
    EXPECT_GT(refusals, 20) << "the arrays of a forecast";
#else
    GTEST_SKIP() << "a sanitizer owns the allocation functions";
#endif
}

} // namespace
} // namespace obrin
