#include "acquisition/archiveResume.h"

#include "resources/resourceChain.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <gtest/gtest.h>

namespace obrin::test {
namespace {

/// A run that resumes, with links of the numbers 1 and 2 that await what the archive has of them.
class ArchiveResume : public testing::Test {
protected:
    ArchiveResume() {
        clasp.MillisecondsPerSample = 1000;
        clasp.HardDriveArchive = directory.path("archive");
        clasp.resumes = true;
        one = add(1);
        two = add(2);
    }
    ~ArchiveResume() override { ScanUpChainDeletingAllLinks(&clasp); }

    Link* add(std::int32_t rid) {
        Link link;
        link.ResourceType = 1;
        link.RID = rid;
        link.WindowSize = 1;
        link.pClasp = &clasp;
        link.awaitsHistory = true;
        EXPECT_EQ(CreateLinkInChainAndCopyData(&link), 1);
        return clasp.pLastLink;
    }

    void archive(const std::string& triples) {
        writeFile(clasp.HardDriveArchive, readFile(clasp.HardDriveArchive) +
                                              std::to_string(++age + systemClock().wallTime()) + triples);
    }

    static bool always(std::int64_t, std::int64_t) { return true; }

    TurnedClock clock;
    CapturedLog log;
    TemporaryDirectory directory;
    Clasp clasp;
    Link* one = nullptr;
    Link* two = nullptr;
    long age = -100;
};

TEST_F(ArchiveResume, FillsTheRingsAndTellsWithHowMuch) {
    archive(" 1 0 1.50 2 0 2.50 9 0 9.00 \n");
    archive(" 1 0 1.75 \n");
    resumeRings(&clasp, always);
    EXPECT_EQ(one->ValueBuffer[1], 1.75);
    EXPECT_EQ(one->resumedSamples, 2U);
    EXPECT_EQ(two->resumedSamples, 1U);
    EXPECT_EQ(log.text(), "Resumed with 3 samples of 2 resources from " + clasp.HardDriveArchive + "\n");
}

TEST_F(ArchiveResume, IsNothingInARunThatDoesNotResume) {
    clasp.resumes = false;
    archive(" 1 0 1.50 2 0 2.50 \n");
    resumeRings(&clasp, always);
    EXPECT_EQ(samplesHeld(*one) + samplesHeld(*two), 0U);
    EXPECT_EQ(log.text(), "");
}

TEST_F(ArchiveResume, ANumberThatIsNewIsNotFilledWhateverTheArchiveHasOfIt) {
    one->awaitsHistory = false;
    archive(" 1 0 1.50 2 0 2.50 \n");
    resumeRings(&clasp, always);
    EXPECT_EQ(samplesHeld(*one), 0U);
    EXPECT_EQ(one->resumedSamples, 0U);
    EXPECT_EQ(samplesHeld(*two), 1U);
}

TEST_F(ArchiveResume, NoRingIsTriedTwiceSoThatACycleWithoutANewLinkReadsNothing) {
    resumeRings(&clasp, always); // without an archive
    archive(" 1 0 1.50 2 0 2.50 \n");
    const std::string before = log.text();
    int readings = 0;
    const auto count = [&](std::int64_t, std::int64_t) {
        ++readings;
        return true;
    };
    resumeRings(&clasp, count);
    EXPECT_EQ(readings, 0);
    EXPECT_EQ(log.text(), before);
    const Link* three = add(3);
    archive(" 1 0 1.50 3 0 3.50 \n");
    resumeRings(&clasp, count);
    EXPECT_EQ(readings, 1);
    EXPECT_EQ(samplesHeld(*three), 1U);
    EXPECT_EQ(samplesHeld(*one), 0U);
}

TEST_F(ArchiveResume, ACopyOfALinkAwaitsWhatTheLinkAwaitsAndHasResumedWithNothing) {
    one->resumedSamples = 5;
    std::unique_ptr<Link> copy;
    ASSERT_EQ(CreateAndCopyType2Resource(&copy, one), 1);
    EXPECT_TRUE(copy->awaitsHistory);
    EXPECT_EQ(copy->resumedSamples, 0U);
}

TEST_F(ArchiveResume, ATornEndCostsNothingOfWhatIsBeforeIt) {
    archive(" 1 0 1.50 2 0 2");
    resumeRings(&clasp, always);
    EXPECT_EQ(samplesHeld(*one), 1U);
    EXPECT_EQ(samplesHeld(*two), 0U);
    EXPECT_EQ(log.text(),
              "Unexpected EOF in refreshcircularbuffers.\nResumed with 1 samples of 1 resources from " +
                  clasp.HardDriveArchive + "\n");
}

} // namespace
} // namespace obrin::test
