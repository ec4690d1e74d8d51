#include "replay/archiveLines.h"

#include "tests/support/temporaryDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace obrin {
namespace {

class ArchiveLinesTest : public testing::Test {
protected:
    ArchiveLines of(std::string_view text) {
        test::writeFile(path, text);
        return ArchiveLines(path, 9);
    }

    /// The damage of a text that is one line.
    std::string damageOf(std::string_view text) {
        ArchiveLines lines = of(text);
        ArchivedCycle cycle;
        return lines.next(&cycle) == ArchiveLines::Next::damage ? lines.damage() : "";
    }

    test::TemporaryDirectory directory;
    std::string path = directory.path("archive");
};

TEST_F(ArchiveLinesTest, LinesAreReadAsTheyAreWritten) {
    ArchiveLines lines = of("1008921600 3 0 41.27 7 0 12.50 \n1008921610 \n1008921620 3 0 -1.00 \n");
    ArchivedCycle cycle;
    ASSERT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    EXPECT_EQ(cycle.time, 1008921600);
    ASSERT_EQ(cycle.samples.size(), 2U);
    EXPECT_EQ(cycle.samples[0].rid, 3);
    EXPECT_EQ(cycle.samples[0].value, 41.27);
    EXPECT_EQ(cycle.samples[1].rid, 7);
    EXPECT_EQ(cycle.samples[1].value, 12.5);
    ASSERT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    EXPECT_TRUE(cycle.samples.empty());
    ASSERT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    EXPECT_EQ(cycle.samples[0].value, -1.0);
    EXPECT_EQ(lines.line(), 3);
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::end);
    EXPECT_EQ(lines.bytesRead(), lines.size());
    EXPECT_EQ(lines.problem(), "");
}

TEST_F(ArchiveLinesTest, EachDamageIsToldAsWhatItIs) {
    EXPECT_EQ(damageOf("\n"), "the line is empty");
    EXPECT_EQ(damageOf("1008921600 3 0 41.27"), "the line is torn: the file ends within it");
    EXPECT_EQ(damageOf("3 0 41.27 \n"),
              "a time stamp was expected at the start of the line, above the number of every resource");
    EXPECT_EQ(damageOf("253402300800 3 0 41.27 \n"),
              "a time stamp was expected at the start of the line, above the number of every resource");
    EXPECT_EQ(damageOf("253402300799 3 0 41.27 \n"), "");
    EXPECT_EQ(damageOf("x 3 0 41.27 \n"),
              "a time stamp was expected at the start of the line, above the number of every resource");
    EXPECT_EQ(damageOf("1008921600 3 0 41.27 1008921610 3 0 41.27 \n"),
              "a second time stamp stands in the line, or a number that no resource has");
    EXPECT_EQ(damageOf("1008921600 x 0 41.27 \n"), "the number of a resource was expected");
    EXPECT_EQ(damageOf("1008921600 0 0 41.27 \n"), "the number of a resource was expected");
    const std::string three = "three numbers were expected of each resource: its number, 0 and its value";
    EXPECT_EQ(damageOf("1008921600 3 0 \n"), three);
    EXPECT_EQ(damageOf("1008921600 3 0 41.27x \n"), three);
    EXPECT_EQ(damageOf(std::string_view("1008921600 3 0 4\0 \n", 19)), three);
}

TEST_F(ArchiveLinesTest, ADamagedLineIsPassedOverWhole) {
    ArchiveLines lines = of("rubbish\n1008921600 3 0 1.00 \n\x01\xff\n1008921610 3 0 2.00 \n");
    ArchivedCycle cycle;
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::damage);
    EXPECT_EQ(lines.line(), 1);
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::damage);
    EXPECT_EQ(lines.line(), 3);
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    EXPECT_EQ(cycle.samples.size(), 1U);
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::end);
}

TEST_F(ArchiveLinesTest, LinesAcrossBlocksAreWhole) {
    std::string text;
    constexpr int count = 200'000;
    for (int i = 0; i < count; ++i)
        text += std::to_string(1008921600 + i) + " 3 0 " + std::to_string(i % 100) + ".25 \n";
    ArchiveLines lines = of(text);
    ArchivedCycle cycle;
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle) << i;
        ASSERT_EQ(cycle.time, 1008921600 + i);
        ASSERT_EQ(cycle.samples[0].value, i % 100 + 0.25);
    }
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::end);
}

TEST_F(ArchiveLinesTest, ALineWithoutEndTakesNoMemoryWithoutEnd) {
    std::string text = "1008921600 3 0 1.00 \n" + std::string(40U << 20, '7') + "\n1008921610 3 0 2.00 \n";
    ArchiveLines lines = of(text);
    ArchivedCycle cycle;
    EXPECT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    ASSERT_EQ(lines.next(&cycle), ArchiveLines::Next::damage);
    EXPECT_STREQ(lines.damage(), "the line is longer than any that is written");
    ASSERT_EQ(lines.next(&cycle), ArchiveLines::Next::cycle);
    EXPECT_EQ(cycle.time, 1008921610);
    EXPECT_EQ(lines.bytesRead(), lines.size());
}

TEST_F(ArchiveLinesTest, WhatIsNoFileIsRefusedWithoutWaiting) {
    EXPECT_EQ(ArchiveLines(directory.path("none"), 9).problem(), "No such file or directory");
    EXPECT_EQ(ArchiveLines(directory.path(), 9).problem(), "is no regular file");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(ArchiveLines(path, 9).problem(), "is no regular file");
    ArchivedCycle cycle;
    ArchiveLines fifo(path, 9);
    EXPECT_EQ(fifo.next(&cycle), ArchiveLines::Next::end);
}

} // namespace
} // namespace obrin
