#include "acquisition/samplingCycle.h"

#include "acquisition/circularBuffers.h"
#include "acquisition/diskListing.h"
#include "acquisition/instances.h"
#include "agent/agentState.h"
#include "agent/stopSync.h"
#include "resources/resourceChain.h"
#include "resources/resourceText.h"
#include "resources/windowSizing.h"
#include "support/systemPaths.h"
#include "support/textScanner.h"
#include "tests/support/recordingSink.h"
#include "tests/support/sourceText.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/timeZone.h"
#include "tests/support/turnedClock.h"
#include "trendviewer/trendFiles.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <semaphore>
#include <thread>
#include <unistd.h>

namespace obrin {
namespace {

using test::readFile;
using test::writeFile;

std::string declaration(const std::string& object, const std::string& counter, const std::string& name) {
    return "BeginResourceInput\n FindObject (" + object + ") FindInstance (_Total) FindCounter (" + counter +
           ") WindowSize -1. NameIs (" + name +
           ") AnalyticalMethod 1 UpperLimitAbs 0 UpperLimitCalc 0 LowerLimitAbs 0 LowerLimitCalc 0 "
           "CulpritMarker (none)\n"
           "EndResourceInput\n";
}

std::size_t occurrences(const std::string& text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

/// A whole machine of text files: a home with the agent's folders, a `df` that prints what the test wrote, a
/// mount table.
class SamplingCycle : public testing::Test {
protected:
    SamplingCycle() {
        for (const char* folder : {"bin", "tempdata", "data", "log", "path"})
            std::filesystem::create_directory(home.path(folder));
        before = std::filesystem::current_path();
        std::filesystem::current_path(home.path("bin"));
        installDf("exec /bin/cat " + home.path("listing") + "\n");
        pathBefore = ::getenv("PATH");
        ::setenv("PATH", (home.path("path") + ":" + pathBefore).c_str(), 1);

        systemPaths().mounts = home.path("mounts");
        systemPaths().fileNr = home.path("file-nr");
        systemPaths().meminfo = home.path("meminfo");
        writeFile(systemPaths().fileNr, "1024 100 8192\n");
        writeFile(systemPaths().meminfo, "SwapTotal: 1000 kB\nSwapFree: 250 kB\n");
        clasp.ScratchPad = home.path("data/pad");
        clasp.ResourceText = home.path("data/resources");
        clasp.HardDriveArchive = home.path("data/archive");
        clasp.DataHomeDirectory = home.path("data/");
        clasp.MillisecondsPerSample = 1000;
        clasp.MaxForecastHours = 10;
        beginExecuting();
        beginInstanceRun();
    }

    ~SamplingCycle() override {
        if (clasp.pLastLink != nullptr)
            ScanUpChainDeletingAllLinks(&clasp);
        ::setenv("PATH", pathBefore.c_str(), 1);
        std::filesystem::current_path(before);
        systemPaths() = SystemPaths();
    }

    void mount(const std::vector<std::string>& points) {
        std::string listing = "Filesystem 1K-blocks Used Available Use% Mounted on\n";
        std::string table = "proc /proc proc rw 0 0\n";
        for (const std::string& point : points) {
            listing += "/dev" + point + " 1000 250 750 25% " + point + "\n";
            table += "/dev" + point + " " + point + " ext4 rw 0 0\n";
        }
        writeFile(home.path("listing"), listing);
        writeFile(home.path("mounts"), table);
    }

    void installDf(const std::string& body) {
        writeFile(home.path("path/df"), "#!/bin/sh\n" + body);
        std::filesystem::permissions(home.path("path/df"), std::filesystem::perms::owner_all);
    }

    /// From now on df -i has a listing of its own.
    void listInodesOf(const std::string& point) {
        writeFile(home.path("inodes"), "Filesystem Inodes IUsed IFree IUse% Mounted on\n/dev" + point +
                                           " 1000 100 900 10% " + point + "\n");
        installDf("if [ \"$1\" = -i ]; then exec /bin/cat " + home.path("inodes") + "; fi\nexec /bin/cat " +
                  home.path("listing") + "\n");
    }

    /// How often a disk was looked up in a listing.
    std::size_t diskReadings() const { return occurrences(log.text(), " before 9 fopen"); }

    void declare(const std::string& inputs) {
        writeFile(clasp.ResourceText, "BeginResourceDeclaration\n" + inputs + "EndResourceDeclaration\n");
        ASSERT_EQ(validateResourceText(&clasp), 1) << log.text();
        AutoSizeWindows(&clasp);
        ASSERT_EQ(allocatecircularbuffers(&clasp), 1);
    }

    /// The words of the archive's last line after the time stamp, joined by blanks; checks the line's end.
    std::string lastLine() const {
        const std::string text = readFile(clasp.HardDriveArchive);
        EXPECT_TRUE(text.ends_with(" \n"));
        const std::size_t begin = text.rfind('\n', text.size() - 2);
        TextScanner words(std::string_view(text).substr(begin == std::string::npos ? 0 : begin + 1));
        EXPECT_EQ(words.integer(), TimeStamp);
        std::string joined;
        while (auto word = words.word())
            joined += (joined.empty() ? "" : " ") + std::string(*word);
        return joined;
    }

    Link* find(const std::string& instance) const {
        for (Link* link = clasp.pFirstLink; link != nullptr; link = link->pNextLink)
            if (link->Descriptor1 == std::string_view(instance))
                return link;
        return nullptr;
    }

    std::size_t records() const { return occurrences(readFile(clasp.ScratchPad), "Event:"); }

    test::TurnedClock clock;
    test::TemporaryDirectory home;
    test::CapturedLog log;
    test::RecordingSink sink;
    Clasp clasp;
    std::filesystem::path before;
    std::string pathBefore;
};

const std::string descriptors = declaration("PercentFileDescriptorsUsed", "x", "PercentFileDescriptorsUsed");
const std::string swap = declaration("PercentSwapSpaceUsed", "x", "PercentSwapSpaceUsed");
const std::string disks = declaration("LogicalDisk", "PercentFreeSpaceUsed", "PercentFreeSpaceUsed");

TEST_F(SamplingCycle, OnlySinglyDeclaredResourcesGiveOneLinePerCycleWithOneTriplePerLinkInChainOrder) {
    mount({});
    declare(swap + descriptors);
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 75.00 2 0 11.28");
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    const std::string archive = readFile(clasp.HardDriveArchive);
    EXPECT_EQ(std::count(archive.begin(), archive.end(), '\n'), 2);
}

TEST_F(SamplingCycle, ArchiveReceivesTwoDecimalsAndTheRingTheValueUnrounded) {
    mount({});
    writeFile(systemPaths().fileNr, "1 0 3\n");
    declare(descriptors);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 33.33");
    // No float holds it.
    EXPECT_EQ(clasp.pFirstLink->ValueBuffer[0], 33.33333333333334);
    EXPECT_EQ(clasp.pFirstLink->TimeBuffer[0], static_cast<double>(TimeStamp));
    EXPECT_EQ(clasp.pFirstLink->SampleCount, 1U);
}

TEST_F(SamplingCycle, ADiskThatComesUnderARuleGoesLikeOneThatIsUnmountedAndOneThatIsLeftOutTakesNoNumber) {
    systemPaths().mountInfo = home.path("mountinfo");
    const auto tell = [](const std::string& typeOfHome) {
        writeFile(systemPaths().mountInfo, "1 0 8:1 / / rw - ext4 /dev/ rw\n2 1 8:2 / /home rw - " +
                                               typeOfHome +
                                               " /dev/home rw\n3 1 7:0 / /snap ro - squashfs /dev/snap ro\n");
    };
    setSkipRules(SkipRules{});
    beginInstanceRun();
    mount({"/", "/home", "/snap"});
    tell("ext4");
    declare(disks);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 25.00");
    EXPECT_EQ(records(), 3U);
    tell("iso9660");
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00");
    EXPECT_EQ(find("/dev/home /home"), nullptr);
    tell("ext4");
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 25.00");
    EXPECT_EQ(records(), 3U);
    setSkipRules(std::nullopt);
}

TEST_F(SamplingCycle, ADiskThatALaterDeclarationNamesIsWatched) {
    systemPaths().mountInfo = home.path("mountinfo");
    writeFile(systemPaths().mountInfo, "1 0 7:0 / /snap ro - squashfs /dev/snap ro\n");
    setSkipRules(SkipRules{});
    beginInstanceRun();
    mount({"/snap"});
    std::string named = declaration("LogicalDisk", "PercentFreeInodesUsed", "PercentFreeInodesUsed");
    named.replace(named.find("_Total"), 6, "/dev/snap /snap");
    declare(disks + named);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_NE(find("/dev/snap /snap"), nullptr);
    setSkipRules(std::nullopt);
}

TEST_F(SamplingCycle, ThreeNewFileSystemsBecomeThreeLinksAndRecordsAndTheTemplateIsNeverArchived) {
    mount({});
    declare(disks);
    ASSERT_EQ(records(), 1U);
    mount({"/a", "/b", "/c"});
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 25.00 4 0 25.00");
    EXPECT_EQ(records(), 4U);
    // Read once when it is made and again when the walk reaches it.
    EXPECT_EQ(diskReadings(), 6U);
}

TEST_F(SamplingCycle, KnownDiskEntersTheChainWithoutBeingReadFirst) {
    const std::string record = "\nEvent: ResourceDefinition - Informational \n2   ";
    writeFile(clasp.ScratchPad,
              record + "1   (LogicalDisk)   (/dev/a /a)   (PercentFreeSpaceUsed)   -2   \n" + record +
                  "7   (LogicalDisk)   (/dev/b /b)   (PercentFreeSpaceUsed)   -2   \n" + record +
                  "4   (LogicalDisk)   (_Total)   (PercentFreeSpaceUsed)   -1   \n");
    mount({});
    declare(disks);
    clasp.pFirstLink->DataArray[0] = 3.5;
    mount({"/a", "/b"});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    // The walk has passed the place of number 1 and comes to number 7 once.
    EXPECT_EQ(lastLine(), "1 0 3.50 7 0 25.00");
    EXPECT_EQ(diskReadings(), 1U);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 25.00 7 0 25.00");
}

TEST_F(SamplingCycle, ListOfDisksThatCannotBeHadIsToldAndTheCycleGoesOn) {
    mount({});
    declare(disks + swap);
    mount({"/a"});
    installDf("mkdir " + home.path("counted") + " 2>/dev/null && exec /bin/cat " + home.path("listing") +
              "\n");
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_NE(log.text().find("\nRetrievedisks returned error code -1\n"), std::string::npos) << log.text();
    EXPECT_EQ(lastLine(), "2 0 75.00");
}

TEST_F(SamplingCycle, PlainListingNamesTheDisksOfInodeTemplatesToo) {
    mount({});
    declare(declaration("LogicalDisk", "PercentFreeInodesUsed", "PercentFreeInodesUsed"));
    mount({"/a", "/b"});
    listInodesOf("/b");
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 0.00 3 0 10.00");
    ASSERT_NE(find("/dev/a /a"), nullptr);
}

TEST_F(SamplingCycle, NewDiskThatCannotBeReadStartsFromItsTemplatesValue) {
    mount({});
    declare(declaration("LogicalDisk", "PercentFreeInodesUsed", "PercentFreeInodesUsed"));
    clasp.pFirstLink->DataArray[0] = 3.5;
    clasp.pFirstLink->UpperLimitCalc = 70.0;
    mount({"/a"});
    listInodesOf("/b");
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 3.50");
    EXPECT_EQ(find("/dev/a /a")->UpperLimitCalc, 70.0);
}

TEST_F(SamplingCycle, DiskThatIsListedAndNotMountedIsReadAndThenRemoved) {
    mount({});
    declare(disks);
    const std::string table = readFile(home.path("mounts"));
    mount({"/a"});
    writeFile(home.path("mounts"), table);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "");
    EXPECT_EQ(diskReadings(), 2U);
    EXPECT_EQ(records(), 2U);
}

/// A df whose counts of inodes know only the first of two disks, full to 99 per cent, and that prints the
/// rows of `space` for both.
void printInodesOfOneDisk(const test::TemporaryDirectory& home) {
    writeFile(home.path("inodes"), "heading\n/dev/a 100 99 1 99% /a\n");
    writeFile(home.path("path/df"), "#!/bin/sh\n[ \"$1\" = -i ] && exec /bin/cat " + home.path("inodes") +
                                        "\nexec /bin/cat " + home.path("listing") + "\n");
}

TEST_F(SamplingCycle, ANewDiskWithoutAReadingOfItsOwnNeverShowsItsNeighboursValueOrCapacity) {
    mount({});
    declare(declaration("LogicalDisk", "PercentFreeInodesUsed", "PercentFreeInodesUsed"));
    mount({"/a", "/b"});
    printInodesOfOneDisk(home);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 99.00 3 0 0.00");
    EXPECT_EQ(find("/dev/a /a")->UpperLimitCalc, 100.0);
    EXPECT_EQ(find("/dev/b /b")->UpperLimitCalc, 0.0);
    EXPECT_EQ(find("/dev/b /b")->ValueBuffer[0], 0.0);
}

TEST_F(SamplingCycle, ADiskThatReturnsUnderItsOldNumberNeverShowsItsNeighboursValueOrCapacity) {
    mount({});
    declare(declaration("LogicalDisk", "PercentFreeInodesUsed", "PercentFreeInodesUsed"));
    writeFile(clasp.ScratchPad,
              readFile(clasp.ScratchPad) +
                  "\nEvent: ResourceDefinition - Informational \n"
                  "2   7   (LogicalDisk)   (/dev/b /b)   (PercentFreeInodesUsed)   -2   \n");
    mount({"/a", "/b"});
    printInodesOfOneDisk(home);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "7 0 0.00 8 0 99.00");
    EXPECT_EQ(find("/dev/b /b")->UpperLimitCalc, 0.0);
}

TEST_F(SamplingCycle, ATemplatesOwnValueAndCapacityAreWhatANewDiskWithoutAReadingStartsFrom) {
    mount({});
    declare(declaration("LogicalDisk", "PercentFreeInodesUsed", "PercentFreeInodesUsed"));
    clasp.pFirstLink->DataArray[0] = 4.25;
    clasp.pFirstLink->UpperLimitCalc = 77.0;
    mount({"/a", "/b"});
    printInodesOfOneDisk(home);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 99.00 3 0 4.25");
    EXPECT_EQ(find("/dev/b /b")->UpperLimitCalc, 77.0);
}

TEST_F(SamplingCycle, KnownFileSystemsAreNotMadeAgainInTheNextCycle) {
    mount({"/a", "/b", "/c"});
    declare(disks);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 25.00 4 0 25.00");
    EXPECT_EQ(records(), 4U);
}

TEST_F(SamplingCycle, UnmountedFileSystemGoesWithItsTrendFilesAndComesBackUnderItsOldNumber) {
    mount({"/a", "/b"});
    declare(disks);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    const std::string stem = home.path("data/PercentFreeSpaceUsed_dev_");
    for (const char* name : {"a__aBM.ini", "a__aBMPRD.gnp", "a__aBMSMP.gnp", "b__bBM.ini"})
        writeFile(stem + name, "x");
    mount({"/b"});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "3 0 25.00");
    for (const char* name : {"a__aBM.ini", "a__aBMPRD.gnp", "a__aBMSMP.gnp"})
        EXPECT_FALSE(std::filesystem::exists(stem + name)) << name;
    EXPECT_TRUE(std::filesystem::exists(stem + "b__bBM.ini"));
    EXPECT_EQ(find("/dev/a /a"), nullptr);
    mount({"/a", "/b"});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 25.00");
    EXPECT_EQ(records(), 3U);
}

/// The samples in the ring of a disk, oldest first; empty when it is not there.
std::vector<double> samplesOf(const Link* link) {
    std::vector<double> values;
    for (std::uint32_t i = 0; link != nullptr && i < samplesHeld(*link); ++i)
        values.push_back(link->ValueBuffer[slotOfSample(*link, i)]);
    return values;
}

TEST_F(SamplingCycle, ADiskMountedAgainGetsItsHistoryBackInARunThatResumesAndInNoOther) {
    for (const bool resumes : {false, true}) {
        SCOPED_TRACE(resumes);
        clasp.resumes = resumes;
        mount({"/a", "/b"});
        declare(disks);
        for (int i = 0; i < 3; ++i) {
            clock.turn(std::chrono::seconds(1));
            ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        }
        mount({"/b"});
        ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        clock.turn(std::chrono::seconds(1));
        mount({"/a", "/b", "/c"});
        ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        const Link* a = find("/dev/a /a");
        EXPECT_EQ(samplesOf(a), resumes ? (std::vector<double>{25, 25, 25, 25}) : (std::vector<double>{25}));
        EXPECT_EQ(a->TimeBuffer[0], static_cast<double>(TimeStamp - (resumes ? 3 : 0)));
        EXPECT_EQ(samplesOf(find("/dev/c /c")).size(), 1U) << "of a number that is new";
        EXPECT_EQ(samplesOf(find("/dev/b /b")).size(), 5U);
        ScanUpChainDeletingAllLinks(&clasp);
        std::filesystem::remove(clasp.ScratchPad);
        std::filesystem::remove(clasp.HardDriveArchive);
    }
}

TEST_F(SamplingCycle, ADiskThatTheFirstListingBringsLateGetsTheHistoryOfEarlierRuns) {
    clasp.resumes = true;
    mount({});
    declare(disks);
    writeFile(clasp.ScratchPad, readFile(clasp.ScratchPad) +
                                    "\nEvent: ResourceDefinition - Informational \n"
                                    "2   7   (LogicalDisk)   (/dev/b /b)   (PercentFreeSpaceUsed)   -2   \n");
    const long now = systemClock().wallTime();
    writeFile(clasp.HardDriveArchive, std::to_string(now - 2) + " 7 0 5.25 8 0 66.00 \n" +
                                          std::to_string(now - 1) + " 7 0 6.25 8 0 67.00 \n");
    mount({"/a", "/b"});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(samplesOf(find("/dev/b /b")), (std::vector<double>{5.25, 6.25, 25}));
    EXPECT_EQ(find("/dev/a /a")->RID, 8);
    EXPECT_EQ(samplesOf(find("/dev/a /a")), (std::vector<double>{25})) << "the archive's 8 was another";
    EXPECT_EQ(samplesOf(clasp.pFirstLink), (std::vector<double>{})) << "a template";
}

/// A thread that has the trend-file lock and does not give it back as long as this lives.
class StubbornReader {
public:
    StubbornReader() { has_.acquire(); }
    ~StubbornReader() { ended_.release(); }

private:
    std::binary_semaphore has_{0};
    std::binary_semaphore ended_{0};
    std::jthread thread_{[this] {
        EXPECT_EQ(trendViewerLockFiles(), 0);
        has_.release();
        ended_.acquire();
        trendViewerUnlockFiles();
    }};
};

TEST_F(SamplingCycle, ThreeThousandDisksUnmountedTogetherWaitOnceForALockThatAReaderKeepsAndLoseTheirFiles) {
    std::vector<std::string> points;
    for (int i = 0; i < 3000; ++i)
        points.push_back("/d" + std::to_string(i));
    mount(points);
    declare(disks);
    for (const std::string& point : points)
        writeFile(
            home.path("data/PercentFreeSpaceUsed_dev_" + point.substr(1) + "__" + point.substr(1) + "BM.ini"),
            "x");
    ASSERT_NE(find("/dev/d2999 /d2999"), nullptr);
    mount({});
    const StubbornReader reader;
    clock.onLook([](Clock::Moment) { return std::chrono::milliseconds(1); }); // or no listing would take time
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(clock.pauses().size(), 3U); // of the first of them; the lock is not waited for again
    EXPECT_EQ(lastLine(), "");
    EXPECT_EQ(clasp.pFirstLink, clasp.pLastLink);
    for (const auto& left : std::filesystem::directory_iterator(home.path("data")))
        EXPECT_NE(left.path().extension(), ".ini") << left.path();
}

TEST_F(SamplingCycle, APassAfterTheOneInWhichTheLockWasRefusedWaitsForItAgain) {
    mount({"/a", "/b"});
    declare(disks);
    const StubbornReader reader;
    for (const std::vector<std::string>& left :
         {std::vector<std::string>{"/b"}, std::vector<std::string>{}}) {
        const std::size_t pausesBefore = clock.pauses().size();
        mount(left);
        ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        EXPECT_EQ(clock.pauses().size(), pausesBefore + 3);
    }
}

TEST_F(SamplingCycle, RemovedLinkMayBeTheLastOfTheChain) {
    mount({"/a", "/b"});
    declare(disks);
    mount({"/a"});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(clasp.pLastLink, find("/dev/a /a"));
    EXPECT_EQ(clasp.pLastLink->pNextLink, nullptr);
    mount({});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(clasp.pLastLink, clasp.pFirstLink);
    EXPECT_EQ(lastLine(), "");
}

TEST_F(SamplingCycle, RemovedLinkMayBeTheFirstOfTheChain) {
    // The template has the higher number because the scratch pad knew the disk before the declaration.
    writeFile(clasp.ScratchPad, "\nEvent: ResourceDefinition - Informational \n"
                                "2   1   (LogicalDisk)   (/dev/a /a)   (PercentFreeSpaceUsed)   -2   \n");
    mount({"/a"});
    declare(disks);
    ASSERT_EQ(clasp.pFirstLink, find("/dev/a /a"));
    mount({});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    ASSERT_NE(clasp.pFirstLink, nullptr);
    EXPECT_TRUE(isTemplate(*clasp.pFirstLink));
    EXPECT_EQ(clasp.pFirstLink->pPrevLink, nullptr);
    EXPECT_EQ(clasp.pFirstLink, clasp.pLastLink);
}

TEST_F(SamplingCycle, ResourceThatTheReadersDoNotKnowKeepsItsValueAndTheCycleSucceeds) {
    mount({});
    declare(declaration("Whatever", "x", "Whatever"));
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 0.00");
}

TEST_F(SamplingCycle, SampleStatusIsArchivedBesideItsValue) {
    mount({});
    declare(swap);
    clasp.pFirstLink->SampleStatus = 4;
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 4 75.00");
}

TEST_F(SamplingCycle, ProcessInstancesAreNeverRemoved) {
    mount({});
    Link process;
    process.ResourceType = 2;
    process.Descriptor0 = "Process";
    process.Descriptor1 = "/bin/server /gone";
    process.Descriptor3 = "123";
    process.RID = 1;
    process.DataArray[0] = 3.5;
    process.pClasp = &clasp;
    ASSERT_EQ(CreateLinkInChainAndCopyData(&process), 1);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 3.50");
}

TEST_F(SamplingCycle, DiskForWhichNoNumberIsLeftIsNotWatched) {
    mount({});
    declare(disks);
    clasp.MaximumRIDValue = std::numeric_limits<std::int32_t>::max();
    mount({"/a"});
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "");
    EXPECT_EQ(find("/dev/a /a"), nullptr);
}

TEST_F(SamplingCycle, ListingGivenUpInOneCycleIsTakenInTheNext) {
    mount({});
    declare(disks);
    mount({"/a"});
    installDf(": > " + home.path("hangs") + "\nexec sleep 1000\n");
    {
        const test::TimeGoesBy pastTheDeadline(clock, std::chrono::seconds(10), [&](Clock::Moment) {
            return std::filesystem::remove(home.path("hangs")); // so that it goes by once
        });
        EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    }
    installDf("exec /bin/cat " + home.path("listing") + "\n");
    while (takeDiskListing(DiskCounter::space).status == -1) {
        // what was killed takes a moment to go
    }
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00");
}

TEST_F(SamplingCycle, ReadingThatFailsArchivesTheValueBefore) {
    mount({});
    declare(swap);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    writeFile(systemPaths().meminfo, "");
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 75.00");
    EXPECT_EQ(clasp.pFirstLink->SampleCount, 2U);
}

TEST_F(SamplingCycle, ACapacityOfZeroArchivesTheValueBeforeAndTheCycleSucceeds) {
    mount({});
    declare(swap + descriptors);
    writeFile(systemPaths().fileNr, "0 0 0\n");
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 75.00 2 0 0.00");
    writeFile(systemPaths().meminfo, "SwapTotal: 0 kB\nSwapFree: 0 kB\n");
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "1 0 75.00 2 0 0.00");
    EXPECT_EQ(clasp.pFirstLink->UpperLimitCalc, 0.0);
}

TEST_F(SamplingCycle, ArchiveThatCannotBeWrittenFailsTheCycleAndFillsTheRingsAllTheSame) {
    mount({});
    clasp.HardDriveArchive = "/dev/null";
    declare(swap);
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), -1);
    EXPECT_EQ(clasp.pFirstLink->SampleCount, 1U);
    EXPECT_EQ(clasp.pFirstLink->ValueBuffer[0], 75.0);
    EXPECT_NE(log.text().find("Archive file /dev/null: cannot be opened: it is no regular file\n"),
              std::string::npos);
}

TEST_F(SamplingCycle, EmptyChainWritesALineOfItsTimeStamp) {
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(readFile(clasp.HardDriveArchive), std::to_string(TimeStamp) + " \n");
}

TEST_F(SamplingCycle, CycleLogsItsTimeStampFirst) {
    mount({});
    declare(swap);
    const std::size_t declared = log.text().size();
    const test::TimeZone zone(test::tellingZone);
    clock.setWallTime(test::tellingMoment);
    EXPECT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(log.text().substr(declared),
              "\n************ TimeStamp = 1234567890 = Sat Feb 14 04:31:30 2009\n"
              "\n before 7 fopen(/proc/meminfo)\n after  7 fopen(/proc/meminfo)\n");
}

/// Times of a ring's samples, oldest first.
std::vector<std::int64_t> timesOf(const Link& link) {
    std::vector<std::int64_t> times;
    for (std::uint32_t i = 0; i < samplesHeld(link); ++i)
        times.push_back(std::llround(link.TimeBuffer[slotOfSample(link, i)]));
    return times;
}

TEST_F(SamplingCycle, AStepOfTheClockMovesAllSamplesAndIsLoggedOnce) {
    for (const std::int64_t step : {std::int64_t{86400}, std::int64_t{-3600}, std::int64_t{1} << 31}) {
        SCOPED_TRACE(step);
        mount({"/a", "/b"});
        declare(disks + swap);
        ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        clock.turn(std::chrono::seconds(1));
        ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        const std::int64_t last = TimeStamp;
        find("/dev/a /a")->findings.forecastTime = last;
        find("/dev/a /a")->findings.forecastOrigin = 100.5;
        const std::size_t logged = log.text().size();
        clock.turn(std::chrono::seconds(1));
        clock.setWallTime(systemClock().wallTime() + step);
        for (int i = 0; i < 3; ++i) {
            ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
            clock.turn(std::chrono::seconds(1));
        }
        const std::int64_t now = last + 1 + step;
        for (const char* disk : {"/dev/a /a", "/dev/b /b"})
            EXPECT_EQ(timesOf(*find(disk)), (std::vector{now - 2, now - 1, now, now + 1, now + 2}));
        EXPECT_EQ(find("/dev/a /a")->findings.forecastTime, last + step);
        EXPECT_EQ(find("/dev/a /a")->findings.forecastOrigin, 100.5 + static_cast<double>(step));
        EXPECT_EQ(find("/dev/b /b")->findings.forecastTime, 0) << "there was none";
        char told[200];
        std::snprintf(
            told, sizeof told,
            "The clock has stepped by %+lld seconds (it was set, or the machine slept): all samples move "
            "along\n",
            static_cast<long long>(step));
        EXPECT_EQ(occurrences(log.text().substr(logged), told), 1U);
        EXPECT_EQ(occurrences(log.text().substr(logged), "The clock has stepped"), 1U);
        ScanUpChainDeletingAllLinks(&clasp);
        std::filesystem::remove(clasp.ScratchPad);
        std::filesystem::remove(clasp.HardDriveArchive);
    }
}

TEST_F(SamplingCycle, ASlowClockMovesNothing) {
    mount({});
    declare(swap);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    const std::int64_t last = TimeStamp;
    clock.setWallTime(last - 3); // two periods and a second
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(timesOf(*clasp.pFirstLink), (std::vector{last, last - 3}));
    EXPECT_EQ(occurrences(log.text(), "The clock has stepped"), 0U);
}

TEST_F(SamplingCycle, TimesBehind2038GoOnInTheArchiveAndInTheRings) {
    mount({});
    declare(swap);
    for (const std::int64_t time :
         {std::int64_t{2147483647}, std::int64_t{2147483648}, std::int64_t{4102444800}}) {
        clock.setWallTime(time);
        ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
        EXPECT_EQ(TimeStamp, time);
        EXPECT_TRUE(readFile(clasp.HardDriveArchive).ends_with(std::to_string(time) + " 1 0 75.00 \n"));
        EXPECT_EQ(timesOf(*clasp.pFirstLink).back(), time);
    }
    EXPECT_NE(log.text().find("TimeStamp = 4102444800 = "), std::string::npos);
}

TEST_F(SamplingCycle, ScratchPadThatCannotBeWrittenStillLetsTheDiskBeWatchedUnderANumberOfItsOwn) {
    mount({"/a"});
    clasp.ScratchPad = home.path("missing/pad");
    declare(disks + swap);
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 75.00");
    mount({"/a", "/b"});
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine(), "2 0 25.00 3 0 75.00 4 0 25.00");
    // In the first cycle that can, also without another new disk.
    std::filesystem::create_directory(home.path("missing"));
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(records(), 4U);
}

TEST_F(SamplingCycle, HugeAndNegativeValuesAreWrittenWhole) {
    mount({});
    declare(declaration("Whatever", "x", "Whatever"));
    clasp.pFirstLink->DataArray[0] = -1e300;
    ASSERT_EQ(RawDataRetrievalAndArchive(&clasp), 1);
    EXPECT_EQ(lastLine().size(), std::string("1 0 -").size() + 301 + 3);
}

TEST(SamplingCycleTexts, TextsOfFailuresThatThisPlatformDoesNotHaveStandInTheSource) {
    const std::string source = test::sourceText("acquisition/samplingCycle.cpp");
    for (const char* text : {"\"Failure of RefreshRawData at point A. Error Code %d\\n\", refreshed)",
                             "\"Failure of ReadRawData. Error Code %d\\n\", result)"})
        EXPECT_NE(source.find(text), std::string::npos) << text;
}

} // namespace
} // namespace obrin
