#include "resources/scratchPad.h"

#include "resources/linkLogic.h"
#include "resources/resourceChain.h"
#include "resources/scratchPadRecord.h"
#include "tests/resources/chainFixture.h"
#include "tests/support/often.h"
#include "tests/support/watchedReads.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <malloc.h>
#include <random>
#include <set>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

namespace obrin::test {
namespace {

using ::testing::HasSubstr;

class ScratchPadFile : public ChainTest {
protected:
    /// What a new run does for a resource: its stored or a new number. 0 when it got none.
    std::int32_t numberOf(ScratchPad& pad, Link link) {
        return registerLink(pad, &link) == Registration::failed ? 0 : link.RID;
    }

    /// A new run: nothing in memory but what the file says.
    void startRun(const ScratchPad* = nullptr) {
        ScanUpChainDeletingAllLinks(&clasp);
        clasp.MaximumRIDValue = 0;
        ScratchPad pad(clasp.ScratchPad);
        clasp.MaximumRIDValue = RetrieveMaximumRIDFromScratchPadFile(pad);
    }

    Link disk(std::string_view name) { return makeLink(2, "LogicalDisk", name, "PercentFreeSpaceUsed"); }

    /// Records a disk under a number that it did not get from the pad.
    void recordAs(ScratchPad& pad, std::int32_t rid, std::string_view name) {
        Link link = disk(name);
        link.RID = rid;
        RecordLinkForRIDCollision(pad, &link);
    }

    /// The number that the pad has of a disk; -2 for none.
    std::int32_t storedFor(ScratchPad& pad, std::string_view name) {
        const Link link = disk(name);
        std::int32_t rid = 0;
        CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid);
        return rid;
    }

    std::string content() { return readFile(clasp.ScratchPad); }
};

std::string record(int type, int rid, const std::string& instance) {
    return "\nEvent: ResourceDefinition - Informational \n" + std::to_string(type) + "   " +
           std::to_string(rid) + "   (LogicalDisk)   (" + instance + ")   (PercentFreeSpaceUsed)   -2   \n";
}

TEST_F(ScratchPadFile, AnEmptyOrMissingFileGivesOneThenTwo) {
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(RetrieveMaximumRIDFromScratchPadFile(pad), 0);
    EXPECT_EQ(numberOf(pad, makeLink(1, "a")), 1);
    EXPECT_EQ(numberOf(pad, makeLink(1, "b")), 2);
    EXPECT_EQ(RetrieveMaximumRIDFromScratchPadFile(pad), 2);
}

TEST_F(ScratchPadFile, TheRecordIsWrittenToTheByte) {
    ScratchPad pad(clasp.ScratchPad);
    Link link = makeLink(2, "LogicalDisk", "/dev/sda1 /home", "PercentFreeSpaceUsed", "-1");
    link.RID = 17;
    EXPECT_EQ(RecordLinkForRIDCollision(pad, &link), 1);
    EXPECT_EQ(content(), "\nEvent: ResourceDefinition - Informational \n"
                         "2   17   (LogicalDisk)   (/dev/sda1 /home)   (PercentFreeSpaceUsed)   -1   \n");
}

TEST_F(ScratchPadFile, ALinkOfAnotherTypeGetsTheHeaderAlone) {
    ScratchPad pad(clasp.ScratchPad);
    Link link = makeLink(3, "a");
    EXPECT_EQ(RecordLinkForRIDCollision(pad, &link), 1);
    EXPECT_EQ(content(), "\nEvent: ResourceDefinition - Informational \n");
    EXPECT_EQ(numberOf(pad, makeLink(1, "b")), 1);
    startRun();
    EXPECT_EQ(log.text().find("passed over"), std::string::npos);
    EXPECT_EQ(clasp.MaximumRIDValue, 1);
}

TEST_F(ScratchPadFile, ALaterRunGetsTheOldNumberAlsoUnderANewDisplayName) {
    ScratchPad first(clasp.ScratchPad);
    numberOf(first, makeLink(1, "a"));
    const std::int32_t rid = numberOf(first, makeLink(1, "b", "instance", "counter", "-1"));
    startRun();
    ScratchPad second(clasp.ScratchPad);
    Link again = makeLink(1, "b", "instance", "counter", "-1");
    again.NameIs = "renamed";
    EXPECT_EQ(numberOf(second, std::move(again)), rid);
    EXPECT_EQ(numberOf(second, makeLink(1, "new")), 3);
}

TEST_F(ScratchPadFile, NothingFoundSetsTheNumberToMinusTwo) {
    ScratchPad pad(clasp.ScratchPad);
    Link link = makeLink(1, "a");
    std::int32_t rid = 99;
    EXPECT_EQ(CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid), -2);
    EXPECT_EQ(rid, -2);
}

TEST_F(ScratchPadFile, TheFirstOfTwoEqualRecordsCounts) {
    writeFile(clasp.ScratchPad, record(2, 4, "x /y") + record(2, 9, "x /y"));
    ScratchPad pad(clasp.ScratchPad);
    Link link = disk("x /y");
    std::int32_t rid = 0;
    EXPECT_EQ(CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid), 2);
    EXPECT_EQ(rid, 4);
}

TEST_F(ScratchPadFile, TheHighestNumberIsReadFromTheLastRecordButNoStoredNumberIsGivenAgain) {
    writeFile(clasp.ScratchPad, record(2, 7, "a /a") + record(2, 3, "b /b"));
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(RetrieveMaximumRIDFromScratchPadFile(pad), 3);
    startRun();
    EXPECT_EQ(clasp.MaximumRIDValue, 3);
    EXPECT_EQ(numberOf(pad, disk("c /c")), 8);
}

TEST_F(ScratchPadFile, ANumberThatTwoResourcesClaimBelongsToTheFirst) {
    writeFile(clasp.ScratchPad, record(2, 7, "a /a") + record(2, 7, "b /b"));
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("b /b")), 8);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 7);
    startRun();
    ScratchPad again(clasp.ScratchPad);
    EXPECT_EQ(numberOf(again, disk("b /b")), 8);
    EXPECT_THAT(log.text(), HasSubstr("1 incomplete or contradicting records passed over"));
}

TEST_F(ScratchPadFile, ARecordUnderATakenNumberGivesItToNobodyWhereverTheOwnersIs) {
    const std::string gone = directory.path("gone/pad.txt");
    writeFile(clasp.ScratchPad, record(2, 7, "a /a"));
    for (const std::string& path : {gone, clasp.ScratchPad}) { // unwritten; or one read, one appended
        ScratchPad pad(path);
        pad.refresh();
        if (path == gone)
            recordAs(pad, 7, "a /a");
        recordAs(pad, 3, "b /b"); // which is free, and not the highest
        recordAs(pad, 7, "c /c");
        recordAs(pad, 3, "d /d");
        std::filesystem::create_directory(directory.path("gone"));
        for (int when = 0; when < 3; ++when) { // unwritten, written, in the next run
            if (when == 2)
                pad = ScratchPad(path);
            EXPECT_EQ(storedFor(pad, "a /a"), 7) << path << when;
            EXPECT_EQ(storedFor(pad, "b /b"), 3) << path << when;
            EXPECT_EQ(storedFor(pad, "c /c"), -2) << path << when;
            EXPECT_EQ(storedFor(pad, "d /d"), -2) << path << when;
            EXPECT_TRUE(pad.settle());
        }
    }
}

TEST_F(ScratchPadFile, NamesOfAnyBytesKeepTheirNumberAndNeverStandForAnother) {
    const std::vector<std::string> names = {
        "/dev/a /mnt",
        "/dev/a /mnt)",
        "/dev/a /mnt)   (PercentFreeSpaceUsed)   -2   ",
        "/dev/a /mnt)   (PercentFreeSpaceUsed)   -2   )",
        "/dev/a /mnt (1)",
        "/dev/a /mnt (2)",
        "/dev/a (((",
        "/dev/a /b)(c",
        "/dev/a /x) ResourceDefinition - Informational 2 1 (LogicalDisk) (/dev/a /mnt) "
        "(PercentFreeSpaceUsed) -2 ",
        "/dev/a /\"quote' %n %s",
        "/dev/a /\xff\xfe\x01",
        "/dev/a " + std::string(504, 'l'),
        "",
    };
    ScratchPad pad(clasp.ScratchPad);
    std::vector<std::int32_t> given;
    for (const auto& name : names)
        given.push_back(numberOf(pad, disk(name)));
    EXPECT_EQ(std::set<std::int32_t>(given.begin(), given.end()).size(), names.size());
    startRun();
    ScratchPad later(clasp.ScratchPad);
    for (std::size_t i = names.size(); i-- > 0;)
        EXPECT_EQ(numberOf(later, disk(names[i])), given[i]) << names[i];
}

TEST_F(ScratchPadFile, ANameWithAHeaderInItIsWatchedButNotStored) {
    ScratchPad pad(clasp.ScratchPad);
    Link link = disk("/dev/a /b" + record(2, 1, "x"));
    EXPECT_EQ(numberOf(pad, std::move(link)), 1);
    EXPECT_EQ(content(), "");
    EXPECT_EQ(numberOf(pad, disk("x")), 2);
}

TEST_F(ScratchPadFile, BlanksThatAnEditorStrippedAreNotMissed) {
    writeFile(clasp.ScratchPad, "Event: ResourceDefinition - Informational\r\n2 5 (LogicalDisk) (a /a)\n"
                                "(PercentFreeSpaceUsed) -02\n");
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 5);
    EXPECT_EQ(numberOf(pad, disk("b /b")), 6);
    startRun();
    ScratchPad later(clasp.ScratchPad);
    EXPECT_EQ(numberOf(later, disk("a /a")), 5);
}

TEST_F(ScratchPadFile, CutAtAnyByteNoKnownNumberIsLostAndNoneNamesTwoResources) {
    const std::vector<std::string> names = {"/dev/a /a", "/dev/b /b)", "/dev/c /c d"};
    std::string whole;
    for (std::size_t i = 0; i < names.size(); ++i)
        whole += record(2, static_cast<int>(i) + 9, names[i]);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        for (const std::string& tail : {std::string(), std::string(64, '\0')}) {
            writeFile(clasp.ScratchPad, whole.substr(0, length) + tail);
            std::vector<std::int32_t> given;
            for (int run = 0; run < 2; ++run) {
                startRun();
                ScratchPad pad(clasp.ScratchPad);
                std::vector<std::int32_t> now = {numberOf(pad, disk("/dev/new /new"))};
                for (const auto& name : names)
                    now.push_back(numberOf(pad, disk(name)));
                ASSERT_EQ(std::set<std::int32_t>(now.begin(), now.end()).size(), now.size()) << length;
                for (std::size_t i = 0; i < names.size(); ++i)
                    if (length >= (whole.size() / names.size() + 2) * (i + 1)) {
                        ASSERT_EQ(now[i + 1], static_cast<int>(i) + 9) << length;
                    }
                if (run == 1) {
                    ASSERT_EQ(now, given) << length;
                }
                given = now;
            }
        }
    }
}

TEST_F(ScratchPadFile, ATornRecordDoesNotSwallowTheOnesAppendedBehindIt) {
    writeFile(clasp.ScratchPad,
              record(2, 1, "a /a") + "\nEvent: ResourceDefinition - Informational \n2   2   (Logical");
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("b /b")), 2);
    startRun();
    ScratchPad later(clasp.ScratchPad);
    EXPECT_EQ(numberOf(later, disk("b /b")), 2);
    EXPECT_EQ(numberOf(later, disk("a /a")), 1);
    EXPECT_THAT(log.text(), HasSubstr("1 incomplete or contradicting records passed over"));
}

TEST_F(ScratchPadFile, ForeignChangesAreSeen) {
    ScratchPad pad(clasp.ScratchPad);
    numberOf(pad, disk("a /a"));
    std::ofstream(clasp.ScratchPad, std::ios::app) << record(2, 40, "b /b");
    EXPECT_EQ(numberOf(pad, disk("b /b")), 40);
    EXPECT_EQ(numberOf(pad, disk("c /c")), 41);
    std::filesystem::remove(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("d /d")), 42);
}

TEST_F(ScratchPadFile, GarbageIsIgnored) {
    const std::string header = "\nEvent: ResourceDefinition - Informational \n";
    const std::vector<std::string> corpus = {
        std::string(5000, '\0'),
        std::string(200000, ')'),
        header + std::string(200000, '('),
        header + "2",
        header + "2   99999999999   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   -2   \n",
        header + "2   0   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   -2   \n",
        header + "2   -4   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   -2   \n",
        header + "7   4   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   -2   \n",
        header + "2   4   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   x   \n",
        header + "2   4   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   -2x   \n",
        header + std::string("2   4   (LogicalDisk)   (a /a\0b)   (PercentFreeSpaceUsed)   -2   \n", 66),
        "Event: ResourceDefinition",
        "ResourceDefinition - x 2   4   (LogicalDisk)   (a /a)   (PercentFreeSpaceUsed)   -2   \n",
    };
    std::string everything;
    for (const auto& garbage : corpus) {
        startRun();
        everything += garbage;
        for (const auto& text : {garbage, everything}) {
            writeFile(clasp.ScratchPad, text + record(2, 6, "b /b"));
            ScratchPad pad(clasp.ScratchPad);
            EXPECT_EQ(RetrieveMaximumRIDFromScratchPadFile(pad), 6) << garbage.substr(0, 100);
            Link link = disk("a /a");
            std::int32_t rid = 0;
            EXPECT_EQ(CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid), -2) << garbage.substr(0, 100);
            std::filesystem::remove(clasp.ScratchPad);
        }
    }
}

TEST_F(ScratchPadFile, MutatedFilesNeverGiveOneNumberToTwoResources) {
    std::mt19937 random(20261121);
    std::string whole;
    for (int i = 1; i <= 6; ++i)
        whole += record(2, i, "/dev/d" + std::to_string(i) + " /m" + std::to_string(i));
    for (int round = 0; round < 400; ++round) {
        std::string text = whole;
        for (int change = 0; change < 1 + round % 5; ++change) {
            const std::size_t at = random() % text.size();
            switch (random() % 3) {
            case 0:
                text[at] = static_cast<char>(random());
                break;
            case 1:
                text.erase(at, 1 + random() % 20);
                break;
            default:
                text.insert(at, text.substr(random() % text.size(), random() % 60));
            }
        }
        std::filesystem::remove(clasp.ScratchPad);
        writeFile(clasp.ScratchPad, text);
        startRun();
        ScratchPad pad(clasp.ScratchPad);
        std::set<std::int32_t> given;
        for (int i = 1; i <= 8; ++i) {
            const auto rid = numberOf(pad, disk("/dev/d" + std::to_string(i) + " /m" + std::to_string(i)));
            EXPECT_TRUE(rid == 0 || given.insert(rid).second) << text;
        }
    }
}

TEST_F(ScratchPadFile, AHundredThousandRecordsGiveAnyNumber) {
    std::string text;
    for (int i = 1; i <= 100000; ++i)
        text +=
            record(2, i, "/dev/mapper/volume" + std::to_string(i) + " /var/lib/mount/" + std::to_string(i));
    writeFile(clasp.ScratchPad, text);
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(RetrieveMaximumRIDFromScratchPadFile(pad), 100000);
    for (int i = 1; i <= 100000; i += 997) {
        Link link = disk("/dev/mapper/volume" + std::to_string(i) + " /var/lib/mount/" + std::to_string(i));
        std::int32_t rid = 0;
        ASSERT_EQ(CheckForDuplicateLinkInFileAndGetRID(pad, &link, &rid), 2);
        ASSERT_EQ(rid, i);
    }
    clasp.MaximumRIDValue = 100000;
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(numberOf(pad, disk("new /" + std::to_string(i))), 100001 + i);
}

TEST_F(ScratchPadFile, ManyRecordsTakeLittleMemory) {
    const int many = often(20'000, 200'000);
    {
        std::ofstream file(clasp.ScratchPad);
        for (int i = 1; i <= many; ++i)
            file << record(2, i,
                           "/dev/mapper/volume" + std::to_string(i) + " /var/lib/mount/" + std::to_string(i));
    }
    const auto bytesInUse = [] {
        const struct mallinfo2 info = ::mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const std::size_t before = bytesInUse();
    ScratchPad pad(clasp.ScratchPad);
    ASSERT_TRUE(pad.refresh());
    const std::size_t each = (bytesInUse() - before) / static_cast<std::size_t>(many); // of a sanitizer: none
    EXPECT_LE(each, 32U);
    for (int i = 0; i < 3000; ++i) // and those of the run go the same way
        ASSERT_EQ(numberOf(pad, disk("/dev/new" + std::to_string(i) + " /n")), many + 1 + i);
    ScanUpChainDeletingAllLinks(&clasp);
    for (int i = 0; i < 3000; i += 7)
        ASSERT_EQ(numberOf(pad, disk("/dev/new" + std::to_string(i) + " /n")), many + 1 + i);
    EXPECT_EQ(numberOf(pad, disk("/dev/mapper/volume7777 /var/lib/mount/7777")), 7777);
}

TEST_F(ScratchPadFile, TwoNamesOfOneHashHaveTheirOwnNumbers) {
    const Link one = disk("/dev/mapper/volume /mnt");
    const Link other = disk("/d140rniggPbln|m=x /mnt");
    const auto hash = [](const Link& link) { return std::hash<std::string>()(linkIdentity(link)); };
    ASSERT_EQ(hash(one), hash(other)) << "names that collide with this library's hash are to be looked for";
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("/dev/mapper/volume /mnt")), 1);
    EXPECT_EQ(numberOf(pad, disk("/d140rniggPbln|m=x /mnt")), 2);
    for (int run = 0; run < 2; ++run) {
        startRun();
        ScratchPad later(clasp.ScratchPad);
        EXPECT_EQ(numberOf(later, disk("/d140rniggPbln|m=x /mnt")), 2);
        EXPECT_EQ(numberOf(later, disk("/dev/mapper/volume /mnt")), 1);
    }
}

TEST_F(ScratchPadFile, ARecordThatRepeatsAKnownOneContradictsNothing) {
    writeFile(clasp.ScratchPad, record(2, 7, "a /a") + record(2, 8, "b /b") + record(2, 7, "a /a") +
                                    record(2, 8, "a /a") + record(2, 8, "c /c"));
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 7);
    EXPECT_EQ(numberOf(pad, disk("b /b")), 8);
    EXPECT_EQ(numberOf(pad, disk("c /c")), 9);
    EXPECT_THAT(log.text(), HasSubstr(": 1 incomplete or contradicting records passed over"));
}

TEST_F(ScratchPadFile, ARecordThatCannotBeWrittenIsLoggedAndTheNumberIsNotGivenToAnother) {
    for (const std::string& path : {std::string("/dev/full"), directory.path("gone/pad.txt")}) {
        startRun();
        clasp.ScratchPad = path;
        ScratchPad pad(clasp.ScratchPad);
        EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
        EXPECT_EQ(numberOf(pad, disk("b /b")), 2);
        EXPECT_EQ(chain().size(), 2U);
        EXPECT_THAT(log.text(), HasSubstr("Cannot write scratch pad " + path + ": " +
                                          (path == "/dev/full" ? "it is no regular file\n"
                                                               : "No such file or directory\n")));
        // The disk goes and comes back in the same run.
        takeLinkFromChain(clasp.pFirstLink);
        EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
    }
}

TEST_F(ScratchPadFile, ARecordThatCouldNotBeWrittenIsWrittenOnceItCan) {
    const std::string inner = directory.path("gone/pad.txt");
    ScratchPad pad(inner);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
    EXPECT_FALSE(pad.settle());
    EXPECT_THAT(log.text(), HasSubstr("Cannot write scratch pad " + inner + ": No such file or directory\n"));
    std::filesystem::create_directory(directory.path("gone"));
    EXPECT_EQ(numberOf(pad, disk("b /b")), 2);
    EXPECT_TRUE(pad.settle());
    EXPECT_EQ(readFile(inner), record(2, 1, "a /a") + record(2, 2, "b /b"));
}

TEST_F(ScratchPadFile, ANumberWhoseRecordIsOnlyInMemoryOutlivesAForeignChange) {
    const std::string inner = directory.path("gone/pad.txt");
    ScratchPad pad(inner);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
    std::filesystem::create_directory(directory.path("gone"));
    writeFile(inner, record(2, 5, "b /b"));
    takeLinkFromChain(clasp.pFirstLink);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
    EXPECT_EQ(numberOf(pad, disk("b /b")), 5);
}

TEST_F(ScratchPadFile, ANumberWhoseRecordIsOnlyInMemoryIsGivenToNobodyByTheFile) {
    const std::string inner = directory.path("gone/pad.txt");
    ScratchPad pad(inner);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
    std::filesystem::create_directory(directory.path("gone"));
    writeFile(inner, record(2, 1, "b /b") + record(2, 1, "a /a"));
    EXPECT_EQ(storedFor(pad, "b /b"), -2);
    EXPECT_EQ(storedFor(pad, "a /a"), 1);
    EXPECT_THAT(log.text(), HasSubstr(": 1 incomplete or contradicting records passed over"))
        << "the file's record of a is no contradiction";
}

TEST_F(ScratchPadFile, ARecordInMemoryUnderATakenNumberTakesItFromNobody) {
    const std::string inner = directory.path("gone/pad.txt");
    std::filesystem::create_directory(directory.path("gone"));
    writeFile(inner, record(2, 7, "a /a"));
    ScratchPad pad(inner);
    ASSERT_TRUE(pad.refresh());
    std::filesystem::remove_all(directory.path("gone"));
    recordAs(pad, 7, "b /b");
    std::filesystem::create_directory(directory.path("gone"));
    writeFile(inner, record(2, 7, "a /a") + record(2, 7, "b /b"));
    EXPECT_EQ(storedFor(pad, "a /a"), 7);
    EXPECT_EQ(storedFor(pad, "b /b"), -2);
    EXPECT_THAT(log.text(), HasSubstr(": 1 incomplete or contradicting records passed over"));
}

TEST_F(ScratchPadFile, ARecordThatCannotBeReadAnyMoreKeepsItsNumber) {
    writeFile(clasp.ScratchPad, record(2, 1, "a /a"));
    ScratchPad pad(clasp.ScratchPad);
    ASSERT_TRUE(pad.refresh());
    const WatchedReads failing([] { return EIO; });
    EXPECT_EQ(storedFor(pad, "a /a"), 1);
    EXPECT_EQ(storedFor(pad, "b /b"), -2);
}

TEST_F(ScratchPadFile, AFileThatCannotBeReadToItsEndIsReadAgainAndMeanwhileWhatWasKnownStays) {
    const std::string many(65536, '\n'); // so that the second record is in a second read
    const std::string more = record(2, 1, "a /a") + many + record(2, 2, "b /b");
    for (const bool before : {false, true})
        for (const int good : {0, 1}) {
            writeFile(clasp.ScratchPad, record(2, 1, "a /a"));
            ScratchPad pad(clasp.ScratchPad);
            EXPECT_TRUE(!before || pad.refresh());
            writeFile(clasp.ScratchPad, more);
            {
                int reads = 0;
                const WatchedReads failing([&] { return reads++ < good ? 0 : EIO; });
                EXPECT_FALSE(pad.refresh());
                EXPECT_EQ(pad.highestRid(), before ? 1 : 0);
            }
            EXPECT_THAT(log.text(),
                        HasSubstr("Cannot read scratch pad " + clasp.ScratchPad + ": Input/output error\n"));
            EXPECT_EQ(storedFor(pad, "a /a"), 1);
            EXPECT_EQ(storedFor(pad, "b /b"), 2);
        }
}

TEST_F(ScratchPadFile, ARecordThatWasOverwrittenUnnoticedIsNobodys) {
    writeFile(clasp.ScratchPad, record(2, 1, "a /a"));
    ScratchPad pad(clasp.ScratchPad);
    ASSERT_TRUE(pad.refresh());
    const auto time = std::filesystem::last_write_time(clasp.ScratchPad);
    writeFile(clasp.ScratchPad, std::string(content().size(), 'x'));
    std::filesystem::last_write_time(clasp.ScratchPad, time);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 2);
}

TEST_F(ScratchPadFile, ARecordThatDoesNotFitIsTakenBackWhole) {
    ScratchPad pad(clasp.ScratchPad);
    numberOf(pad, disk("a /a"));
    const std::string before = content();
    struct rlimit old = {};
    ::getrlimit(RLIMIT_FSIZE, &old);
    struct rlimit small = old;
    small.rlim_cur = before.size() + 30;
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &small);
    const std::int32_t rid = numberOf(pad, disk("b /b"));
    ::setrlimit(RLIMIT_FSIZE, &old);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(rid, 2);
    EXPECT_EQ(content(), before);
    EXPECT_THAT(log.text(), HasSubstr("Cannot write scratch pad " + clasp.ScratchPad + ": File too large\n"));
    EXPECT_TRUE(pad.settle());
    EXPECT_EQ(content(), before + record(2, 2, "b /b"));
}

TEST_F(ScratchPadFile, ADirectoryOrAFifoInItsPlaceHoldsNobodyUp) {
    const std::string fifo = directory.path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& path : {directory.path(), fifo}) {
        startRun();
        ScratchPad pad(path);
        EXPECT_FALSE(pad.ensureExists());
        EXPECT_EQ(numberOf(pad, disk("a /a")), 1);
        EXPECT_THAT(log.text(), HasSubstr("Cannot write scratch pad " + path));
    }
}

TEST_F(ScratchPadFile, WithoutADescriptorTheIndexInMemoryServes) {
    ScratchPad pad(clasp.ScratchPad);
    numberOf(pad, disk("a /a"));
    ScanUpChainDeletingAllLinks(&clasp);
    struct rlimit old = {};
    ::getrlimit(RLIMIT_NOFILE, &old);
    struct rlimit none = old;
    none.rlim_cur = 3;
    ::setrlimit(RLIMIT_NOFILE, &none);
    const std::int32_t known = numberOf(pad, disk("a /a"));
    const std::int32_t fresh = numberOf(pad, disk("b /b"));
    ::setrlimit(RLIMIT_NOFILE, &old);
    EXPECT_EQ(known, 1);
    EXPECT_EQ(fresh, 2);
    EXPECT_TRUE(pad.settle());
    EXPECT_EQ(content(), record(2, 1, "a /a") + record(2, 2, "b /b"));
}

TEST_F(ScratchPadFile, WhenNoNumberIsLeftTheResourceIsLeftOut) {
    writeFile(clasp.ScratchPad, record(2, 2147483647, "a /a"));
    startRun();
    ScratchPad pad(clasp.ScratchPad);
    EXPECT_EQ(numberOf(pad, disk("b /b")), 0);
    EXPECT_EQ(numberOf(pad, disk("a /a")), 2147483647);
    EXPECT_THAT(log.text(),
                HasSubstr("No resource identifier is left for LogicalDisk b /b PercentFreeSpaceUsed\n"));
}

TEST_F(ScratchPadFile, TheRunsScratchPadIsOneForAllUntilTheNameChanges) {
    ScratchPad& pad = scratchPadOf(clasp);
    EXPECT_EQ(&scratchPadOf(clasp), &pad);
    clasp.ScratchPad = directory.path("other");
    EXPECT_EQ(scratchPadOf(clasp).path(), clasp.ScratchPad);
}

TEST(ScratchPadSections, AreCutTheSameWhateverTheBlocks) {
    const std::string text = "junk" + record(2, 1, "a /a") + record(1, 2, "Event: x\n") + "\nEvent: torn";
    std::vector<std::string> whole;
    for (std::size_t block = text.size(); block > 0; --block) {
        std::vector<std::string> sections;
        SectionSplitter splitter([&](std::string_view section) {
            sections.emplace_back(section);
            EXPECT_EQ(text.substr(static_cast<std::size_t>(splitter.sectionBegin()), section.size()),
                      section);
        });
        for (std::size_t at = 0; at < text.size(); at += block)
            splitter.feed(std::string_view(text).substr(at, block));
        splitter.finish();
        if (whole.empty())
            whole = sections;
        ASSERT_EQ(sections, whole) << block;
    }
    EXPECT_EQ(whole.size(), 3U);
}

TEST(ScratchPadSections, BehindOneThatIsTooLongKeepTheirPlace) {
    const std::string text =
        record(2, 1, "a /a") + "\nEvent: " + std::string(200000, 'x') + record(2, 2, "b /b");
    std::vector<std::string> found;
    SectionSplitter splitter([&](std::string_view section) {
        found.push_back(text.substr(static_cast<std::size_t>(splitter.sectionBegin()), section.size()));
        EXPECT_EQ(found.back(), section);
    });
    for (std::size_t at = 0; at < text.size(); at += 4096)
        splitter.feed(std::string_view(text).substr(at, 4096));
    splitter.finish();
    ASSERT_EQ(found.size(), 3U);
    EXPECT_EQ(found.back(), record(2, 2, "b /b").substr(1));
}

} // namespace
} // namespace obrin::test
