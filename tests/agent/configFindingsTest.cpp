#include "agent/configFindings.h"

#include "agent/agentState.h"
#include "support/textScanner.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/toldFindings.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <random>

namespace obrin::test {
namespace {

using namespace std::string_literals;
using ::testing::IsEmpty;

const std::string good = "data/\narchive\npad\nlog\nresources\n60000\n0\n48\n50\n1\n2\n";

void expectAll(const std::vector<FindingRow>& rows) {
    expectFindings(rows, checkConfiguration);
}

TEST(ConfigFindings, OfAGoodConfigurationThereIsNothingToSay) {
    const ConfigurationReport report = checkConfiguration(good);
    EXPECT_THAT(report.findings, IsEmpty());
    EXPECT_TRUE(report.accepted);
    EXPECT_EQ(report.read.items[0].text, "data/");
    EXPECT_EQ(report.read.items[10].number, 2);
    for (std::size_t i = 0; i < report.places.size(); ++i)
        EXPECT_EQ(report.places[i], (Place{static_cast<std::int32_t>(i) + 1, 1}));
}

TEST(ConfigFindings, AnItemThatIsMissingIsToldAtTheLastCharacterUpToTheNinth) {
    std::string text;
    const char* items[] = {"d/", "a", "p", "l", "r", "1", "2", "3", "4", "5", "6"};
    for (int count = 0; count < 11; ++count) {
        std::vector<std::string> expected;
        if (count < 9)
            expected.push_back((count == 0 ? "1:1"s : std::to_string(count) + (count == 1 ? ":2"s : ":1"s)) +
                               " item-missing item=" + std::to_string(count + 1));
        expectAll({{text, expected, count >= 9}, {text + " \n", expected, count >= 9}});
        text += (count == 0 ? "" : "\n") + std::string(items[count]);
    }
}

TEST(ConfigFindings, WhatLooksLikeACommentOrASectionIsToldAmongTheNames) {
    expectAll({
        {"#x a p l r 1 2 3 4", {"1:1 comment-in-configuration text=#x item=1"}},
        {"d/ ; /*y [z r 1 2 3 4",
         {"1:4 comment-in-configuration text=; item=2", "1:6 comment-in-configuration text=/*y item=3",
          "1:10 comment-in-configuration text=[z item=4"}},
    });
}

TEST(ConfigFindings, AWordInTheWayOfTheNumbersIsTold) {
    expectAll({
        {"d/ a p l r one 2 3 4", {"1:12 number-malformed text=one item=6"}},
        {"d/ a p l r 1 2 3 +-4", {"1:18 number-malformed text=+-4 item=9"}},
        {"d/ a p l r 1 2 3 4 5 x", {"1:22 number-malformed text=x item=11"}},
        {"d/ a p l r 1 2h 3 4", {"1:14 number-with-rest text=2h item=7 number=2"}},
        {"d/ a p l r 1 2 3 4.5 6", {"1:18 number-with-rest text=4.5 item=9 number=4"}},
        {"d/ a p l r5 x 2 3 4", {"1:13 number-malformed text=x item=6"}},
    });
}

TEST(ConfigFindings, NumbersThatAreTakenForOthersAreTold) {
    expectAll({
        {"d/ a p l r 2147483648 -2147483649 2147483647 -2147483648",
         {"1:12 number-out-of-range text=2147483648 item=6 number=2147483647",
          "1:23 number-out-of-range text=-2147483649 item=7 number=-2147483648"}},
    });
}

TEST(ConfigFindings, WhatStandsBehindTheLastItemIsTold) {
    expectAll({
        {good + "more and more", {"12:1 surplus-item text=more item=12"}},
        {"d/ a p l r 1 2 3 4 5 6x", {"1:23 surplus-item text=x item=12"}},
    });
}

TEST(ConfigFindings, ForeignBytesAreTold) {
    expectAll({
        {"\xEF\xBB\xBF" + good, {"1:1 byte-order-mark text=\xEF\xBB\xBF"}},
        {"d/ \xE4 p l r 1 2 3 4", {"1:4 not-utf8 text=\xE4"}},
        {"d/ a p l r 1 2 3 4\0"s,
         {"1:19 nul-byte number=1", "1:18 number-with-rest text=4\0 item=9 number=4"s}},
    });
}

TEST(ConfigFindings, TheCheckTakesWhatARunTakesAndSeesWhatItSees) {
    const CapturedLog log;
    const RecordingSink sink;
    const TemporaryDirectory directory;
    std::mt19937 random(5);
    const std::string odd[] = {"x", "-", " ", "9", "\n", "\0"s, "\xFF", "#", ".", "99999999999"};
    int taken = 0;
    for (int round = 0; round < 500; ++round) {
        const std::string home = directory.path("data") + "/";
        std::string text = home + " a p l r 60000 -1 48 50 1 24";
        for (int change = 0; change <= round % 3; ++change) {
            const std::size_t at = home.size() + 1 + random() % (text.size() - home.size() - 1);
            text.replace(at, random() % 3, odd[random() % std::size(odd)]);
        }
        text.resize(std::min(text.size(), home.size() + 8 + random() % 60));
        Clasp clasp;
        int megabytes = 0;
        const bool isRead = readConfiguration(text, "path", &clasp, &megabytes);
        const ConfigurationReport report = checkConfiguration(text);
        ASSERT_EQ(report.accepted, isRead) << text;
        if (!isRead)
            continue;
        ++taken;
        const auto number = [&](std::size_t i) {
            return clampToInt32(report.read.items[i].number.value_or(0));
        };
        EXPECT_EQ(clasp.HardDriveArchive,
                  std::string(report.read.items[0].text) + std::string(report.read.items[1].text));
        EXPECT_EQ(clasp.ResourceText, report.read.items[4].text);
        EXPECT_EQ(clasp.MillisecondsPerSample, number(5)) << text;
        EXPECT_EQ(clasp.MaxForecastHours, number(7)) << text;
        EXPECT_EQ(megabytes, number(8)) << text;
    }
    EXPECT_GT(taken, 100);
    EXPECT_LT(taken, 450);
}

TEST(ConfigFindings, NothingIsLoggedSentOrRemembered) {
    const CapturedLog log;
    const RecordingSink sink;
    enablepooltaggingflag = 7;
    grace_period = 8;
    checkConfiguration(good);
    checkConfiguration("d/");
    EXPECT_EQ(log.text(), "");
    EXPECT_THAT(sink.events, IsEmpty());
    EXPECT_EQ(enablepooltaggingflag, 7);
    EXPECT_EQ(grace_period, 8);
}

} // namespace
} // namespace obrin::test
