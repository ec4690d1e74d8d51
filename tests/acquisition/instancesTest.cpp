#include "acquisition/instances.h"

#include "support/handles.h"
#include "tests/acquisition/testMachine.h"

#include <cerrno>
#include <climits>
#include <gtest/gtest.h>
#include <sys/inotify.h>

using namespace obrin;
using namespace obrin::test;

namespace {

const char* const threeDisks = "cat <<'END'\n"
                               "Filesystem 1K-blocks Used Available Use% Mounted on\n"
                               "/dev/hda1 1000 300 600 34% /\n"
                               "/dev/hda2 1000 300 600 34% /home\n"
                               "/dev/hda3 1000 300 600 34% /srv/my data\n"
                               "END\n";

std::vector<std::string> texts(const std::vector<DiskName>& names) {
    std::vector<std::string> copies;
    for (const DiskName& name : names)
        copies.emplace_back(name.view());
    return copies;
}

} // namespace

TEST(Disks, AHeadingAndThreeFileSystemsGiveThreeAndTheirNamesInListingOrder) {
    TestMachine machine;
    machine.installDf(threeDisks);
    EXPECT_EQ(GetNumberOfdisks(), 3);
    std::vector<DiskName> names(5);
    EXPECT_EQ(Retrievedisks(3, &names), 3);
    EXPECT_EQ(texts(names),
              (std::vector<std::string>{"/dev/hda1 /", "/dev/hda2 /home", "/dev/hda3 /srv/my data"}));
    EXPECT_EQ(machine.log.text(), " before 10 fopen(../tempdata/LumetraDisks.txt) retval=0\n"
                                  " after  10 fopen(../tempdata/LumetraDisks.txt)\n"
                                  " before 11 fopen(../tempdata/LumetraDisks.txt)\n"
                                  " after  11 fopen(../tempdata/LumetraDisks.txt)\n");
}

TEST(Disks, AListingThatShrankGivesFewerAndOneThatGrewNotMoreThanAskedFor) {
    TestMachine machine;
    machine.installDf(threeDisks);
    std::vector<DiskName> names;
    EXPECT_EQ(Retrievedisks(7, &names), 3);
    EXPECT_EQ(Retrievedisks(2, &names), 2);
    EXPECT_EQ(names.size(), 2U);
    EXPECT_EQ(Retrievedisks(0, &names), 0);
    EXPECT_EQ(Retrievedisks(-1, &names), 0);
}

TEST(Disks, LinesThatAreNotWellFormedCountButGiveNoDisk) {
    TestMachine machine;
    machine.installDf("echo heading; echo nonsense; echo 'a 1 2 3 4% /a'; printf 'b 1 2'; exit 1\n");
    EXPECT_EQ(GetNumberOfdisks(), 2);
    std::vector<DiskName> names;
    EXPECT_EQ(Retrievedisks(2, &names), 1);
    EXPECT_EQ(texts(names), std::vector<std::string>{"a /a"});
}

TEST(Disks, AnEmptyListingHasNoDisksAndWithoutOneTheCountIsZeroAndThereAreNoNames) {
    TestMachine machine;
    std::vector<DiskName> names(2);
    for (const char* empty : {"exit 0\n", "echo heading\n"}) {
        machine.installDf(empty);
        EXPECT_EQ(GetNumberOfdisks(), 0);
        EXPECT_EQ(Retrievedisks(1, &names), 0);
        EXPECT_TRUE(names.empty());
    }
    machine.installDf("exit 1\n");
    EXPECT_EQ(GetNumberOfdisks(), 0);
    EXPECT_EQ(Retrievedisks(1, &names), -1);
}

std::size_t complaints(const TestMachine& machine) {
    const std::string text = machine.log.text();
    std::size_t count = 0;
    for (std::size_t at = text.find(noDiskListing); at != std::string::npos;
         at = text.find(noDiskListing, at + 1))
        ++count;
    return count;
}

TEST(Disks, AMissingListingIsLoggedOnceUntilOneComes) {
    TestMachine machine;
    for (const char* without : {"exit 1\n", "exit 0\n"}) { // no listing, and one without its heading
        const std::size_t before = complaints(machine);
        machine.installDf("echo heading\n");
        GetNumberOfdisks();
        EXPECT_EQ(complaints(machine), before);
        machine.installDf(without);
        for (int i = 0; i < 3; ++i)
            GetNumberOfdisks();
        EXPECT_EQ(complaints(machine), before + 1);
    }
    beginInstanceRun();
    GetNumberOfdisks();
    EXPECT_EQ(complaints(machine), 3U);
}

TEST(Disks, ANameThatDoesNotFitIsLeftOutWithOneLogLineARun) {
    TestMachine machine;
    const std::string fits = "d /" + std::string(508, 'x');
    machine.installDf("echo heading; echo 'd 1 2 3 4% " + fits.substr(2) + "'; echo 'd 1 2 3 4% " +
                      fits.substr(2) + "y'; echo 'e 1 2 3 4% /e'\n");
    std::vector<DiskName> names;
    EXPECT_EQ(Retrievedisks(3, &names), 2);
    EXPECT_EQ(texts(names), (std::vector<std::string>{fits, "e /e"}));
    EXPECT_EQ(Retrievedisks(3, &names), 2);
    const auto lines = [&machine] {
        const std::string log = machine.log.text();
        int count = 0;
        for (std::size_t at = log.find("left out"); at != std::string::npos;
             at = log.find("left out", at + 1))
            ++count;
        return count;
    };
    EXPECT_EQ(lines(), 1);
    beginInstanceRun();
    Retrievedisks(3, &names);
    EXPECT_EQ(lines(), 2);
}

TEST(Disks, WhatIsLeftOutOfTheNewestListingIsKeptWithItsReasonUpToABound) {
    TestMachine machine;
    const std::string longName = "/" + std::string(600, 'x');
    machine.installDf("echo heading; echo nonsense; echo 'a 1 2 3 4% /a'; echo 'd 1 2 3 4% " + longName +
                      "'\n");
    std::vector<DiskName> names;
    EXPECT_EQ(Retrievedisks(9, &names), 1);
    ASSERT_EQ(disksLeftOut().size(), 2U);
    EXPECT_EQ(disksLeftOut()[0].text, "nonsense");
    EXPECT_EQ(disksLeftOut()[0].reason, "its line in the listing of disks cannot be read without doubt");
    EXPECT_EQ(disksLeftOut()[1].text, "d " + longName);
    EXPECT_EQ(disksLeftOut()[1].reason, "its name is too long");

    machine.installDf("echo heading; yes nonsense | head -n 10100\n");
    EXPECT_EQ(Retrievedisks(9, &names), 0);
    EXPECT_EQ(disksLeftOut().size(), mostLeftOut);
    machine.installDf("echo heading; echo 'a 1 2 3 4% /a'\n");
    EXPECT_EQ(Retrievedisks(9, &names), 1);
    EXPECT_TRUE(disksLeftOut().empty());
}

TEST(Disks, AListingIsAwaitedFromTheFirstThatDoesNotComeToTheNextThatDoes) {
    TestMachine machine;
    EXPECT_FALSE(awaitsDiskListing());
    machine.installDf("exit 1\n");
    GetNumberOfdisks();
    EXPECT_TRUE(awaitsDiskListing());
    machine.installDf("echo heading\n");
    GetNumberOfdisks();
    EXPECT_FALSE(awaitsDiskListing());
}

TEST(DriveExists, ADifferentDeviceOnTheSameMountPointKeepsTheDiskAndAMissingMountPointDoesNot) {
    TestMachine machine;
    machine.become("server-swap-lvm");
    EXPECT_EQ(driveExists("/dev/mapper/vg0-var /var"), 1);
    EXPECT_EQ(driveExists("/dev/sdz9 /var"), 1);
    EXPECT_EQ(driveExists("/dev/mapper/vg0-var /va"), 0);
    EXPECT_EQ(driveExists("/dev/mapper/vg0-var /var/log"), 0);
    EXPECT_EQ(driveExists("/dev/mapper/vg0-var gone"), 0);
}

TEST(DriveExists, TotalIsAlwaysThereWithoutReadingTheTable) {
    TestMachine machine;
    EXPECT_EQ(driveExists(MountTable::parse(""), "_Total"), 1);
    systemPaths().mounts = machine.path("mounts");
    writeFile(machine.path("mounts"), "a /a tmpfs rw 0 0\n");
    const Descriptor watch(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(watch.get(), machine.path("mounts").c_str(), IN_OPEN), 0);
    char event[sizeof(inotify_event) + NAME_MAX + 1];
    EXPECT_EQ(driveExists("_Total"), 1);
    EXPECT_EQ(::read(watch.get(), event, sizeof event), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(driveExists("b /b"), 0); // which is seen
    EXPECT_GT(::read(watch.get(), event, sizeof event), 0);
}

TEST(DriveExists, AnUnreadableTableKeepsEveryDisk) {
    TestMachine machine;
    systemPaths().mounts = machine.path("no-such-file");
    EXPECT_EQ(driveExists("a /a"), 1);
    systemPaths().mounts = machine.path();
    EXPECT_EQ(driveExists("a /a"), 1);
    writeFile(machine.path("mounts"), "");
    systemPaths().mounts = machine.path("mounts");
    EXPECT_EQ(driveExists("a /a"), 1);
}

TEST(DriveExists, ANameWithoutABlankHasNoMountPointAndIsKept) {
    const MountTable table = MountTable::parse("b /b tmpfs rw 0 0\n");
    EXPECT_EQ(driveExists(table, "/dev/hda1"), 1);
    EXPECT_EQ(driveExists(table, ""), 1);
    EXPECT_EQ(driveExists(table, "/dev/hda1 "), 1);
}

TEST(DriveExists, OctalEscapesOfTheTableAreDecoded) {
    const MountTable table =
        MountTable::parse("a /a\\040b tmpfs rw 0 0\nb /t\\011b tmpfs rw 0 0\n"
                          "c /n\\012l tmpfs rw 0 0\nd /back\\134slash tmpfs rw 0 0\n"
                          "e /trail\\040 tmpfs rw 0 0\nf /not\\9escaped\\04 tmpfs rw 0 0\n"
                          "g /bad\xff\xfe tmpfs rw 0 0\n");
    for (const char* name : {"a /a b", "b /t?b", "b /t\tb", "c /n?l", "d /back\\slash", "e /trail ",
                             "f /not\\9escaped\\04", "g /bad\xff\xfe", "g /bad??"})
        EXPECT_EQ(driveExists(table, name), 1) << name;
    for (const char* name : {"a /a", "e /trail", "b /t b", "g /bad?", "a /a\\040b"})
        EXPECT_EQ(driveExists(table, name), 0) << name;
}

TEST(DriveExists, ADeviceWithBlanksDoesNotHideItsMountPoint) {
    const MountTable table =
        MountTable::parse("my\\040disk /mnt fuse rw 0 0\nsrv\\040/export /x fuse rw 0 0\n");
    EXPECT_EQ(driveExists(table, "my disk /mnt"), 1);
    EXPECT_EQ(driveExists(table, "srv /export /x"), 1);
    EXPECT_EQ(driveExists(table, "srv /other /x"), 0);
    EXPECT_EQ(driveExists(table, "my disk /gone"), 0);
}

TEST(DriveExists, EveryCutOfATableIsReadWithoutHarm) {
    const std::string table = readFile(std::string(LUMETRA_FIXTURES) + "/file-server/proc/mounts");
    ASSERT_FALSE(table.empty());
    for (std::size_t length = 0; length <= table.size(); ++length)
        driveExists(MountTable::parse(table.substr(0, length)), "/dev/sdb1 /mnt/Family Photos");
    EXPECT_EQ(driveExists(MountTable::parse(table), "/dev/sdb1 /mnt/Family Photos"), 1);
}

TEST(DriveExists, HostileMountNamesAreWatchedOrLeftOutAndNeverTakenForUnmounted) {
    TestMachine machine;
    const std::string root = machine.path("m");
    const std::vector<std::string> hostile = {"a b",
                                              "p%n%s",
                                              "$(touch pwn)",
                                              "`touch pwn`; touch pwn",
                                              "q\"x'",
                                              "c)d",
                                              "n\nl",
                                              "t\tb",
                                              "bad\xff\xfe",
                                              "uml\xc3\xa4",
                                              "back\\slash",
                                              " lead",
                                              "trail ",
                                              "esc\x1b[31m",
                                              "?",
                                              "x 1 2 3 4% /y"};
    const int result = runInMountNamespace([&] {
        for (const std::string& name : hostile) {
            std::filesystem::create_directories(root + "/" + name);
            ASSERT_EQ(::mount("my disk", (root + "/" + name).c_str(), "tmpfs", 0, "size=64k"), 0) << name;
        }
        std::string deep = root;
        for (int i = 0; i < 3; ++i)
            deep += "/" + std::string(250, 'z');
        std::filesystem::create_directories(deep);
        ASSERT_EQ(::mount("my disk", deep.c_str(), "tmpfs", 0, "size=64k"), 0);

        std::vector<DiskName> names;
        const int count = GetNumberOfdisks();
        ASSERT_GE(count, static_cast<int>(hostile.size()) + 1);
        Retrievedisks(count, &names);
        const MountTable table = MountTable::read();
        int ours = 0;
        for (const DiskName& name : names) {
            EXPECT_EQ(driveExists(table, name.view()), 1) << name.view();
            if (name.view().find(root) == std::string_view::npos)
                continue;
            ++ours;
            Link link = diskLink(name.view());
            EXPECT_EQ(ReadRawData(&link), 1) << name.view();
            EXPECT_EQ(link.UpperLimitCalc, 64.0) << name.view();
        }
        // Left out are the name that is too long and the one that looks like columns.
        EXPECT_EQ(ours, static_cast<int>(hostile.size()) - 1);
        for (const std::string& name : hostile)
            ::umount((root + "/" + name).c_str());
        const MountTable after = MountTable::read();
        for (const DiskName& name : names) {
            if (name.view().find(root) != std::string_view::npos) {
                EXPECT_EQ(driveExists(after, name.view()), 0) << name.view();
            }
        }
    });
    if (result == lacksPrivilege)
        GTEST_SKIP() << "needs the right to mount; the names are also tested as text";
    EXPECT_FALSE(std::filesystem::exists("pwn"));
}

TEST(Processes, ADeclarationOfProcessesHasNoInstancesHere) {
    std::int32_t pids[2] = {5, 6};
    EXPECT_EQ(GetNumberOfPIDsPerProcess("Process", "java"), 0);
    EXPECT_EQ(RetrievePIDsGivenProcess("Process", "java", 2, pids), 0);
    EXPECT_EQ(pids[0], 5);
}
