#include "acquisition/diskListing.h"

#include "acquisition/textForms.h"
#include "support/handles.h"
#include "tests/acquisition/testMachine.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

using namespace obrin;
using namespace obrin::test;
using namespace std::chrono_literals;

namespace {

std::string shown(std::string_view line) {
    const auto parsed = parseDiskLine(line);
    if (!parsed)
        return "rejected";
    return parsed->device + "|" + std::to_string(parsed->total) + "|" + std::to_string(parsed->used) + "|" +
           std::to_string(parsed->available) + "|" + parsed->mountPoint;
}

const DiskLine* lookUp(const TakenListing& taken, const std::string& name) {
    return taken.listing ? taken.listing->find(cleanfilename(name)) : nullptr;
}

/// Fills the file system of that path to the last byte.
void fillUp(const std::string& path) {
    Descriptor file = Descriptor::open(path, O_WRONLY | O_CREAT);
    const std::string block(4096, 'x');
    while (writeAll(file.get(), block.data(), block.size())) {
    }
}

/// A listing once no command that was killed is left: that takes a moment.
TakenListing takeAfterAKill(DiskCounter counter) {
    TakenListing taken;
    await([&] {
        taken = takeDiskListing(counter);
        return taken.status != -1;
    });
    return taken;
}

/// Sends standard error elsewhere for as long as it lives.
class StandardErrorGoesTo {
public:
    explicit StandardErrorGoesTo(const Descriptor& place)
        : before_(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
        ::dup2(place.get(), STDERR_FILENO);
    }
    StandardErrorGoesTo(const StandardErrorGoesTo&) = delete;
    StandardErrorGoesTo& operator=(const StandardErrorGoesTo&) = delete;
    ~StandardErrorGoesTo() { ::dup2(before_.get(), STDERR_FILENO); }

private:
    Descriptor before_;
};

/// A pipe, filled to its last byte.
struct FullPipe {
    Descriptor reader, writer;

    FullPipe() {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0)
            return;
        reader = Descriptor(ends[0]);
        writer = Descriptor(ends[1]);
        const std::string block(4096, 'x');
        while (writeAll(writer.get(), block.data(), block.size())) {
        }
        ::fcntl(writer.get(), F_SETFL, O_WRONLY);
    }
};

bool processRuns(const std::string& pid) {
    const std::string stat = readFile("/proc/" + pid + "/stat");
    return !stat.empty() && stat.find(") Z") == std::string::npos;
}

} // namespace

namespace {

/// A df each run of which takes so long.
class SlowDf {
public:
    SlowDf(TestMachine& machine, Clock::Duration time, const std::string& body)
        : time_(machine.clock, time, [this, &machine, done = machine.dfStarts()](Clock::Moment) mutable {
              if (waiting_)
                  writeFile(machine.path("go" + std::to_string(done)), "");
              waiting_ = machine.dfStarts() > done;
              done += waiting_ ? 1 : 0;
              return waiting_;
          }) {
        machine.installDf("until [ -e \"" + machine.path("go") + "$(wc -l < '" + machine.path("starts") +
                          "')\" ]; do sleep 0.01; done\n" + body);
    }

private:
    bool waiting_ = false; ///< the clock was turned for a run
    TimeGoesBy time_;
};

} // namespace

// --- lines
// -----------------------------------------------------------------------------------------------------------

TEST(DiskLine, TakesTheColumnsApart) {
    EXPECT_EQ(shown("/dev/hda1       1000  300   600  34% /home"), "/dev/hda1|1000|300|600|/home");
    EXPECT_EQ(shown("/dev/hda1 1000 300 600 100% /"), "/dev/hda1|1000|300|600|/");
    EXPECT_EQ(shown("tmpfs 0 0 0 - /x"), "tmpfs|0|0|0|/x");
    EXPECT_EQ(shown("odd - 5 6 - /x"), "odd|-1|5|6|/x");
    EXPECT_EQ(shown("odd 100 120 -20 120% /x"), "odd|100|120|-20|/x");
}

TEST(DiskLine, ReadsNumbersOf64Bits) {
    EXPECT_EQ(shown("a 18014398509481984 4294967296 9223372036854775807 1% /a"),
              "a|18014398509481984|4294967296|9223372036854775807|/a");
    EXPECT_EQ(shown("a 18446744073709551615 1 18446744073709551614 1% /a"),
              "a|9223372036854775807|1|9223372036854775807|/a");
}

TEST(DiskLine, TheRestOfTheLineIsTheMountPoint) {
    EXPECT_EQ(shown("/dev/a 1 2 3 4% /mnt/a b  c "), "/dev/a|1|2|3|/mnt/a b  c ");
    EXPECT_EQ(shown("/dev/a 1 2 3 4% /mnt/%n$(touch pwn)'\")"), "/dev/a|1|2|3|/mnt/%n$(touch pwn)'\")");
    EXPECT_EQ(shown("/dev/a 1 2 3 4% /mnt/\xff\xfe"), "/dev/a|1|2|3|/mnt/\xff\xfe");
}

TEST(DiskLine, TheDeviceMayHoldBlanksAndNumbers) {
    EXPECT_EQ(shown("my disk          1 2 3 4% /mnt"), "my disk|1|2|3|/mnt");
    EXPECT_EQ(shown("disk 5 100 20 80 20% /mnt"), "disk 5|100|20|80|/mnt");
    EXPECT_EQ(shown("srv /export 9% /b 100 20 80 20% /mnt"), "srv /export 9% /b|100|20|80|/mnt");
}

TEST(DiskLine, WhatCanBeReadInTwoWaysIsLeftOut) {
    EXPECT_EQ(shown("a 1 2 3 4% /x 5 6 7 8% /y"), "rejected");
}

TEST(DiskLine, NonsenseIsRejected) {
    for (const char* line :
         {"", " ", "tmpfs", "tmpfs 1 2 3 4%", "tmpfs 1 2 3 4% ", "tmpfs 1 2 3 4% home", "1 2 3 4% /x",
          "tmpfs 1 2 4% /x", "tmpfs 1 x 3 4% /x", "tmpfs 1 2 3 % /x", "tmpfs 1 2 3 4 /x", "tmpfs 1 - - - /x",
          "tmpfs 1.5 2 3 4% /x", "tmpfs 1 2 3 4%/x", "tmpfs 1\t2 3 4% /x",
          "tmpfs 1 2 99999999999999999999 4% /x", "tmpfs 1 +2 3 4% /x"})
        EXPECT_EQ(shown(line), "rejected") << line;
    EXPECT_EQ(shown(std::string_view("tmpfs 1 2 3 4% /x\0y", 19)), "rejected");
}

// --- listings
// --------------------------------------------------------------------------------------------------------

TEST(DiskListing, AListingCutAtAnyByteNeverGivesAWrongNumber) {
    for (const char* machine : {"server-swap-lvm", "uefi-workstation", "file-server", "debian-container"})
        for (const char* file : {"df.txt", "df-i.txt"}) {
            const std::string whole = readFile(std::string(LUMETRA_FIXTURES) + "/" + machine + "/" + file);
            const DiskListing complete(whole);
            ASSERT_GE(complete.lines().size(), 3U) << machine;
            for (std::size_t length = 0; length <= whole.size(); ++length) {
                const std::string text = whole.substr(0, length);
                const DiskListing cut(text);
                const auto feeds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
                EXPECT_EQ(cut.lineFeeds(), feeds);
                EXPECT_EQ(cut.hasHeading(), feeds > 0);
                ASSERT_EQ(cut.lines().size(), feeds > 0 ? feeds - 1 : 0);
                for (std::size_t i = 0; i < cut.lines().size(); ++i) {
                    EXPECT_EQ(cut.lines()[i].used, complete.lines()[i].used);
                    EXPECT_EQ(cut.lines()[i].available, complete.lines()[i].available);
                    EXPECT_EQ(cut.lines()[i].mountPoint, complete.lines()[i].mountPoint);
                }
            }
        }
}

TEST(DiskListing, MissingNumbersAndNonsenseLinesAreSkippedAndTheFirstOfEqualNamesCounts) {
    const DiskListing listing(
        "heading 1 2 3 4% /heading\na 1 2 3 4% /a\ngarbage\n\nb 1 2 4% /b\na 9 9 9 9% /a\nc 1 5 3 4% /c\n");
    ASSERT_EQ(listing.lines().size(), 3U);
    EXPECT_EQ(listing.lineFeeds(), 7U);
    EXPECT_EQ(listing.find("a__a")->used, 2);
    EXPECT_EQ(listing.find("c__c")->used, 5);
    EXPECT_EQ(listing.find("b__b"), nullptr);
    EXPECT_EQ(listing.find("heading__heading"), nullptr);
}

TEST(DiskListing, TenThousandMountsAreParsedAndLookedUp) {
    std::string text = "heading\n";
    for (int i = 0; i < 10000; ++i)
        text += "/dev/vg/volume" + std::to_string(i) + " 1000 300 " + std::to_string(i) + " 34% /mnt/volume" +
                std::to_string(i) + "\n";
    const DiskListing listing(text);
    for (int round = 0; round < 2; ++round)
        for (int i = 0; i < 10000; ++i) {
            const std::string number = std::to_string(i);
            const DiskLine* line =
                listing.find(cleanfilename("/dev/vg/volume" + number + " /mnt/volume" + number));
            ASSERT_NE(line, nullptr);
            EXPECT_EQ(line->available, i);
        }
}

// --- taking one
// ------------------------------------------------------------------------------------------------------

TEST(TakeDiskListing, TheRealDfWritesTheWorkFileAndIsRead) {
    TestMachine machine;
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    ASSERT_TRUE(taken.listing);
    EXPECT_EQ(taken.status, 0);
    EXPECT_FALSE(taken.listing->lines().empty());
    EXPECT_EQ(DiskListing(readFile(machine.path("LumetraDisks.txt"))).lines().size(),
              taken.listing->lines().size());
    const TakenListing inodes = takeDiskListing(DiskCounter::inodes);
    ASSERT_TRUE(inodes.listing);
    EXPECT_NE(readFile(machine.path("LumetraDisks.txt")).find("IUsed"), std::string::npos);
}

TEST(TakeDiskListing, UnitsAndNamesDoNotDependOnTheEnvironment) {
    TestMachine machine;
    for (const char* name : {"DF_BLOCK_SIZE", "BLOCK_SIZE", "BLOCKSIZE", "POSIXLY_CORRECT"})
        ::setenv(name, "512", 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    machine.installDf("env > '" + machine.path("environment") + "'; echo heading\n");
    takeDiskListing(DiskCounter::space);
    for (const char* name : {"DF_BLOCK_SIZE", "BLOCK_SIZE", "BLOCKSIZE", "POSIXLY_CORRECT", "LC_ALL"})
        ::unsetenv(name);
    const std::string environment = "\n" + readFile(machine.path("environment"));
    EXPECT_NE(environment.find("\nLC_ALL=C\n"), std::string::npos);
    EXPECT_EQ(environment.find("LC_ALL=C.UTF-8"), std::string::npos);
    EXPECT_EQ(environment.find("BLOCK"), std::string::npos);
    EXPECT_EQ(environment.find("POSIXLY"), std::string::npos);
    EXPECT_NE(environment.find("\nPATH="), std::string::npos);
}

TEST(TakeDiskListing, AWorkFileNameWithQuotesAndBlanksIsOneName) {
    TestMachine machine;
    machine.installDf("echo heading\n");
    systemPaths().diskListing = machine.path("it's $(touch pwn) a name");
    EXPECT_TRUE(takeDiskListing(DiskCounter::space).listing);
    EXPECT_EQ(readFile(machine.path("it's $(touch pwn) a name")), "heading\n");
}

TEST(TakeDiskListing, AShorterListingLeavesNothingOfALongerOne) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'; echo 'b 1 2 3 4% /b'\n");
    EXPECT_EQ(takeDiskListing(DiskCounter::space).listing->lines().size(), 2U);
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
    EXPECT_EQ(takeDiskListing(DiskCounter::space).listing->lines().size(), 1U);
    EXPECT_EQ(readFile(machine.path("LumetraDisks.txt")), "heading\na 1 2 3 4% /a\n");
}

TEST(TakeDiskListing, AFreshOneIsMadeForEachCallWithinTheBudget) {
    TestMachine machine;
    machine.installDf("echo heading\n");
    for (int i = 0; i < 3; ++i)
        takeDiskListing(DiskCounter::space);
    EXPECT_EQ(machine.dfStarts(), 3);
}

TEST(TakeDiskListing, PastTheBudgetTheNewestOfThisCycleServesAndEachCounterGetsOne) {
    TestMachine machine;
    const SlowDf slow(machine, 30ms,
                      "echo heading; echo \"a 1 $(wc -l < '" + machine.path("starts") + "') 3 4% /a\"\n");
    beginListingCycle(0ms); // at least 50 ms
    EXPECT_EQ(lookUp(takeDiskListing(DiskCounter::space), "a /a")->used, 1);
    EXPECT_EQ(lookUp(takeDiskListing(DiskCounter::space), "a /a")->used, 2);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(lookUp(takeDiskListing(DiskCounter::space), "a /a")->used, 2);
    EXPECT_EQ(lookUp(takeDiskListing(DiskCounter::inodes), "a /a")->used, 3);
    EXPECT_EQ(lookUp(takeDiskListing(DiskCounter::inodes), "a /a")->used, 3);
    EXPECT_EQ(machine.dfStarts(), 3);
    machine.installDf("echo heading; echo 'a 1 9 3 4% /a'\n");
    beginListingCycle(0ms);
    EXPECT_EQ(lookUp(takeDiskListing(DiskCounter::space), "a /a")->used, 9);
}

TEST(TakeDiskListing, TheBudgetIsAHundredthOfThePeriod) {
    TestMachine machine;
    const SlowDf slow(machine, 60ms, "echo heading\n");
    beginListingCycle(10s);
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(takeDiskListing(DiskCounter::space).listing);
    EXPECT_EQ(machine.dfStarts(), 2);
}

TEST(TakeDiskListing, OneTextIsTakenApartOnceAndAnotherOneAnew) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
    const TakenListing first = takeDiskListing(DiskCounter::space);
    EXPECT_EQ(takeDiskListing(DiskCounter::space).listing, first.listing);
    machine.installDf("echo heading; echo 'a 1 2 4 4% /a'\n");
    const TakenListing changed = takeDiskListing(DiskCounter::space);
    ASSERT_NE(lookUp(changed, "a /a"), nullptr);
    EXPECT_EQ(lookUp(changed, "a /a")->available, 4);
    EXPECT_EQ(lookUp(first, "a /a")->available, 3);
    EXPECT_EQ(machine.dfStarts(), 3);
}

TEST(TakeDiskListing, ACommandThatFailsSlowlyIsNotRepeatedPastTheBudget) {
    TestMachine machine;
    const SlowDf slow(machine, 30ms, "exit 1\n");
    beginListingCycle(0ms);
    for (int i = 0; i < 5; ++i)
        EXPECT_FALSE(takeDiskListing(DiskCounter::space).listing);
    EXPECT_EQ(machine.dfStarts(), 2); // once into the file, once into the pipe
}

TEST(DiskListingFaults, AMissingDfGivesNoListing) {
    TestMachine machine;
    const std::string path = std::getenv("PATH");
    ::setenv("PATH", machine.path("empty").c_str(), 1);
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    ::setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(taken.status, commandNotRun);
    EXPECT_FALSE(taken.listing);
}

TEST(DiskListingFaults, WithoutAPathTheMachinesDfIsFoundAllTheSame) {
    TestMachine machine;
    ::unsetenv("PATH"); // until the machine goes
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    EXPECT_EQ(taken.status, 0);
    ASSERT_TRUE(taken.listing);
    EXPECT_TRUE(taken.listing->hasHeading());
}

TEST(DiskListingFaults, ADfThatIsNotExecutableGivesNoListing) {
    TestMachine machine;
    machine.installDf("echo heading\n");
    std::filesystem::permissions(machine.path("bin/df"), std::filesystem::perms(0644));
    const std::string path = std::getenv("PATH");
    ::setenv("PATH", machine.path("bin").c_str(), 1);
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    ::setenv("PATH", path.c_str(), 1);
    EXPECT_TRUE(taken.status == 126 << 8 || taken.status == commandNotRun) << taken.status;
    EXPECT_FALSE(taken.listing);
}

TEST(DiskListingFaults, AKilledDfGivesNoListingAndAnOldWorkFileIsNotRead) {
    TestMachine machine;
    writeFile(machine.path("LumetraDisks.txt"), "heading\nold 1 2 3 4% /old\n");
    machine.installDf("kill -9 $$\n");
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    EXPECT_TRUE(taken.status == SIGKILL || taken.status == (128 + SIGKILL) << 8) << taken.status;
    EXPECT_FALSE(taken.listing);
}

TEST(DiskListingFaults, RowsPrintedBeforeTheDeathOfDfAreUsed) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'; printf 'b 1 2 3 4%% /b'; kill -9 $$\n");
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    ASSERT_NE(lookUp(taken, "a /a"), nullptr);
    EXPECT_EQ(lookUp(taken, "b /b"), nullptr);
}

TEST(DiskListingFaults, UsefulRowsOfADfThatEndsWith1AreUsed) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'; echo 'df: /b: Permission denied' >&2; exit 1\n");
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    EXPECT_EQ(taken.status, 1 << 8);
    ASSERT_NE(lookUp(taken, "a /a"), nullptr);
}

TEST(DiskListingFaults, AWholeListingOfADfThatEndsWith1IsNotTakenASecondTime) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'; exit 1\n");
    for (int i = 0; i < 2; ++i) { // without a work file, and over an older one
        const TakenListing taken = takeDiskListing(DiskCounter::space);
        EXPECT_EQ(taken.status, 1 << 8);
        EXPECT_NE(lookUp(taken, "a /a"), nullptr);
        EXPECT_EQ(machine.dfStarts(), i + 1);
    }
}

TEST(DiskListingFaults, AListingOfADfThatWasKilledIsTakenASecondTime) {
    TestMachine machine;
    for (const char* death : {"kill -9 $$\n", "exit 137\n"}) {
        machine.installDf(std::string("echo heading; echo 'a 1 2 3 4% /a'; ") + death);
        const int before = machine.dfStarts();
        EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
        EXPECT_EQ(machine.dfStarts(), before + 2) << death;
    }
}

TEST(DiskListingFaults, AnEmptyListingDoesNotTakeThePlaceOfAnEarlierOneOfTheCycle) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
    takeDiskListing(DiskCounter::space);
    machine.installDf("exit 0\n");
    EXPECT_FALSE(takeDiskListing(DiskCounter::space).listing->hasHeading());
    machine.installDf("exec sleep 1000\n");
    const auto timeout = machine.nextListingTimesOut();
    EXPECT_FALSE(takeDiskListing(DiskCounter::space).listing);
    EXPECT_NE(lookUp(takeAfterAKill(DiskCounter::space), "a /a"), nullptr);
}

TEST(DiskListingFaults, AListingThatADfThatEndsWith1LeftUnfinishedIsTakenASecondTime) {
    TestMachine machine;
    const std::string row(500, 'x');
    for (const std::string& unfinished :
         {std::string("heading\na 1 2 3 4% /a"), "heading\n" + row + "123\n", std::string()}) {
        writeFile(machine.path("first"), unfinished);
        machine.installDf("[ -e '" + machine.path("again") +
                          "' ] && { echo heading; echo 'a 1 2 3 4% /a'; exit 1; }\n" + "touch '" +
                          machine.path("again") + "'; cat '" + machine.path("first") + "'; exit 1\n");
        const int before = machine.dfStarts();
        EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
        EXPECT_EQ(machine.dfStarts(), before + 2) << unfinished.size();
        std::filesystem::remove(machine.path("again"));
    }
}

TEST(DiskListingFaults, AWorkFileThatCannotBeWrittenIsReplacedByAPipe) {
    TestMachine machine;
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
    systemPaths().diskListing = machine.path("no-such-directory/LumetraDisks.txt");
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    EXPECT_NE(lookUp(taken, "a /a"), nullptr);
    EXPECT_EQ(taken.status, 2 << 8);
    systemPaths().diskListing = machine.path("fifo");
    ASSERT_EQ(::mkfifo(systemPaths().diskListing.c_str(), 0666), 0);
    EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
    systemPaths().diskListing = "/dev/full";
    EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
}

TEST(DiskListingFaults, TheFullDiskThatHoldsTheWorkFileIsReportedAsFull) {
    TestMachine machine;
    const std::string disk = machine.path("disk");
    std::filesystem::create_directory(disk);
    systemPaths().diskListing = disk + "/LumetraDisks.txt";
    const int result = runInMountNamespace([&] {
        ASSERT_EQ(::mount("small", disk.c_str(), "tmpfs", 0, "size=64k"), 0);
        fillUp(disk + "/filler");
        Link link = diskLink("small " + disk);
        EXPECT_EQ(ReadRawData(&link), 1);
        EXPECT_EQ(link.DataArray[0], 100.0);
        EXPECT_EQ(readFile(systemPaths().diskListing), "");
        std::filesystem::remove(disk + "/filler");
        EXPECT_EQ(ReadRawData(&link), 1);
        EXPECT_LT(link.DataArray[0], 50.0);
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to mount; the pipe is also tested with /dev/full";
}

TEST(DiskListingFaults, AnOldListingOnAReadOnlyDiskIsNotRead) {
    TestMachine machine;
    const std::string disk = machine.path("disk");
    std::filesystem::create_directory(disk);
    systemPaths().diskListing = disk + "/LumetraDisks.txt";
    const int result = runInMountNamespace([&] {
        ASSERT_EQ(::mount("small", disk.c_str(), "tmpfs", 0, "size=64k"), 0);
        writeFile(disk + "/LumetraDisks.txt", "heading\nold 1 2 3 4% /old\n");
        ASSERT_EQ(::mount("small", disk.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
        const TakenListing taken = takeDiskListing(DiskCounter::space);
        EXPECT_EQ(lookUp(taken, "old /old"), nullptr);
        EXPECT_NE(lookUp(taken, "small " + disk), nullptr);
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to mount";
}

TEST(DiskListingFaults, WhenNoProcessCanBeStartedTheReadingFailsSoftly) {
    TestMachine machine;
    machine.log.text();
    RefreshRawData();
    const int result = runInChild([&] {
        GetNumberOfdisks(); // opens the log while that is still allowed
        const rlimit none{0, 0};
        if ((::getuid() == 0 && ::setuid(65534) != 0) || ::setrlimit(RLIMIT_NPROC, &none) != 0)
            ::_exit(lacksPrivilege);
        EXPECT_EQ(GetNumberOfdisks(), 0);
        const TakenListing taken = takeDiskListing(DiskCounter::space);
        EXPECT_EQ(taken.status, commandNotRun);
        EXPECT_FALSE(taken.listing);
        Link link = diskLink("/dev/vda /");
        EXPECT_EQ(ReadRawData(&link), notRead);
        EXPECT_EQ(link.DataArray[0], 7.5);
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to become another user";
    EXPECT_NE(machine.log.text().find("retval=32512\n"), std::string::npos);
}

TEST(DiskListingFaults, AHangingDfIsGivenUpWithItsGroupAndNothingMoreIsStartedInThisCycle) {
    TestMachine machine;
    machine.installDf("echo $$ > '" + machine.path("shell") + "'; sleep 1000 & echo $! > '" +
                      machine.path("pid") + "'; wait\n");
    Link link = diskLink("a /a");
    const Clock::Moment begun = machine.clock.now();
    Clock::Moment lastAlive;
    // In steps so small that the looks between the kill and the death do not make up for seconds.
    const TimeGoesBy hanging(machine.clock, 250ms, [&](Clock::Moment now) {
        const std::string pid = readFile(machine.path("pid"));
        const bool hangs = pid.ends_with('\n') && processRuns(pid.substr(0, pid.size() - 1));
        lastAlive = hangs ? now : lastAlive;
        return hangs && now < begun + 12s;
    });
    EXPECT_EQ(ReadRawData(&link), notRead);
    EXPECT_GE(lastAlive, begun + 9s);
    EXPECT_EQ(link.DataArray[0], 7.5);
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(ReadRawData(&link), notRead);
    for (const char* file : {"pid", "shell"}) { // one of them may outlive the other, and count as stuck
        std::string pid = readFile(machine.path(file));
        ASSERT_FALSE(pid.empty());
        pid.pop_back();
        await([&] { return !processRuns(pid); });
    }
    EXPECT_EQ(GetNumberOfdisks(), 0);
    EXPECT_EQ(machine.dfStarts(), 1);
    EXPECT_NE(machine.log.text().find("retval=9\n"), std::string::npos);
}

TEST(DiskListingFaults, ComplaintsOfDfThatNobodyReadsDoNotHoldItUp) {
    TestMachine machine;
    machine.installDf("echo heading\n");
    takeDiskListing(DiskCounter::space); // so that it is not silent for having complained before
    beginListingCycle(10s);
    machine.installDf("timeout 60 sh -c 'echo df: /b: Operation not permitted >&2' || exit 3\n"
                      "echo heading; echo 'a 1 2 3 4% /a'; exit 1\n");
    const FullPipe nobodyReads;
    const StandardErrorGoesTo full(nobodyReads.writer);
    const TakenListing taken = takeDiskListing(DiskCounter::space);
    EXPECT_NE(lookUp(taken, "a /a"), nullptr);
    EXPECT_EQ(machine.dfStarts(), 2);
}

TEST(DiskListingFaults, DfComplainsOnceUntilItHasSucceededAgain) {
    TestMachine machine;
    const std::string listing = "echo heading; echo 'a 1 2 3 4% /a'\n";
    const Descriptor errors = Descriptor::open(machine.path("errors"), O_WRONLY | O_CREAT | O_APPEND);
    const auto complaintsAfter = [&](const std::string& df, int cycles) {
        machine.installDf(df);
        const StandardErrorGoesTo file(errors);
        for (int cycle = 0; cycle < cycles; ++cycle) {
            beginListingCycle(10s);
            EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
        }
        return readFile(machine.path("errors"));
    };
    const std::string failing = listing + "echo df: /b: Input/output error >&2; exit 1\n";
    const std::string complaint = "df: /b: Input/output error\n";
    EXPECT_EQ(complaintsAfter(listing, 1), "");
    EXPECT_EQ(complaintsAfter(failing, 3), complaint);
    EXPECT_EQ(complaintsAfter(listing, 1), complaint);
    EXPECT_EQ(complaintsAfter(failing, 2), complaint + complaint);
}

TEST(DiskListingFaults, RecoveryAfterAHangIsNoticedInTheNextCycle) {
    TestMachine machine;
    machine.installDf("exec sleep 1000\n");
    {
        const auto timeout = machine.nextListingTimesOut();
        EXPECT_FALSE(takeDiskListing(DiskCounter::space).listing);
    }
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
    EXPECT_FALSE(takeAfterAKill(DiskCounter::space).listing);
    beginListingCycle(10s);
    EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
}

TEST(DiskListingFaults, WhatWasReadBeforeAHangServesTheRestOfTheCycle) {
    TestMachine machine;
    machine.installDf("case \"$1\" in -i) exec sleep 1000;; esac; echo heading; echo 'a 1 2 3 4% /a'\n");
    EXPECT_NE(lookUp(takeDiskListing(DiskCounter::space), "a /a"), nullptr);
    {
        const auto timeout = machine.nextListingTimesOut();
        EXPECT_FALSE(takeDiskListing(DiskCounter::inodes).listing);
    }
    EXPECT_NE(lookUp(takeAfterAKill(DiskCounter::space), "a /a"), nullptr);
    EXPECT_EQ(machine.dfStarts(), 2);
}

TEST(DiskListingFaults, WhileAKilledDfIsStuckInTheKernelNoSecondOneIsStarted) {
    const std::string group = "/sys/fs/cgroup/freezer/lumetra-test-" + std::to_string(::getpid());
    if (::mkdir(group.c_str(), 0755) != 0 || !std::filesystem::exists(group + "/freezer.state"))
        GTEST_SKIP() << "needs a freezer control group to make a process that cannot be killed";
    {
        TestMachine machine;
        machine.installDf("echo $$ > " + group + "/cgroup.procs; echo FROZEN > " + group +
                          "/freezer.state; sleep 9\n");
        {
            const TimeGoesBy past(machine.clock, 1s, [&](Clock::Moment) {
                return readFile(group + "/freezer.state") == "FROZEN\n";
            });
            EXPECT_FALSE(takeDiskListing(DiskCounter::space).listing);
        }
        beginListingCycle(10s);
        machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
        Link link = diskLink("a /a");
        EXPECT_EQ(ReadRawData(&link), notRead);
        EXPECT_EQ(GetNumberOfdisks(), 0);
        EXPECT_EQ(machine.dfStarts(), 1);
        writeFile(group + "/freezer.state", "THAWED");
        await([&] { return ReadRawData(&link) != notRead; });
        EXPECT_EQ(link.DataArray[0], 40.0);
        EXPECT_EQ(machine.dfStarts(), 2);
    }
    ::rmdir(group.c_str());
}

TEST(DiskListingFaults, DisksAreReadWhenTheLauncherLeftSigchldIgnored) {
    TestMachine machine;
    machine.installDf("sleep 0.1; echo heading; echo 'a 1 2 3 4% /a'\n");
    runInChild([&] {
        ::signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ(GetNumberOfdisks(), 1);
        Link link = diskLink("a /a");
        EXPECT_EQ(ReadRawData(&link), 1);
        EXPECT_EQ(link.DataArray[0], 40.0);
        struct sigaction kept;
        ::sigaction(SIGCHLD, nullptr, &kept);
        EXPECT_EQ(kept.sa_handler, SIG_IGN);
    });
    EXPECT_NE(machine.log.text().find("retval=-1\n"), std::string::npos);
}

TEST(DiskListingFaults, ADiskOver2TebibytesHasItsCapacity) {
    TestMachine machine;
    const std::string disk = machine.path("disk");
    std::filesystem::create_directory(disk);
    const int result = runInMountNamespace([&] {
        ASSERT_EQ(::mount("large", disk.c_str(), "tmpfs", 0, "size=3t"), 0);
        Link link = diskLink("large " + disk);
        EXPECT_EQ(ReadRawData(&link), 1);
        EXPECT_EQ(link.UpperLimitCalc, 3.0 * 1024 * 1024 * 1024);
        EXPECT_EQ(link.DataArray[0], 0.0);
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to mount; the file server among the fixtures has a disk of 4 TB";
}
