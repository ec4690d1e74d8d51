#include "acquisition/archiveResume.h"

#include "resources/resourceChain.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"
#include "tests/support/watchedReads.h"

#include <cerrno>
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

class ArchivedNumbers : public ArchiveResume {
protected:
    std::int32_t kept(const std::string& text) {
        writeFile(clasp.HardDriveArchive, text);
        clasp.MaximumRIDValue = 2;
        keepArchivedNumbers(&clasp);
        return clasp.MaximumRIDValue;
    }
};

TEST_F(ArchivedNumbers, TheHighestOfTheNewestLinesIsNotGivenAgain) {
    EXPECT_EQ(kept("1700000000 1 0 1.00 7 0 2.00 9 0 3.00 \n1700000001 1 0 1.00 7 0 2.00 \n"), 9);
    EXPECT_EQ(kept("1700000000 1 0 1.00 \n"), 2) << "the scratch pad knows of a higher one";
    EXPECT_EQ(kept("1700000000 \n"), 2);
    EXPECT_EQ(kept("3000000000 7 0 1.00 \n"), 7) << "behind 2038";
    EXPECT_EQ(kept(""), 2);
    Link link;
    link.pClasp = &clasp;
    kept("1700000000 1 0 1.00 7 0 2.00 \n");
    EXPECT_EQ(GenerateNewRID(&link), 1);
    EXPECT_EQ(link.RID, 8);
}

TEST_F(ArchivedNumbers, WithoutAnArchiveThereAreNone) {
    clasp.MaximumRIDValue = 2;
    keepArchivedNumbers(&clasp);
    EXPECT_EQ(clasp.MaximumRIDValue, 2);
    clasp.HardDriveArchive = "/dev/zero";
    keepArchivedNumbers(&clasp);
    EXPECT_EQ(clasp.MaximumRIDValue, 2);
}

TEST_F(ArchivedNumbers, ADamagedLineClaimsNone) {
    for (const std::string bad :
         {"1700000000 99 0 1.00 7 0 1.00 \n", // descending
          "1700000000 99 1 1.00 \n", "1700000000 99 0 1.00x \n", "1700000000 99 0 x \n", "1700000000 99 0 \n",
          "1700000000 99 \n", "3000000000 2147483647 0 1.00 \n", "1700000000 x 99 0 1.00 \n",
          "x 99 0 1.00 \n", "99 0 1.00 \n", "50 99 0 1.00 \n", "1700000000 2147483647 0 1.00 \n",
          "1700000000 1699999999999 0 1.00 \n", "1700000000 -99 0 1.00 \n", "1700000000 99 0 1.00 ",
          "1700000000 99 0 1.00 1700000001 3 0 1.00 \n"})
        EXPECT_EQ(kept("1700000000 5 0 1.00 \n" + std::string(bad)), 5) << bad;
}

TEST_F(ArchivedNumbers, TheLastLineCountsHoweverLongItIs) {
    std::string text = "1700000000";
    for (int i = 1; i <= 150000; ++i) // nearly two megabytes
        text += " " + std::to_string(i) + " 0 1.00";
    ASSERT_GT(text.size(), std::size_t{3} << 19);
    EXPECT_EQ(kept(text + " \n"), 150000);
    for (const std::string torn : {"1700000001 3 0", "1700000001 3 0 1.00 "})
        EXPECT_EQ(kept(text + " \n" + torn), 150000) << "a torn line behind it is none";
}

TEST_F(ArchivedNumbers, AnArchiveThatCannotBeReadIsReadOnceMoreAndThenLogged) {
    const std::string seven = "1700000000 7 0 1.00 \n";
    int failures = 1;
    const WatchedReads reads([&] { return failures-- > 0 ? EIO : 0; });
    EXPECT_EQ(kept(seven), 7);
    EXPECT_EQ(log.text(), "");
    failures = 2;
    EXPECT_EQ(kept(seven), 2);
    EXPECT_EQ(log.text(), "Archive file " + clasp.HardDriveArchive +
                              ": its numbers cannot be read: Input/output error\n");
}

TEST_F(ArchivedNumbers, NothingIsLookedForBeforeAnEndThatIsTooLongForALine) {
    const std::string line = "1700000000 7 0 1.00 \n";
    EXPECT_EQ(kept(line + std::string(std::size_t{12} << 20, 'x')), 7);
    EXPECT_EQ(kept(line + std::string(std::size_t{16} << 20, 'x')), 2);
}

TEST_F(ArchivedNumbers, OfALargeArchiveTheLastMebibyteCounts) {
    const std::string five = "1700000000 5 0 1.00 \n";
    std::string text = "1700000000 99 0 1.00 \n";
    for (std::size_t size = 0; size < (std::size_t{1} << 20); size += five.size())
        text += five;
    EXPECT_EQ(kept(text), 5);
    EXPECT_EQ(kept(text + "1700000000 7 0 1.00 \n" + five), 7);
}

} // namespace
} // namespace obrin::test
