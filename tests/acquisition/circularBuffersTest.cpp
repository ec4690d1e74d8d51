#include "acquisition/circularBuffers.h"

#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <cmath>
#include <gtest/gtest.h>
#include <memory>
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
}

} // namespace
} // namespace obrin
