#include "replay/rivalRules.h"

#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace obrin {
namespace {

constexpr std::int64_t began = 1'700'000'000;
constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 3600;

Verdict of(const std::array<Verdict, rivals>& verdicts, Rival rival) {
    return verdicts[static_cast<std::size_t>(rival)];
}

TEST(SlidingLineTest, IsTheLeastSquaresLineOfItsStretchHoweverLongItRuns) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> noise(-1.0, 1.0);
    SlidingLine line(6 * hour);
    std::vector<std::pair<double, double>> all;
    for (int i = 0; i < 5000; ++i) {
        const std::int64_t time = began + i * minute;
        const double used = 20 + 0.01 * i + noise(random);
        line.add(time, used);
        all.emplace_back(static_cast<double>(i * minute), used);
        if (i < 10 || i % 97 != 0)
            continue;
        long double n = 0;
        long double x = 0;
        long double y = 0;
        for (const auto& [t, u] : all)
            if (t >= all.back().first - 6 * hour) {
                n += 1;
                x += t;
                y += u;
            }
        long double above = 0;
        long double below = 0;
        for (const auto& [t, u] : all)
            if (t >= all.back().first - 6 * hour) {
                above += (t - x / n) * (u - y / n);
                below += (t - x / n) * (t - x / n);
            }
        const long double slope = above / below;
        const long double level = y / n + slope * (all.back().first - x / n);
        ASSERT_GT(slope, 0);
        const auto expected = static_cast<double>((100 - level) / slope) + static_cast<double>(time);
        EXPECT_NEAR(static_cast<double>(line.reaches()), expected, 2.0) << i;
    }
}

TEST(SlidingLineTest, ALineThatDoesNotRiseReachesNothing) {
    SlidingLine line(6 * hour);
    EXPECT_EQ((line.add(began, 50), line.reaches()), 0);
    EXPECT_EQ((line.add(began + minute, 50), line.reaches()), 0);
    EXPECT_EQ((line.add(began + 2 * minute, 40), line.reaches()), 0);
}

TEST(RivalRulesTest, LineRulesHoldTheirConditionForAnHour) {
    RivalRules rules(48 * hour);
    // Ten points an hour, from 40 %: 60 % after 2 h, 80 % after 4 h, full after 6 h.
    std::int64_t first24 = 0;
    std::int64_t first4 = 0;
    for (std::int64_t t = 0; t <= 6 * hour; t += minute) {
        const auto verdicts = rules.take(began + t, 40.0 + 10.0 * static_cast<double>(t) / hour);
        const Verdict within24 = of(verdicts, Rival::line6h24h);
        if (within24.isAlarm && first24 == 0) {
            first24 = t;
            EXPECT_NEAR(static_cast<double>(within24.announced), static_cast<double>(began + 6 * hour), 2.0);
        }
        if (of(verdicts, Rival::line6h4h).isAlarm && first4 == 0)
            first4 = t;
    }
    EXPECT_EQ(first24, 3 * hour);
    EXPECT_EQ(first4, 5 * hour);
}

TEST(RivalRulesTest, AConditionThatIsInterruptedBeginsAnew) {
    RivalRules rules(48 * hour);
    for (std::int64_t t = 0; t < 50 * minute; t += minute)
        rules.take(began + t, 70.0 + 3.0 * static_cast<double>(t) / hour);
    rules.take(began + 50 * minute, 59.0);
    bool alarm = false;
    for (std::int64_t t = 51 * minute; t < 100 * minute; t += minute)
        alarm =
            alarm ||
            of(rules.take(began + t, 70.0 + 3.0 * static_cast<double>(t) / hour), Rival::line6h24h).isAlarm;
    EXPECT_FALSE(alarm);
}

TEST(RivalRulesTest, TwoPointsAreAnHourApart) {
    RivalRules rules(48 * hour);
    Verdict verdict;
    for (std::int64_t t = 0; t < hour; t += minute)
        EXPECT_FALSE(
            of(rules.take(began + t, 10.0 + static_cast<double>(t) / hour), Rival::twoPoints1h).isAlarm);
    verdict = of(rules.take(began + hour, 12.0), Rival::twoPoints1h); // two points an hour: 44 h
    EXPECT_TRUE(verdict.isAlarm);
    EXPECT_EQ(verdict.announced, began + 45 * hour);
    verdict = of(rules.take(began + hour + minute, 11.0), Rival::twoPoints1h); // 89 h are beyond the horizon
    EXPECT_FALSE(verdict.isAlarm);
}

TEST(RivalRulesTest, TheThresholdIsNinetyPerCent) {
    RivalRules rules(48 * hour);
    EXPECT_FALSE(of(rules.take(began, 89.99), Rival::threshold90).isAlarm);
    EXPECT_TRUE(of(rules.take(began + 1, 90.0), Rival::threshold90).isAlarm);
}

} // namespace
} // namespace obrin
