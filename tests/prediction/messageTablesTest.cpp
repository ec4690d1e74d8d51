// The texts of the forecast, of the notification state and of the events.

#include "agent/agentState.h"
#include "prediction/eventDelivery.h"
#include "prediction/exhaustion.h"
#include "prediction/modelSelection.h"
#include "tests/support/recordingSink.h"
#include "tests/support/sourceText.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <regex>
#include <vector>

namespace obrin::test {
namespace {

TEST(ForecastTexts, ModelsHaveTheirNames) {
    EXPECT_STREQ(model0, "simple linear regression");
    EXPECT_STREQ(model1, "hinge regression");
    EXPECT_STREQ(model2, "3-segment linear regression");
    EXPECT_STREQ(model3, "simple linear regression on log");
    EXPECT_STREQ(model4, "hinge regression on log");
    EXPECT_STREQ(model5, "3-segment linear regression on log");
    EXPECT_STREQ(no_model, "Not enough data: no model selected");
}

/// A resource and its history before a cycle, and what the cycle logs.
struct Row {
    float from;
    float to;
    ToleranceLimits limits;
    std::int32_t pending;
    float level;
    std::int32_t hysteresis;
    const char* logged; ///< behind the line of the model
};

constexpr ToleranceLimits upper100{-1.0F, 100.0F};

const Row rows[] = {
    {50, 50, upper100, 0, 0, 0, "No exhaustion imminent in the given time limits\n"},
    {40, 60, upper100, 0, 0, 0, "Onset of exhaustion detected, setting notification level to 80.000000\n"},
    {40, 60, upper100, 1, 90.5F, 5,
     "Exhaustion notification pending, prediction is TRUE, will fire event at level 90.500000\n"},
    {50, 50, upper100, 1, 80, 5,
     "Exhaustion notification pending, prediction if FALSE, decrementing hysteresis count to 4\n"},
    {50, 50, upper100, 1, 80, 1,
     "Exhaustion notification pending, prediction if FALSE, decrementing hysteresis count to 0\n"
     "Clearing intent to notify\n"},
};

class CycleTexts : public testing::Test {
protected:
    CycleTexts() {
        setInitialEventStates();
        clasp.DataHomeDirectory = directory.path("");
        link.pClasp = &clasp;
        link.NameIs = "Disk";
        link.Descriptor1 = "/dev/sda1 /";
    }

    /// What one cycle over n samples in a straight line logs.
    std::string cycle(int n, float from, float to, ToleranceLimits limits) {
        std::vector<float> x;
        std::vector<float> y;
        for (int i = 0; i < n; ++i) {
            x.push_back(10.0F * static_cast<float>(i));
            y.push_back(from + (to - from) * static_cast<float>(i) / static_cast<float>(n - 1));
        }
        const std::size_t before = log.text().size();
        const PredictionParameters parameters;
        std::int32_t valid = 0;
        predict_exhaustion(&link, n, x.data(), y.data(), limits.lower, limits.upper, 0.0F, 172800.0F,
                           &parameters, &valid, nullptr);
        return log.text().substr(before);
    }

    TemporaryDirectory directory;
    CapturedLog log;
    RecordingSink sink;
    Clasp clasp;
    Link link;
};

TEST_F(CycleTexts, EachStateOfTheNotificationIsLoggedInItsText) {
    for (const Row& row : rows) {
        link.NotifyPending = row.pending;
        link.NotifyLevel = row.level;
        link.HysteresisCount = row.hysteresis;
        const std::string logged = cycle(300, row.from, row.to, row.limits);
        EXPECT_TRUE(logged.starts_with("Selected model:simple linear regression\n")) << logged;
        EXPECT_EQ(logged.substr(logged.find('\n') + 1), row.logged);
    }
    EXPECT_TRUE(sink.events.empty());
}

TEST_F(CycleTexts, TooFewSamplesAreLoggedAsNoModel) {
    EXPECT_EQ(cycle(100, 40, 60, upper100), "Selected model:Not enough data: no model selected\n");
}

TEST_F(CycleTexts, AReachedLimitIsLoggedWithItsSide) {
    EXPECT_TRUE(cycle(2, 50, 100, upper100)
                    .starts_with("Resource Disk /dev/sda1 / is at level 100.000000, equal to or above upper "
                                 "tolerance of 100.000000\nSelected model:"));
    EXPECT_TRUE(cycle(2, 50, -0.5F, {0.0F, -1.0F})
                    .starts_with("Resource Disk /dev/sda1 / is at level -0.500000, equal to or below lower "
                                 "tolerance of 0.000000\nSelected model:"));
}

TEST_F(CycleTexts, AnEventIsLoggedWithItsTimeInSecondsAndHours) {
    link.NotifyPending = 1;
    link.NotifyLevel = 50;
    const std::string logged = cycle(300, 40, 60, upper100);
    ASSERT_EQ(sink.events.size(), 1U);
    const double seconds = sink.events[0].seconds;
    char times[128];
    std::snprintf(times, sizeof times, "In %.2f seconds (%.2f hours) from NOW,\nexhaustion imminent\n",
                  seconds, seconds / 3600.0);
    const std::string begin =
        "Exhaustion notification pending, prediction is TRUE, will fire event at level 50.000000\n";
    EXPECT_NE(logged.find(begin + times + "start sendEvent " + sink.events[0].timeText), std::string::npos)
        << logged;
}

TEST(EventTexts, AnEventIsLoggedWithItsArgumentsAndTheTimeOfDay) {
    CapturedLog log;
    RecordingSink sink;
    sendEvent("1 day(s)", 86400.5, "Swap", "here", "java(1)2");
    const std::regex lines("start sendEvent 1 day\\(s\\) 86400\\.500000 Swap here\n"
                           "EXHAUSTION will occur within 1 day\\(s\\)\tfrom "
                           "[0-2]\\d:[0-5]\\d:[0-6]\\d [01]\\d/[0-3]\\d/\\d{4}\n");
    EXPECT_TRUE(std::regex_match(log.text(), lines)) << log.text();
}

TEST(ForecastTexts, TextsOfFailuresThatNothingBringsAboutStandInTheSource) {
    const std::string source = sourceText("prediction/predictor.cpp");
    for (const char* text : {"\"TestforImpendingOutage call failed. Error Code %d\\n\", tested)",
                             "\"bestmodelObrin call failed.\\n\")"})
        EXPECT_NE(source.find(text), std::string::npos) << text;
}

} // namespace
} // namespace obrin::test
