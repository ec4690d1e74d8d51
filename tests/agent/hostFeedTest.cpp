#include "agent/hostFeed.h"

#include "acquisition/circularBuffers.h"
#include "acquisition/counterReaders.h"
#include "acquisition/instances.h"
#include "agent/agentState.h"
#include "agent/ownScore.h"
#include "prediction/exhaustion.h"
#include "prediction/modelSelection.h"
#include "resources/resourceChain.h"
#include "tests/acquisition/testMachine.h"
#include "tests/support/feedReading.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <atomic>
#include <future>
#include <gmock/gmock.h>
#include <limits>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

namespace obrin::test {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

constexpr std::int64_t neverReached = std::numeric_limits<std::int64_t>::max();

/// A run's record with links that the test adds, and a host that reads.
class HostFeed : public testing::Test {
protected:
    HostFeed() {
        clasp.MillisecondsPerSample = 1000;
        clasp.MaxForecastHours = 1;
        publishChain(&clasp);
        openHostFeed();
    }
    ~HostFeed() override {
        openHostFeed(false);
        ScanUpChainDeletingAllLinks(&clasp);
        publishChain(nullptr);
        TimeStamp = 0;
    }

    static void publishChain(Clasp* chain) {
        MutexLock lock(chainLock);
        pResourceClasp = chain;
    }

    Link single(const char* object) {
        Link link;
        link.ResourceType = 1;
        link.Descriptor0 = object;
        link.Descriptor1 = "1";
        link.Descriptor2 = "Total";
        link.Descriptor3 = "-2";
        link.NameIs = "Display";
        link.RID = ++rid;
        link.WindowSize = 10.0 / 3600;
        link.AnalyticalMethod = 1;
        link.pClasp = &clasp;
        return link;
    }
    Link disk(const char* instance) {
        Link link = single("LogicalDisk");
        link.ResourceType = 2;
        link.Descriptor1 = instance;
        return link;
    }
    Link* add(const Link& link) {
        EXPECT_EQ(CreateLinkInChainAndCopyData(&link), 1);
        return clasp.pLastLink;
    }

    static void push(Link* link, double time, double value) {
        MutexLock lock(chainLock);
        pushSample(*link, time, value);
    }

    /// What a reader gets after a publication.
    FedState published(const CycleReport& report = {}) {
        publishCycle(clasp, report);
        return newest();
    }
    static FedState newest() {
        const Publication bytes = awaitPublication(0, milliseconds(0));
        return bytes == nullptr ? FedState{} : readState(*bytes);
    }

    CapturedLog log;
    TemporaryDirectory directory;
    Clasp clasp;
    std::int32_t rid = 0;
};

TEST_F(HostFeed, NothingIsPublishedWithoutAHost) {
    const std::int64_t before = published().serial;
    openHostFeed(false);
    publishCycle(clasp, {});
    publishEnd();
    EXPECT_EQ(newest().serial, before);
}

TEST_F(HostFeed, AStateHoldsTheCycleAndTheConfiguration) {
    clasp.DataHomeDirectory = "/home/data/";
    clasp.HardDriveArchive = directory.path("archive");
    clasp.ScratchPad = "/home/pad";
    clasp.ResourceText = "/home/resources.txt";
    clasp.IniFile = "../config/AutoConfig.ini";
    clasp.MinForecastHours = 2;
    clasp.MaxForecastHours = 48;
    writeFile(clasp.HardDriveArchive, "seventeen bytes.\n");
    TimeStamp = 1700000000;
    const FedState state = published({7, 0.25, 0.5, 0.125, 50, 2.5});
    EXPECT_EQ(state.version, hostFeedVersion);
    EXPECT_EQ(state.kind, 1);
    EXPECT_EQ(state.cycles, 7);
    EXPECT_EQ(state.time, 1700000000);
    EXPECT_EQ(state.sampling, 0.25);
    EXPECT_EQ(state.forecast, 0.5);
    EXPECT_EQ(state.writing, 0.125);
    EXPECT_EQ(state.total, 2.5);
    EXPECT_EQ(state.archiveBytes, 17);
    EXPECT_THAT(state.files, ElementsAre("/home/data/", clasp.HardDriveArchive, "/home/pad",
                                         "/home/resources.txt", "../config/AutoConfig.ini"));
    EXPECT_THAT(state.numbers, ElementsAre(1000, 2, 48, 50, 200));
    EXPECT_FALSE(state.awaitsDisks);
    EXPECT_THAT(state.leftOut, IsEmpty());
    EXPECT_THAT(state.resources, IsEmpty());
}

TEST_F(HostFeed, WhatTheRunHasResumedWithIsCountedOverTheResourcesThatAreThere) {
    EXPECT_EQ(published().resumedSamples, 0);
    add(single("PercentSwapSpaceUsed"))->resumedSamples = 4000000000U;
    add(single("PercentProcessesUsed"));
    Link* gone = add(disk("/dev/a /a"));
    gone->resumedSamples = 300000000;
    FedState state = published();
    EXPECT_EQ(state.resumedSamples, 4300000000);
    EXPECT_EQ(state.resumedResources, 2);
    takeLinkFromChain(gone);
    state = published();
    EXPECT_EQ(state.resumedSamples, 4000000000);
    EXPECT_EQ(state.resumedResources, 1);
}

TEST_F(HostFeed, AnArchiveThatIsNotThereHasNoSize) {
    clasp.HardDriveArchive = directory.path("none");
    EXPECT_EQ(published().archiveBytes, -1);
}

TEST_F(HostFeed, AResourceHoldsWhatItsLinkHolds) {
    Link link = disk("/dev/my disk /mnt/a b");
    link.Descriptor2 = "PercentFreeSpaceUsed";
    link.NameIs = "Disk \xC3\xA4\xFF";
    link.AnalyticalMethod = 3;
    link.UpperLimitAbs = 50.5;
    link.UpperLimitCalc = 1024.0;
    link.DataArray[0] = 12.345678901234;
    Link* own = add(link);
    own->findings.valueRead = true;
    own->findings.capacityRead = true;
    own->NotifyPending = 1;
    own->NotifyLevel = 56.25F;
    own->HysteresisCount = 4;
    push(own, 1700000000, 12);
    const FedState state = published();
    ASSERT_EQ(state.resources.size(), 1U);
    const FedResource& r = state.resources[0];
    EXPECT_EQ(r.rid, own->RID);
    EXPECT_EQ(r.object, "LogicalDisk");
    EXPECT_EQ(r.instance, "/dev/my disk /mnt/a b");
    EXPECT_EQ(r.instance.substr(static_cast<std::size_t>(r.mountPoint)), "/mnt/a b");
    EXPECT_EQ(r.counter, "PercentFreeSpaceUsed");
    EXPECT_EQ(r.name, "Disk \xC3\xA4\xFF");
    EXPECT_EQ(r.value, 12.345678901234);
    EXPECT_TRUE(r.valueRead);
    EXPECT_EQ(r.capacity, 1024.0);
    EXPECT_TRUE(r.capacityRead);
    EXPECT_EQ(r.ownCapacity, 50.5);
    EXPECT_EQ(r.method, 3);
    EXPECT_EQ(r.lower, 0.0);
    EXPECT_EQ(r.upper, 100.0);
    EXPECT_EQ(r.reached, 0);
    EXPECT_EQ(r.windowHours, 10.0 / 3600);
    EXPECT_EQ(r.slots, 10);
    EXPECT_EQ(r.usable, 1);
    EXPECT_EQ(r.forecastTime, 0);
    EXPECT_EQ(r.model, "");
    EXPECT_EQ(r.hours, -1.0);
    EXPECT_TRUE(r.pending);
    EXPECT_EQ(r.level, 56.25);
    EXPECT_EQ(r.patience, 4);
}

TEST_F(HostFeed, MoreSlotsThanANumberHoldsAreItsLargest) {
    Link* link = add(single("PercentSwapSpaceUsed"));
    link->BufferSize = 3000000000U;
    EXPECT_EQ(published().resources.at(0).slots, std::numeric_limits<std::int32_t>::max());
}

TEST_F(HostFeed, LimitsThatAreReachedAreSaidAsTheForecastSeesThem) {
    struct Case {
        std::int32_t method;
        double value;
        std::int32_t reached;
    };
    for (const Case& c : {Case{1, 99.94, 0}, Case{1, 99.96, 2}, Case{2, 0.01, 0}, Case{2, 0.0, 1},
                          Case{2, 100.0, 0}, Case{3, -0.5, 1}, Case{3, 100.0, 2}, Case{0, 100.0, 0}}) {
        Link link = single("PercentSwapSpaceUsed");
        link.AnalyticalMethod = c.method;
        link.DataArray[0] = c.value;
        add(link);
        EXPECT_EQ(published().resources.back().reached, c.reached) << c.method << " " << c.value;
    }
}

TEST_F(HostFeed, TemplatesAreNoResourcesAndOnlyDisksHaveMountPoints) {
    Link pattern = disk("-1");
    pattern.Descriptor3 = "-1";
    add(pattern);
    Link odd = single("PercentSwapSpaceUsed");
    odd.Descriptor1 = "no disk /at all";
    add(odd);
    const FedState state = published();
    ASSERT_EQ(state.resources.size(), 1U);
    EXPECT_EQ(state.resources[0].mountPoint, -1);
}

TEST_F(HostFeed, ADiskWhoseNameHoldsNoMountPointHasNone) {
    add(disk("_Total"));
    EXPECT_EQ(published().resources.at(0).mountPoint, -1);
}

TEST_F(HostFeed, WhatIsLeftOutIsSaidWithItsReason) {
    clasp.ResourceText = "/home/resources.txt";
    clasp.declarationLoss = "an argument in it was cut";
    Link* link = add(single("PercentSwapSpaceUsed"));
    link->BufferSize = 0;
    EXPECT_THAT(published().leftOut,
                ElementsAre(FedLeftOut{"/home/resources.txt", "an argument in it was cut", 0, ""},
                            FedLeftOut{"Display", "there is no memory for its samples, so it is not forecast",
                                       0, ""}));
}

TEST_F(HostFeed, ADiskThatARuleLeavesOutIsSaidWithItsKindAndTheRule) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'tmpfs 1 2 3 4% /run'; echo '/dev/loop0 1 2 0 100% /snap'\n");
    systemPaths().mountInfo = machine.path("mountinfo");
    writeFile(systemPaths().mountInfo, "1 0 0:5 / /run rw - tmpfs tmpfs rw\n"
                                       "2 0 7:0 / /snap ro - squashfs /dev/loop0 ro\n");
    setSkipRules(SkipRules{{LeftOutKind::type, "tmpfs", "fstype tmpfs", {}}});
    beginInstanceRun();
    std::vector<DiskName> names;
    EXPECT_EQ(Retrievedisks(2, &names), 0);
    EXPECT_THAT(
        published().leftOut,
        ElementsAre(FedLeftOut{"tmpfs /run", "the rule \"fstype tmpfs\" leaves it out", 3, "fstype tmpfs"},
                    FedLeftOut{"/dev/loop0 /snap", "a file system of the type squashfs is full by its nature",
                               1, "squashfs"}));
    setSkipRules(std::nullopt);
}

TEST_F(HostFeed, AResourceSaysWhyItIsWatched) {
    add(single("PercentSwapSpaceUsed"));
    add(disk("/dev/sda1 /"));
    add(disk("/dev/sdb1 /srv"));
    beginInstanceRun();
    nameDisk("/dev/sdb1 /srv");
    const FedState state = published();
    beginInstanceRun();
    ASSERT_EQ(state.resources.size(), 3U);
    EXPECT_EQ(state.resources[0].watched, 0);
    EXPECT_EQ(state.resources[1].watched, 1);
    EXPECT_EQ(state.resources[2].watched, 2);
}

TEST_F(HostFeed, TheEndOfTheRunIsAPublicationWithoutAState) {
    const std::int64_t before = published({9}).serial;
    publishEnd();
    const FedState end = newest();
    EXPECT_EQ(end.version, hostFeedVersion);
    EXPECT_EQ(end.kind, 2);
    EXPECT_EQ(end.cycles, 9);
    EXPECT_GT(end.serial, before);
    publishEnd(); // of a run that never began
    EXPECT_EQ(newest().cycles, 0);
}

TEST_F(HostFeed, AwaitGivesTheNewestOfSeveralAtOnce) {
    const std::int64_t first = published({1}).serial;
    published({2});
    published({3});
    const Publication bytes = awaitPublication(first, milliseconds(neverReached / 1000000000));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(readState(*bytes).cycles, 3);
}

TEST_F(HostFeed, TheEndHidesTheLastCycleFromNoReader) {
    const auto next = [](std::int64_t after) {
        const Publication bytes = awaitPublication(after, milliseconds(0));
        return bytes == nullptr ? FedState{} : readState(*bytes);
    };
    const std::int64_t first = published({1}).serial;
    published({2});
    published({3});
    publishEnd();
    EXPECT_EQ(next(first).serial, first + 2) << "the last cycle";
    EXPECT_EQ(next(first + 1).kind, 1);
    EXPECT_EQ(next(first + 2).kind, 2);
    EXPECT_EQ(next(first + 3).serial, 0) << "nothing";
    EXPECT_EQ(next(0).kind, 2) << "what was there before a reader came";
    publishEnd(); // of a run that never began
    EXPECT_EQ(next(first).serial, first + 4);
    published({1});
    EXPECT_EQ(next(first).serial, first + 5) << "another run";
}

TEST_F(HostFeed, AwaitComesBackEmptyWhenItsTimeIsOver) {
    TurnedClock clock;
    const std::int64_t serial = published().serial;
    EXPECT_EQ(awaitPublication(serial, std::chrono::seconds(30)), nullptr);
    EXPECT_THAT(clock.sleeps(), ElementsAre(std::chrono::seconds(30)));
}

TEST_F(HostFeed, AwaitIsWokenByAPublicationAndByTheEnd) {
    const std::int64_t serial = published().serial;
    auto waiting =
        std::async(std::launch::async, [&] { return awaitPublication(serial, std::chrono::hours(20)); });
    publishCycle(clasp, {5});
    const Publication state = waiting.get();
    ASSERT_NE(state, nullptr);
    auto again = std::async(std::launch::async,
                            [after = serial + 1] { return awaitPublication(after, std::chrono::hours(20)); });
    publishEnd();
    ASSERT_NE(again.get(), nullptr);
}

TEST_F(HostFeed, AReaderKeepsWhatItHasWhateverComesAfter) {
    publishCycle(clasp, {5});
    const Publication held = awaitPublication(0, milliseconds(0));
    publishCycle(clasp, {6});
    publishEnd();
    EXPECT_EQ(readState(*held).cycles, 5);
}

TEST_F(HostFeed, TenThousandResourcesTakeLessThanEightMegabytes) {
    Link link = disk("");
    for (int i = 0; i < 10000; ++i) {
        link.Descriptor1.assign("/dev/mapper/data--volume--group-logical--volume--" + std::to_string(i) +
                                " /var/lib/containers/storage/overlay/" + std::string(64, 'f') +
                                std::to_string(i));
        link.Descriptor2 = "PercentFreeInodesUsed";
        link.NameIs = "Percent of the inodes of a file system in use";
        link.RID = i + 1;
        link.WindowSize = 0.0;
        Link* own = add(link);
        own->findings.model.assign(model5);
    }
    publishCycle(clasp, {});
    const Publication bytes = awaitPublication(0, milliseconds(0));
    EXPECT_EQ(readState(*bytes).resources.size(), 10000U);
    EXPECT_LT(bytes->size(), 8U * 1024 * 1024);
}

TEST_F(HostFeed, CurvesAreTheRingFromTheOldestOnWithoutWhatStandsForNone) {
    Link* link = add(single("PercentSwapSpaceUsed"));
    for (int i = 0; i < 12; ++i)
        push(link, 1700000000.0 + i, i == 5 ? -1.0 : i + 0.123456789);
    const auto bytes = curvesOf(link->RID);
    ASSERT_TRUE(bytes);
    const FedCurves curves = readCurves(*bytes);
    ASSERT_EQ(curves.samples.size(), 9U);
    EXPECT_THAT(curves.samples.front(), Pair(1700000002.0, 2.123456789));
    EXPECT_THAT(curves.samples[3], Pair(1700000006.0, 6.123456789));
    EXPECT_THAT(curves.samples.back(), Pair(1700000011.0, 11.123456789));
    EXPECT_EQ(curves.forecastTime, 0);
    EXPECT_THAT(curves.forecast, IsEmpty());
}

/// A cycle of a link: its value, and how far away its exhaustion is (0: none is in sight).
void foresee(Link* link, std::int32_t time, double value, double hours, bool eventDue = false) {
    TimeStamp = time;
    link->DataArray[0] = value;
    link->NotifyPending = hours > 0 ? 1 : 0;
    link->findings.forecastTime = time;
    link->findings.hoursToExhaustion = hours;
    link->findings.eventDue = eventDue;
}

TEST_F(HostFeed, AnEpisodeIsPublishedWhileItIsOnAndOnceItHasEnded) {
    Link* link = add(disk("/dev/a /a"));
    push(link, 1000, 50);
    published();
    const std::int64_t before = endedEpisodes().empty() ? 0 : endedEpisodes().back().number;
    foresee(link, 1000, 50, 2);
    FedState state = published({1});
    EXPECT_EQ(state.resources[0].episodeSince, 1000);
    foresee(link, 1060, 60, 1.5, true);
    published({2});
    foresee(link, 1120, 99.99, 1);
    state = published({3});
    EXPECT_EQ(state.resources[0].episodeSince, 0);
    const FedEnded& ended = state.ended.back();
    EXPECT_EQ(ended.number, before + 1);
    EXPECT_EQ(ended.rid, link->RID);
    EXPECT_EQ(ended.name, "Display");
    EXPECT_EQ(ended.instance, "/dev/a /a");
    EXPECT_EQ(ended.episode.rule, 0);
    EXPECT_EQ(ended.episode.onset, 1000);
    EXPECT_EQ(ended.episode.firstEvent, 1060);
    EXPECT_EQ(ended.episode.end, 1120);
    EXPECT_EQ(ended.episode.outcome, 1);
    EXPECT_EQ(ended.episode.announcedAtOnset, 1000 + 7200);
    EXPECT_EQ(ended.episode.announcedAtEvent, 1060 + 5400);
    EXPECT_EQ(ended.episode.onsetValue, 50.0);
    EXPECT_EQ(ended.episode.highest, 99.99);
    EXPECT_EQ(ended.episode.errors.size(), 5U);
    EXPECT_EQ(published({4}).ended.back().number, before + 1) << "it stays, for a reader that missed it";
}

TEST_F(HostFeed, AStepOfTheClockIsPublishedAndMovesTheEpisodesAndTheAnnouncements) {
    TurnedClock clock;
    clasp.clockSteps.look(clasp.MillisecondsPerSample);
    Link* link = add(disk("/dev/a /a"));
    push(link, 1000, 50);
    EXPECT_EQ(published().clockSteps, 0);
    foresee(link, 1000, 50, 2, true);
    published({1});
    clock.setWallTime(systemClock().wallTime() + 86400);
    clasp.clockSteps.look(clasp.MillisecondsPerSample);
    foresee(link, 86400 + 1300, 51, 1);
    for (int cycle = 2; cycle < 4; ++cycle) {
        const FedState state = published({cycle});
        EXPECT_EQ(state.clockSteps, 86400);
        EXPECT_EQ(state.resources[0].episodeSince, 86400 + 1000) << "moved once";
    }
    EXPECT_THAT(readCurves(*curvesOf(link->RID)).announcements,
                ElementsAre(Pair(86400 + 1000, 86400 + 8200), Pair(86400 + 1300, 86400 + 4900)));
    foresee(link, 86400 + 1360, 99.99, 1);
    const FedEnded ended = published({4}).ended.back();
    EXPECT_EQ(ended.episode.onset, 86400 + 1000);
    EXPECT_EQ(ended.episode.firstEvent, 86400 + 1000);
    EXPECT_EQ(ended.episode.announcedAtOnset, 86400 + 8200);
    EXPECT_EQ(ended.episode.end, 86400 + 1360);
}

TEST_F(HostFeed, TimesBehind2038ArePublishedWhole) {
    Link* link = add(disk("/dev/a /a"));
    TimeStamp = 4102444800;
    link->findings.forecastTime = 4102444800;
    link->findings.forecast = allocateZeroed<float>(forecastPoints);
    push(link, 4102444800.0, 5);
    const FedState state = published();
    EXPECT_EQ(state.time, 4102444800);
    EXPECT_EQ(state.resources[0].forecastTime, 4102444800);
    const FedCurves curves = readCurves(*curvesOf(link->RID));
    EXPECT_EQ(curves.forecastTime, 4102444800);
    EXPECT_THAT(curves.samples, ElementsAre(Pair(4102444800.0, 5.0)));
}

TEST_F(HostFeed, AForecastOfAnEarlierCycleAnnouncesNothing) {
    Link* link = add(disk("/dev/a /a"));
    push(link, 1000, 50);
    published();
    foresee(link, 1000, 50, 2, true);
    TimeStamp = 1060; // this cycle could make none
    EXPECT_EQ(published({1}).resources[0].episodeSince, 1060);
    const auto bytes = curvesOf(link->RID);
    ASSERT_TRUE(bytes);
    EXPECT_THAT(readCurves(*bytes).announcements, IsEmpty());
}

TEST_F(HostFeed, CurvesHaveTheAnnouncementsOfTheLastDay) {
    Link* link = add(disk("/dev/a /a"));
    push(link, 1000, 50);
    published();
    foresee(link, 1000, 50, 2);
    published({1});
    foresee(link, 1300, 51, 1);
    published({2});
    EXPECT_THAT(readCurves(*curvesOf(link->RID)).announcements,
                ElementsAre(Pair(1000, 8200), Pair(1300, 4900)));
    published(); // a run begins
    EXPECT_THAT(readCurves(*curvesOf(link->RID)).announcements, IsEmpty());
}

TEST_F(HostFeed, OfTheEpisodesThatEndedTheNewestAreKept) {
    Link* link = add(disk("/dev/a /a"));
    push(link, 1000, 50);
    published();
    const std::int64_t before = endedEpisodes().empty() ? 0 : endedEpisodes().back().number;
    for (std::int32_t i = 0; i < 100; ++i) {
        foresee(link, 1000 + 120 * i, 50, 2);
        published({1});
        foresee(link, 1060 + 120 * i, 50, 0);
        published({1});
    }
    const FedState state = newest();
    ASSERT_EQ(state.ended.size(), endedEpisodesKept);
    EXPECT_EQ(state.ended.back().number, before + 100);
    EXPECT_EQ(state.ended.front().number, before + 37);
}

TEST_F(HostFeed, EpisodesThatEndTogetherAreAllPublishedHoweverMany) {
    constexpr std::int32_t many = 140;
    std::vector<Link*> links;
    for (std::int32_t i = 0; i < many; ++i) {
        links.push_back(add(disk("/dev/a /a")));
        push(links.back(), 1000, 50);
    }
    std::int64_t cycle = 0;
    const auto publishAt = [&](std::int32_t time, double hours) {
        for (Link* link : links)
            foresee(link, time, 50, hours);
        return published({++cycle});
    };
    published();
    const std::int64_t before = endedEpisodes().empty() ? 0 : endedEpisodes().back().number;
    const auto numbers = [&](const FedState& state) {
        std::vector<std::int64_t> found;
        for (const FedEnded& one : state.ended)
            if (one.number > before)
                found.push_back(one.number - before);
        return found;
    };
    std::vector<std::int64_t> all(many);
    std::iota(all.begin(), all.end(), 1);
    publishAt(1060, 2);
    EXPECT_EQ(numbers(publishAt(1120, 0)), all);
    for (std::int32_t later = 1; later < endedCyclesKept; ++later)
        EXPECT_EQ(numbers(publishAt(1120 + 60 * later, 0)), all) << "for a reader that missed it";
    const FedState state = publishAt(3000, 0);
    ASSERT_EQ(state.ended.size(), endedEpisodesKept);
    EXPECT_EQ(state.ended.back().number, before + many);
}

TEST_F(HostFeed, ADiskThatIsGoneTakesItsOpenEpisodeWithIt) {
    Link* link = add(disk("/dev/a /a"));
    push(link, 1000, 50);
    published();
    foresee(link, 1000, 50, 2);
    published({1});
    const std::int32_t number = link->RID;
    DeleteType2Resource(takeLinkFromChain(link));
    published({2});
    EXPECT_EQ(openEpisodeOf(number), 0);
}

TEST_F(HostFeed, CurvesOfATemplateOfNobodyOrWithoutARunAreNone) {
    Link pattern = disk("-1");
    pattern.Descriptor3 = "-1";
    add(pattern);
    EXPECT_FALSE(curvesOf(pattern.RID));
    EXPECT_FALSE(curvesOf(4711));
    Link* link = add(single("PercentSwapSpaceUsed"));
    EXPECT_TRUE(curvesOf(link->RID));
    publishChain(nullptr);
    EXPECT_FALSE(curvesOf(link->RID));
    publishChain(&clasp);
}

TEST(HostFeedCounters, EachRowOfTheTableIsDescribed) {
    const FedCounters found = readCounters(describeCounters());
    EXPECT_THAT(
        found.counters,
        ElementsAre(
            FedRow{"PercentProcessesUsed", "", "Process slots", "tasks", "0", "whole",
                   "tasks: the smaller of what the kernel allows and what the memory is good for", "", ""},
            FedRow{"PercentSwapSpaceUsed", "", "Swap", "", "1024", "", "swap space",
                   "this machine has no swap space", "absent"},
            FedRow{"PercentFileDescriptorsUsed", "", "File descriptors", "descriptors", "0", "whole",
                   "open files that the kernel allows", "", ""},
            FedRow{"LogicalDisk", "PercentFreeSpaceUsed", "space", "", "1024", "",
                   "space of the file system that is not kept for the superuser",
                   "counts no space of its own, always reads as full", ""},
            FedRow{"LogicalDisk", "PercentFreeInodesUsed", "inodes", "inodes", "0", "",
                   "inodes of the file system", "counts no inodes of its own, always reads as full", ""}));
    EXPECT_THAT(found.reports,
                ElementsAre(FedRow{"PercentFileDescriptorsUsed", "descriptors", "descriptors"},
                            FedRow{"PercentSwapSpaceUsed", "residentMegabytes", "MB resident"},
                            FedRow{"PercentProcessesUsed", "childProcesses", "child processes"}));
}

/// A link whose values rise from 10 by 0.1 each second, forecast at the newest of them.
class HostFeedForecast : public HostFeed {
protected:
    HostFeedForecast() {
        clasp.DataHomeDirectory = directory.path("");
        Link pattern = single("PercentSwapSpaceUsed");
        pattern.WindowSize = 300.0 / 3600;
        link = add(pattern);
        for (int i = 0; i < 200; ++i) {
            const double value = 10.0 + 0.1 * i;
            push(link, start + i, value);
            x.push_back(static_cast<float>(i));
            y.push_back(static_cast<float>(value));
        }
        TimeStamp = start + 199;
        link->DataArray[0] = 29.9;
        const PredictionParameters parameters;
        std::int32_t valid = 0;
        predict_exhaustion(link, 200, x.data(), y.data(), -1.0F, 100.0F, 0.0F, 3600.0F, &parameters, &valid,
                           nullptr);
        EXPECT_EQ(valid, 1);
    }

    static constexpr std::int32_t start = 1700000000;
    Link* link = nullptr;
    std::vector<float> x;
    std::vector<float> y;
};

TEST_F(HostFeedForecast, IsPublishedWithItsModelItsTimeAndItsEnd) {
    const FedState state = published();
    const FedResource& r = state.resources.at(0);
    EXPECT_EQ(r.forecastTime, start + 199);
    EXPECT_EQ(r.model, model0);
    EXPECT_NEAR(r.hours * 3600, 701, 20);
    EXPECT_TRUE(r.pending);
    EXPECT_NEAR(r.level, 64.95, 0.001);
}

TEST_F(HostFeedForecast, ItsCurveIsOnTheGridInTheTimeOfTheSamples) {
    const FedCurves curves = readCurves(curvesOf(link->RID).value());
    EXPECT_EQ(curves.forecastTime, start + 199);
    EXPECT_EQ(curves.model, model0);
    EXPECT_NEAR(curves.hours * 3600, 701, 20);
    EXPECT_NEAR(curves.level, 64.95, 0.001);
    ASSERT_EQ(curves.forecast.size(), 200U);
    EXPECT_EQ(curves.forecast.front().first, start);
    EXPECT_NEAR(curves.forecast.front().second, 10.0, 0.01);
    EXPECT_NEAR(curves.forecast.back().first, start + 3600.0, 0.05);
    EXPECT_EQ(curves.forecast.back().second, 100.0) << "held inside the picture";
    EXPECT_EQ(curves.samples.size(), 200U);
}

TEST_F(HostFeedForecast, SamplesOfTheCycleInHandWaitForItsForecast) {
    push(link, start + 200, 55.0);
    const FedCurves curves = readCurves(curvesOf(link->RID).value());
    EXPECT_EQ(curves.samples.back().first, start + 199);
}

TEST_F(HostFeedForecast, ASeriesThatCannotBeForecastKeepsTheForecastBefore) {
    const PredictionParameters parameters;
    std::int32_t valid = 1;
    TimeStamp = start + 500;
    predict_exhaustion(link, 10, x.data(), y.data(), -1.0F, 100.0F, 0.0F, 3600.0F, &parameters, &valid,
                       nullptr);
    EXPECT_EQ(valid, 0);
    EXPECT_EQ(published().resources.at(0).forecastTime, start + 199);
}

TEST_F(HostFeedForecast, ACopyOfItsLinkBeginsWithoutOne) {
    std::unique_ptr<Link> copy;
    ASSERT_EQ(CreateAndCopyType2Resource(&copy, link), 1);
    EXPECT_EQ(copy->findings.forecastTime, 0);
    EXPECT_EQ(copy->findings.forecast, nullptr);
}

TEST_F(HostFeedForecast, ReadersOnOtherThreadsSeeWholeStatesAndHoldUpNobody) {
    const std::int64_t before = published().serial;
    std::atomic<bool> over{false};
    std::vector<std::future<bool>> readers;
    for (int i = 0; i < 2; ++i)
        readers.push_back(std::async(std::launch::async, [&] {
            bool whole = true;
            std::int64_t serial = before;
            std::int64_t cycles = 0;
            while (!over) {
                const Publication bytes = awaitPublication(serial, std::chrono::hours(1));
                const FedState state = bytes == nullptr ? FedState{} : readState(*bytes);
                whole = whole && (state.kind == 2 || (state.cycles > cycles && state.time == state.cycles));
                serial = state.serial;
                cycles = state.kind == 2 ? 0 : state.cycles; // the end may be that of a run before
                const auto curves = curvesOf(1);
                whole = whole && curves && !readCurves(*curves).samples.empty();
            }
            return whole;
        }));
    for (std::int32_t cycle = 1; cycle <= 200; ++cycle) {
        TimeStamp = cycle;
        push(link, start + 200 + cycle, cycle);
        publishCycle(clasp, {cycle});
    }
    over = true;
    publishEnd();
    for (auto& reader : readers)
        EXPECT_TRUE(reader.get());
}

} // namespace
} // namespace obrin::test
