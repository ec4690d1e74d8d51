#include "prediction/scorekeeper.h"

#include <cmath>
#include <gtest/gtest.h>

namespace obrin {
namespace {

constexpr std::int64_t start = 1'700'000'000;
constexpr std::int64_t minute = 60;
constexpr std::int64_t hour = 3600;

class ScorekeeperTest : public testing::Test {
protected:
    std::optional<Episode> see(std::int64_t after, double used, bool pending, std::int64_t announced = 0,
                               bool event = false) {
        return score.take(
            {start + after, used, used >= 99.95, pending, event, announced == 0 ? 0 : start + announced});
    }

    Scorekeeper score;
};

TEST_F(ScorekeeperTest, AnEpisodeThatReachesTheLimitKnowsItsLeadsAndErrors) {
    see(0, 50, false);
    // From the onset on the exhaustion is announced an hour too late, from the event on half an hour too
    // early.
    constexpr std::int64_t limit = 26 * hour;
    std::optional<Episode> ended;
    for (std::int64_t t = minute; t <= limit && !ended; t += minute) {
        const bool late = t < 19 * hour;
        ended =
            see(t, t < limit ? 60.0 : 100.0, true, late ? limit + hour : limit - hour / 2, t >= 19 * hour);
        EXPECT_EQ(score.hasJustReached(), t == limit);
    }
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::reached);
    EXPECT_EQ(ended->onset, start + minute);
    EXPECT_EQ(ended->firstEvent, start + 19 * hour);
    EXPECT_EQ(ended->end, start + limit);
    EXPECT_EQ(ended->announcedAtOnset, start + limit + hour);
    EXPECT_EQ(ended->announcedAtEvent, start + limit - hour / 2);
    EXPECT_EQ(ended->errors[0], 1.0);  // 24 h before
    EXPECT_EQ(ended->errors[1], 1.0);  // 12 h before
    EXPECT_EQ(ended->errors[2], -0.5); // 6 h before: the newest announcement of five minutes
    EXPECT_EQ(ended->errors[4], -0.5);
    EXPECT_EQ(score.open(), nullptr);
}

TEST_F(ScorekeeperTest, WhereNothingWasAnnouncedThereIsNoError) {
    see(0, 50, false);
    for (std::int64_t t = minute; t < 2 * hour; t += minute)
        see(t, 60, true, 2 * hour);
    const auto ended = see(2 * hour, 100, true, 2 * hour);
    ASSERT_TRUE(ended);
    EXPECT_TRUE(std::isnan(ended->errors[3])); // 3 h before
    EXPECT_EQ(ended->errors[4], 0.0);
}

TEST_F(ScorekeeperTest, WithAClockThatStepsAllIsMovedAndNothingIsForgotten) {
    for (const std::int64_t step : {-2 * hour, 24 * hour}) {
        score.restart();
        see(0, 50, false);
        std::optional<Episode> ended;
        constexpr std::int64_t limit = 7 * hour;
        for (std::int64_t t = minute; t <= limit; t += minute) {
            if (t == 3 * hour)
                score.move(step);
            const std::int64_t moved = t < 3 * hour ? 0 : step;
            ended = see(t + moved, t < limit ? 60.0 : 100.0, true, limit + hour + moved);
        }
        ASSERT_TRUE(ended);
        EXPECT_EQ(ended->onset, start + minute + step);
        EXPECT_EQ(ended->announcedAtOnset, start + limit + hour + step);
        EXPECT_EQ(ended->firstEvent, 0) << "never stays never";
        EXPECT_EQ(ended->errors[2], 1.0) << "6 h before, which was before the step";
        EXPECT_EQ(score.announcements().front().time, start + minute + step);
    }
}

TEST_F(ScorekeeperTest, AFallIsSeenAcrossAStepOfTheClock) {
    see(0, 50, true, hour);
    see(minute, 70, true, hour);
    score.move(10 * hour);
    const auto ended = see(10 * hour + 2 * minute, 55, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::freed);
}

TEST_F(ScorekeeperTest, AnIntentThatIsDroppedHasLevelledOff) {
    see(0, 50, true, hour);
    see(minute, 60, true, hour);
    const auto ended = see(2 * minute, 60, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::levelledOff);
    EXPECT_EQ(ended->highest, 60.0);
    EXPECT_EQ(ended->firstEvent, 0);
    EXPECT_TRUE(std::isnan(ended->errors[0]));
}

TEST_F(ScorekeeperTest, AFallByHalfOfTheRiseWithinAnHourIsFreed) {
    see(0, 50, true, hour);
    see(minute, 70, true, hour);
    see(30 * minute, 60, true, hour);
    const auto ended = see(40 * minute, 60, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::freed);
}

TEST_F(ScorekeeperTest, AFallThatTakesLongerThanAnHourIsNotFreed) {
    see(0, 50, true, hour);
    for (std::int64_t t = 0; t <= 100; ++t)
        see(minute + t * minute, 70.0 - 0.1 * static_cast<double>(t), true,
            hour); // ten points in 100 minutes
    const auto ended = see(2 * hour, 60, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::levelledOff);
}

TEST_F(ScorekeeperTest, AFallThatWasMadeUpForIsNotFreed) {
    see(0, 50, true, hour);
    see(minute, 70, true, hour);
    see(2 * minute, 60, true, hour);
    see(3 * minute, 70, true, hour);
    const auto ended = see(4 * minute, 70, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::levelledOff);
}

TEST_F(ScorekeeperTest, AFallByLessThanHalfOfTheRiseIsNotFreed) {
    see(0, 50, true, hour);
    see(minute, 70, true, hour);
    see(2 * minute, 61, true, hour);
    const auto ended = see(3 * minute, 61, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::levelledOff);
}

TEST_F(ScorekeeperTest, AnAnnouncementThatWasTakenBackLeavesNoError) {
    see(0, 50, false);
    for (std::int64_t t = minute; t < 2 * hour; t += minute)
        see(t, 60, true, 5 * hour);
    for (std::int64_t t = 2 * hour; t < 5 * hour; t += minute)
        see(t, 60, true); // the intent stands, the exhaustion is out of sight
    const auto ended = see(5 * hour, 100, true);
    ASSERT_TRUE(ended);
    EXPECT_TRUE(std::isnan(ended->errors[4])); // an hour before
}

TEST_F(ScorekeeperTest, AnEpisodeThatLevelledOffHasNoErrors) {
    for (std::int64_t t = 0; t < 30 * hour; t += minute)
        see(t, 60, true, 40 * hour);
    const auto ended = see(30 * hour, 60, false);
    ASSERT_TRUE(ended);
    EXPECT_TRUE(std::isnan(ended->errors[0]));
    EXPECT_TRUE(std::isnan(ended->errors[4]));
}

TEST_F(ScorekeeperTest, ATremblingValueIsNotFreed) {
    see(0, 50, true, hour);
    see(minute, 50.5, true, hour);
    const auto ended = see(2 * minute, 50.0, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::levelledOff);
}

TEST_F(ScorekeeperTest, WhatWasBeforeTheOnsetIsNoFall) {
    see(0, 90, false);
    see(minute, 50, true, hour);
    for (std::int64_t t = 0; t <= 110; ++t)
        see(2 * minute + t * minute, 52.0 - 0.01 * static_cast<double>(t), true,
            hour); // too slow to be a fall
    const auto ended = see(113 * minute, 50.9, false);
    ASSERT_TRUE(ended);
    EXPECT_EQ(ended->outcome, Outcome::levelledOff);
}

TEST_F(ScorekeeperTest, AtTheLimitNoEpisodeBegins) {
    see(0, 50, false);
    EXPECT_FALSE(see(minute, 100, true, hour));
    EXPECT_TRUE(score.hasJustReached());
    EXPECT_EQ(score.open(), nullptr);
    EXPECT_FALSE(see(2 * minute, 99, true, hour));
    EXPECT_EQ(score.open(), nullptr) << "the intent stands since before the limit";
}

TEST_F(ScorekeeperTest, AResourceThatIsFoundAtItsLimitHasNotJustReachedIt) {
    see(0, 100, false);
    EXPECT_FALSE(score.hasJustReached());
    see(minute, 50, false);
    see(2 * minute, 100, false);
    EXPECT_TRUE(score.hasJustReached());
    see(3 * minute, 100, false);
    EXPECT_FALSE(score.hasJustReached());
}

TEST_F(ScorekeeperTest, AfterTheEndANewOnsetIsNeeded) {
    see(0, 50, true, hour);
    EXPECT_TRUE(see(minute, 100, true, hour));
    see(2 * minute, 60, true, hour);
    EXPECT_EQ(score.open(), nullptr);
    see(3 * minute, 60, false);
    see(4 * minute, 60, true, hour);
    ASSERT_NE(score.open(), nullptr);
    EXPECT_EQ(score.open()->onset, start + 4 * minute);
    EXPECT_TRUE(std::isnan(score.open()->errors[0])) << "an open episode has no errors yet";
}

TEST_F(ScorekeeperTest, ARestartForgetsTheOpenEpisodeAndMakesTheNextIntentAnOnset) {
    see(0, 50, true, hour);
    score.restart();
    EXPECT_EQ(score.open(), nullptr);
    EXPECT_TRUE(score.announcements().empty());
    see(minute, 50, true, hour);
    ASSERT_NE(score.open(), nullptr);
}

TEST_F(ScorekeeperTest, AnnouncementsAreOfTheLastDayAndFiveMinutesApart) {
    for (std::int64_t t = 0; t <= 72 * hour; t += minute)
        see(t, 50, true, t + hour);
    const auto& announcements = score.announcements();
    EXPECT_EQ(announcements.size(), 25U * 12 + 1);
    EXPECT_EQ(announcements.front().time, start + 47 * hour);
    EXPECT_EQ(announcements.back().time, start + 72 * hour);
    EXPECT_EQ(announcements.back().announced, start + 73 * hour);
}

TEST_F(ScorekeeperTest, AClockThatIsPutBackLeavesNothingOfTheFuture) {
    see(10 * hour, 50, true, 11 * hour);
    see(0, 50, true, hour);
    ASSERT_EQ(score.announcements().size(), 1U);
    EXPECT_EQ(score.announcements().front().time, start);
}

} // namespace
} // namespace obrin
