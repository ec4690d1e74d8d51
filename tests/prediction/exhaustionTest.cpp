#include "prediction/exhaustion.h"

#include "agent/agentState.h"
#include "prediction/trendFileFormat.h"
#include "support/systemPaths.h"
#include "tests/support/recordingSink.h"
#include "tests/support/temporaryDirectory.h"

#include <cmath>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace obrin {
namespace {

constexpr ToleranceLimits upper100{-1.0F, 100.0F};
constexpr ToleranceLimits lower0{0.0F, -1.0F};
constexpr ToleranceLimits both{0.0F, 100.0F};
constexpr ToleranceLimits noLimits{-1.0F, -1.0F};

using Floats = std::vector<float>;

TEST(Limits, EachMethodHasItsLimits) {
    EXPECT_EQ(limitsOfMethod(1).upper, 100.0F);
    EXPECT_EQ(limitsOfMethod(1).lower, -1.0F);
    EXPECT_EQ(limitsOfMethod(2).upper, -1.0F);
    EXPECT_EQ(limitsOfMethod(2).lower, 0.0F);
    EXPECT_EQ(limitsOfMethod(3).upper, 100.0F);
    EXPECT_EQ(limitsOfMethod(3).lower, 0.0F);
    for (int method : {0, 4, -1, 2147483647}) {
        EXPECT_EQ(limitsOfMethod(method).upper, -1.0F);
        EXPECT_EQ(limitsOfMethod(method).lower, -1.0F);
    }
}

TEST(Tolerance, NewestValueWithinTheMarginOfTheUpperLimitCountsAndJustOutsideItDoesNot) {
    EXPECT_EQ(newlyReachedLimit(Floats{50, 99.96F}, upper100), ReachedLimit::upper);
    EXPECT_EQ(newlyReachedLimit(Floats{50, 99.94F}, upper100), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{50, 99.9F}, upper100), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{100}, upper100), ReachedLimit::upper);
}

TEST(Tolerance, LowerLimitHasNoMargin) {
    EXPECT_EQ(newlyReachedLimit(Floats{5, 0}, lower0), ReachedLimit::lower);
    EXPECT_EQ(newlyReachedLimit(Floats{5, 0.01F}, lower0), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{5, -3}, both), ReachedLimit::lower);
}

TEST(Tolerance, ResourceBeyondItsLimitForTwoSamplesStaysSilent) {
    EXPECT_EQ(newlyReachedLimit(Floats{50, 100, 100}, upper100), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{100, 50, 100}, upper100), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{0, 50, 100}, both), ReachedLimit::none);
}

TEST(Tolerance, WithoutLimitsAndWithNaNNothingIsReached) {
    EXPECT_EQ(newlyReachedLimit(Floats{-1, 200}, noLimits), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{NAN, NAN}, both), ReachedLimit::none);
}

TEST(Grid, BeginsAtTheOldestSamplePlusTheWindowsStartAndEndsNearItsEnd) {
    Floats times(forecastPoints);
    forecastGrid(0.0F, 3600.0F, 172800.0F, times);
    EXPECT_EQ(times[0], 3600.0F);
    float expected = 3600.0F;
    const double step = (172800.0 - 3600.0) / 199.0;
    for (std::size_t i = 1; i < times.size(); ++i) {
        expected = static_cast<float>(static_cast<double>(expected) + step);
        ASSERT_EQ(times[i], expected) << i;
    }
    EXPECT_NEAR(times.back(), 172800.0F, 1.0F);
}

TEST(CrossingSearch, FirstPointBeyondALimitAfterTheNewestSampleCounts) {
    const Crossing crossing = findCrossing(Floats{0, 3600, 7200}, Floats{50, 100, 120}, 1800.0F, upper100);
    EXPECT_TRUE(crossing.ahead);
    EXPECT_EQ(crossing.hours, 0.5);
}

TEST(CrossingSearch, CrossingAtOrBeforeTheNewestSampleDoesNotCountButItsTimeStays) {
    const Crossing crossing = findCrossing(Floats{0, 3600}, Floats{100, 100}, 3600.0F, upper100);
    EXPECT_FALSE(crossing.ahead);
    EXPECT_EQ(crossing.hours, 0.0);
    EXPECT_EQ(findCrossing(Floats{0, 3600}, Floats{100, 50}, 3600.0F, upper100).hours, -1.0);
}

TEST(CrossingSearch, UpperLimitHasNoMarginInTheForecast) {
    EXPECT_FALSE(findCrossing(Floats{10}, Floats{99.99F}, 0.0F, upper100).ahead);
    EXPECT_TRUE(findCrossing(Floats{10}, Floats{0.0F}, 0.0F, lower0).ahead);
}

TEST(CrossingSearch, WithBothLimitsAbsentTheForecastNeverCrosses) {
    const Crossing crossing = findCrossing(Floats{10, 20}, Floats{-1000, 1000}, 0.0F, noLimits);
    EXPECT_FALSE(crossing.ahead);
    EXPECT_EQ(crossing.hours, -1.0);
}

TEST(CrossingSearch, NaNNeverCrosses) {
    EXPECT_FALSE(findCrossing(Floats{10, 20}, Floats{NAN, NAN}, 0.0F, both).ahead);
}

/// One cycle of the notification state and what must come of it.
struct Cycle {
    bool ahead;
    float last;
    Notification expected;
    int pending;
    float level;
    int hysteresis;
};

void play(const std::vector<Cycle>& cycles) {
    Link link;
    for (std::size_t i = 0; i < cycles.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(advanceNotification(link, cycles[i].ahead, cycles[i].last), cycles[i].expected);
        EXPECT_EQ(link.NotifyPending, cycles[i].pending);
        EXPECT_EQ(link.NotifyLevel, cycles[i].level);
        EXPECT_EQ(link.HysteresisCount, cycles[i].hysteresis);
    }
}

TEST(NotificationState, FirstPositivePredictionSetsTheLevelHalfwayTo100AndFiresNothing) {
    play({{true, 60, Notification::onset, 1, 80, 5}});
}

TEST(NotificationState, SecondPositivePredictionFiresOnlyAtTheLevel) {
    play({{true, 60, Notification::onset, 1, 80, 5},
          {true, 79.9F, Notification::pending, 1, 80, 5},
          {true, 80, Notification::fires, 1, 80, 5}});
}

TEST(NotificationState, LevelIsFixedOnceAndTheEventFiresAgainEveryCycle) {
    play({{true, 60, Notification::onset, 1, 80, 5},
          {true, 90, Notification::fires, 1, 80, 5},
          {true, 95, Notification::fires, 1, 80, 5},
          {true, 70, Notification::pending, 1, 80, 5}});
}

TEST(NotificationState, FiveCyclesWithoutAPositivePredictionClearTheIntent) {
    play({{true, 60, Notification::onset, 1, 80, 5},
          {false, 90, Notification::fading, 1, 80, 4},
          {false, 90, Notification::fading, 1, 80, 3},
          {false, 90, Notification::fading, 1, 80, 2},
          {false, 90, Notification::fading, 1, 80, 1},
          {false, 90, Notification::cleared, 0, 80, 0},
          {false, 90, Notification::none, 0, 80, 0},
          {true, 90, Notification::onset, 1, 95, 5}});
}

TEST(NotificationState, PositivePredictionResetsTheHysteresis) {
    play({{true, 60, Notification::onset, 1, 80, 5},
          {false, 60, Notification::fading, 1, 80, 4},
          {false, 60, Notification::fading, 1, 80, 3},
          {true, 60, Notification::pending, 1, 80, 5},
          {false, 60, Notification::fading, 1, 80, 4}});
}

TEST(NotificationState, IdleWithoutAPrediction) {
    play({{false, 99, Notification::none, 0, 0, 0}});
}

TEST(Clipping, UpperLimitAloneClipsToItAndToZero) {
    Floats values{-5, 0, 50, 100, 130};
    clipForDisplay(values, upper100);
    EXPECT_EQ(values, (Floats{0, 0, 50, 100, 100}));
}

TEST(Clipping, LowerLimitClipsToItAndToOneHundred) {
    for (ToleranceLimits limits : {lower0, both}) {
        Floats values{-5, 0, 50, 100, 130};
        clipForDisplay(values, limits);
        EXPECT_EQ(values, (Floats{0, 0, 50, 100, 100}));
    }
}

TEST(Clipping, WithoutLimitsNothingIsClipped) {
    Floats values{-5, 130};
    clipForDisplay(values, noLimits);
    EXPECT_EQ(values, (Floats{-5, 130}));
}

/// A whole resource with a rising history, from samples to events and files.
class PredictExhaustion : public testing::Test {
protected:
    PredictExhaustion() {
        setInitialEventStates();
        clasp.DataHomeDirectory = directory.path("");
        link.pClasp = &clasp;
        link.NameIs = "Disk";
        link.Descriptor1 = "/dev/sda1 /";
        TimeStamp = 1700000000;
    }

    /// n samples ten seconds apart, from `from` to `to` in a straight line.
    void line(int n, float from, float to) {
        x.clear();
        y.clear();
        for (int i = 0; i < n; ++i) {
            x.push_back(10.0F * static_cast<float>(i));
            y.push_back(from + (to - from) * static_cast<float>(i) / static_cast<float>(n - 1));
        }
    }

    int predict(ToleranceLimits limits = upper100) {
        const PredictionParameters parameters;
        return predict_exhaustion(&link, static_cast<std::int32_t>(x.size()), x.data(), y.data(),
                                  limits.lower, limits.upper, 0.0F, 172800.0F, &parameters, &valid,
                                  &culprits);
    }

    bool script() const { return std::filesystem::exists(directory.path("Disk_dev_sda1__BM.ini")); }

    test::TemporaryDirectory directory;
    test::CapturedLog log;
    test::RecordingSink sink;
    Clasp clasp;
    Link link;
    Floats x;
    Floats y;
    std::int32_t valid = -1;
    char culpritBytes[culpritTextSize] = " tar(7)42";
    CulpritText culprits{culpritBytes};
};

TEST_F(PredictExhaustion, OnsetFirstThenTheEventOnceTheLevelIsReached) {
    line(300, 40, 60);
    EXPECT_EQ(predict(), 0);
    EXPECT_EQ(valid, 1);
    EXPECT_TRUE(sink.events.empty());
    EXPECT_NE(log.text().find("Selected model:"), std::string::npos);
    EXPECT_NE(log.text().find("Onset of exhaustion detected, setting notification level to 80.000000\n"),
              std::string::npos)
        << log.text();
    line(300, 61, 81);
    EXPECT_EQ(predict(), 1);
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].name, "Disk");
    EXPECT_EQ(sink.events[0].instance, "/dev/sda1 /");
    EXPECT_EQ(sink.events[0].culprit, " tar(7)42");
    // 19 per cent are left, at 20 per cent in 2990 seconds: the truth, to a step of the grid.
    EXPECT_NEAR(sink.events[0].seconds, 2840.5, 172800.0 / 199.0);
    EXPECT_NE(log.text().find("prediction is TRUE, will fire event at level 80.000000\n"), std::string::npos);
    EXPECT_NE(log.text().find("exhaustion imminent\n"), std::string::npos);
}

TEST_F(PredictExhaustion, WithoutEnoughDataTheStateAndTheFilesStayAsTheyAre) {
    link.NotifyPending = 1;
    link.NotifyLevel = 77.0F;
    link.HysteresisCount = 3;
    line(100, 40, 60);
    EXPECT_EQ(predict(), 0);
    EXPECT_EQ(valid, 0);
    EXPECT_EQ(link.NotifyPending, 1);
    EXPECT_EQ(link.HysteresisCount, 3);
    EXPECT_FALSE(script());
    EXPECT_NE(log.text().find("Selected model:Not enough data: no model selected\n"), std::string::npos);
}

TEST_F(PredictExhaustion, OneSampleIsEnoughForTheToleranceCheck) {
    x = {0};
    y = {100};
    EXPECT_EQ(predict(), 0);
    ASSERT_EQ(sink.upperEvents.size(), 1U);
    EXPECT_EQ(sink.upperEvents[0].limit, 100.0);
}

TEST_F(PredictExhaustion, ToleranceEventsOfEveryResourceAreSuppressedUntilAnAcceptedEvent) {
    x = {0, 10};
    y = {50, 100};
    predict();
    Link other;
    other.pClasp = &clasp;
    other.NameIs = "Swap";
    const PredictionParameters parameters;
    predict_exhaustion(&other, 2, x.data(), y.data(), -1.0F, 100.0F, 0.0F, 172800.0F, &parameters, &valid,
                       nullptr);
    EXPECT_EQ(sink.upperEvents.size(), 1U);
    EXPECT_NE(log.text().find(
                  "Resource Disk /dev/sda1 / is at level 100.000000, equal to or above upper tolerance of "
                  "100.000000\nSelected model"),
              std::string::npos)
        << log.text();
    EXPECT_NE(log.text().find("Resource Swap  is at level"), std::string::npos);
    setInitialEventStates();
    predict();
    EXPECT_EQ(sink.upperEvents.size(), 2U);
    EXPECT_TRUE(sink.innerEvents.empty());
}

TEST_F(PredictExhaustion, LowerLimitGoesThroughTheSameMethodAndFlag) {
    x = {0, 10};
    y = {50, 0};
    predict(lower0);
    ASSERT_EQ(sink.upperEvents.size(), 1U);
    EXPECT_EQ(sink.upperEvents[0].limit, 0.0);
    EXPECT_EQ(shownUpper, 1);
    EXPECT_NE(log.text().find("equal to or below lower tolerance of 0.000000\n"), std::string::npos);
}

TEST_F(PredictExhaustion, RefusedEventKeepsTheToleranceFlagAndAnAcceptedOneClearsIt) {
    for (bool accepts : {false, true}) {
        sink.accepts = accepts;
        shownUpper = 1;
        link.NotifyPending = 1;
        link.NotifyLevel = 50.0F;
        line(300, 61, 81);
        EXPECT_EQ(predict(), 1);
        EXPECT_EQ(shownUpper, accepts ? 0 : 1);
    }
}

TEST_F(PredictExhaustion, WithoutLimitsNothingFiresAndTheScriptsLimitIsMinusOne) {
    line(300, 40, 99);
    EXPECT_EQ(predict(noLimits), 0);
    EXPECT_TRUE(sink.events.empty());
    EXPECT_TRUE(sink.upperEvents.empty());
    const std::string text = test::readFile(directory.path("Disk_dev_sda1__BM.ini"));
    EXPECT_TRUE(text.starts_with("limit(x) = -1.000000e+00\n")) << text;
}

TEST_F(PredictExhaustion, TimeAxisThatStandsStillOrStepsBackEndsWithoutAFalseEvent) {
    line(300, 40, 60);
    for (float& time : x)
        time = 0.0F;
    predict();
    line(300, 40, 60);
    for (std::size_t i = 150; i < x.size(); ++i)
        x[i] -= 86400.0F;
    predict();
    EXPECT_TRUE(sink.events.empty());
    EXPECT_EQ(valid, 1);
}

TEST_F(PredictExhaustion, ValuesThatAreNotFiniteCrashNothing) {
    for (float odd : {NAN, INFINITY, -INFINITY, std::numeric_limits<float>::max()}) {
        line(300, 40, 60);
        y[100] = odd;
        y.back() = odd;
        predict(both);
    }
}

TEST_F(PredictExhaustion, FilesOfAForecastWithoutACrossingSayNoExhaustion) {
    line(300, 50, 50);
    EXPECT_EQ(predict(), 0);
    EXPECT_TRUE(script());
    const TrendLabel label = parseTrendLabel(test::readFile(directory.path("Disk_dev_sda1__BM.ini")));
    EXPECT_EQ(label.timeStamp, 1700000000);
    EXPECT_EQ(label.text, "Algorithm: simple linear regression.      no exhaustion within horizon.");
    EXPECT_EQ(label.level, -1.0F);
    EXPECT_NE(log.text().find("No exhaustion imminent in the given time limits\n"), std::string::npos);
}

} // namespace
} // namespace obrin
