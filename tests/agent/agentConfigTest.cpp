#include "agent/agentConfig.h"

#include "agent/agentState.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"

#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>

namespace obrin {
namespace {

class AgentConfig : public testing::Test {
protected:
    bool read(const std::string& text) {
        return readConfiguration(text, "/etc/AutoConfig.ini", &clasp, &megabytes);
    }

    std::string home() const { return directory.path("data") + "/"; }
    std::string nineItems() const {
        return home() + " archive.txt pad.txt analysis.log resources.txt 60000 1 48 50";
    }

    test::TemporaryDirectory directory;
    test::CapturedLog log;
    test::RecordingSink sink;
    Clasp clasp;
    int megabytes = 0;
};

TEST_F(AgentConfig, ElevenItemsByPosition) {
    ASSERT_TRUE(read(nineItems() + "\n1 24\n"));
    EXPECT_EQ(clasp.DataHomeDirectory, home());
    EXPECT_EQ(clasp.HardDriveArchive, home() + "archive.txt");
    EXPECT_EQ(clasp.ScratchPad, "pad.txt");
    EXPECT_EQ(clasp.AnalysisLog, "analysis.log");
    EXPECT_EQ(clasp.ResourceText, "resources.txt");
    EXPECT_EQ(clasp.IniFile, "/etc/AutoConfig.ini");
    EXPECT_EQ(clasp.MillisecondsPerSample, 60000);
    EXPECT_EQ(clasp.MinForecastHours, 1);
    EXPECT_EQ(clasp.MaxForecastHours, 48);
    EXPECT_EQ(megabytes, 50);
    EXPECT_EQ(enablepooltaggingflag, 1);
    EXPECT_EQ(grace_period, 24);
    EXPECT_TRUE(sink.events.empty());
    EXPECT_NE(log.text().find("enablepooltaggingflag = 1\nGrace period = 24 hours\n"), std::string::npos)
        << log.text();
}

TEST_F(AgentConfig, EveryItemIsTracedAndWhereDataGoesIsLogged) {
    const auto traced = [](int item) {
        char text[120];
        std::snprintf(text, sizeof text,
                      "\nObrinagent before fscanf() Argument=0x%08x\n"
                      "\nObrinagent after  fscanf() Argument=0x%08x\n",
                      static_cast<unsigned>(item), static_cast<unsigned>(item));
        return std::string(text);
    };
    ASSERT_TRUE(read("home archive.txt pad analysis resources 60000 1 48 50 1 24"));
    std::string expected = traced(1) +
                           "smart_mkdir: drive is \nsmart_mkdir: directory is home\n"
                           "Data will be stored in directory home\n" +
                           traced(2) + "Archive data will be stored in file homearchive.txt\n";
    for (int item = 3; item <= 11; ++item)
        expected += traced(item);
    EXPECT_EQ(log.text(), expected + "enablepooltaggingflag = 1\nGrace period = 24 hours\n");
}

TEST_F(AgentConfig, FileOfExactlyNineItemsStartsWithPoolTaggingOffAndNoGracePeriod) {
    enablepooltaggingflag = 7;
    grace_period = 7;
    EXPECT_TRUE(read(nineItems()));
    EXPECT_EQ(enablepooltaggingflag, 0);
    EXPECT_EQ(grace_period, 0);
    EXPECT_TRUE(sink.events.empty());
    EXPECT_NE(log.text().find("\n\nEOF has been prematurely reached in file /etc/AutoConfig.ini reading "
                              "enablepooltaggingflag.\n\n"),
              std::string::npos);
    EXPECT_NE(
        log.text().find(
            "\n\nEOF has been prematurely reached in file /etc/AutoConfig.ini reading grace_period.\n\n"),
        std::string::npos);
}

TEST_F(AgentConfig, EachMissingItemIsLoggedAndReportedWithItsOwnText) {
    const char* items[] = {"",  "archive.txt", "pad.txt", "analysis.log", "resources.txt", "60000",
                           "1", "48",          "50"};
    const char* failures[] = {"Premature EOF Trying To Read Data Home Directory",
                              "Premature EOF Trying To Read Data File Name",
                              "Premature EOF Trying To Read Scratchpad File Name",
                              nullptr,
                              "Premature EOF Trying To Read Resource File Name",
                              "Premature EOF Trying To Read Milliseconds Per Sample Parameter",
                              "Premature EOF Trying To Read MinForecastHours Parameter",
                              "Premature EOF Trying To Read MaxForecastHours Parameter",
                              "Premature EOF Trying To Read maxfilesizeinMB Parameter"};
    std::string text;
    for (int missing = 0; missing < 9; ++missing) {
        sink.events.clear();
        const std::size_t logged = log.text().size();
        EXPECT_FALSE(read(text)) << missing;
        EXPECT_NE(
            log.text().find("\n\nEOF has been prematurely reached in file /etc/AutoConfig.ini.\n\n", logged),
            std::string::npos)
            << missing;
        if (failures[missing] == nullptr) {
            EXPECT_TRUE(sink.events.empty());
        } else {
            ASSERT_EQ(sink.events.size(), 1U) << missing;
            EXPECT_EQ(sink.events[0].timeText, "fatal");
            EXPECT_EQ(sink.events[0].seconds, 0.0);
            EXPECT_EQ(sink.events[0].name, failures[missing]);
            EXPECT_EQ(sink.events[0].culprit, "<absent>");
        }
        text += missing == 0 ? home() : std::string(" ") + items[missing];
    }
    EXPECT_TRUE(read(text));
}

TEST_F(AgentConfig, FileThatEndsAfterItemThreeIsLoggedForItemFourAndSendsNoEvent) {
    EXPECT_FALSE(read(home() + " archive.txt pad.txt"));
    EXPECT_TRUE(sink.events.empty());
    EXPECT_NE(log.text().find("\n\nEOF has been prematurely reached in file /etc/AutoConfig.ini.\n\n"),
              std::string::npos);
}

TEST_F(AgentConfig, HomeDirectoryWithItsSeparatorHoldsTheArchive) {
    ASSERT_TRUE(read(nineItems()));
    EXPECT_EQ(clasp.HardDriveArchive, home() + "archive.txt");
    EXPECT_TRUE(std::filesystem::is_directory(home()));
}

TEST_F(AgentConfig, HomeDirectoryWithoutItsSeparatorIsGluedToTheArchiveName) {
    ASSERT_TRUE(read(directory.path("data") + " archive.txt p a r 60000 1 48 50"));
    EXPECT_EQ(clasp.HardDriveArchive, directory.path("dataarchive.txt"));
}

TEST_F(AgentConfig, WordWhereANumberBelongsLeavesThatItemAndEveryLaterNumberAsItWas) {
    EXPECT_TRUE(read(home() + " a p l r 60000 one 48 50 1 24"));
    EXPECT_EQ(clasp.MillisecondsPerSample, 60000);
    EXPECT_EQ(clasp.MinForecastHours, 0);
    EXPECT_EQ(clasp.MaxForecastHours, 0);
    EXPECT_EQ(megabytes, 0);
}

TEST_F(AgentConfig, NumbersBeyondThirtyTwoBitsAreTheNearestThatFits) {
    constexpr int most = 2147483647;
    // 2^32 + 1 would be 1 with its upper half cut off, the first and the last need more than 64 bits.
    EXPECT_TRUE(read(home() + " a p l r 99999999999999999999 -99999999999 4294967297 2147483648 4294967296 "
                              "-99999999999999999999"));
    EXPECT_EQ(clasp.MillisecondsPerSample, most);
    EXPECT_EQ(clasp.MinForecastHours, -most - 1);
    EXPECT_EQ(clasp.MaxForecastHours, most);
    EXPECT_EQ(megabytes, most);
    EXPECT_EQ(enablepooltaggingflag, most);
    EXPECT_EQ(grace_period, -most - 1);
}

TEST_F(AgentConfig, NumbersOfExactlyThirtyTwoBitsStayWhatTheyAre) {
    EXPECT_TRUE(read(home() + " a p l r 2147483647 -2147483648 2147483646 -2147483647"));
    EXPECT_EQ(clasp.MillisecondsPerSample, 2147483647);
    EXPECT_EQ(clasp.MinForecastHours, -2147483647 - 1);
    EXPECT_EQ(clasp.MaxForecastHours, 2147483646);
    EXPECT_EQ(megabytes, -2147483647);
}

TEST_F(AgentConfig, AWordOfAMegabyteIsHeldWhole) {
    const std::string longName(1 << 20, 'n');
    ASSERT_TRUE(read(home() + " " + longName + " p l r 60000 1 48 50"));
    EXPECT_EQ(clasp.HardDriveArchive, home() + longName);
}

TEST_F(AgentConfig, GarbageOfAnyKindEndsCleanly) {
    std::mt19937 random(20240611);
    for (int round = 0; round < 300; ++round) {
        std::string text = nineItems() + " 1 24";
        for (int change = 0; change < 4; ++change)
            text[random() % text.size()] = static_cast<char>(random());
        text.resize(random() % (text.size() + 1));
        Clasp scratch;
        int limit = 0;
        // The home directory item is left alone so that the test makes no directories elsewhere.
        if (text.starts_with(home()))
            readConfiguration(text, "garbage", &scratch, &limit);
    }
    for (const char* text : {"", " \n\t ",
                             "\x7f"
                             "ELF\x01\x02",
                             "%n%n%s"})
        EXPECT_FALSE(readConfiguration(text, "garbage", &clasp, &megabytes));
}

} // namespace
} // namespace obrin
