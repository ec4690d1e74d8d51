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

TEST(Tolerance, MarginIsTakenOffInDoublePrecision) {
    const float below = 99.95F; // the float next to it, which is less
    ASSERT_LT(static_cast<double>(below), 99.95);
    EXPECT_EQ(newlyReachedLimit(Floats{50, below}, upper100), ReachedLimit::none);
    EXPECT_EQ(newlyReachedLimit(Floats{50, std::nextafter(below, 100.0F)}, upper100), ReachedLimit::upper);
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

TEST(Grid, StepIsADoubleAddedToTimesThatAreFloats) {
    // Over 500 hours the two other ways of computing it end elsewhere.
    Floats times(forecastPoints);
    forecastGrid(0.0F, 0.0F, 1800000.0F, times);
    const double step = 1800000.0 / 199.0;
    Floats expected{0.0F};
    Floats withFloatStep{0.0F};
    Floats fromDoubles{0.0F};
    for (int i = 1; i < forecastPoints; ++i) {
        expected.push_back(static_cast<float>(static_cast<double>(expected.back()) + step));
        withFloatStep.push_back(withFloatStep.back() + static_cast<float>(step));
        fromDoubles.push_back(static_cast<float>(i * step));
    }
    ASSERT_NE(expected, withFloatStep);
    ASSERT_NE(expected, fromDoubles);
    EXPECT_EQ(times, expected);
    EXPECT_EQ(times.back(), 1800003.0F);
}

TEST(Grid, BeginsAtTheSumOfTheOldestTimeAndTheWindowsStart) {
    Floats times(forecastPoints);
    forecastGrid(500.0F, 3600.0F, 7200.0F, times);
    EXPECT_EQ(times[0], 4100.0F);
}

TEST(CrossingSearch, FirstPointBeyondALimitAfterTheNewestSampleCounts) {
    const Crossing crossing = findCrossing(Floats{0, 3600, 7200}, Floats{50, 100, 120}, 1800.0F, upper100);
    EXPECT_TRUE(crossing.ahead);
    EXPECT_EQ(crossing.hours, 0.5);
}

TEST(CrossingSearch, TimeAheadIsADifferenceOfFloats) {
    const float time = 868.34174F;
    const float now = 8192.1F;
    ASSERT_NE(static_cast<double>(time - now), static_cast<double>(time) - static_cast<double>(now));
    EXPECT_EQ(findCrossing(Floats{time}, Floats{100}, now, upper100).hours,
              static_cast<double>(time - now) / 3600.0);
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

TEST(NotificationState, LevelIsComputedInDoublePrecision) {
    ASSERT_NE(0.2F + (100.0F - 0.2F) * 0.5F, 50.1F);
    play({{true, 0.2F, Notification::onset, 1, 50.1F, 5}});
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

TEST(NotificationState, IntentWithoutAnyPatienceLeftIsDroppedAtOnce) {
    Link link;
    link.NotifyPending = 1;
    EXPECT_EQ(advanceNotification(link, false, 50), Notification::cleared);
    EXPECT_EQ(link.NotifyPending, 0);
}

TEST(NotificationState, IdleWithoutAPrediction) {
    play({{false, 99, Notification::none, 0, 0, 0}});
}

TEST(InitialEventStates, AreBothCleared) {
    shownInner = 1;
    shownUpper = 1;
    setInitialEventStates();
    EXPECT_EQ(shownInner, 0);
    EXPECT_EQ(shownUpper, 0);
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

    int predict(ToleranceLimits limits = upper100, float outer = 172800.0F) {
        const PredictionParameters parameters;
        return predict_exhaustion(&link, static_cast<std::int32_t>(x.size()), x.data(), y.data(),
                                  limits.lower, limits.upper, 0.0F, outer, &parameters, &valid, &culprits);
    }

    bool script() const { return std::filesystem::exists(directory.path("Disk_dev_sda1__BM.ini")); }
    std::string scriptText() const { return test::readFile(directory.path("Disk_dev_sda1__BM.ini")); }
    std::string forecast() const { return test::readFile(directory.path("Disk_dev_sda1__BMPRD.gnp")); }

    /// 45 minutes on a line through floats that reaches 100 between the grid's 25th and 26th hour, when the
    /// grid has a point an hour; the event is due.
    void reachTheLimitAfterTwentySixHours() {
        x.clear();
        y.clear();
        for (int i = 0; i <= 300; ++i) {
            x.push_back(9.0F * static_cast<float>(i));
            y.push_back(90.0F + static_cast<float>(i) / 1024.0F);
        }
        link.NotifyPending = 1;
        link.NotifyLevel = 87.5F;
        EXPECT_EQ(predict(upper100, 199 * 3600.0F), 1);
    }

    /// The value of the last point of the forecast, which is far ahead of the samples.
    std::string lastForecastValue(ToleranceLimits limits, float from, float to) {
        line(300, from, to);
        predict(limits);
        const std::string text = forecast();
        const std::size_t end = text.size() - std::min<std::size_t>(text.size(), 2);
        const std::size_t begin = text.rfind(' ', end - 1) + 1;
        return text.substr(begin, end - begin);
    }

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

TEST_F(PredictExhaustion, ForecastBeginsAtTheOldestSampleNotAtTheNewest) {
    line(300, 40, 60);
    predict();
    EXPECT_TRUE(forecast().starts_with("0.000000 40.0000")) << forecast().substr(0, 80);
}

TEST_F(PredictExhaustion, TimeTextOfTheEventIsMadeOfTheSecondsToExhaustion) {
    reachTheLimitAfterTwentySixHours();
    ASSERT_EQ(sink.events.size(), 1U);
    EXPECT_EQ(sink.events[0].seconds, 90900.0);
    EXPECT_EQ(sink.events[0].timeText, "1 day(s) 1 hr(s) 15 min(s) and 0 sec(s)");
}

TEST_F(PredictExhaustion, ImminentExhaustionIsLoggedInSecondsAndHours) {
    reachTheLimitAfterTwentySixHours();
    EXPECT_NE(log.text().find(
                  "Exhaustion notification pending, prediction is TRUE, will fire event at level 87.500000\n"
                  "In 90900.00 seconds (25.25 hours) from NOW,\n"
                  "exhaustion imminent\n"
                  "start sendEvent 1 day(s) 1 hr(s) 15 min(s) and 0 sec(s) 90900.000000 Disk /dev/sda1 /\n"),
              std::string::npos)
        << log.text();
}

TEST_F(PredictExhaustion, ScriptSaysTheHoursAndTheNotificationLevel) {
    reachTheLimitAfterTwentySixHours();
    const TrendLabel label = parseTrendLabel(scriptText());
    EXPECT_TRUE(label.text.ends_with(".      25.25 hours to exhaustion.")) << label.text;
    EXPECT_NE(scriptText().find(", notif level=87.50'"), std::string::npos) << scriptText();
}

TEST_F(PredictExhaustion, OfTwoLimitsTheScriptShowsTheLowerOne) {
    line(300, 40, 60);
    predict({10.0F, 80.0F});
    EXPECT_TRUE(scriptText().starts_with("limit(x) = 1.000000e+01\n")) << scriptText();
    predict({-1.0F, 80.0F});
    EXPECT_TRUE(scriptText().starts_with("limit(x) = 8.000000e+01\n")) << scriptText();
}

TEST_F(PredictExhaustion, ForecastIsShownBetweenZeroAndTheUpperLimitWhenThatIsAlone) {
    EXPECT_EQ(lastForecastValue({-1.0F, 80.0F}, 40, 60), "80.000000");
    EXPECT_EQ(lastForecastValue({-1.0F, 80.0F}, 60, 40), "0.000000");
}

TEST_F(PredictExhaustion, ForecastIsShownBetweenTheLowerLimitAndOneHundredWhateverTheUpperLimit) {
    for (const float upper : {-1.0F, 80.0F}) {
        EXPECT_EQ(lastForecastValue({10.0F, upper}, 40, 60), "100.000000");
        EXPECT_EQ(lastForecastValue({10.0F, upper}, 60, 40), "10.000000");
    }
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
    EXPECT_TRUE(scriptText().starts_with("limit(x) = -1.000000e+00\n")) << scriptText();
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
    const TrendLabel label = parseTrendLabel(scriptText());
    EXPECT_EQ(label.timeStamp, 1700000000);
    EXPECT_EQ(label.text, "Algorithm: simple linear regression.      no exhaustion within horizon.");
    EXPECT_EQ(label.level, -1.0F);
    EXPECT_NE(log.text().find("No exhaustion imminent in the given time limits\n"), std::string::npos);
}

} // namespace
} // namespace obrin
