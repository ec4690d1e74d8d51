#include "acquisition/diskSelection.h"

#include "acquisition/instances.h"
#include "tests/acquisition/testMachine.h"

#include <clocale>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace obrin;
using namespace obrin::test;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// --- rules

struct ReadRules {
    std::vector<std::string> rules;    ///< "LINE:COLUMN RULE"
    std::vector<std::string> findings; ///< "LINE:COLUMN KIND|TEXT"
};

std::string placed(Place place, std::string_view what) {
    return std::to_string(place.line) + ":" + std::to_string(place.column) + " " + std::string(what);
}

ReadRules read(std::string_view text) {
    TextFindings findings;
    ReadRules read;
    for (const SkipRule& rule : parseSkipRules(text, findings)) {
        EXPECT_TRUE(rule.text.ends_with(" " + rule.argument)) << rule.text;
        read.rules.push_back(placed(rule.place, rule.text));
    }
    for (const TextFinding& finding : findings)
        read.findings.push_back(
            placed(finding.place, std::string(finding.kind) + "|" + std::string(finding.text)));
    return read;
}

TEST(SkipRules, LinesNameTypesAndPatternsAndCommentsAndBlanksDoNotCount) {
    const ReadRules all =
        read("# every day\n\n  fstype\ttmpfs  # memory\r\nmount /media/My Disk*\t\nmount /a#b # c\n"
             "fstype fuse.sshfs");
    EXPECT_THAT(all.rules, ElementsAre("3:3 fstype tmpfs", "4:1 mount /media/My Disk*", "5:1 mount /a#b",
                                       "6:1 fstype fuse.sshfs"));
    EXPECT_THAT(all.findings, IsEmpty());
}

TEST(SkipRules, ALineThatIsNoneIsToldWithItsPlaceAndTheOthersCount) {
    const ReadRules all = read(
        "type ext4\nfstype\nfstype a b\nmount snap/*\nmount # none\nFSTYPE x\nmount /a\0b\nfstype xfs\n"s);
    EXPECT_THAT(all.rules, ElementsAre("8:1 fstype xfs"));
    EXPECT_THAT(all.findings, ElementsAre("1:1 skip-line-malformed|type ext4", "2:1 skip-type-malformed|",
                                          "3:1 skip-type-malformed|a b", "4:1 skip-pattern-relative|snap/*",
                                          "5:1 skip-pattern-relative|", "6:1 skip-line-malformed|FSTYPE x",
                                          "7:1 skip-line-malformed|mount /a\0b"s));
}

TEST(SkipRules, NothingAndRuleFreeTextsHaveNone) {
    for (const char* text : {"", "\n", "#", "   \n\t\n", "# fstype ext4"}) {
        EXPECT_THAT(read(text).rules, IsEmpty()) << text;
        EXPECT_THAT(read(text).findings, IsEmpty()) << text;
    }
}

bool matches(const std::string& pattern, const std::string& mountPoint) {
    return speaksOf({LeftOutKind::pattern, pattern, "", {}}, {mountPoint, "ext4", "8:1", false});
}

TEST(SkipRules, PatternsFollowTheRulesOfPaths) {
    EXPECT_TRUE(matches("/snap/*/*", "/snap/core/1"));
    EXPECT_FALSE(matches("/snap/*", "/snap/core/1")) << "no wildcard matches a slash";
    EXPECT_FALSE(matches("/snap", "/snap/core"));
    EXPECT_TRUE(matches("/run/user/[0-9]*", "/run/user/1000"));
    EXPECT_TRUE(matches("/a/*", "/a/.hidden"));
    EXPECT_TRUE(matches("/a\\*", "/a*"));
    EXPECT_FALSE(matches("/a\\*", "/ab"));
    EXPECT_TRUE(matches("/a b\n*", "/a b\nc"));
    EXPECT_TRUE(matches("/a[", "/a["));
}

TEST(SkipRules, PatternsGoByBytesWhateverTheLocale) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    for (const char* locale : {"C", "C.UTF-8"}) {
        ASSERT_NE(std::setlocale(LC_ALL, locale), nullptr) << locale;
        EXPECT_TRUE(matches("/mnt/*", "/mnt/\xFF\xFE")) << locale;
        EXPECT_TRUE(matches("/mnt/??", "/mnt/\xC3\xA4")) << locale;
        EXPECT_FALSE(matches("/mnt/?", "/mnt/\xC3\xA4")) << locale;
    }
    std::setlocale(LC_ALL, before.c_str());
}

TEST(SkipRules, ATypeIsMatchedAsAWhole) {
    const SkipRule rule{LeftOutKind::type, "fuse", "", {}};
    EXPECT_TRUE(speaksOf(rule, {"/a", "fuse", "0:1", false}));
    EXPECT_FALSE(speaksOf(rule, {"/a", "fuse.sshfs", "0:1", false}));
    EXPECT_FALSE(speaksOf(rule, {"fuse", "ext4", "0:1", false}));
}

// --- the table

const Mount* find(const MountInfo& table, std::string_view listed) {
    return table.find(listed).mount;
}

TEST(MountInfo, AnEntryHasMountPointTypeDeviceAndWhetherItIsReadOnly) {
    const MountInfo table =
        MountInfo::parse("36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue\n"
                         "37 35 0:40 / /ro ro,noexec shared:2 master:3 - tmpfs tmp rw\n"
                         "38 35 11:0 / /cd rw - udf /dev/sr0 ro\n"
                         "39 35 0:41 / /wo rw,rorw - tmpfs tmp rw,aro\n");
    ASSERT_EQ(table.mounts().size(), 4U);
    const Mount* ext3 = find(table, "/mnt2");
    ASSERT_NE(ext3, nullptr);
    EXPECT_EQ(ext3->type, "ext3");
    EXPECT_EQ(ext3->device, "98:0");
    EXPECT_FALSE(ext3->readOnly);
    EXPECT_TRUE(find(table, "/ro")->readOnly) << "by the mount";
    EXPECT_TRUE(find(table, "/cd")->readOnly) << "by the file system";
    EXPECT_FALSE(find(table, "/wo")->readOnly);
    EXPECT_EQ(find(table, "/mnt1"), nullptr);
}

TEST(MountInfo, HostileNamesAreFoundAsDfSpellsThem) {
    const MountInfo table = MountInfo::parse("1 0 0:1 / /a\\040b rw - tmpfs x rw\n"
                                             "2 0 0:2 / /t\\011b\\012c rw - tmpfs x rw\n"
                                             "3 0 0:3 / /back\\134s\\043 rw - tmpfs x rw\n"
                                             "4 0 0:4 / /\xC3\xA4\xFF rw - fuse.a\\040b x rw\n");
    EXPECT_EQ(find(table, "/a b")->device, "0:1");
    EXPECT_EQ(find(table, "/t?b?c")->device, "0:2");
    EXPECT_EQ(find(table, "/t\tb\nc")->mountPoint, "/t\tb\nc");
    EXPECT_EQ(find(table, "/back\\s#")->device, "0:3");
    EXPECT_EQ(find(table, "/\xC3\xA4\xFF")->type, "fuse.a b");
    EXPECT_EQ(find(table, "/???")->device, "0:4") << "where df prints ASCII only";
}

TEST(MountInfo, MountPointsThatAreListedTheSameWayAreNotGuessedAt) {
    const MountInfo table =
        MountInfo::parse("1 0 0:1 / /a\\011b rw - tmpfs x rw\n2 0 0:2 / /a\\012b rw - squashfs x rw\n");
    EXPECT_TRUE(table.find("/a?b").ambiguous);
    EXPECT_FALSE(table.find("/b").ambiguous);
}

TEST(MountInfo, OfMountsOneAboveTheOtherTheNewestCounts) {
    const MountInfo table = MountInfo::parse("1 0 0:1 / /a rw - autofs x rw\n2 1 0:2 / /a rw - nfs4 x rw\n");
    ASSERT_EQ(table.mounts().size(), 1U);
    EXPECT_EQ(find(table, "/a")->type, "nfs4");
    EXPECT_FALSE(table.find("/a").ambiguous);
}

TEST(MountInfo, EntriesThatAreNoneAreSkippedAndATextCutAnywhereIsHarmless) {
    const std::string text =
        "1 0 8:1 / / rw shared:1 - ext4 /dev/a rw\n2 1 8:2 / /b\\040c ro - xfs /dev/b rw\n";
    for (std::size_t length = 0; length <= text.size(); ++length)
        MountInfo::parse(text.substr(0, length));
    EXPECT_EQ(
        MountInfo::parse("\n- - - -\n1 0 8:1 / / rw shared:1 ext4 /dev/a rw x\n1 0 8:1 / / rw -\n" + text)
            .mounts()
            .size(),
        2U);
}

TEST(MountInfo, ATableThatIsMissingOrEmptyIsNone) {
    TestMachine machine;
    systemPaths().mountInfo = machine.path("none");
    EXPECT_FALSE(MountInfo::read());
    writeFile(machine.path("none"), "");
    EXPECT_FALSE(MountInfo::read());
    writeFile(machine.path("none"), "1 0 8:1 / / rw - ext4 /dev/a rw\n");
    EXPECT_TRUE(MountInfo::read());
}

// --- the selection

struct GivenMount {
    std::string source, mountPoint, type, device;
    std::string options = "rw";
};

/// A machine with these mounts, and a run that has begun with these rules.
class Selection : public testing::Test {
protected:
    ~Selection() override { setSkipRules(std::nullopt); }

    void mount(const std::vector<GivenMount>& mounts) {
        std::string listing = "echo heading\n";
        std::string table;
        for (const GivenMount& one : mounts) {
            listing += "echo '" + one.source + " 100 100 0 100% " + one.mountPoint + "'\n";
            table += "1 0 " + one.device + " / " + one.mountPoint + " " + one.options + " - " + one.type +
                     " " + one.source + " rw\n";
        }
        machine.installDf(listing);
        systemPaths().mountInfo = machine.path("mountinfo");
        writeFile(systemPaths().mountInfo, table);
        beginListingCycle(std::chrono::minutes(4));
        beginSelectionCycle();
    }

    static void beginRun(std::string_view rules = "") {
        TextFindings findings;
        setSkipRules(parseSkipRules(rules, findings));
        EXPECT_THAT(findings, IsEmpty());
        beginInstanceRun();
    }

    static std::vector<std::string> watched() {
        std::vector<DiskName> names;
        Retrievedisks(GetNumberOfdisks(), &names);
        std::vector<std::string> copies;
        for (const DiskName& name : names)
            copies.emplace_back(name.view());
        return copies;
    }

    static std::vector<std::string> leftOut() {
        std::vector<std::string> told;
        for (const LeftOutDisk& disk : disksLeftOut())
            told.push_back(disk.text + "|" + std::to_string(static_cast<int>(disk.kind)) + "|" + disk.rule +
                           "|" + disk.reason);
        return told;
    }

    TestMachine machine;
};

const std::vector<GivenMount> snaps{{"/dev/a", "/", "ext4", "8:1"},
                                    {"/dev/loop0", "/snap/core/1", "squashfs", "7:0", "ro"},
                                    {"/dev/sr0", "/media/cd", "iso9660", "11:0", "ro"}};

TEST_F(Selection, WithoutRulesEveryDiskIsWatchedAndTheTableIsNotRead) {
    mount(snaps);
    EXPECT_THAT(watched(), ElementsAre("/dev/a /", "/dev/loop0 /snap/core/1", "/dev/sr0 /media/cd"));
    EXPECT_THAT(leftOut(), IsEmpty());
}

TEST_F(Selection, ImagesThatAreFullByTheirNatureAreLeftOut) {
    mount(snaps);
    beginRun();
    EXPECT_THAT(watched(), ElementsAre("/dev/a /"));
    EXPECT_THAT(leftOut(),
                ElementsAre("/dev/loop0 /snap/core/1|1|squashfs|a file system of the type squashfs is "
                            "full by its nature",
                            "/dev/sr0 /media/cd|1|iso9660|a file system of the type iso9660 is full by "
                            "its nature"));
    mount({{"a", "/a", "erofs", "7:1"}, {"b", "/b", "cramfs", "7:2"}, {"c", "/c", "romfs", "7:3"}});
    EXPECT_THAT(watched(), IsEmpty());
}

TEST_F(Selection, AMediumOfTypeUdfIsLeftOutOnlyWhenItIsReadOnly) {
    mount({{"/dev/sr0", "/dvd", "udf", "11:0", "ro,nosuid"}, {"/dev/sdb", "/stick", "udf", "8:16"}});
    beginRun();
    EXPECT_THAT(watched(), ElementsAre("/dev/sdb /stick"));
}

TEST_F(Selection, AReadOnlyFileSystemThatCanBeWrittenElsewhereStays) {
    mount({{"/dev/a", "/", "ext4", "8:1", "ro"}});
    beginRun();
    EXPECT_THAT(watched(), ElementsAre("/dev/a /"));
}

TEST_F(Selection, OfMountsOfOneFileSystemTheFirstThatIsWatchedStays) {
    mount({{"/dev/b", "/skipped", "btrfs", "0:30"},
           {"/dev/b", "/home", "btrfs", "0:30"},
           {"/dev/b", "/var", "btrfs", "0:30"},
           {"/dev/c", "/srv", "btrfs", "0:31"}});
    beginRun("mount /skipped");
    EXPECT_THAT(watched(), ElementsAre("/dev/b /home", "/dev/c /srv"));
    EXPECT_THAT(leftOut(),
                ElementsAre("/dev/b /skipped|4|mount /skipped|the rule \"mount /skipped\" leaves it out",
                            "/dev/b /var|2||it is the same file system as /home"));
}

TEST_F(Selection, TypesAndPatternsLeaveOutAndTheFirstRuleThatFitsIsTold) {
    mount({{"/dev/a", "/", "ext4", "8:1"},
           {"tmpfs", "/run", "tmpfs", "0:20"},
           {"overlay", "/var/lib/c/1/merged", "overlay", "0:50"},
           {"shm", "/var/lib/c/2/shm", "tmpfs", "0:51"}});
    beginRun("fstype tmpfs\nmount /var/lib/c/*/*\n");
    EXPECT_THAT(watched(), ElementsAre("/dev/a /"));
    EXPECT_THAT(leftOut(),
                ElementsAre("tmpfs /run|3|fstype tmpfs|the rule \"fstype tmpfs\" leaves it out",
                            "overlay /var/lib/c/1/merged|4|mount /var/lib/c/*/*|the rule \"mount "
                            "/var/lib/c/*/*\" leaves it out",
                            "shm /var/lib/c/2/shm|3|fstype tmpfs|the rule \"fstype tmpfs\" leaves it out"));
}

TEST_F(Selection, WhatIsFullByItsNatureIsNoMatterOfTheRulesOfTheOperator) {
    mount(snaps);
    beginRun("fstype squashfs\nmount /media/*");
    watched();
    ASSERT_EQ(disksLeftOut().size(), 2U);
    for (const LeftOutDisk& disk : disksLeftOut())
        EXPECT_EQ(disk.kind, LeftOutKind::nature) << disk.text;
}

TEST_F(Selection, ADiskThatIsNamedIsAlwaysWatched) {
    mount({{"/dev/b", "/home", "btrfs", "0:30"},
           {"/dev/b", "/var", "btrfs", "0:30"},
           {"/dev/loop0", "/snap/core/1", "squashfs", "7:0"},
           {"/dev/loop1", "/snap/lxd/1", "squashfs", "7:1"},
           {"tmpfs", "/run", "tmpfs", "0:20"}});
    beginRun("fstype tmpfs");
    nameDisk("/dev/loop1 /snap/lxd/1");
    nameDisk("/dev/b /var");
    nameDisk("tmpfs /run");
    nameDisk("*");
    EXPECT_THAT(watched(),
                ElementsAre("/dev/b /home", "/dev/b /var", "/dev/loop1 /snap/lxd/1", "tmpfs /run"));
    const MountTable mounted = MountTable::parse("/dev/loop1 /snap/lxd/1 squashfs ro 0 0\n"
                                                 "/dev/loop0 /snap/core/1 squashfs ro 0 0\n");
    EXPECT_FALSE(isGone(mounted, "/dev/loop1 /snap/lxd/1"));
    EXPECT_TRUE(isGone(mounted, "/dev/loop0 /snap/core/1"));
    beginRun("fstype tmpfs");
    EXPECT_EQ(watched().size(), 1U) << "another run has its own declarations";
}

TEST_F(Selection, WithoutATableNothingIsLeftOut) {
    mount(snaps);
    beginRun("fstype ext4");
    systemPaths().mountInfo = machine.path("none");
    EXPECT_EQ(watched().size(), 3U);
    EXPECT_THAT(leftOut(), IsEmpty());
}

TEST_F(Selection, TheTableIsReadOnceACycle) {
    mount(snaps);
    beginRun();
    EXPECT_EQ(watched().size(), 1U);
    writeFile(systemPaths().mountInfo, "");
    EXPECT_EQ(watched().size(), 1U);
    beginSelectionCycle();
    EXPECT_EQ(watched().size(), 3U);
}

TEST_F(Selection, ADiskThatTheTableDoesNotHaveYetWaitsForTheNextCycle) {
    mount(snaps);
    beginRun();
    EXPECT_EQ(watched().size(), 1U);
    machine.installDf("echo heading; echo '/dev/a 1 2 3 4% /'; echo '/dev/loop9 1 2 0 100% /snap/new/1'\n");
    EXPECT_THAT(watched(), ElementsAre("/dev/a /"));
    EXPECT_THAT(leftOut(),
                ElementsAre("/dev/loop9 /snap/new/1|5||the table of mounts does not have it yet, or any "
                            "more"));
}

TEST_F(Selection, WhatIsMountedInTheSamePlaceAndLeftOutTakesTheOldDiskAway) {
    const MountTable mounted = MountTable::parse("/dev/x /mnt x rw 0 0\n/dev/a / ext4 rw 0 0\n");
    mount({{"/dev/a", "/", "ext4", "8:1"}, {"/dev/sdb", "/mnt", "ext4", "8:16"}});
    beginRun();
    EXPECT_EQ(watched().size(), 2U);
    EXPECT_FALSE(isGone(mounted, "/dev/sdb /mnt"));
    mount({{"/dev/a", "/", "ext4", "8:1"}, {"/dev/loop0", "/mnt", "squashfs", "7:0"}});
    EXPECT_THAT(watched(), ElementsAre("/dev/a /"));
    EXPECT_TRUE(isGone(mounted, "/dev/sdb /mnt"));
    EXPECT_FALSE(isGone(mounted, "/dev/a /"));
    mount({{"/dev/a", "/", "ext4", "8:1"}, {"/dev/sdc", "/mnt", "xfs", "8:32"}});
    EXPECT_EQ(watched().size(), 2U);
    EXPECT_FALSE(isGone(mounted, "/dev/sdb /mnt")) << "a disk that another takes the place of stays";
}

TEST_F(Selection, ADiskThatIsListedTwiceIsNoRepetitionOfItself) {
    mount({{"/dev/a", "/", "ext4", "8:1"}});
    machine.installDf("echo heading; echo '/dev/a 1 2 3 4% /'; echo '/dev/a 1 2 3 4% /'\n");
    beginRun();
    EXPECT_THAT(watched(), ElementsAre("/dev/a /", "/dev/a /"));
    EXPECT_THAT(leftOut(), IsEmpty());
}

TEST_F(Selection, ADiskWhoseMountPointCouldBeAnotherStays) {
    mount({{"/dev/loop0", "/a?b", "squashfs", "7:0"}});
    writeFile(systemPaths().mountInfo, "1 0 7:0 / /a\\011b rw - squashfs /dev/loop0 rw\n"
                                       "2 0 0:9 / /a\\012b rw - tmpfs tmpfs rw\n");
    beginRun("fstype tmpfs");
    EXPECT_EQ(watched().size(), 1U);
}

TEST_F(Selection, ThreeHundredMountsOfAContainerHostAreAllTold) {
    std::vector<GivenMount> mounts{{"/dev/a", "/", "ext4", "8:1"}};
    for (int i = 0; i < 300; ++i)
        mounts.push_back(
            {"overlay", "/var/lib/c/" + std::to_string(i), "overlay", "0:" + std::to_string(100 + i)});
    mount(mounts);
    beginRun("fstype overlay");
    EXPECT_THAT(watched(), ElementsAre("/dev/a /"));
    EXPECT_EQ(disksLeftOut().size(), 300U);
}

} // namespace
