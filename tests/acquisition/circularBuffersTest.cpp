#include "acquisition/circularBuffers.h"

#include "agent/agentState.h"
#include "tests/support/often.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <atomic>
#include <cmath>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace obrin {
namespace {

/// A chain of links with the RIDs 1, 2, … and the given windows, without the chain's own operations.
class CircularBuffers : public testing::Test {
protected:
    Link& add(double windowHours) {
        links.push_back(std::make_unique<Link>());
        Link& link = *links.back();
        link.RID = static_cast<std::int32_t>(links.size());
        link.WindowSize = windowHours;
        link.pClasp = &clasp;
        link.pPrevLink = clasp.pLastLink;
        (clasp.pLastLink == nullptr ? clasp.pFirstLink : clasp.pLastLink->pNextLink) = &link;
        clasp.pLastLink = &link;
        clasp.MaximumRIDValue = link.RID;
        return link;
    }

    test::CapturedLog log;
    test::TemporaryDirectory directory;
    Clasp clasp;
    std::vector<std::unique_ptr<Link>> links;
};

TEST_F(CircularBuffers, RingOfThreeAfterFivePushesHoldsTheNewestThreeInTheirSlots) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(3.0 / 3600);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    ASSERT_EQ(link.BufferSize, 3U);
    for (int t = 1; t <= 5; ++t)
        pushSample(link, t, 10.0 * t);
    EXPECT_EQ(link.TimeBuffer[0], 4);
    EXPECT_EQ(link.TimeBuffer[1], 5);
    EXPECT_EQ(link.TimeBuffer[2], 3);
    EXPECT_EQ(link.NextSlot, 2U);
    EXPECT_EQ(link.SampleCount, 3U);
    dumponecircularbuffer(&link);
    EXPECT_EQ(log.text(), "0 1 3.000000 30.000000\n1 1 4.000000 40.000000\n2 1 5.000000 50.000000\n");
}

TEST_F(CircularBuffers, RingThatIsNotFullDumpsWhatItHas) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(3.0 / 3600);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    dumponecircularbuffer(&link);
    EXPECT_EQ(log.text(), "");
    pushSample(link, 1, 10);
    pushSample(link, 2, 20);
    dumponecircularbuffer(&link);
    EXPECT_EQ(log.text(), "0 1 1.000000 10.000000\n1 1 2.000000 20.000000\n");
}

TEST_F(CircularBuffers, RingsAreDumpedInChainOrder) {
    clasp.MillisecondsPerSample = 1000;
    Link& first = add(1);
    Link& second = add(1);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    pushSample(second, 2, 20);
    pushSample(first, 1, 10);
    EXPECT_EQ(dumpallcircularbuffers(&clasp), 1);
    EXPECT_EQ(log.text(), "0 1 1.000000 10.000000\n0 2 2.000000 20.000000\n");
}

TEST_F(CircularBuffers, RingAllocatedAnewBeginsAtItsFirstSlotWithZeros) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(3.0 / 3600);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    for (int t = 1; t <= 5; ++t)
        pushSample(link, t, t);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    EXPECT_EQ(link.SampleCount, 0U);
    EXPECT_EQ(link.NextSlot, 0U);
    for (std::uint32_t slot = 0; slot < 3; ++slot)
        EXPECT_EQ(link.ValueBuffer[slot] + link.TimeBuffer[slot], 0.0);
}

TEST_F(CircularBuffers, RingsHoldDoubles) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(1);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    // No float holds either.
    pushSample(link, 1700000001.0, 0.1);
    EXPECT_EQ(link.TimeBuffer[0], 1700000001.0);
    EXPECT_EQ(link.ValueBuffer[0], 0.1);
}

TEST_F(CircularBuffers, WindowOfADaySampledEveryMinuteHolds1440Samples) {
    clasp.MillisecondsPerSample = 60000;
    Link& link = add(24);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    EXPECT_EQ(link.BufferSize, 1440U);
    EXPECT_EQ(link.ValueBuffer[1439], 0.0);
}

TEST_F(CircularBuffers, WindowShorterThanOnePeriodKeepsOneSlot) {
    clasp.MillisecondsPerSample = 60000;
    Link& link = add(0.001);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    EXPECT_EQ(link.BufferSize, 1U);
    pushSample(link, 1, 1);
    pushSample(link, 2, 2);
    EXPECT_EQ(link.TimeBuffer[0], 2);
}

TEST_F(CircularBuffers, ImpossibleSizesAreAnAllocationFailureAndLaterPushesDoNothing) {
    for (const auto& [window, period] : {std::pair{4.8, 0}, {INFINITY, 1000}, {NAN, 1000}, {1e12, 1}}) {
        SCOPED_TRACE(window);
        test::CapturedLog own;
        Clasp single;
        single.MillisecondsPerSample = period;
        Link link;
        link.WindowSize = window;
        single.pFirstLink = single.pLastLink = &link;
        EXPECT_EQ(allocatecircularbuffers(&single), -1);
        EXPECT_EQ(own.text(), "Fatal error in malloc circular buffer\n");
        pushSample(link, 1, 1);
        EXPECT_EQ(link.SampleCount, 0U);
        EXPECT_EQ(dumpallcircularbuffers(&single), 1);
    }
}

TEST_F(CircularBuffers, FailureAtOneLinkLeavesTheLinksFurtherDownAsTheyWere) {
    clasp.MillisecondsPerSample = 1000;
    Link& first = add(1);
    add(INFINITY);
    Link& last = add(1);
    last.BufferSize = 77;
    EXPECT_EQ(allocatecircularbuffers(&clasp), -1);
    EXPECT_EQ(first.BufferSize, 3600U);
    EXPECT_EQ(last.BufferSize, 77U);
    last.BufferSize = 0;
}

TEST_F(CircularBuffers, ReadingTheArchiveBackSkipsUnknownResourcesAndPlacesTheOthers) {
    clasp.MillisecondsPerSample = 1000;
    Link& one = add(1);
    Link& two = add(1);
    clasp.MaximumRIDValue = 9;
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    const test::TurnedClock clock;
    const long now = systemClock().wallTime();
    clasp.HardDriveArchive = directory.path("archive");
    test::writeFile(clasp.HardDriveArchive, std::to_string(now - 20) + " 1 0 10.50 7 0 99.00 2 0 20.25 \n" +
                                                std::to_string(now - 10) + " 7 0 98.00 2 0 21.00 \n");
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
    ASSERT_EQ(one.SampleCount, 1U);
    EXPECT_EQ(one.ValueBuffer[0], 10.5);
    EXPECT_EQ(one.TimeBuffer[0], static_cast<double>(now - 20));
    ASSERT_EQ(two.SampleCount, 2U);
    EXPECT_EQ(two.ValueBuffer[1], 21.0);
}

TEST_F(CircularBuffers, MovingKeepsOrderAndValuesOfARingThatHasTurnedOver) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(3.0 / 3600);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    for (int t = 1; t <= 4; ++t)
        pushSample(link, t, 10.0 * t);
    moveSamples(link, 86400.0);
    dumponecircularbuffer(&link);
    EXPECT_EQ(log.text(),
              "0 1 86402.000000 20.000000\n1 1 86403.000000 30.000000\n2 1 86404.000000 40.000000\n");
}

TEST_F(CircularBuffers, EveryLinkOfANumberGetsItsSamplesBack) {
    clasp.MillisecondsPerSample = 1000;
    Link& one = add(1);
    Link& two = add(1);
    two.RID = one.RID;
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    clasp.HardDriveArchive = directory.path("archive");
    test::writeFile(clasp.HardDriveArchive, std::to_string(std::time(nullptr)) + " 1 0 10.50 \n");
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
    EXPECT_EQ(one.ValueBuffer[0], 10.5);
    EXPECT_EQ(two.ValueBuffer[0], 10.5);
}

TEST_F(CircularBuffers, SamplesAsOldAsTheWindowAreSkipped) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(1);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    const test::TurnedClock clock;
    const long now = systemClock().wallTime();
    clasp.HardDriveArchive = directory.path("archive");
    test::writeFile(clasp.HardDriveArchive, std::to_string(now - 3600) + " 1 0 1.00 \n" +
                                                std::to_string(now - 3599) + " 1 0 2.00 \n");
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
    ASSERT_EQ(link.SampleCount, 1U);
    EXPECT_EQ(link.ValueBuffer[0], 2.0);
}

TEST_F(CircularBuffers, MissingArchiveLeavesTheRingsEmpty) {
    clasp.HardDriveArchive = directory.path("none");
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
}

TEST_F(CircularBuffers, ArchiveCutAtAnyByteGivesOnlySamplesThatWereInIt) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(1);
    const test::TurnedClock clock;
    const long now = systemClock().wallTime();
    const std::string whole =
        std::to_string(now - 2) + " 1 0 41.27 \n" + std::to_string(now - 1) + " 1 0 42.00 \n";
    clasp.HardDriveArchive = directory.path("archive");
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
        test::writeFile(clasp.HardDriveArchive, whole.substr(0, length));
        const std::string before = log.text();
        const int result = refreshcircularbuffers(&clasp);
        const bool told = log.text().size() > before.size();
        EXPECT_EQ(result, told ? -1 : 1) << length;
        EXPECT_LE(link.SampleCount, 2U);
        for (std::uint32_t slot = 0; slot < link.SampleCount; ++slot)
            EXPECT_EQ(link.ValueBuffer[slot], slot == 0 ? 41.27 : 42.0) << length;
    }
    EXPECT_NE(log.text().find("Unexpected EOF in refreshcircularbuffers.\n"), std::string::npos);
}

TEST_F(CircularBuffers, GarbageInTheArchiveEnds) {
    clasp.MillisecondsPerSample = 1000;
    Link& link = add(1);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    const test::TurnedClock clock;
    const long now = systemClock().wallTime();
    clasp.HardDriveArchive = directory.path("archive");
    test::writeFile(clasp.HardDriveArchive,
                    std::string("\0\0x%n y", 7) + "\n" + std::to_string(now) + " 1 0 5.00 \n");
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
    EXPECT_EQ(link.SampleCount, 1U);
    EXPECT_NE(log.text().find("passed over 1 damaged lines\n"), std::string::npos) << log.text();
}

/// An archive beside the rings that are filled from it, and the rings as pushing its samples one by one fills
/// them.
class ReadBack : public CircularBuffers {
protected:
    ReadBack() {
        clasp.MillisecondsPerSample = 1000;
        clasp.HardDriveArchive = directory.path("archive");
    }

    int readBack(const std::string& text) {
        EXPECT_EQ(allocatecircularbuffers(&clasp), 1);
        test::writeFile(clasp.HardDriveArchive, text);
        return refreshcircularbuffers(&clasp);
    }

    /// One line of the same value for each link.
    void line(std::string& text, long time, double value) {
        char triple[64];
        text += std::to_string(time) + " ";
        for (const auto& link : links) {
            std::snprintf(triple, sizeof triple, "%d 0 %.2f ", link->RID, value);
            text += triple;
            if (static_cast<double>(now - time) < link->WindowSize * 3600.0)
                expected[link->RID].emplace_back(static_cast<double>(time), std::stod(triple + 4));
        }
        text += "\n";
    }

    static std::vector<std::pair<double, double>> samples(const Link& link) {
        std::vector<std::pair<double, double>> found;
        for (std::uint32_t i = 0; i < samplesHeld(link); ++i) {
            const std::uint32_t slot = slotOfSample(link, i);
            found.emplace_back(link.TimeBuffer[slot], link.ValueBuffer[slot]);
        }
        return found;
    }

    void expectRings() {
        for (const auto& link : links) {
            auto wanted = expected[link->RID];
            if (wanted.size() > link->BufferSize)
                wanted.erase(wanted.begin(), wanted.end() - link->BufferSize);
            EXPECT_EQ(samples(*link), wanted) << link->RID;
        }
    }

    const test::TurnedClock clock;
    const long now = systemClock().wallTime();
    std::map<std::int32_t, std::vector<std::pair<double, double>>> expected;
};

TEST_F(ReadBack, RingsOfAllWindowsAreAsPushingEachSampleWouldFillThem) {
    for (const double seconds : {100.0, 5.0, 500.0, 30.5})
        add(seconds / 3600);
    std::string text;
    for (long age = 700; age >= 0; age -= 2) // twice the period: the rings stay half empty
        line(text, now - age, 0.37 * static_cast<double>(age));
    for (long age = 2; age >= 0; --age) // and back in time by as little as drift: the smallest overflows
        for (const double value : {1.0, 2.5, 3.0})
            line(text, now - age, value);
    EXPECT_EQ(readBack(text), 1);
    expectRings();
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadBack, OfALargeArchiveOnlyTheEndThatIsYoungEnoughIsRead) {
    clasp.MillisecondsPerSample = 60000;
    for (int i = 0; i < 40; ++i)
        add(24);
    std::string text;
    for (long age = 40000; age > 0; --age)
        line(text, now - age * 60, static_cast<double>(age % 100));
    ASSERT_GT(text.size(), std::size_t{14} << 20);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    test::writeFile(clasp.HardDriveArchive, text);
    std::int64_t most = 0;
    EXPECT_EQ(refreshcircularbuffers(&clasp, false,
                                     [&](std::int64_t, std::int64_t all) {
                                         most = all;
                                         return true;
                                     }),
              1);
    EXPECT_GT(most, 0);
    EXPECT_LE(most, std::int64_t{4} << 20);
    expectRings();
}

TEST_F(ReadBack, AWindowThatReachesFarBackIsReadFromWhereItBegins) {
    clasp.MillisecondsPerSample = 60000;
    for (int i = 0; i < test::often(20, 40); ++i)
        add(24.0 * 20);
    std::string text;
    for (long age = 40000; age > 0; --age)
        line(text, now - age * 60, static_cast<double>(age % 100));
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(samplesHeld(*links.front()), 24U * 60 * 20 - 1);
    expectRings();
}

TEST_F(ReadBack, AFewLinesOfAWrongClockDoNotHideTheYoungOnesBeforeThem) {
    clasp.MillisecondsPerSample = 60000;
    for (int i = 0; i < test::often(20, 40); ++i)
        add(24.0 * 40);
    std::string young;
    for (long age = 30000; age > 0; --age)
        line(young, now - age * 60, static_cast<double>(age % 100));
    std::string old;
    for (long time = 1000; old.size() < 60000; ++time) // after a start in 1970, say
        line(old, time, 77.0);
    // Where the search looks first.
    const std::size_t place = young.rfind('\n', young.size() - (std::size_t{4} << 20) + old.size()) + 1;
    EXPECT_EQ(readBack(young.substr(0, place) + old + young.substr(place)), 1);
    expectRings();
}

TEST_F(ReadBack, TimesAtTheEdgeOfTheirRangeAreOldOrYoungWithoutOverflow) {
    Link& link = add(1);
    const std::string behind = " 1 0 5.00 \n";
    EXPECT_EQ(readBack("-9223372036854775808" + behind), 1);
    EXPECT_EQ(link.SampleCount, 0U);
    EXPECT_EQ(readBack("-99999999999999999999" + behind), 1);
    EXPECT_EQ(link.SampleCount, 0U);
    for (const char* noTime : {"9223372036854775807", "253402300800"}) {
        EXPECT_EQ(readBack(noTime + behind + "9223372036854775807" + behind), 1);
        EXPECT_EQ(link.SampleCount, 0U) << noTime;
    }
    EXPECT_EQ(readBack("253402300799" + behind), 1);
    EXPECT_EQ(link.SampleCount, 1U);
}

/// Times of a ring's samples, relative to now.
std::vector<long> ages(const std::vector<std::pair<double, double>>& samples, long now) {
    std::vector<long> found;
    for (const auto& [time, value] : samples)
        found.push_back(std::lround(time) - now);
    return found;
}

TEST_F(ReadBack, SamplesOfAClockThatWasAheadAreTakenForAsMuchEarlier) {
    Link& link = add(1);
    std::string text;
    line(text, now - 7200, 1); // as old as the window whatever happens
    line(text, now + 7200, 2);
    line(text, now + 7260, 3);
    line(text, now - 60, 4); // the clock was put back before it
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-121, -61, -60}));
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadBack, AnArchiveThatEndsAheadOfTheClockLosesNothingAndTheLogSaysItOnce) {
    Link& link = add(1);
    Link& other = add(1);
    std::string text;
    for (const long ahead : {86400, 86401, 86403})
        line(text, now + ahead, 5);
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-4, -3, -1}));
    EXPECT_EQ(samples(other), samples(link));
    EXPECT_EQ(log.text(),
              "Archive file " + clasp.HardDriveArchive +
                  ": ends 86403 seconds ahead of the clock; its samples are taken for as much earlier\n");
}

TEST_F(ReadBack, WhatLiesAheadByAsLittleAsDriftStaysAsItIs) {
    Link& link = add(1);
    std::string text;
    line(text, now, 1);
    line(text, now + 2, 2);
    EXPECT_EQ(readBack(text), 1);
    expectRings();
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(samplesHeld(link), 2U);
}

TEST_F(ReadBack, AWhileOfAWrongClockMovesNothingOfWhatWasBefore) {
    Link& link = add(1);
    std::string text;
    line(text, now - 6, 1);
    line(text, now - 5, 2);
    line(text, now + 86396, 3); // a day ahead for two cycles
    line(text, now + 86397, 4);
    line(text, now - 2, 5);
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-6, -5, -4, -3, -2}));
}

TEST_F(ReadBack, AWhileOfAClockThatWasFarBehindMovesNothing) {
    Link& link = add(1);
    std::string text;
    line(text, now - 6, 1);
    line(text, 1000, 2);
    line(text, 1001, 3);
    line(text, now - 2, 4);
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-6, -2}));
}

TEST_F(ReadBack, WhatAStepBackMakesOlderThanTheWindowGoes) {
    Link& link = add(1);
    std::string text;
    line(text, now - 3000, 1);
    line(text, now - 600, 2);
    line(text, now - 1800, 3); // put back by 1201
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-3000, -1801, -1800}));
    text.clear();
    line(text, now - 3000, 1);
    line(text, now - 600, 2);
    line(text, now - 3100, 3);
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-3101, -3100}));
    line(text, now - 1, 4);
    line(text, now - 100, 4);
    EXPECT_EQ(readBack(text), 1);
    EXPECT_EQ(ages(samples(link), now), (std::vector<long>{-3101, -3100, -101, -100}));
}

TEST_F(ReadBack, YearsBehind2038AreRead) {
    test::TurnedClock later;
    later.setWallTime(4'000'000'000);
    Link& link = add(1);
    EXPECT_EQ(readBack("3999999998 1 0 5.00 \n3999999999 1 0 6.00 \n"), 1);
    EXPECT_EQ(samples(link),
              (std::vector<std::pair<double, double>>{{3999999998.0, 5.0}, {3999999999.0, 6.0}}));
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadBack, DamageCostsTheRestOfItsLineAndIsCounted) {
    add(1);
    Link& two = add(1);
    const std::string t = std::to_string(now - 5);
    for (const std::string& bad :
         {t + " 1 0 x 2 0 66.00 \n", t + " 1 x 0 2 0 66.00 \n", t + " 1 0 5.0x 2 0 66.00 \n", t + " 1 0 \n",
          t + " 1 \n", t + " 1x0 5.00 2 0 66.00 \n", std::string("garbage\n"), std::string("\0\0\n", 3)}) {
        SCOPED_TRACE(bad);
        test::CapturedLog own;
        EXPECT_EQ(readBack(bad + t + " 2 0 7.25 \n"), 1);
        EXPECT_EQ(samplesHeld(two), 1U);
        EXPECT_EQ(two.ValueBuffer[0], 7.25);
        EXPECT_EQ(samplesHeld(*links.front()), 0U);
        EXPECT_NE(own.text().find(": passed over 1 damaged lines\n"), std::string::npos) << own.text();
    }
}

TEST_F(ReadBack, ATripleThatOnlyBlanksFollowIsCutByTheEndOfTheFile) {
    add(1);
    for (const char* end : {" 1 0 ", " 1 0 \n", " 1 \n \n", " 1 0 4"}) {
        test::CapturedLog own;
        EXPECT_EQ(readBack(std::to_string(now) + end), -1) << end;
        EXPECT_EQ(own.text(), "Unexpected EOF in refreshcircularbuffers.\n") << end;
        EXPECT_EQ(samplesHeld(*links.front()), 0U) << end;
    }
}

TEST_F(ReadBack, LinesAndNumbersOfAnyLengthAreRead) {
    Link& link = add(1);
    std::string text = std::to_string(now - 1);
    for (int i = 0; i < 100000; ++i) // 900 kB
        text += " 1 0 " + std::to_string(i % 100) + ".25";
    EXPECT_EQ(readBack(text + " 1 0 50.50 \n"), 1);
    EXPECT_EQ(samples(link).back().second, 50.5);
    EXPECT_EQ(samples(link).front().second, 1.25);                           // 3599 before it
    const std::string absurd = std::string(std::size_t{3} << 18, '9') + "1"; // which is no number 1 behind it
    const std::string behind = std::to_string(now) + " 1 0 6.00 \n";
    EXPECT_EQ(readBack(std::to_string(now) + " 1 " + absurd + " 4.00 \n" + behind), 1);
    ASSERT_EQ(samplesHeld(link), 2U);
    EXPECT_EQ(link.ValueBuffer[0], 4.0);
    EXPECT_EQ(link.ValueBuffer[1], 6.0);
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadBack, EndsWhenItIsToldToAndKeepsWhatItHas) {
    add(1000);
    std::string text;
    for (long age = 200000; age > 0; --age)
        line(text, now - age, 1);
    ASSERT_GT(text.size(), std::size_t{4} << 20);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    test::writeFile(clasp.HardDriveArchive, text);
    std::vector<std::int64_t> seen;
    const auto stopAtTheThird = [&](std::int64_t read, std::int64_t all) {
        EXPECT_EQ(all, static_cast<std::int64_t>(text.size()));
        seen.push_back(read);
        return seen.size() < 3;
    };
    EXPECT_EQ(refreshcircularbuffers(&clasp, false, stopAtTheThird), 1);
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_LT(seen[0], 100);
    EXPECT_LT(seen[2], static_cast<std::int64_t>(text.size()) * 2 / 3);
    EXPECT_GT(samplesHeld(*links.front()), 0U);
    EXPECT_LT(samplesHeld(*links.front()), 200000U);
    EXPECT_EQ(log.text(), "");
}

TEST_F(ReadBack, OnlyLinksThatAwaitTheirHistoryAreFilledWhenThatIsAskedFor) {
    Link& one = add(1);
    Link& two = add(1);
    two.awaitsHistory = true;
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    std::string text;
    line(text, now - 5, 3.5);
    test::writeFile(clasp.HardDriveArchive, text);
    EXPECT_EQ(refreshcircularbuffers(&clasp, true), 1);
    EXPECT_EQ(samplesHeld(one), 0U);
    EXPECT_EQ(samplesHeld(two), 1U);
}

TEST_F(ReadBack, WhatIsNoFileIsNoHistoryAndIsNotWaitedFor) {
    add(1);
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    ASSERT_EQ(::mkfifo(clasp.HardDriveArchive.c_str(), 0600), 0);
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
    for (const char* other : {"/dev/zero", "/tmp", ""}) {
        clasp.HardDriveArchive = other;
        EXPECT_EQ(refreshcircularbuffers(&clasp), 1) << other;
    }
    EXPECT_EQ(samplesHeld(*links.front()), 0U);
}

TEST_F(ReadBack, ReadersOfARingSeeOnlyWholeSamplesMeanwhile) {
    Link& link = add(1000);
    std::string text;
    for (long age = 100000; age > 0; --age)
        line(text, now - age, static_cast<double>((now - age) % 100));
    ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    test::writeFile(clasp.HardDriveArchive, text);
    std::atomic<bool> over{false};
    auto reader = std::async(std::launch::async, [&] {
        bool whole = true;
        while (!over) {
            MutexLock lock(chainLock);
            if (samplesHeld(link) > 0) {
                const std::uint32_t newest = slotOfSample(link, samplesHeld(link) - 1);
                whole = whole && link.ValueBuffer[newest] ==
                                     static_cast<double>(std::lround(link.TimeBuffer[newest]) % 100);
            }
        }
        return whole;
    });
    EXPECT_EQ(refreshcircularbuffers(&clasp), 1);
    over = true;
    EXPECT_TRUE(reader.get());
    EXPECT_EQ(samplesHeld(link), 100000U);
}

} // namespace
} // namespace obrin
