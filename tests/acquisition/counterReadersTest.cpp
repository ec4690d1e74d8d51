#include "acquisition/counterReaders.h"

#include "tests/acquisition/testMachine.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace obrin;
using namespace obrin::test;

namespace {

constexpr double infinite = std::numeric_limits<double>::infinity();

double valueOf(Link link) {
    EXPECT_EQ(ReadRawData(&link), 1);
    return link.DataArray[0];
}

/// A machine whose kernel files the test writes itself.
class ReadersTest : public ::testing::Test {
protected:
    ReadersTest() {
        systemPaths().loadavg = machine.path("loadavg");
        systemPaths().meminfo = machine.path("meminfo");
        systemPaths().threadsMax = machine.path("threads-max");
        systemPaths().fileNr = machine.path("file-nr");
    }
    void put(const char* name, std::string_view text) { writeFile(machine.path(name), text); }

    /// Expects that the reading gives nothing and changes no value.
    void expectNotRead(Link link) {
        EXPECT_EQ(ReadRawData(&link), notRead);
        EXPECT_EQ(link.DataArray[0], 7.5);
    }

    static constexpr double capacityBefore = 3.0;

    /// Expects that result, and that capacity afterwards.
    void expectCapacity(Link link, int result, double capacity) {
        link.UpperLimitCalc = capacityBefore;
        EXPECT_EQ(ReadRawData(&link), result);
        EXPECT_EQ(link.UpperLimitCalc, capacity);
    }

    TestMachine machine;
};

using ProcessesReader = ReadersTest;
using SwapReader = ReadersTest;
using DescriptorsReader = ReadersTest;
using DiskReader = ReadersTest;
using AnyReader = ReadersTest;

} // namespace

TEST_F(ProcessesReader, WithoutTasksHeaderTheCapacityIsTheSmallerOfMemoryAndThreadsMax) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("meminfo", "MemTotal:        2000000 kB\nMemFree: 1 kB\n");
    put("threads-max", "16000\n");
    Link link = systemLink("PercentProcessesUsed");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_EQ(link.UpperLimitCalc, 16000.0);
    EXPECT_DOUBLE_EQ(link.DataArray[0], 0.5);
    put("threads-max", "30000\n");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_EQ(link.UpperLimitCalc, 28000.0);
    put("meminfo", "MemTotal: 100031 kB\n");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_EQ(link.UpperLimitCalc, 3125.0);
}

TEST_F(ProcessesReader, LogsEachOpeningToTheByte) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "16000\n");
    Link link = systemLink("PercentProcessesUsed");
    ReadRawData(&link);
    EXPECT_EQ(machine.log.text(), " before 4 fopen(/proc/loadavg)\n after  4 fopen(/proc/loadavg)\n"
                                  " before 5 fopen(/usr/src/linux/include/linux/tasks.h)\n"
                                  " after  5 fopen(/usr/src/linux/include/linux/tasks.h)\n"
                                  " before 15 fopen(/proc/meminfo)\n after  15 fopen(/proc/meminfo)\n"
                                  " before 6 fopen(/proc/sys/kernel/threads-max)\n"
                                  " after  6 fopen(/proc/sys/kernel/threads-max)\n");
}

TEST_F(ProcessesReader, FailedOpeningsLogTheirOwnForms) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    expectNotRead(systemLink("PercentProcessesUsed"));
    EXPECT_TRUE(
        machine.log.text().ends_with(" before 15 fopen(/proc/meminfo)\n after  15n fopen(/proc/meminfo)\n"));
    put("meminfo", "MemTotal: 2000000 kB\n");
    expectNotRead(systemLink("PercentProcessesUsed"));
    EXPECT_TRUE(machine.log.text().ends_with(" before 6 fopen(/proc/sys/kernel/threads-max)\n"
                                             " after 6n fopen(/proc/sys/kernel/threads-max)\n"));
}

TEST_F(ProcessesReader, TasksHeaderGoesBeforeMemory) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("tasks.h", "#ifndef T\n#define NR_TASKS 512 /* was 128 */\n");
    systemPaths().tasksHeader = machine.path("tasks.h");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed")), 15.625);
    put("tasks.h", "#define NR_TASKS\n");
    expectNotRead(systemLink("PercentProcessesUsed"));
    put("tasks.h", "#define OTHER 512\n");
    expectNotRead(systemLink("PercentProcessesUsed"));
}

TEST_F(ProcessesReader, UpperLimitIsTruncatedAndACapacityOfZeroGivesNoValue) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "16000\n");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed", 50.9)), 160.0);
    expectNotRead(systemLink("PercentProcessesUsed", 0.9));
    EXPECT_NEAR(valueOf(systemLink("PercentProcessesUsed", infinite)), 0.0, 1e-12);
    EXPECT_NEAR(valueOf(systemLink("PercentProcessesUsed", 1e300)), 0.0, 1e-12);
    for (double none : {std::nan(""), 0.0, -50.0})
        EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed", none)), 0.5);
    put("meminfo", "MemTotal: 31 kB\n");
    expectNotRead(systemLink("PercentProcessesUsed"));
}

TEST_F(ProcessesReader, UpperLimitLeavesTheMeasuredCapacityAlone) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "16000\n");
    expectCapacity(systemLink("PercentProcessesUsed", 50.9), 1, 16000.0);
}

TEST_F(ProcessesReader, CapacityIsKeptAlthoughItGivesNoValue) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "16000\n");
    expectCapacity(systemLink("PercentProcessesUsed", 0.9), notRead, 16000.0);
}

TEST_F(ProcessesReader, AReadingThatEndsBeforeTheCapacityKeepsTheOneBefore) {
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "16000\n");
    expectCapacity(systemLink("PercentProcessesUsed"), notRead, capacityBefore);
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("threads-max", "many\n");
    expectCapacity(systemLink("PercentProcessesUsed"), notRead, capacityBefore);
}

TEST_F(ProcessesReader, LoadavgWithoutASlashIsNotRead) {
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "16000\n");
    for (const char* text :
         {"", "0.00 0.01 0.05 2 80 1234\n", "0.00 0.01 0.05 2/", "0.00 0.01 0.05 2/x 1\n"}) {
        put("loadavg", text);
        expectNotRead(systemLink("PercentProcessesUsed"));
    }
}

TEST_F(SwapReader, WithoutSwapAndWithoutUpperLimitTheValueIsUnchanged) {
    put("meminfo", "MemTotal: 1 kB\nSwapTotal:             0 kB\nSwapFree:              0 kB\n");
    Link link = systemLink("PercentSwapSpaceUsed");
    link.UpperLimitCalc = 3.0;
    EXPECT_EQ(ReadRawData(&link), notRead);
    EXPECT_EQ(link.DataArray[0], 7.5);
    EXPECT_EQ(link.UpperLimitCalc, 0.0);
    expectNotRead(systemLink("PercentSwapSpaceUsed", 0.0));
    put("meminfo", "SwapTotal: -5 kB\nSwapFree: 0 kB\n");
    expectNotRead(systemLink("PercentSwapSpaceUsed"));
}

TEST_F(SwapReader, UpperLimitKeepsItsFraction) {
    put("meminfo", "SwapTotal: 100 kB\nSwapFree: 25 kB\n");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentSwapSpaceUsed")), 75.0);
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentSwapSpaceUsed", 50.9)), (50.9 - 25.0) / 50.9 * 100.0);
    expectNotRead(systemLink("PercentSwapSpaceUsed", infinite));
    expectNotRead(systemLink("PercentSwapSpaceUsed", 5e-324));
}

TEST_F(SwapReader, UpperLimitLeavesTheMeasuredCapacityAlone) {
    put("meminfo", "SwapTotal: 100 kB\nSwapFree: 25 kB\n");
    expectCapacity(systemLink("PercentSwapSpaceUsed", 50.9), 1, 100.0);
}

TEST_F(SwapReader, LogsItsOpeningToTheByte) {
    expectNotRead(systemLink("PercentSwapSpaceUsed"));
    put("meminfo", "SwapTotal: 100 kB\nSwapFree: 25 kB\n");
    valueOf(systemLink("PercentSwapSpaceUsed"));
    EXPECT_EQ(machine.log.text(), " before 7 fopen(/proc/meminfo)\n after 7n fopen(/proc/meminfo)\n"
                                  " before 7 fopen(/proc/meminfo)\n after  7 fopen(/proc/meminfo)\n");
}

TEST_F(SwapReader, MissingWordsAreNotRead) {
    for (const char* text :
         {"", "SwapTotal: 100 kB\n", "SwapFree: 25 kB\n", "SwapFree: 25 kB\nSwapTotal: 100 kB\n",
          "SwapTotal: kB\nSwapFree: 25 kB\n", "SwapTotal:"}) {
        put("meminfo", text);
        expectNotRead(systemLink("PercentSwapSpaceUsed"));
    }
}

TEST_F(DescriptorsReader, FileNrOf1024And100And8192Gives11Point28PerCent) {
    put("file-nr", "1024\t100\t8192\n");
    Link link = systemLink("PercentFileDescriptorsUsed");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_EQ(link.UpperLimitCalc, 8192.0);
    EXPECT_DOUBLE_EQ(link.DataArray[0], 11.279296875);
}

TEST_F(DescriptorsReader, UpperLimitOf50Point9Uses50) {
    put("file-nr", "20 0 8192\n");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentFileDescriptorsUsed", 50.9)), 40.0);
    expectNotRead(systemLink("PercentFileDescriptorsUsed", 0.9));
    EXPECT_NEAR(valueOf(systemLink("PercentFileDescriptorsUsed", infinite)), 0.0, 1e-12);
}

TEST_F(DescriptorsReader, UpperLimitLeavesTheMeasuredCapacityAlone) {
    put("file-nr", "20 0 8192\n");
    expectCapacity(systemLink("PercentFileDescriptorsUsed", 50.9), 1, 8192.0);
}

TEST_F(DescriptorsReader, CapacityIsKeptAlthoughItGivesNoValue) {
    put("file-nr", "20 0 8192\n");
    expectCapacity(systemLink("PercentFileDescriptorsUsed", 0.9), notRead, 8192.0);
}

TEST_F(DescriptorsReader, TheLargestMaximumIsAboutZeroPerCent) {
    put("file-nr", "1312\t0\t9223372036854775807\n");
    Link link = systemLink("PercentFileDescriptorsUsed");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_EQ(link.UpperLimitCalc, 9223372036854775807.0);
    EXPECT_NEAR(link.DataArray[0], 0.0, 1e-9);
}

TEST_F(DescriptorsReader, AMaximumBelowOneAndMissingNumbersAreNotRead) {
    for (const char* text : {"", "1024 100", "1024 100 x", "1024 100 0\n", "1024 100 -1\n", "a b c\n"}) {
        put("file-nr", text);
        expectNotRead(systemLink("PercentFileDescriptorsUsed"));
    }
}

TEST_F(DescriptorsReader, LogsItsOpeningToTheByte) {
    expectNotRead(systemLink("PercentFileDescriptorsUsed"));
    put("file-nr", "20 0 8192\n");
    valueOf(systemLink("PercentFileDescriptorsUsed"));
    EXPECT_EQ(machine.log.text(),
              " before 8 fopen(/proc/sys/fs/file-nr)\n after 8n fopen(/proc/sys/fs/file-nr)\n"
              " before 8 fopen(/proc/sys/fs/file-nr)\n after  8 fopen(/proc/sys/fs/file-nr)\n");
}

TEST_F(DiskReader, TakesUsedOverUsedAndAvailable) {
    machine.installDf("echo head; echo '/dev/hda1 1000 300 600 34% /home'\n");
    Link link = diskLink("/dev/hda1 /home");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_EQ(link.UpperLimitCalc, 900.0);
    EXPECT_DOUBLE_EQ(link.DataArray[0], 300.0 / 900.0 * 100.0);
    EXPECT_EQ(machine.log.text(), " before 9 fopen(../tempdata/LumetraDisks.txt)\n"
                                  " after  9 fopen(../tempdata/LumetraDisks.txt)\n");
}

TEST_F(DiskReader, UpperLimitReplacesTheCapacityWithItsFraction) {
    machine.installDf("echo head; echo '/dev/hda1 1000 300 600 34% /home'\n");
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/hda1 /home", "PercentFreeSpaceUsed", 200.5)),
                     300.0 / 200.5 * 100.0);
    EXPECT_EQ(valueOf(diskLink("/dev/hda1 /home", "PercentFreeSpaceUsed", infinite)), 0.0);
    expectNotRead(diskLink("/dev/hda1 /home", "PercentFreeSpaceUsed", 5e-324));
}

TEST_F(DiskReader, UpperLimitLeavesTheMeasuredCapacityOfSpaceAndInodesAlone) {
    machine.installDf(
        "echo head; case \"$1\" in -i) echo 'a 100 30 60 34% /a';; *) echo 'a 1000 300 600 34% /a';; esac\n");
    expectCapacity(diskLink("a /a", "PercentFreeSpaceUsed", 200.5), 1, 900.0);
    expectCapacity(diskLink("a /a", "PercentFreeInodesUsed", 200.5), 1, 90.0);
}

TEST_F(DiskReader, CapacityIsKeptAlthoughItGivesNoValue) {
    machine.installDf("echo head; echo 'a 1000 300 600 34% /a'\n");
    expectCapacity(diskLink("a /a", "PercentFreeSpaceUsed", 5e-324), notRead, 900.0);
}

TEST_F(DiskReader, ADiskThatDiffersOnlyInCleanedCharactersMatches) {
    machine.installDf("echo head; echo '/dev/hda1 1000 300 600 34% /home'\n");
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/hda1:/home")), 300.0 / 900.0 * 100.0);
    expectNotRead(diskLink("/dev/hda1 /homes"));
}

// A capacity of 0: no reader but that of disks makes a value of it, and each notes what it measured.

TEST_F(ProcessesReader, ACapacityOfZeroGives155AndKeepsTheValueAndIsNotedAsMeasured) {
    put("loadavg", "0.00 0.01 0.05 2/80 1234\n");
    put("meminfo", "MemTotal: 2000000 kB\n");
    put("threads-max", "0\n");
    Link link = systemLink("PercentProcessesUsed");
    link.UpperLimitCalc = 3.0;
    EXPECT_EQ(ReadRawData(&link), 155);
    EXPECT_EQ(link.DataArray[0], 7.5);
    EXPECT_EQ(link.UpperLimitCalc, 0.0);
}

TEST_F(SwapReader, ACapacityOfZeroGives155AndKeepsTheValueAndIsNotedAsMeasured) {
    put("meminfo", "SwapTotal: 0 kB\nSwapFree: 0 kB\n");
    Link link = systemLink("PercentSwapSpaceUsed");
    link.UpperLimitCalc = 3.0;
    EXPECT_EQ(ReadRawData(&link), 155);
    EXPECT_EQ(link.DataArray[0], 7.5);
    EXPECT_EQ(link.UpperLimitCalc, 0.0);
}

TEST_F(DescriptorsReader, ACapacityOfZeroGives155AndKeepsTheValueAndIsNotedAsMeasured) {
    put("file-nr", "0 0 0\n");
    Link link = systemLink("PercentFileDescriptorsUsed");
    link.UpperLimitCalc = 3.0;
    EXPECT_EQ(ReadRawData(&link), 155);
    EXPECT_EQ(link.DataArray[0], 7.5);
    EXPECT_EQ(link.UpperLimitCalc, 0.0);
}

TEST_F(DiskReader, ACapacityOfExactlyZeroReadsAs100AndIsNotedAsMeasured) {
    machine.installDf(
        "echo head; echo 'a 1000 0 0 0% /a'; echo 'b 1000 -5 5 0% /b'; echo 'c 1000 0 1 0% /c'\n");
    for (const char* counter : {"PercentFreeSpaceUsed", "PercentFreeInodesUsed"})
        for (const char* name : {"a /a", "b /b"}) {
            Link link = diskLink(name, counter);
            link.UpperLimitCalc = 3.0;
            EXPECT_EQ(ReadRawData(&link), 1);
            EXPECT_EQ(link.DataArray[0], 100.0);
            EXPECT_EQ(link.UpperLimitCalc, 0.0);
        }
    EXPECT_EQ(valueOf(diskLink("c /c")), 0.0);
    EXPECT_EQ(valueOf(diskLink("a /a", "PercentFreeSpaceUsed", 50.0)), 0.0);
}

TEST_F(AnyReader, FindingsSayWhatTheNewestReadingGave) {
    machine.become("file-server");
    for (const char* object :
         {"PercentProcessesUsed", "PercentSwapSpaceUsed", "PercentFileDescriptorsUsed"}) {
        Link link = systemLink(object);
        EXPECT_EQ(ReadRawData(&link), 1) << object;
        EXPECT_TRUE(link.findings.valueRead && link.findings.capacityRead) << object;
        for (const char* file : {"loadavg", "meminfo", "threads-max", "file-nr"})
            std::filesystem::remove(machine.path(file));
        systemPaths().loadavg = systemPaths().meminfo = systemPaths().fileNr = machine.path("none");
        EXPECT_EQ(ReadRawData(&link), notRead) << object;
        EXPECT_FALSE(link.findings.valueRead || link.findings.capacityRead) << object;
        machine.become("file-server");
    }
}

TEST_F(SwapReader, FindingsTellAMachineWithoutSwapFromOneThatDoesNotSay) {
    put("meminfo", "SwapTotal: 0 kB\nSwapFree: 0 kB\n");
    Link link = systemLink("PercentSwapSpaceUsed");
    EXPECT_EQ(ReadRawData(&link), notRead);
    EXPECT_FALSE(link.findings.valueRead);
    EXPECT_TRUE(link.findings.capacityRead);
    put("meminfo", "");
    EXPECT_EQ(ReadRawData(&link), notRead);
    EXPECT_FALSE(link.findings.capacityRead);
}

TEST_F(DiskReader, FindingsSayThatADiskIsNotInTheListingAnyMore) {
    machine.installDf("echo heading; echo '/dev/a 10 4 6 40% /a'\n");
    Link link = diskLink("/dev/a /a");
    EXPECT_EQ(ReadRawData(&link), 1);
    EXPECT_TRUE(link.findings.valueRead && link.findings.capacityRead);
    machine.installDf("echo heading; echo '/dev/b 10 4 6 40% /b'\n");
    EXPECT_EQ(ReadRawData(&link), notRead);
    EXPECT_FALSE(link.findings.valueRead || link.findings.capacityRead);
}

TEST_F(DiskReader, TotalOfZeroAndCapacityOfZeroReadAs100) {
    machine.installDf("echo head; echo 'a 0 0 0 - /a'; echo 'b 10 0 0 - /b'; echo 'c 0 5 5 50% /c'\n");
    for (const char* name : {"a /a", "b /b", "c /c"})
        EXPECT_EQ(valueOf(diskLink(name, "PercentFreeInodesUsed")), 100.0);
}

TEST_F(DiskReader, TotalThatIsNotToldLeavesTheShareOfUsedAndAvailable) {
    machine.installDf("echo head; echo 'a - 30 70 30% /a'\n");
    EXPECT_DOUBLE_EQ(valueOf(diskLink("a /a")), 30.0);
}

TEST_F(DiskReader, SumsBeyond64BitsAreComputedWithoutOverflow) {
    machine.installDf(
        "echo head; echo 'a 9223372036854775807 9223372036854775807 9223372036854775807 50% /a'\n"
        "echo 'b 9 18446744073709551614 0 50% /b'; echo 'c 100 120 -30 134% /c'\n");
    EXPECT_DOUBLE_EQ(valueOf(diskLink("a /a")), 50.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("b /b")), 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("c /c")), 120.0 / 90.0 * 100.0);
}

TEST_F(DiskReader, OtherCountersStartNothing) {
    machine.installDf("echo head\n");
    expectNotRead(diskLink("/dev/hda1 /home", "PercentFreeSpace"));
    EXPECT_EQ(machine.dfStarts(), 0);
    EXPECT_EQ(machine.log.text(), "");
}

TEST_F(AnyReader, AnUnknownObjectIsNotReadAndOpensNothing) {
    expectNotRead(systemLink("Process"));
    expectNotRead(systemLink(""));
    expectNotRead(systemLink("percentprocessesused"));
    EXPECT_EQ(machine.log.text(), "");
    EXPECT_EQ(RefreshRawData(), 1);
}

TEST_F(AnyReader, ALineOfAMegabyteAndADirectoryInThePlaceOfAFileAreNotRead) {
    const std::string line(1 << 20, 'x');
    for (const char* name : {"loadavg", "meminfo", "threads-max", "file-nr"})
        put(name, line);
    for (const char* object : {"PercentProcessesUsed", "PercentSwapSpaceUsed", "PercentFileDescriptorsUsed"})
        expectNotRead(systemLink(object));
    put("meminfo", std::string(1 << 20, '9') + " SwapTotal: 100 kB SwapFree: 25 kB");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentSwapSpaceUsed")), 75.0);
    systemPaths().fileNr = machine.path();
    expectNotRead(systemLink("PercentFileDescriptorsUsed"));
}

namespace {

/// The text with a few bytes changed, removed, doubled or cut.
std::string mutated(std::string text, std::mt19937& random) {
    const auto pick = [&random](std::size_t below) { return random() % std::max<std::size_t>(below, 1); };
    for (std::size_t change = pick(4) + 1; change > 0 && !text.empty(); --change) {
        const std::size_t place = pick(text.size());
        switch (pick(5)) {
        case 0:
            text[place] = static_cast<char>(pick(256));
            break;
        case 1:
            text.erase(place, pick(20));
            break;
        case 2:
            text.resize(place);
            break;
        case 3:
            text.insert(place, text.substr(pick(text.size()), pick(40)));
            break;
        default:
            text[place] = "0123456789-/%: \n"[pick(16)];
            break;
        }
    }
    return text;
}

void expectFiniteIfAny(std::optional<double> value) {
    if (value) {
        EXPECT_TRUE(std::isfinite(*value));
    }
}

} // namespace

TEST(ReadersUnderMutation, EveryTextGivesAFiniteValueOrNone) {
    std::mt19937 random(20261121);
    const std::string root = std::string(LUMETRA_FIXTURES) + "/server-swap-lvm";
    const std::string loadavg = readFile(root + "/proc/loadavg");
    const std::string meminfo = readFile(root + "/proc/meminfo");
    const std::string fileNr = readFile(root + "/proc/sys/fs/file-nr");
    const std::string df = readFile(root + "/df.txt");
    ASSERT_FALSE(loadavg.empty() || meminfo.empty() || fileNr.empty() || df.empty());
    const double limits[] = {noLimit, 0.5, 50.9, 1e300, infinite, std::nan("")};
    for (int round = 0; round < 3000; ++round) {
        const double limit = limits[random() % 6];
        const std::string memory = mutated(meminfo, random);
        const auto tasks = parseTaskCount(mutated(loadavg, random));
        const auto total = parseMemTotal(memory);
        if (tasks && total)
            expectFiniteIfAny(processesUsed(*tasks, processCapacity(*total, 63707), limit));
        if (const auto swap = parseSwapSpace(memory))
            expectFiniteIfAny(swapSpaceUsed(*swap, limit));
        if (const auto descriptors = parseFileNr(mutated(fileNr, random)))
            expectFiniteIfAny(descriptorsUsed(*descriptors, limit));
        const DiskListing listing(mutated(df, random));
        for (const DiskLine& line : listing.lines()) {
            EXPECT_EQ(line.mountPoint.front(), '/');
            expectFiniteIfAny(diskUsed(line, limit));
        }
    }
}

// --- whole machines
// ------------------------------------------------------------------------------------------------

TEST(CapturedMachine, AContainerWithoutSwap) {
    TestMachine machine;
    machine.become("debian-container");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed")), 93.0 / 28000.0 * 100.0);
    Link swap = systemLink("PercentSwapSpaceUsed");
    EXPECT_EQ(ReadRawData(&swap), notRead);
    EXPECT_NEAR(valueOf(systemLink("PercentFileDescriptorsUsed")), 566.0 / 2466183.0 * 100.0, 1e-9);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/vda /")), 16546128.0 / (16546128.0 + 83791060.0) * 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/vda /", "PercentFreeInodesUsed")), 411184.0 / 16777216.0 * 100.0);
    EXPECT_EQ(valueOf(diskLink("devtmpfs /dev")), 0.0);
}

TEST(CapturedMachine, AServerWithSwapAndLogicalVolumes) {
    TestMachine machine;
    machine.become("server-swap-lvm");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed")), 1.4714285714285715);
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentSwapSpaceUsed")), 25.0);
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentFileDescriptorsUsed")), 0.5932823542701016);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/mapper/vg0-var /var")), 87.31195866217868);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/mapper/vg0-data /srv/data")), 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/mapper/vg0-var /var", "PercentFreeInodesUsed")),
                     94.99995084416946);
}

TEST(CapturedMachine, AWorkstationWithoutInodesOnItsBootPartition) {
    TestMachine machine;
    machine.become("uefi-workstation");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed")), 4.8);
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentFileDescriptorsUsed")), 0.4589624555472085);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/nvme0n1p1 /boot/efi")), 1.142097055316026);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/nvme0n1p3 /home")), 54.26983125689955);
    EXPECT_EQ(valueOf(diskLink("/dev/nvme0n1p1 /boot/efi", "PercentFreeInodesUsed")), 100.0);
    EXPECT_EQ(valueOf(diskLink("/dev/nvme0n1p3 /home", "PercentFreeInodesUsed")), 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/nvme0n1p2 /", "PercentFreeInodesUsed")), 10.019992695417224);
}

TEST(CapturedMachine, AMachineWithoutALimitOnDescriptors) {
    TestMachine machine;
    machine.become("unlimited-descriptors");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentProcessesUsed")), 1.1954992967651195);
    EXPECT_NEAR(valueOf(systemLink("PercentFileDescriptorsUsed")), 0.0, 1e-9);
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentFileDescriptorsUsed", 65536.0)), 1312.0 / 65536.0 * 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/vda1 /")), 16.194073704460497);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/vda1 /", "PercentFreeInodesUsed")), 5.063291139240507);
}

TEST(CapturedMachine, AFileServerWithBlanksInItsNamesAndALargeDisk) {
    TestMachine machine;
    machine.become("file-server");
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentSwapSpaceUsed")), 0.0);
    EXPECT_DOUBLE_EQ(valueOf(systemLink("PercentFileDescriptorsUsed")), 0.15932718686090652);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/sdb1 /mnt/Family Photos")), 79.01523245508369);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/md127 /srv/array")), 25.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("//nas/Old Backups /mnt/Old Backups")), 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("//nas/Old Backups /mnt/Old Backups", "PercentFreeInodesUsed")), 100.0);
    EXPECT_DOUBLE_EQ(valueOf(diskLink("/dev/sdb1 /mnt/Family Photos", "PercentFreeInodesUsed")),
                     0.4999997379147237);
    std::vector<DiskName> names;
    EXPECT_EQ(Retrievedisks(GetNumberOfdisks(), &names), 4);
    for (const DiskName& name : names)
        EXPECT_EQ(driveExists(name.view()), 1) << name.view();
}
